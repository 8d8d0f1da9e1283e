#include <ovkit/OrvaException.h>
#include <ovkit/OrvaLogging.h>
#include <ovkit/OrvaThread.h>

#include "support/ThreadTestHelpers.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <stdexcept>
#include <tuple>

using namespace OrvaSupport;
using ovkit_test::settleLibraryThreads;
using ovkit_test::waitFor;

namespace
{

// Which work ran: 1 own run(), 2 own run(work), 3 and 4 the runnable's; modes
// 5 to 7 throw instead (a standard exception, an OrvaException, an int).
std::atomic<int> s_nMode{0};
OrvaWorkInformation* s_pSeenWork = nullptr;
std::atomic<unsigned long> s_nWorkerId{0};
std::atomic<int> s_nDestroyed{0};

int work(int which, OrvaWorkInformation* info)
{
    s_pSeenWork = info;
    s_nWorkerId = OrvaThread::getCurrentThreadId();
    if (s_nMode == 5)
        throw std::runtime_error("broken");
    if (s_nMode == 6)
        throw OrvaException("broken", 5);
    if (s_nMode == 7)
        throw 42;
    return which;
}

struct WorkThread : OrvaThread
{
    using OrvaThread::OrvaThread;
    ~WorkThread() override { ++s_nDestroyed; }
    int run() override { return work(1, nullptr); }
    int run(OrvaWorkInformation& info) override { return work(2, &info); }
};

struct WorkRunnable : OrvaThread::OrvaRunnable
{
    int run() override { return work(3, nullptr); }
    int run(OrvaWorkInformation& info) override { return work(4, &info); }
};

// Holds one lock once and another twice, and spins with no calls that could
// fail and nothing to destroy, so that a cancellation may land anywhere.
OrvaCriticalSectionObject s_oOuter, s_oInner;
std::atomic<bool> s_bHolding{false};
std::atomic<long> s_nSpins{0};

struct SpinningRunnable : OrvaThread::OrvaRunnable
{
    int run() override
    {
        s_oOuter.lock();
        s_oInner.lock();
        s_oInner.lock();
        s_bHolding = true;
        for (;;)
            s_nSpins.fetch_add(1, std::memory_order_relaxed);
    }
};

} // namespace

TEST(OrvaThreadTest, DispatchesTheWorkOnceAndReportsItsExitCode)
{
    EXPECT_EQ(WorkThread().getName(), "class OrvaSupport10OrvaThreadE"); // also for a subclass
    OrvaSmartPointer<OrvaWorkInformation> info(new OrvaWorkInformation);
    // Runnable, work information, mode, exit code.
    const std::tuple<bool, bool, int, int> cases[] = {
        {false, false, 0, 1}, {false, true, 0, 2}, {true, false, 0, 3}, {true, true, 0, 4},
        {false, false, 5, 0}, {true, false, 6, 0}, {false, true, 7, 0}};
    for (const auto& [runnable, withInfo, mode, expected] : cases)
    {
        SCOPED_TRACE(testing::Message() << runnable << withInfo << mode);
        s_nMode = mode;
        s_pSeenWork = nullptr;
        WorkThread thread = runnable ? WorkThread(new WorkRunnable, "w") : WorkThread("w");
        int calls = 0, code = -99;
        ovkit_test::CallDependent recorder(
            [&](const OrvaNotification& n)
            {
                code = dynamic_cast<const OrvaThread::ThreadDone&>(n).getExitCode();
                ++calls;
            });
        thread.addDependent(recorder);
        if (withInfo)
            thread.setWorkInfo(info);
        EXPECT_EQ(thread.wait(-1), 0); // not started: at once
        EXPECT_EQ(thread.getExitCode(), -1);

        thread.start();
        thread.start(); // a thread object starts once
        EXPECT_EQ(thread.waitForThreadExit(), 0);
        EXPECT_TRUE(thread.isAlive()); // the handle stays until the object lets go
        EXPECT_EQ(thread.getExitCode(), expected);
        EXPECT_EQ(s_pSeenWork, withInfo ? static_cast<OrvaWorkInformation*>(info) : nullptr);
        EXPECT_EQ(calls, 1);
        EXPECT_EQ(code, expected);
        thread.removeDependent(recorder);
    }
    EXPECT_EQ(info->refCount(), 1); // the threads gave their references back
}

