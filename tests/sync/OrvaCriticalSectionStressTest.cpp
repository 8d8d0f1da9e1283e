#include <ovkit/OrvaCriticalSection.h>
#include <ovkit/OrvaThread.h>

#include "support/StressTestHelpers.h"

#include <gtest/gtest.h>

#include <thread>

using namespace OrvaSupport;
using ovkit_test::runInChild;

namespace
{

// Shared with the blocked threads, which must not touch their objects: an
// abandoned thread's object may be gone before the thread is.
OrvaCriticalSectionObject g_oBusy;
std::atomic<pid_t> g_nBlockedTid{0};
std::atomic<int> g_nGotThrough{0};

struct BlockedThread : OrvaThread
{
    int run() override
    {
        g_nBlockedTid = ovkit_test::currentTid();
        g_oBusy.lock();
        ++g_nGotThrough;
        g_oBusy.unlock();
        return 0;
    }
};

} // namespace

TEST(OrvaCriticalSectionStressTest, ThreadKilledWhileWaitingForALockDiesWithoutIt)
{
    auto killWaiters = []() -> std::string
    {
        g_oBusy.lock();
        g_oBusy.lock();
        for (int round = 0; round < 20; ++round)
        {
            const std::string at = " (round " + std::to_string(round) + ")";
            g_nBlockedTid = 0;
            auto* thread = new BlockedThread;
            thread->start();
            if (!ovkit_test::waitFor(10, [] { return ovkit_test::taskState(g_nBlockedTid) == 'S'; }))
                return "the thread never blocked in lock()" + at;
            if (round % 2)
                thread->kill();
            else
                thread->setMarkForKill();
            delete thread;
            if (!ovkit_test::threadGone(g_nBlockedTid))
                return "a thread blocked in lock() survived its kill" + at;
            if (g_nGotThrough != 0)
                return "a killed thread got the lock" + at;
            if (g_oBusy.lockCount() != 2)
                return "the holder's depth changed to " + std::to_string(g_oBusy.lockCount()) + at;
            bool taken = true;
            std::thread([&] { taken = g_oBusy.testAndSet(); }).join();
            if (taken)
                return "the lock came free for another thread" + at;
        }
        g_oBusy.unlock();
        g_oBusy.unlock();
        if (!g_oBusy.testAndSet())
            return "the lock stayed held after its holder let go";
        return g_nGotThrough == 0 ? "" : "a killed thread came back for the lock";
    };
    EXPECT_TRUE(runInChild(30, killWaiters));
}

TEST(OrvaCriticalSectionStressTest, LockOfAThreadThatEndedStaysHeldForANewThread)
{
    // A thread created after the holder was joined takes, as a rule, the
    // holder's stack and so its thread id: it must not pass for the owner.
    int taken = 0;
    // Held for ever, so never destroyed (a lock is only given back by its
    // owner); kept reachable so that no leak is reported.
    static OrvaCriticalSectionObject* s_locks[10];
    for (int round = 0; round < 10; ++round)
    {
        OrvaCriticalSectionObject* lock = s_locks[round] = new OrvaCriticalSectionObject;
        std::thread([lock] { lock->lock(); }).join();
        bool newcomerTookIt = true;
        std::thread([&] { newcomerTookIt = lock->testAndSet(); }).join();
        if (newcomerTookIt || lock->lockCount() != 1 || lock->testAndSet())
            ++taken;
    }
    EXPECT_EQ(taken, 0) << "locks of 10 that a later thread took from an ended holder";
}
