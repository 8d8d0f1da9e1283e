#include <ovkit/OrvaException.h>
#include <ovkit/OrvaThread.h>
#include <ovkit/OrvaTimer.h>

#include "threads/ThreadTestHelpers.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <stdexcept>
#include <thread>
#include <vector>

using namespace OrvaSupport;
using ovkit_test::settleLibraryThreads;
using ovkit_test::waitUntil;

namespace
{

// Records the ThreadDone it receives and the thread it came on.
class DoneRecorder : public OrvaDependent
{
public:
    void handleNotification(OrvaCollaborator&, const OrvaNotification& n) override
    {
        const auto* done = dynamic_cast<const OrvaThread::ThreadDone*>(&n);
        m_nCode = done ? done->getExitCode() : -100;
        m_nThread = OrvaThread::getCurrentThreadId();
        ++m_nCalls;
    }

    int m_nCalls = 0;
    int m_nCode = -99;
    unsigned long m_nThread = 0;
};

// Which work ran: 1 own run(), 2 own run(work), 3 and 4 the runnable's; 5 to
// 7 throw instead (a standard exception, an OrvaException, an int).
std::atomic<int> g_nMode{0};
OrvaWorkInformation* g_pSeenWork = nullptr;

int work(int which, OrvaWorkInformation* info)
{
    g_pSeenWork = info;
    switch (g_nMode.load())
    {
    case 5:
        throw std::runtime_error("broken");
    case 6:
        throw OrvaException("broken", 5);
    case 7:
        throw 42;
    }
    return which;
}

class WorkThread : public OrvaThread
{
public:
    using OrvaThread::OrvaThread;
    int run() override { return work(1, nullptr); }
    int run(OrvaWorkInformation& info) override { return work(2, &info); }
};

class WorkRunnable : public OrvaThread::OrvaRunnable
{
public:
    int run() override { return work(3, nullptr); }
    int run(OrvaWorkInformation& info) override { return work(4, &info); }
};

// Holds a lock at depth 2 and spins with no calls that could fail and
// nothing to destroy, so that a cancellation may land at any instruction.
std::atomic<bool> g_bHolding{false};
std::atomic<long> g_nSpins{0};
OrvaCriticalSectionObject g_oLock;

class SpinningRunnable : public OrvaThread::OrvaRunnable
{
public:
    int run() override
    {
        g_oLock.lock();
        g_oLock.lock();
        g_bHolding = true;
        for (;;)
            g_nSpins.fetch_add(1, std::memory_order_relaxed);
    }
};

std::atomic<int> g_nDestroyed{0};
std::atomic<unsigned long> g_nSelfId{0};

class SelfDeletingThread : public OrvaThread
{
public:
    ~SelfDeletingThread() override { ++g_nDestroyed; }
    using OrvaThread::run;
    int run() override
    {
        g_nSelfId = getCurrentThreadId();
        return 3;
    }
};

} // namespace

TEST(OrvaThreadTest, RunsOnceAndReportsItsExitCode)
{
    WorkThread thread;
    DoneRecorder recorder;
    thread.addDependent(recorder);
    EXPECT_EQ(thread.getName(), "class OrvaSupport10OrvaThreadE"); // also for a subclass
    EXPECT_EQ(thread.wait(-1), 0);                                 // not started: at once
    EXPECT_EQ(thread.getExitCode(), -1);
    EXPECT_FALSE(thread.isAlive());

    g_nMode = 0;
    thread.start();
    thread.start(); // a thread object starts once
    EXPECT_TRUE(thread.isAlive());
    EXPECT_EQ(thread.waitForThreadExit(), 0);
    EXPECT_EQ(thread.getExitCode(), 1);
    EXPECT_TRUE(thread.isAlive()); // the handle stays until the object lets go
    EXPECT_EQ(recorder.m_nCalls, 1);
    EXPECT_EQ(recorder.m_nCode, 1);
    EXPECT_NE(recorder.m_nThread, OrvaThread::getCurrentThreadId()); // told on the ending thread

    thread.start();
    EXPECT_EQ(thread.wait(-1), 0);
    EXPECT_EQ(recorder.m_nCalls, 1);
    thread.removeDependent(recorder);
}

