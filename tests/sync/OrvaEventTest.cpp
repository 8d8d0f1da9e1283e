#include <ovkit/OrvaEvent.h>

#include "threads/ThreadTestHelpers.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace OrvaSupport;
using ovkit_test::currentTid;
using ovkit_test::waitUntil;
using ovkit_test::waitUntilSleeping;

namespace
{

// A thread that waits once on the event, without limit.
class Waiter
{
public:
    explicit Waiter(OrvaEvent& event)
        : m_oThread(
              [this, &event]
              {
                  m_nTid = currentTid();
                  m_nResult = event.wait(-1);
                  m_bWoken = true;
              })
    {
        waitUntil([this] { return m_nTid.load() != 0; });
    }
    ~Waiter() { m_oThread.join(); }

    /// Waits until the thread is blocked in the event's wait.
    bool blocked() { return waitUntilSleeping(m_nTid.load()); }

    std::atomic<pid_t> m_nTid{0};
    std::atomic<int> m_nResult{-99};
    std::atomic<bool> m_bWoken{false};

private:
    std::thread m_oThread;
};

// Notes, when it is told, whether the waiter was still asleep.
class Witness : public OrvaDependent
{
public:
    explicit Witness(Waiter& waiter) : m_rWaiter(waiter) {}

    void handleNotification(OrvaCollaborator&, const OrvaNotification& n) override
    {
        ++m_nCalls;
        m_nId = n.getId();
        m_bWaiterAsleep = !m_rWaiter.m_bWoken;
        m_bOnSetter = std::this_thread::get_id() == m_oSetter;
    }

    std::thread::id m_oSetter = std::this_thread::get_id();
    int m_nCalls = 0;
    int m_nId = 0;
    bool m_bWaiterAsleep = false;
    bool m_bOnSetter = false;

private:
    Waiter& m_rWaiter;
};

} // namespace

TEST(OrvaEventTest, SetWithoutWaiterIsLost)
{
    OrvaEvent event;
    event.set();
    event.set();
    // No signalled state: the next wait does not see the earlier sets.
    EXPECT_EQ(event.wait(0), -2);

    event.reset(); // nobody waits: the event works on as before
    Waiter waiter(event);
    ASSERT_TRUE(waiter.blocked());
    EXPECT_FALSE(waiter.m_bWoken);
    event.set();
    ASSERT_TRUE(waitUntil([&] { return waiter.m_bWoken.load(); }));
    EXPECT_EQ(waiter.m_nResult, 0);
}

TEST(OrvaEventTest, OneSetReleasesEveryWaiterAfterTellingTheDependents)
{
    OrvaEvent event;
    Waiter first(event);
    Waiter second(event);
    Witness witness(first);
    event.addDependent(witness);
    ASSERT_TRUE(first.blocked());
    ASSERT_TRUE(second.blocked());

    event.set();
    ASSERT_TRUE(waitUntil([&] { return first.m_bWoken && second.m_bWoken; }));
    EXPECT_EQ(first.m_nResult, 0);
    EXPECT_EQ(second.m_nResult, 0);
    EXPECT_EQ(witness.m_nCalls, 1);
    EXPECT_EQ(witness.m_nId, 1);
    EXPECT_TRUE(witness.m_bWaiterAsleep);
    EXPECT_TRUE(witness.m_bOnSetter);

    event.removeDependent(witness);
    event.set();
    EXPECT_EQ(witness.m_nCalls, 1);
}

TEST(OrvaEventTest, LimitedWaitsReturnAtOnce)
{
    // The limit is read as an absolute time long past, in 32-bit arithmetic.
    struct Case
    {
        int milliseconds;
        int result;
    };
    const Case cases[] = {
        {0, -2},    {1, -2},  {500, -2}, {999, -2}, {1000, -3}, // 10^9 nanoseconds: out of range
        {2500, -3}, {-5, -3},                                   // negative nanoseconds
        {4295, -2}, // 4295 * 10^6 wraps to 32704 nanoseconds: in range
    };
    OrvaEvent event;
    for (const Case& c : cases)
        EXPECT_EQ(event.wait(c.milliseconds), c.result) << c.milliseconds;
}
