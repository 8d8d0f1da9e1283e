#include <ovkit/OrvaCriticalSection.h>
#include <ovkit/OrvaThread.h>

#include "support/ThreadTestHelpers.h"

#include <gtest/gtest.h>

#include <thread>

using namespace OrvaSupport;
using ovkit_test::runInChild;

TEST(OrvaCriticalSectionStressTest, ThreadKilledWhileWaitingForALockDiesWithoutIt)
{
    auto killWaiters = []
    {
        // Static, so that no victim refers to a frame: the lock outlives them all.
        static OrvaCriticalSectionObject s_busy;
        static std::atomic<int> s_nGotThrough{0};
        s_busy.lock();
        s_busy.lock();
        auto step = []
        {
            s_busy.lock();
            ++s_nGotThrough;
            s_busy.unlock();
        };
        auto blocked = [](int) { return ovkit_test::taskState(ovkit_test::g_nVictimTid) == 'S'; };
        auto check = [](int) -> std::string
        {
            bool taken = true;
            std::thread([&] { taken = s_busy.testAndSet(); }).join();
            if (s_nGotThrough != 0 || taken || s_busy.lockCount() != 2)
                return "the lock changed hands (depth " + std::to_string(s_busy.lockCount()) + ")";
            return "";
        };
        std::string failure = ovkit_test::killLoop(step, check, blocked);
        s_busy.unlock();
        s_busy.unlock();
        if (failure.empty() && !s_busy.testAndSet())
            failure = "the lock stayed held after its holder let go";
        return failure.empty() && s_nGotThrough != 0 ? "a killed thread came back for the lock" : failure;
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