TEST(OrvaThreadTest, AbandonedThreadIsCancelledAndGivesBackEveryLevelOfItsLocks)
{
    OrvaSmartPointer<OrvaThread::OrvaRunnable> runnable(new SpinningRunnable);
    std::atomic<int> told{0};
    ovkit_test::CallDependent recorder([&](const OrvaNotification&) { ++told; });
    OrvaThread* thread = new OrvaThread(runnable);
    thread->addDependent(recorder);
    thread->start();
    ASSERT_TRUE(waitFor([] { return s_bHolding.load(); }));
    EXPECT_EQ(s_oInner.lockCount(), 2);

    // A second thread waits for the twice-held lock, then for the other: it
    // gets them only if the cancelled thread gave back every level.
    std::atomic<bool> proceeded{false};
    {
        ovkit_test::BodyThread waiter(
            [&]
            {
                OrvaCriticalSection inner(s_oInner, true);
                OrvaCriticalSection outer(s_oOuter, true);
                proceeded = true;
            });
        ASSERT_TRUE(waiter.sleeping());
        EXPECT_FALSE(proceeded);
        thread->setMarkForKill();
        delete thread; // cancels without waiting
    }
    EXPECT_TRUE(proceeded);
    EXPECT_EQ(told, 0); // a killed thread sends no ThreadDone
    EXPECT_TRUE(settleLibraryThreads());
}

TEST(OrvaThreadTest, MarkedForDeathDeletesItselfAndIsJoined)
{
    // With SIGUSR2 blocked here, and on the ending thread (which blocks it
    // itself), the id stays in the exit list until the signal is let through.
    sigset_t usr2, old;
    sigemptyset(&usr2);
    sigaddset(&usr2, SIGUSR2);
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &usr2, &old), 0);

    s_nMode = 0;
    const int destroyed = s_nDestroyed;
    WorkThread* thread = new WorkThread;
    thread->setMarkForDeath();
    thread->start();
    ASSERT_TRUE(waitFor([] { return !ovkit_test::exitListEmpty(); }));
    EXPECT_EQ(s_nDestroyed, destroyed + 1); // before the id is left to be joined
    {
        OrvaCriticalSection guard(g_exitThreadLock, true);
        ASSERT_EQ(g_vExitThreads.size(), 1u);
        EXPECT_EQ(g_vExitThreads.front(), s_nWorkerId.load());
    }
    ASSERT_EQ(pthread_sigmask(SIG_SETMASK, &old, nullptr), 0);
    EXPECT_TRUE(settleLibraryThreads()); // joined, and the list emptied
}

TEST(OrvaThreadTest, GroupWaitTracesTheTimeoutAndEachDeparture)
{
    struct GateThread : OrvaThread
    {
        GateThread() : OrvaThread("gate") {}
        ~GateThread() override { m_bOpen = true; }
        int run() override
        {
            return waitFor([this] { return m_bOpen.load(); }) ? 0 : 1;
        }
        std::atomic<bool> m_bOpen{false};
    };
    OrvaLogging log("unused", 2, 9);
    OrvaLogging::setInstance(log);
    testing::internal::CaptureStdout();
    {
        // No timer runs yet: a self-deleted timer thread, joined by a signal
        // handler, must not meet the creation of the waiter.
        GateThread gate;
        gate.start();
        std::vector<OrvaThread*> threads{&gate};
        ovkit_test::BodyThread waiter([&] { EXPECT_EQ(OrvaThread::wait(threads, false, -1), 0); });
        ASSERT_TRUE(waiter.sleeping());
        gate.m_bOpen = true;
        EXPECT_EQ(gate.wait(-1), 0);
    }
    {
        GateThread gate;
        gate.start();
        EXPECT_EQ(gate.wait(100), -2); // the thread outlives the limit
        gate.m_bOpen = true;
        EXPECT_EQ(gate.wait(-1), 0);
    }
    EXPECT_TRUE(settleLibraryThreads());
    const std::string out = testing::internal::GetCapturedStdout();
    const char* expected[] = {"ThreadWaitDependent::handleNotification: thread gate departed\n",
                              "ThreadWaitTimer::setJustEvent: delay has not expired, just setting event\n",
                              "ThreadWaitDependent::handleNotification: returning\n",
                              "ThreadWaitTimer::set: timer expired\n"};
    std::size_t at = 0;
    for (const char* text : expected)
    {
        at = out.find(text, at);
        EXPECT_NE(at, std::string::npos) << text << out;
    }
}
