#include <ovkit/OrvaEvent.h>

#include "support/Sanitizers.h"
#include "support/ThreadTestHelpers.h"

#include <gtest/gtest.h>

#ifdef OVKIT_TEST_THREAD_SANITIZER
#include <sanitizer/allocator_interface.h>
#endif

#include <atomic>
#include <cstdlib>
#include <new>
#include <thread>
#include <utility>

using namespace OrvaSupport;
using ovkit_test::BodyThread;

TEST(OrvaEventTest, SetWakesOnlyThoseWaitingAndTellsTheDependentsFirst)
{
    OrvaEvent event;
    // A limited wait reads its limit as an absolute time long past (with
    // 32-bit nanoseconds): it never blocks, and from one second on it fails.
    for (auto c : {std::pair<int, int>{0, -2}, {999, -2}, {1000, -3}, {-5, -3}, {4295, -2}})
        EXPECT_EQ(event.wait(c.first), c.second) << c.first;

    event.set(); // nobody waits: lost
    std::atomic<int> woken{0}, results{0};
    auto waitOnce = [&]
    {
        results += event.wait(-1) == 0;
        ++woken;
    };
    BodyThread first(waitOnce);
    ASSERT_TRUE(first.sleeping());
    BodyThread second(waitOnce);
    ASSERT_TRUE(second.sleeping());
    EXPECT_EQ(woken, 0);

    // The dependent is told on the setter's thread, before any waiter wakes.
    int calls = 0, id = 0, wokenBefore = -1;
    std::thread::id told;
    ovkit_test::CallDependent witness(
        [&](const OrvaNotification& n)
        {
            ++calls;
            id = n.getId();
            wokenBefore = woken;
            told = std::this_thread::get_id();
        });
    event.addDependent(witness);
    event.set(); // one set releases both
    ASSERT_TRUE(ovkit_test::waitFor([&] { return woken == 2; }));
    EXPECT_EQ(results, 2);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(id, 1);
    EXPECT_EQ(wokenBefore, 0);
    EXPECT_EQ(told, std::this_thread::get_id());
}

// Heap allocations made by this thread while counting is on.
namespace
{
thread_local bool t_bCounting = false;
thread_local int t_nAllocations = 0;
} // namespace

#ifdef OVKIT_TEST_THREAD_SANITIZER
// The thread sanitizer's runtime defines the global operator new itself, so
// it cannot be replaced here; its allocator reports every block to a hook.
namespace
{
void countAllocation(const volatile void*, std::size_t)
{
    if (t_bCounting)
        ++t_nAllocations;
}
[[maybe_unused]] const int g_nHookInstalled =
    __sanitizer_install_malloc_and_free_hooks(countAllocation, nullptr);
} // namespace
#else
// The library allocates with the nothrow form too: it is replaced as well, so
// that every block the replaced delete frees came from malloc.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    if (t_bCounting)
        ++t_nAllocations;
    return std::malloc(size ? size : 1);
}

void* operator new(std::size_t size)
{
    if (void* block = operator new(size, std::nothrow))
        return block;
    throw std::bad_alloc();
}

void operator delete(void* block) noexcept
{
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept
{
    std::free(block);
}
#endif

TEST(OrvaEventTest, ANotificationIsMadeOnlyWhenSomeoneCanSeeIt)
{
    struct Counting : OrvaEvent
    {
        int made = 0, destroyed = 0;
        OrvaNotification* createNotification() override
        {
            ++made;
            return OrvaEvent::createNotification();
        }
        void destroyNotification(OrvaNotification* n) override
        {
            ++destroyed;
            OrvaEvent::destroyNotification(n);
        }
    };
    struct DestroyOnly : OrvaEvent
    {
        int destroyed = 0;
        void destroyNotification(OrvaNotification* n) override
        {
            ++destroyed;
            OrvaEvent::destroyNotification(n);
        }
    };
    OrvaEvent plain;
    Counting counting;
    DestroyOnly destroyOnly;
    t_bCounting = true;
    for (int i = 0; i < 100; ++i)
        plain.set();
    const int plainAllocations = t_nAllocations;
    counting.set();
    destroyOnly.set();
    t_bCounting = false;
    EXPECT_EQ(plainAllocations, 0);
    EXPECT_EQ(counting.made, 1); // an overridden hook is still called without dependents
    EXPECT_EQ(counting.destroyed, 1);
    EXPECT_EQ(destroyOnly.destroyed, 1);

    // With a dependent, the plain event makes and delivers a notification again.
    int calls = 0;
    ovkit_test::CallDependent witness([&](const OrvaNotification&) { ++calls; });
    plain.addDependent(witness);
    plain.removeDependent(witness);
    plain.addDependent(witness);
    plain.set();
    EXPECT_EQ(calls, 1);
}
