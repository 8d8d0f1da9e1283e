#include <ovkit/OrvaTimer.h>

#include "support/ThreadTestHelpers.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

#include <atomic>

using namespace OrvaSupport;
using ovkit_test::settleLibraryThreads;
using ovkit_test::waitFor;

TEST(OrvaTimerTest, TimeIntervalComparesTheLeftMillisecondsWithItsOwnSeconds)
{
    using TI = OrvaTimer::TimeInterval;
    EXPECT_EQ(TI(1, 2500).m_nSeconds, 3);
    EXPECT_EQ(TI(1, 2500).m_nMilliseconds, 500);
    EXPECT_FALSE(TI(5, 10) < TI(5, 0));
    EXPECT_TRUE(TI(5, 2) < TI(5, 1));
    EXPECT_TRUE(TI(5, 5) == TI(5, 9));
    EXPECT_TRUE(TI(1700000000, 900) <= TI(1700000000, 100)); // a trigger in the present second is due
}

TEST(OrvaTimerTest, OneShotFiresOnceWakesItsWaiterAndRestarts)
{
    std::atomic<int> fired{0};
    ovkit_test::CallDependent counter([&](const OrvaNotification&) { ++fired; });
    OrvaTimer timer(500, true);
    timer.addDependent(counter);
    EXPECT_FALSE(timer.isQueued()); // constructors do not start
    {
        // Below one second the trigger lies in the present second: due at once.
        std::atomic<int> waitResult{-99};
        ovkit_test::BodyThread waiter([&] { waitResult = timer.wait(-1); });
        ASSERT_TRUE(waiter.sleeping());
        timer.reset();
        ASSERT_TRUE(waitFor([&] { return waitResult == 0; }));
    }
    EXPECT_EQ(fired, 1);
    EXPECT_FALSE(timer.isQueued());
    EXPECT_EQ(OrvaTimerManager::getInstance()->getTimerCount(), 0u);

    timer.start(1, 0, true); // a whole second goes through the system timer
    EXPECT_TRUE(timer.isQueued());
    ASSERT_TRUE(waitFor([&] { return fired >= 2; }));
    EXPECT_FALSE(timer.isQueued());
    EXPECT_EQ(fired, 2);
    EXPECT_TRUE(settleLibraryThreads());
}

TEST(OrvaTimerTest, RepeatingTimerStopsRestartsAndLeavesTheListWhenDestroyed)
{
    // Below one second a repeating timer is due again after every scan.
    std::atomic<int> fired{0};
    ovkit_test::CallDependent counter([&](const OrvaNotification&) { ++fired; });
    OrvaTimer* timer = new OrvaTimer(500, false);
    timer->addDependent(counter);
    timer->reset();
    ASSERT_TRUE(waitFor([&] { return fired >= 3; }));
    EXPECT_TRUE(timer->isQueued());
    timer->stop();
    timer->stop(); // idle: nothing happens
    EXPECT_FALSE(timer->isQueued());
    EXPECT_EQ(OrvaTimerManager::getInstance()->getTimerCount(), 0u);

    // A start with nothing to wait stops a queued timer (and stores the zero interval).
    timer->start(30, 0, false);
    EXPECT_TRUE(timer->isQueued());
    timer->start(0, false);
    EXPECT_FALSE(timer->isQueued());

    const int before = fired;
    timer->start(500, false);
    ASSERT_TRUE(waitFor([&] { return fired >= before + 3; }));
    delete timer; // queued, with firings under way
    EXPECT_EQ(OrvaTimerManager::getInstance()->getTimerCount(), 0u);
    EXPECT_TRUE(settleLibraryThreads());
}

TEST(OrvaTimerTest, ManagerCannotComeBackAfterDeletion)
{
    OrvaTimer queued(30, 0, false);
    queued.reset();
    ASSERT_TRUE(queued.isQueued());

    OrvaTimerManager::deleteInstance();
    EXPECT_EQ(ovkit_test::thrownText([] { OrvaTimerManager::getInstance(); }),
              "OrvaTimerManager::getInstance: Exiting system (0)");
    OrvaTimerManager::deleteInstance(); // nothing left to delete

    // Timers that outlive the manager neither throw nor start.
    queued.stop();
    OrvaTimer late(500, true);
    late.reset();
    EXPECT_FALSE(late.isQueued());
    EXPECT_TRUE(settleLibraryThreads());
}

TEST(OrvaTimerTest, ALaterTimerFiresOnTimeWhileAnEarlierArmingRuns)
{
    // The system timer armed for the first timer is left running when the
    // second, later one is added, and stays armed after the first is gone:
    // its expiry must lead to the second firing, neither early nor never.
    std::atomic<int> fired{0};
    ovkit_test::CallDependent counter([&](const OrvaNotification&) { ++fired; });
    OrvaTimer early(1, 0, true), late(2, 0, true);
    late.addDependent(counter);
    const time_t started = time(nullptr);
    early.reset();
    late.reset();
    early.stop();
    ASSERT_TRUE(waitFor([&] { return fired == 1; }));
    EXPECT_GE(time(nullptr), started + 2);
    EXPECT_TRUE(settleLibraryThreads());
}
