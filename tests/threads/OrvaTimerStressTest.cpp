#include <ovkit/OrvaTimer.h>

#include "support/ThreadTestHelpers.h"

#include <gtest/gtest.h>

#include <random>
#include <thread>

using namespace OrvaSupport;
using ovkit_test::CallDependent;
using ovkit_test::runInChild;
using ovkit_test::waitFor;

// The leak checker asks this hook before it reports (see g_bLeavingMidTest).
extern "C" int __lsan_is_turned_off()
{
    return ovkit_test::g_bLeavingMidTest ? 1 : 0;
}

namespace
{

struct Counter : OrvaDependent
{
    void handleNotification(OrvaCollaborator&, const OrvaNotification&) override { ++fired; }
    std::atomic<int> fired{0};
};

// Allocates and frees blocks, strings and growing vectors of every size until `until`.
void churn(std::chrono::steady_clock::time_point until, unsigned seed)
{
    std::minstd_rand random(seed);
    std::vector<std::string> kept(64);
    while (std::chrono::steady_clock::now() < until)
    {
        kept[random() % kept.size()] = std::string(random() % 3000, 'x');
        std::vector<int> grown;
        for (int k = 0; k < 300; ++k)
            grown.push_back(k);
        delete[] new char[random() % 8192 + 1];
    }
}

// Starts a fresh one-shot timer and waits for its firing: the timers of the
// process still work.
bool timersStillFire()
{
    Counter counter;
    OrvaTimer probe(200, true);
    probe.addDependent(counter);
    probe.reset();
    return waitFor([&] { return counter.fired > 0; }, 10);
}

} // namespace

TEST(OrvaTimerStressTest, TimersKeepFiringWhileThreadsAllocate)
{
    // The timer signals land, as a rule, on a thread that is inside the heap.
    auto storm = []
    {
        Counter counters[4];
        OrvaTimer timers[] = {{500, false}, {700, false}, {1000, false}, {1, 500, false}};
        for (int i = 0; i < 4; ++i)
        {
            timers[i].addDependent(counters[i]);
            timers[i].reset();
        }
        const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        std::thread helper(churn, until, 2u);
        churn(until, 1u);
        helper.join();
        // Below a second a timer fires after every scan; the others at least every other second.
        std::string failure;
        for (int i = 0; i < 4; ++i)
        {
            timers[i].stop();
            if (counters[i].fired < (i < 2 ? 3 : 2))
                failure +=
                    "timer " + std::to_string(i) + " fired " + std::to_string(counters[i].fired) + " times; ";
        }
        return failure;
    };
    EXPECT_TRUE(runInChild(30, storm));
}

TEST(OrvaTimerStressTest, TimerDeletedWhileItFires)
{
    // By its own dependent, and by a thread whose lock the firing waits for.
    auto selfDeleting = []() -> std::string
    {
        for (int round = 0; round < 4; ++round)
        {
            const std::string at = " (round " + std::to_string(round) + ")";
            std::atomic<bool> deleted{false};
            OrvaTimer* timer = new OrvaTimer(round % 2 ? 1000 : 100, true);
            CallDependent deleter(
                [&](const OrvaNotification&)
                {
                    delete timer;
                    deleted = true;
                });
            timer->addDependent(deleter);
            timer->reset();
            if (!waitFor([&] { return deleted.load(); }, 10))
                return "the dependent never finished deleting its timer" + at;
            if (!timersStillFire())
                return "no timer fired after one was deleted by its dependent" + at;
        }
        return "";
    };
    auto deleteUnderLock = []() -> std::string
    {
        OrvaCriticalSectionObject lock;
        std::atomic<pid_t> firing{0};
        std::atomic<int> through{0};
        CallDependent blocked(
            [&](const OrvaNotification&)
            {
                firing = ovkit_test::currentTid();
                OrvaCriticalSection guard(lock, true);
                ++through;
            });
        // A whole second, so that the firing comes on a timer thread.
        OrvaTimer* timer = new OrvaTimer(1000, false);
        timer->addDependent(blocked);
        lock.lock();
        timer->reset();
        if (!waitFor([&] { return ovkit_test::taskState(firing) == 'S'; }, 10))
            return "the firing never blocked on the lock";
        delete timer; // while its firing waits for this thread's lock
        lock.unlock();
        if (!waitFor([&] { return through > 0; }, 10))
            return "the blocked dependent never got through";
        return timersStillFire() ? "" : "no timer fired after the deletion";
    };
    EXPECT_TRUE(runInChild(30, selfDeleting));
    EXPECT_TRUE(runInChild(30, deleteUnderLock));
}

TEST(OrvaTimerStressTest, ProcessLeavesCleanlyRightAfterAFiring)
{
    // Each child leaves through exit() the moment it sees a firing, while the
    // timer thread may still be finishing it; the timer and its dependent
    // stay, the repeating ones queued. Four runner processes make children at
    // the same time, so that the exits meet the firings at many different
    // points; each runner has one thread, so its children start from a
    // process that forked cleanly.
    auto leave = [](int run) -> std::string
    {
        // Left alive to the end, and reachable, so that no leak is reported.
        static Counter* counter = new Counter;
        static OrvaTimer* timer = new OrvaTimer(100, run % 3 == 0);
        timer->addDependent(*counter);
        timer->reset();
        if (run % 3 == 1)
            return timer->wait(-1) == 0 ? "" : "the wait failed"; // a later firing wakes it
        return waitFor([&] { return counter->fired > 0; }, 10) ? "" : "the timer never fired";
    };
    auto runner = [&](int first) -> std::string
    {
        for (int run = first; run < 1000; run += 4)
        {
            const testing::AssertionResult result = runInChild(
                20, [&] { return leave(run); }, true);
            if (!result)
                return "run " + std::to_string(run) + ": " + result.message();
        }
        return "";
    };
    // The runners are forked from this one thread: no other thread of the
    // test process can hold a lock that a runner inherits.
    pid_t runners[4];
    for (int i = 0; i < 4; ++i)
    {
        fflush(nullptr);
        runners[i] = fork();
        if (runners[i] == 0)
        {
            const std::string failure = runner(i);
            if (!failure.empty())
                fprintf(stderr, "%s\n", failure.c_str());
            _exit(failure.empty() ? 0 : 1);
        }
    }
    for (pid_t each : runners)
    {
        int status = 0; // every child of a runner has a deadline of its own, too
        EXPECT_TRUE(ovkit_test::reapChild(each, 100, status) && WIFEXITED(status) && WEXITSTATUS(status) == 0)
            << "a runner failed (see above)";
    }
}
