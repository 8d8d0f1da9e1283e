#include <ovkit/OrvaException.h>
#include <ovkit/OrvaTimer.h>

#include "threads/ThreadTestHelpers.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <ctime>
#include <mutex>
#include <thread>

using namespace OrvaSupport;
using ovkit_test::settleLibraryThreads;

namespace
{

// Counts the sets of an event and keeps, for the last one, the second it came
// in and, for a timer, its next trigger at that moment.
class FiringCounter : public OrvaDependent
{
public:
    explicit FiringCounter(OrvaEvent& source, const OrvaTimer* timer = nullptr)
        : m_rSource(source), m_pTimer(timer)
    {
        m_rSource.addDependent(*this);
    }
    ~FiringCounter() override { m_rSource.removeDependent(*this); }

    void handleNotification(OrvaCollaborator&, const OrvaNotification&) override
    {
        std::lock_guard<std::mutex> lock(m_oMutex);
        m_nFiredAt = time(nullptr);
        m_nNextTrigger = m_pTimer ? m_pTimer->getTrigger().m_nSeconds : 0;
        ++m_nCount;
        m_oChanged.notify_all();
    }

    /// Waits until at least `count` firings have been seen.
    bool waitFor(int count)
    {
        std::unique_lock<std::mutex> lock(m_oMutex);
        return m_oChanged.wait_for(lock, std::chrono::seconds(20), [&] { return m_nCount >= count; });
    }

    int m_nCount = 0;
    time_t m_nFiredAt = 0;
    long m_nNextTrigger = 0;

private:
    OrvaEvent& m_rSource;
    const OrvaTimer* m_pTimer;
    std::mutex m_oMutex;
    std::condition_variable m_oChanged;
};

} // namespace

TEST(OrvaTimerTest, TimeIntervalNormalisesAndComparesAsItAlwaysHas)
{
    using TI = OrvaTimer::TimeInterval;
    EXPECT_EQ(TI(1, 2500).m_nSeconds, 3);
    EXPECT_EQ(TI(1, 2500).m_nMilliseconds, 500);
    // With equal seconds the left operand's milliseconds meet its own seconds.
    EXPECT_FALSE(TI(5, 10) < TI(5, 0));
    EXPECT_TRUE(TI(5, 2) < TI(5, 9));
    EXPECT_TRUE(TI(5, 2) < TI(5, 1));
    EXPECT_TRUE(TI(4, 900) < TI(5, 0));
    EXPECT_TRUE(TI(5, 5) == TI(5, 9));
    EXPECT_FALSE(TI(5, 4) == TI(5, 4));
    EXPECT_TRUE(TI(5, 5) <= TI(5, 0));
    EXPECT_FALSE(TI(5, 6) <= TI(5, 9));
    // Two triggers in one second since the epoch: each is below the other.
    EXPECT_TRUE(TI(1700000000, 100) < TI(1700000000, 900));
    EXPECT_TRUE(TI(1700000000, 900) < TI(1700000000, 100));
}

TEST(OrvaTimerTest, OneShotFiresOnceWakesItsWaiterAndRestarts)
{
    OrvaTimer timer(500, true);
    FiringCounter counter(timer);
    EXPECT_FALSE(timer.isQueued()); // constructors do not start

    // Below one second the trigger lies in the present second: due at once.
    std::atomic<pid_t> waiterTid{0};
    std::atomic<int> waitResult{-99};
    std::thread waiter(
        [&]
        {
            waiterTid = ovkit_test::currentTid();
            waitResult = timer.wait(-1);
        });
    ASSERT_TRUE(ovkit_test::waitUntil([&] { return waiterTid.load() != 0; }));
    ASSERT_TRUE(ovkit_test::waitUntilSleeping(waiterTid));
    timer.reset();
    ASSERT_TRUE(counter.waitFor(1));
    waiter.join();
    EXPECT_EQ(waitResult, 0);
    EXPECT_FALSE(timer.isQueued());
    EXPECT_EQ(OrvaTimerManager::getInstance()->getTimerCount(), 0u);

    timer.reset(); // again, with the stored interval
    ASSERT_TRUE(counter.waitFor(2));
    timer.start(1, 0, true); // a whole second goes through the system timer
    EXPECT_TRUE(timer.isQueued());
    ASSERT_TRUE(counter.waitFor(3));
    EXPECT_FALSE(timer.isQueued());
    EXPECT_EQ(counter.m_nCount, 3);
    EXPECT_TRUE(settleLibraryThreads());
}

