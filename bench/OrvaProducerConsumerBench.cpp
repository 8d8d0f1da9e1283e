// The producer/consumer core, measured against std::mutex and
// std::condition_variable in the same run.
//
// Named "<Family>_<Measure>/<implementation>" as in every benchmark program.
#include <ovkit/OrvaProducerConsumer.h>

#include <benchmark/benchmark.h>

#include <condition_variable>
#include <mutex>
#include <thread>

using OrvaSupport::OrvaBaseProducerConsumer;
using OrvaSupport::OrvaBaseSynchronizedQueue;

namespace
{

// One slot, handed from the benchmark's thread to a consumer thread and
// emptied there: each iteration puts one item and waits until the slot is
// free again, so every hand-off wakes the consumer and is woken back.

struct Slot : OrvaBaseSynchronizedQueue
{
    void clear() override { m_bFull = false; }
    bool m_bFull = false;
};

struct SlotLine : OrvaBaseProducerConsumer
{
    explicit SlotLine(Slot& slot) : OrvaBaseProducerConsumer(slot), m_rSlot(slot) {}
    void put()
    {
        lockSyncMutex();
        while (m_rSlot.m_bFull)
            waitForSyncEvent();
        m_rSlot.m_bFull = true;
        setSyncEvent();
        unlockSyncMutex();
    }
    bool take()
    {
        lockSyncMutex();
        while (!m_rSlot.m_bFull && !m_bSentinel)
            waitForSyncEvent();
        const bool took = m_rSlot.m_bFull;
        m_rSlot.m_bFull = false;
        setSyncEvent();
        unlockSyncMutex();
        return took;
    }
    Slot& m_rSlot;
};

void handOffOvkit(benchmark::State& state)
{
    Slot slot;
    SlotLine line(slot);
    std::thread consumer(
        [&line]
        {
            while (line.take())
            {
            }
        });
    for (auto _ : state)
        line.put();
    line.produceSentinel(false); // then join, then destroy
    consumer.join();
}

void handOffStd(benchmark::State& state)
{
    std::mutex mutex;
    std::condition_variable changed;
    bool full = false, done = false;
    std::thread consumer(
        [&]
        {
            std::unique_lock<std::mutex> lock(mutex);
            for (;;)
            {
                changed.wait(lock, [&] { return full || done; });
                if (!full)
                    return;
                full = false;
                changed.notify_all();
            }
        });
    for (auto _ : state)
    {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [&] { return !full; });
        full = true;
        changed.notify_all();
    }
    {
        std::lock_guard<std::mutex> lock(mutex);
        done = true;
        changed.notify_all();
    }
    consumer.join();
}

} // namespace

BENCHMARK(handOffOvkit)->Name("ProducerConsumer_HandOff/ovkit")->UseRealTime();
BENCHMARK(handOffStd)->Name("ProducerConsumer_HandOff/std::condition_variable")->UseRealTime();
