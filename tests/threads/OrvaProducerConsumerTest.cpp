#include <ovkit/OrvaLogging.h>
#include <ovkit/OrvaProducerConsumer.h>
#include <ovkit/OrvaThread.h>

#include "support/ThreadTestHelpers.h"

#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <stdexcept>

using namespace OrvaSupport;
using ovkit_test::waitFor;

namespace
{

struct IntQueue : OrvaBaseSynchronizedQueue
{
    void clear() override
    {
        OrvaCriticalSection guard(getLock(), true); // the order: sync mutex, then queue lock
        m_items.clear();
        if (m_bThrow)
            throw std::runtime_error("clear");
    }
    std::deque<int> m_items;
    bool m_bThrow = false;
};

// The client's side: typed add and take, and the test of the sentinel.
struct IntLine : OrvaBaseProducerConsumer
{
    explicit IntLine(IntQueue& queue) : OrvaBaseProducerConsumer(queue), m_rItems(queue.m_items) {}
    // Adds without waking anyone, so that consumers asleep on an empty queue
    // find the items only when the sentinel wakes them.
    void addQuietly(int item)
    {
        lockSyncMutex();
        m_rItems.push_back(item);
        unlockSyncMutex();
    }
    int drain() // items taken until the queue is empty after the sentinel
    {
        int taken = 0;
        lockSyncMutex();
        for (;;)
        {
            while (m_rItems.empty() && !m_bSentinel)
                waitForSyncEvent();
            if (m_rItems.empty())
                break;
            m_rItems.pop_front();
            ++taken;
        }
        unlockSyncMutex();
        return taken;
    }
    std::deque<int>& m_rItems;
};

} // namespace

TEST(OrvaProducerConsumerTest, SentinelWakesEveryConsumerAndClearsOnRequest)
{
    OrvaLogging log("unused", 2, 9);
    OrvaLogging::setInstance(log);
    // Clear the queue, clear() throws.
    const bool cases[][2] = {{false, false}, {true, false}, {true, true}};
    for (const auto& [clear, throws] : cases)
    {
        SCOPED_TRACE(testing::Message() << clear << throws);
        IntQueue queue;
        queue.m_bThrow = throws;
        IntLine line(queue);
        std::atomic<int> taken{0};
        {
            ovkit_test::BodyThread first([&] { taken += line.drain(); });
            ovkit_test::BodyThread second([&] { taken += line.drain(); });
            ASSERT_TRUE(first.sleeping() && second.sleeping());
            line.addQuietly(1);
            line.addQuietly(2);
            testing::internal::CaptureStdout();
            if (throws)
                EXPECT_THROW(line.produceSentinel(clear), std::runtime_error);
            else
                line.produceSentinel(clear);
            const std::string out = testing::internal::GetCapturedStdout();
            const char* steps[] = {"waiting for lock", "adding sentinel", "clearing queue"};
            std::size_t at = 0;
            for (const char* step : steps)
            {
                at = out.find(std::string("OrvaBaseProducerConsumer::produceSentinel: ") + step + "\n", at);
                EXPECT_EQ(at != std::string::npos, step != steps[2] || clear) << step << "\n" << out;
            }
        } // both consumers left: woken, and the mutex given back
        EXPECT_EQ(taken, clear ? 0 : 2);
        EXPECT_TRUE(queue.m_items.empty());
    }
}

TEST(OrvaProducerConsumerTest, KilledConsumerDoesNotBlockTheSentinel)
{
    // Where the consumer is killed: waiting for items, or holding the sync
    // mutex outside the wait.
    static std::atomic<bool> s_bHolding;
    struct Consumer : OrvaThread
    {
        Consumer(IntLine& line, bool hold) : m_rLine(line), m_bHold(hold) {}
        int run() override
        {
            IntLine& line = m_rLine; // nothing of the object is touched once killed
            line.lockSyncMutex();
            if (m_bHold)
            {
                s_bHolding = true;
                for (;;)
                    s_bHolding.store(true, std::memory_order_relaxed);
            }
            for (;;)
                line.waitForSyncEvent();
        }
        IntLine& m_rLine;
        const bool m_bHold;
    };
    for (const bool hold : {false, true})
    {
        SCOPED_TRACE(hold);
        s_bHolding = false;
        IntQueue queue;
        IntLine line(queue);
        auto* consumer = new Consumer(line, hold);
        consumer->start();
        ASSERT_TRUE(waitFor([&] { return hold ? s_bHolding.load() : ovkit_test::othersSleeping(); }));
        consumer->setMarkForKill();
        delete consumer;
        line.produceSentinel(true); // would block for ever on a mutex left locked
        line.lockSyncMutex();
        line.unlockSyncMutex();
        ASSERT_TRUE(ovkit_test::settleLibraryThreads()); // the consumer is gone before the line
    }
}
