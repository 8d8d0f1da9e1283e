// Waiting for eight events at once, measured against eight waits on
// std::condition_variable in the same run.
//
// Named "<Family>_<Measure>/<implementation>" as in every benchmark program.
#include <ovkit/OrvaEvent.h>

#include "support/ThreadTestHelpers.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

using OrvaSupport::OrvaEvent;

namespace
{

constexpr int c_nEvents = 8;

// A setter thread that, while a wait is armed, sets all eight over and over
// (an event keeps no memory, so a set() before a wait is lost and must come
// again); between waits it yields.
class Setter
{
public:
    template <class SetAll>
    explicit Setter(SetAll setAll)
        : m_oThread(
              [this, setAll]
              {
                  while (!m_bStop.load(std::memory_order_acquire))
                  {
                      if (m_bArmed.load(std::memory_order_acquire))
                          setAll();
                      else
                          std::this_thread::yield();
                  }
              })
    {
    }
    ~Setter()
    {
        m_bStop.store(true, std::memory_order_release);
        m_oThread.join();
    }
    void arm(bool armed) { m_bArmed.store(armed, std::memory_order_release); }

private:
    std::atomic<bool> m_bArmed{false};
    std::atomic<bool> m_bStop{false};
    std::thread m_oThread;
};

// An event that counts the threads that have come to wait on it.
struct CountedEvent : OrvaEvent
{
    int wait(int milliseconds) override
    {
        s_nWaiting.fetch_add(1, std::memory_order_release);
        return OrvaEvent::wait(milliseconds);
    }
    static std::atomic<int> s_nWaiting;
};
std::atomic<int> CountedEvent::s_nWaiting{0};

// One iteration: a wait, without limit, until all eight have been set. The
// multiple wait starts its eight threads before it listens for their ends,
// and a thread that ends before that is never seen; so the setter sets only
// once every thread waits and the waiting thread sleeps (in the group wait).
void waitEightOvkit(benchmark::State& state)
{
    CountedEvent events[c_nEvents];
    std::vector<OrvaEvent*> list;
    for (CountedEvent& event : events)
        list.push_back(&event);
    const pid_t waiter = static_cast<pid_t>(syscall(SYS_gettid));
    Setter setter(
        [&events, waiter]
        {
            if (CountedEvent::s_nWaiting.load(std::memory_order_acquire) < c_nEvents ||
                ovkit_test::taskState(waiter) != 'S')
                return;
            for (CountedEvent& event : events)
                event.set();
        });
    for (auto _ : state)
    {
        CountedEvent::s_nWaiting.store(0, std::memory_order_release);
        setter.arm(true);
        benchmark::DoNotOptimize(OrvaEvent::wait(list, true, -1));
        setter.arm(false);
    }
}

// The peer: eight flags, each with its condition variable, under one mutex;
// the waiter waits on each in turn and takes the flag back.
void waitEightStd(benchmark::State& state)
{
    std::mutex mutex;
    std::condition_variable changed[c_nEvents];
    bool set[c_nEvents] = {};
    Setter setter(
        [&]
        {
            for (int i = 0; i < c_nEvents; ++i)
            {
                std::lock_guard<std::mutex> lock(mutex);
                set[i] = true;
                changed[i].notify_all();
            }
        });
    for (auto _ : state)
    {
        setter.arm(true);
        std::unique_lock<std::mutex> lock(mutex);
        for (int i = 0; i < c_nEvents; ++i)
        {
            changed[i].wait(lock, [&] { return set[i]; });
            set[i] = false;
        }
        lock.unlock();
        setter.arm(false);
    }
}

} // namespace

BENCHMARK(waitEightOvkit)->Name("Event_WaitForEight/ovkit")->UseRealTime();
BENCHMARK(waitEightStd)->Name("Event_WaitForEight/std::condition_variable")->UseRealTime();
