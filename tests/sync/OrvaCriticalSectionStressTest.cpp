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
OrvaCriticalSectionObject s_oBusy;
std::atomic<pid_t> s_nBlockedTid{0};
std::atomic<int> s_nGotThrough{0};

struct BlockedThread : OrvaThread
{
    int run() override
    {
        s_nBlockedTid = ovkit_test::currentTid();
        s_oBusy.lock();
        ++s_nGotThrough;
        s_oBusy.unlock();
        return 0;
    }
};

} // namespace

TEST(OrvaCriticalSectionStressTest, ThreadKilledWhileWaitingForALockDiesWithoutIt)
{
    auto killWaiters = []() -> std::string
    {
        s_oBusy.lock();
        s_oBusy.lock();
        for (int round = 0; round < 20; ++round)
        {
            const std::string at = " (round " + std::to_string(round) + ")";
            s_nBlockedTid = 0;
            auto* thread = new BlockedThread;
            thread->start();
            if (!ovkit_test::waitFor([] { return ovkit_test::taskState(s_nBlockedTid) == 'S'; }, 10))
                return "the thread never blocked in lock()" + at;
            if (round % 2)
                thread->kill();
            else
                thread->setMarkForKill();
            delete thread;
            if (!ovkit_test::threadGone(s_nBlockedTid))
                return "a thread blocked in lock() survived its kill" + at;
            if (s_nGotThrough != 0)
                return "a killed thread got the lock" + at;
            if (s_oBusy.lockCount() != 2)
                return "the holder's depth changed to " + std::to_string(s_oBusy.lockCount()) + at;
            bool taken = true;
            std::thread([&] { taken = s_oBusy.testAndSet(); }).join();
            if (taken)
                return "the lock came free for another thread" + at;
        }
        s_oBusy.unlock();
        s_oBusy.unlock();
        if (!s_oBusy.testAndSet())
            return "the lock stayed held after its holder let go";
        return s_nGotThrough == 0 ? "" : "a killed thread came back for the lock";
    };
    EXPECT_TRUE(runInChild(30, killWaiters));
}

TEST(OrvaCriticalSectionStressTest, LockOfAThreadThatEndedStaysHeldForANewThread)
{
    // A thread created after the holder was joined takes, as a rule, the
    // holder's stack and so its thread id: it must not pass for the owner.
    // The locks stay held for ever, so they are never destroyed, and
    // reachable, so that no leak is reported.
    static OrvaCriticalSectionObject* s_locks[10];
    for (OrvaCriticalSectionObject*& lock : s_locks)
    {
        lock = new OrvaCriticalSectionObject;
        std::thread([lock] { lock->lock(); }).join();
        bool newcomerTookIt = true;
        std::thread([&] { newcomerTookIt = lock->testAndSet(); }).join();
        EXPECT_FALSE(newcomerTookIt || lock->lockCount() != 1 || lock->testAndSet())
            << "lock " << &lock - s_locks << " was taken from its ended holder";
    }
}
