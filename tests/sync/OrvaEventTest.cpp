#include <ovkit/OrvaEvent.h>

#include "support/ThreadTestHelpers.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <utility>

using namespace OrvaSupport;
using ovkit_test::BodyThread;

TEST(OrvaEventTest, SetWakesOnlyThoseWaitingAndTellsTheDependentsFirst)
{
    OrvaEvent event;
    // A limited wait reads its limit as an absolute time long past (with
    // 32-bit nanoseconds): it never blocks, and from one second on it fails.
    for (auto c : {std::pair<int, int>{0, -2}, {999, -2}, {1000, -3}, {-5, -3}, {4295, -2}})
        EXPECT_EQ(event.wait(c.first), c.second) << c.first;

    event.set(); // nobody waits: lost
    std::atomic<int> woken{0}, results{0};
    auto waitOnce = [&]
    {
        results += event.wait(-1) == 0;
        ++woken;
    };
    BodyThread first(waitOnce);
    ASSERT_TRUE(first.sleeping());
    BodyThread second(waitOnce);
    ASSERT_TRUE(second.sleeping());
    EXPECT_EQ(woken, 0);

    // The dependent is told on the setter's thread, before any waiter wakes.
    int calls = 0, id = 0, wokenBefore = -1;
    std::thread::id told;
    ovkit_test::CallDependent witness(
        [&](const OrvaNotification& n)
        {
            ++calls;
            id = n.getId();
            wokenBefore = woken;
            told = std::this_thread::get_id();
        });
    event.addDependent(witness);
    event.set(); // one set releases both
    ASSERT_TRUE(ovkit_test::waitFor([&] { return woken == 2; }));
    EXPECT_EQ(results, 2);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(id, 1);
    EXPECT_EQ(wokenBefore, 0);
    EXPECT_EQ(told, std::this_thread::get_id());
}