TEST(OrvaThreadTest, DispatchesTheWorkAndDropsItsFailures)
{
    OrvaSmartPointer<OrvaWorkInformation> info(new OrvaWorkInformation);
    struct Case
    {
        bool runnable;
        bool withInfo;
        int mode;
        int expected;
    };
    const Case cases[] = {{false, false, 0, 1}, {false, true, 0, 2}, {true, false, 0, 3}, {true, true, 0, 4},
                          {false, false, 5, 0}, {true, false, 6, 0}, {false, true, 7, 0}};
    for (const Case& c : cases)
    {
        g_nMode = c.mode;
        g_pSeenWork = nullptr;
        WorkThread thread = c.runnable ? WorkThread(new WorkRunnable, "w") : WorkThread("w");
        DoneRecorder recorder;
        thread.addDependent(recorder);
        if (c.withInfo)
            thread.setWorkInfo(info);
        thread.start();
        thread.wait(-1);
        EXPECT_EQ(thread.getExitCode(), c.expected) << c.runnable << c.withInfo << c.mode;
        EXPECT_EQ(recorder.m_nCode, c.expected);
        EXPECT_EQ(g_pSeenWork, c.withInfo ? static_cast<OrvaWorkInformation*>(info) : nullptr);
        thread.removeDependent(recorder);
    }
    EXPECT_EQ(info->refCount(), 1); // the threads gave their references back
}

TEST(OrvaThreadTest, AbandonedThreadIsCancelledAndGivesBackItsLocks)
{
    OrvaSmartPointer<OrvaThread::OrvaRunnable> runnable(new SpinningRunnable);
    DoneRecorder recorder;
    OrvaThread* thread = new OrvaThread(runnable);
    thread->addDependent(recorder);
    thread->start();
    ASSERT_TRUE(waitUntil([] { return g_bHolding.load(); }));
    EXPECT_FALSE(g_oLock.testAndSet());

    thread->setMarkForKill();
    delete thread; // cancels without waiting

    ASSERT_TRUE(waitUntil([] { return g_oLock.testAndSet(); }));
    EXPECT_EQ(g_oLock.lockCount(), 1); // both levels were given back
    g_oLock.unlock();
    EXPECT_EQ(recorder.m_nCalls, 0); // a killed thread sends no ThreadDone
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

    SelfDeletingThread* thread = new SelfDeletingThread;
    thread->setMarkForDeath();
    thread->start();
    ASSERT_TRUE(waitUntil([] { return !ovkit_test::exitListEmpty(); }));
    EXPECT_EQ(g_nDestroyed, 1);
    {
        OrvaCriticalSection guard(g_exitThreadLock, true);
        ASSERT_EQ(g_vExitThreads.size(), 1u);
        EXPECT_EQ(g_vExitThreads.front(), g_nSelfId.load());
    }

    ASSERT_TRUE(waitUntil(
        []
        {
            sigset_t pending;
            sigpending(&pending);
            return sigismember(&pending, SIGUSR2) == 1;
        }));
    ASSERT_EQ(pthread_sigmask(SIG_SETMASK, &old, nullptr), 0); // the handler runs here
    EXPECT_TRUE(ovkit_test::exitListEmpty());
    EXPECT_TRUE(settleLibraryThreads());
}

TEST(OrvaThreadTest, LimitedWaitTimesOutAndGroupWaitNamesTheThread)
{
    static std::atomic<bool> s_bRelease[2];
    class GatedThread : public OrvaThread
    {
    public:
        explicit GatedThread(int index) : m_nIndex(index) {}
        using OrvaThread::run;
        int run() override
        {
            while (!s_bRelease[m_nIndex])
                usleep(1000);
            return m_nIndex;
        }
        int m_nIndex;
    };
    GatedThread first(0), second(1);
    first.start();
    second.start();

    // A limit below one second runs out as soon as the timer's signals are handled.
    EXPECT_EQ(first.wait(100), -2);
    EXPECT_TRUE(first.isAlive());
    ASSERT_TRUE(settleLibraryThreads(3)); // the timer's threads are gone

    // The second thread ends while the caller waits for either of them. The
    // wait queues its timer after it has registered with both threads, so a
    // queued timer says that the report will not be missed.
    std::thread releaser(
        []
        {
            ovkit_test::waitUntil([] { return OrvaTimerManager::getInstance()->getTimerCount() == 1; });
            s_bRelease[1] = true;
        });
    std::vector<OrvaThread*> both = {&first, &second};
    EXPECT_EQ(OrvaThread::wait(both, false, 30000), 1);
    releaser.join();

    s_bRelease[0] = true;
    EXPECT_EQ(first.wait(-1), 0);
    EXPECT_EQ(second.getExitCode(), 1);
    EXPECT_TRUE(settleLibraryThreads());
}
