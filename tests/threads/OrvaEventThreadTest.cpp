#include <ovkit/OrvaEventThread.h>
#include <ovkit/OrvaLogging.h>

#include "support/ThreadTestHelpers.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <vector>

using namespace OrvaSupport;
using ovkit_test::CallDependent;
using ovkit_test::waitFor;

namespace
{

// What the callbacks saw: at each call, how many firings the timer's
// dependent had counted (dependents are told before the waiters wake), and
// whether any call ran off the object's own thread.
struct Seen
{
    std::atomic<int> firings{0};
    std::atomic<int> calls{0};
    std::vector<int> firingAtCall;
    std::atomic<bool> offThread{false};
};

// Throws at call `throwAt`, if given.
//
// A firing that comes after this class's destructor and before the base's
// stops the loop would reach a pure onTimer(). Stopping the timer is not
// enough: a firing already decided on may still wake the loop after the stop.
// So with `drain` the destructor stops the timer and then makes the loop take
// one set() of its own, on which onTimer() throws: the loop, and with it every
// later call, is over before the destructor returns.
struct Recorder : OrvaEventTimerThread
{
    Recorder(OrvaTimer& timer, Seen& seen, int throwAt, bool drain = false)
        : OrvaEventTimerThread("recorder", timer), m_rTimer(timer), m_rSeen(seen), m_nThrowAt(throwAt),
          m_bDrain(drain)
    {
    }
    ~Recorder() override
    {
        if (!m_bDrain)
            return;
        m_rTimer.stop();
        if (getExitCode() == 0) // the loop has ended already
            return;
        m_bDraining = true;
        // A set() that comes while the loop is not in its wait is lost: repeat it.
        EXPECT_TRUE(waitFor(
            [this]
            {
                if (!m_bDrained)
                    m_rTimer.set();
                return m_bDrained.load();
            }));
        EXPECT_TRUE(waitFor([this] { return getExitCode() == 0; }));
    }
    void onTimer() override
    {
        if (m_bDraining)
        {
            m_bDrained = true;
            throw std::runtime_error("drained");
        }
        if (!pthread_equal(pthread_self(), *static_cast<pthread_t*>(getHandle())))
            m_rSeen.offThread = true;
        m_rSeen.firingAtCall.push_back(m_rSeen.firings);
        if (++m_rSeen.calls == m_nThrowAt)
            throw std::runtime_error("stop");
    }
    OrvaTimer& m_rTimer;
    Seen& m_rSeen;
    const int m_nThrowAt;
    const bool m_bDrain;
    std::atomic<bool> m_bDraining{false};
    std::atomic<bool> m_bDrained{false};
};

} // namespace

TEST(OrvaEventThreadTest, TimerThreadCallsBackOncePerFiringInOrderUntilDestroyedOrThrown)
{
    for (const int throwAt : {0, 3})
    {
        SCOPED_TRACE(throwAt);
        Seen seen;
        CallDependent counter([&](const OrvaNotification&) { ++seen.firings; });
        OrvaTimer timer(1, false); // below a second: due again after every scan
        timer.addDependent(counter);
        auto* recorder = new Recorder(timer, seen, throwAt, true);
        recorder->start();
        timer.reset();
        ASSERT_TRUE(waitFor([&] { return seen.calls >= 5 || recorder->getExitCode() == 0; }));
        EXPECT_EQ(recorder->getExitCode(), throwAt ? 0 : -1); // a throw ends the thread quietly
        for (const bool destroyed : {false, true})
        {
            if (destroyed)
            {
                delete recorder;
                timer.reset(); // firing again, with nobody left to call
            }
            const int calls = seen.calls, firings = seen.firings;
            ASSERT_TRUE(waitFor([&] { return seen.firings > firings + 3; }));
            if (destroyed || throwAt)
            {
                EXPECT_EQ(seen.calls, calls); // no call after a throw or destruction
            }
        }
        timer.stop();
        timer.removeDependent(counter);
        // Each call was woken by a firing of its own, whose count came first:
        // call n has seen at least n firings. (Two calls may see the same
        // count: the next firing may be counted before the loop reads it.)
        for (std::size_t i = 0; i < seen.firingAtCall.size(); ++i)
            EXPECT_GE(seen.firingAtCall[i], static_cast<int>(i + 1))
                << "call " << i + 1 << ": no firing of its own";
        EXPECT_FALSE(seen.offThread);
    }
    EXPECT_TRUE(ovkit_test::settleLibraryThreads());
}