TEST(OrvaTimerTest, RepeatingTimerRequeuesFromTheTimeOfFiring)
{
    OrvaTimer timer(1000, false);
    FiringCounter counter(timer, &timer);
    timer.reset();
    ASSERT_TRUE(counter.waitFor(2));
    EXPECT_TRUE(timer.isQueued());
    // The next trigger is already set, one second on from the firing's second.
    EXPECT_GE(counter.m_nNextTrigger, counter.m_nFiredAt);
    EXPECT_LE(counter.m_nNextTrigger, counter.m_nFiredAt + 1);
    timer.stop();
    EXPECT_FALSE(timer.isQueued());

    // Below one second a repeating timer is due again after every scan.
    OrvaTimer fast(500, false);
    FiringCounter fastCounter(fast);
    fast.reset();
    ASSERT_TRUE(fastCounter.waitFor(3));
    fast.stop();
    EXPECT_FALSE(fast.isQueued());
    EXPECT_TRUE(settleLibraryThreads());
}

TEST(OrvaTimerTest, StopZeroStartAndDestructionTakeTheTimerOffTheList)
{
    OrvaTimerManager* manager = OrvaTimerManager::getInstance();
    OrvaTimer idle;
    idle.stop(); // idle: nothing happens

    OrvaTimer first(30, 0, false), second(20, 0, true);
    FiringCounter firings(first), cancels(manager->getManagerEvent());
    first.reset();
    second.reset();
    EXPECT_EQ(manager->getTimerCount(), 2u);

    const int cancelsBefore = cancels.m_nCount;
    second.stop();
    EXPECT_FALSE(second.isQueued());
    EXPECT_EQ(manager->getTimerCount(), 1u);
    EXPECT_EQ(cancels.m_nCount, cancelsBefore); // entries remain: no cancel

    // A start with nothing to wait stops the timer; the empty list cancels.
    first.start(0, false);
    EXPECT_FALSE(first.isQueued());
    EXPECT_EQ(manager->getTimerCount(), 0u);
    EXPECT_GT(cancels.m_nCount, cancelsBefore);
    EXPECT_EQ(firings.m_nCount, 0);

    OrvaTimer* doomed = new OrvaTimer(40, 0, false);
    doomed->reset();
    EXPECT_EQ(manager->getTimerCount(), 1u);
    delete doomed; // leaves the list
    EXPECT_EQ(manager->getTimerCount(), 0u);
    EXPECT_TRUE(settleLibraryThreads());
}

TEST(OrvaTimerTest, ManagerCannotComeBackAfterDeletion)
{
    OrvaTimer queued(30, 0, false);
    queued.reset();
    ASSERT_TRUE(queued.isQueued());

    OrvaTimerManager::deleteInstance();
    try
    {
        OrvaTimerManager::getInstance();
        FAIL() << "getInstance after deleteInstance must throw";
    }
    catch (OrvaException& e)
    {
        EXPECT_EQ(e.getText(), "OrvaTimerManager::getInstance: Exiting system");
        EXPECT_EQ(e.getCode(), 0);
    }
    OrvaTimerManager::deleteInstance(); // nothing left to delete

    // Timers that outlive the manager neither throw nor start.
    queued.stop();
    OrvaTimer idle(500, true);
    idle.reset();
    EXPECT_FALSE(idle.isQueued());
    EXPECT_TRUE(settleLibraryThreads());
}
