#include <ovkit/OrvaCriticalSection.h>
#include <ovkit/OrvaThread.h>

#include "threads/ThreadTestHelpers.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace OrvaSupport;
using ovkit_test::waitUntil;

namespace
{

OrvaCriticalSectionObject g_oOuter, g_oMiddle, g_oInner;
std::atomic<bool> g_bHolding{false};
std::atomic<long> g_nSpins{0};

// Takes three locks, the middle one twice, and spins where an asynchronous
// cancellation may land at any instruction: no calls that could fail, and
// nothing to destroy.
class HoldingThread : public OrvaThread
{
public:
    using OrvaThread::run;
    int run() override
    {
        g_oOuter.lock();
        g_oMiddle.lock();
        g_oMiddle.lock();
        g_oInner.lock();
        g_bHolding = true;
        for (;;)
            g_nSpins.fetch_add(1, std::memory_order_relaxed);
    }
};

} // namespace

TEST(OrvaCriticalSectionCancelTest, CancelledThreadGivesBackEveryLevelOfEveryLock)
{
    HoldingThread holder;
    holder.start();
    ASSERT_TRUE(waitUntil([] { return g_bHolding.load(); }));
    EXPECT_EQ(g_oMiddle.lockCount(), 2);

    // A second thread waits for the middle lock, then for the other two.
    std::atomic<bool> proceeded{false};
    std::atomic<pid_t> waiterTid{0};
    std::thread waiter(
        [&]
        {
            waiterTid = ovkit_test::currentTid();
            OrvaCriticalSection middle(g_oMiddle, true);
            OrvaCriticalSection outer(g_oOuter, true);
            OrvaCriticalSection inner(g_oInner, true);
            proceeded = true;
        });

    ASSERT_TRUE(waitUntil([&] { return waiterTid.load() != 0; }));
    ASSERT_TRUE(ovkit_test::waitUntilSleeping(waiterTid));
    EXPECT_FALSE(proceeded);

    holder.kill(); // cancels, and lets go of the handle without waiting
    EXPECT_FALSE(holder.isAlive());
    EXPECT_EQ(holder.getExitCode(), -1);
    waiter.join();
    EXPECT_TRUE(proceeded);
    for (OrvaCriticalSectionObject* lock : {&g_oOuter, &g_oMiddle, &g_oInner})
    {
        EXPECT_EQ(lock->lockCount(), 0);
        EXPECT_TRUE(lock->testAndSet());
        lock->unlock();
    }
    EXPECT_TRUE(ovkit_test::settleLibraryThreads());
}