TEST(OrvaEventThreadTest, DestructorsReleaseTheirWaitAndCountAsOneSet)
{
    OrvaLogging log("unused", 2, 9);
    OrvaLogging::setInstance(log);
    testing::internal::CaptureStdout();
    // Kind of thread (0 wait thread, 1 timer thread), started, wait limit.
    const int cases[][3] = {{0, 0, -1}, {0, 1, 0}, {0, 1, -1}, {1, 0, 0}, {1, 1, 0}};
    for (const auto& [kind, started, limit] : cases)
    {
        SCOPED_TRACE(testing::Message() << kind << started << limit);
        OrvaTimer event; // never started: it fires only when set
        Seen seen;
        std::atomic<int> sets{0};
        CallDependent counter([&](const OrvaNotification&) { ++sets; });
        event.addDependent(counter);
        OrvaThread* thread = kind ? static_cast<OrvaThread*>(new Recorder(event, seen, 0))
                                  : new OrvaEventWaitThread(event, limit);
        if (started)
        {
            thread->start();
            ASSERT_TRUE(ovkit_test::othersSleeping()); // in its wait: the set() cannot be lost
        }
        delete thread;
        EXPECT_EQ(sets, kind && !started ? 0 : 1); // a wait thread sets its event in any case
        EXPECT_EQ(seen.calls, 0);
        event.removeDependent(counter);
    }
    const std::string out = testing::internal::GetCapturedStdout();
    const char* lines[] = {
        "entering", "exiting", "entering", "setting exit event", "waiting for thread to exit", "exiting"};
    std::size_t at = 0;
    for (const char* line : lines)
    {
        at = out.find(std::string("OrvaEventTimerThread::~OrvaEventTimerThread: ") + line + "\n", at);
        EXPECT_NE(at, std::string::npos) << line << "\n" << out;
    }

    // The thread's name: the fixed one, or the caller's.
    OrvaEvent event;
    OrvaEventWaitThread plain(event, 0), named("mine", event, 0);
    EXPECT_EQ(plain.getName(), "EventWaitThread");
    EXPECT_EQ(named.getName(), "mine");
}

TEST(OrvaEventThreadTest, MultipleWaitReturnsTheIndexOrZeroAndSetsEveryEvent)
{
    OrvaEvent events[4];
    std::atomic<int> sets[4] = {};
    std::vector<CallDependent> counters;
    for (std::atomic<int>& count : sets)
        counters.emplace_back([&count](const OrvaNotification&) { ++count; });
    for (int i = 0; i < 4; ++i)
        events[i].addDependent(counters[i]);

    for (const bool waitAll : {false, true})
    {
        SCOPED_TRACE(waitAll);
        std::atomic<int> result{-99};
        ovkit_test::BodyThread waiter([&] { result = OrvaEvent::wait(4, events, waitAll, -1); });
        // Every wait thread is in its wait, and the waiter in the group wait: a
        // wait thread that ended before the waiter had registered with it
        // would leave the wait without limit hanging for good.
        ASSERT_TRUE(ovkit_test::othersSleeping(5));
        // A set() may still fall just before a wait: repeat until the call returns.
        ASSERT_TRUE(waitFor(
            [&]
            {
                for (int i = 0; i < 4; ++i)
                {
                    if (waitAll || i == 2)
                        events[i].set();
                }
                return result != -99;
            }));
        EXPECT_EQ(result, waitAll ? 0 : 2);
        for (std::atomic<int>& count : sets)
            EXPECT_GE(count.exchange(0), 1); // the unset ones by the destructors
    }
    std::vector<OrvaEvent*> none;
    EXPECT_EQ(OrvaEvent::wait(none, true, -1), 0);
    for (int i = 0; i < 4; ++i)
        events[i].removeDependent(counters[i]);
    EXPECT_TRUE(ovkit_test::settleLibraryThreads());
}
