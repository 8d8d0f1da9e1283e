// Events and threads, measured against the standard library in the same run.
//
// Every benchmark is named "<Family>_<Measure>/<implementation>": "ovkit" is
// ours, any other implementation is the peer that bench/report.py sets beside
// it. Implementation names must not contain '/'.
#include <ovkit/OrvaEvent.h>
#include <ovkit/OrvaThread.h>

#include "BenchSupport.h"

#include <benchmark/benchmark.h>
#include <immintrin.h>
#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

using OrvaSupport::OrvaEvent;
using OrvaSupport::OrvaThread;

namespace
{

// A set with nobody waiting and, for ours, no dependents: the event is
// broadcast into the void. The peer takes its mutex, changes the flag that a
// waiter would test, and broadcasts after giving the mutex back.

void setNoWaiterOvkit(benchmark::State& state)
{
    OrvaEvent event;
    for (auto _ : state)
    {
        event.set();
        benchmark::ClobberMemory();
    }
}

void setNoWaiterConditionVariable(benchmark::State& state)
{
    std::mutex mutex;
    std::condition_variable condition;
    bool flag = false;
    for (auto _ : state)
    {
        {
            std::lock_guard<std::mutex> guard(mutex);
            flag = !flag;
        }
        condition.notify_all();
        benchmark::ClobberMemory();
    }
    benchmark::DoNotOptimize(flag);
}

// Ping-pong: two threads, each on a processor of its own, hand a message back
// and forth; one iteration is one round trip.
//
// An OrvaEvent keeps no memory: a set() that comes before the other thread is
// inside its wait is lost. So on both sides an atomic counter carries the
// message and the pulse (our event, or a condition variable waited on without
// a predicate and notified without its mutex) only wakes, and the sender
// sets the pulse only once the receiver is known to be inside its wait. It
// knows that from the condition variable itself: glibc counts every wait that
// has entered a condition variable in the waiter sequence of pthread_cond_t
// (advanced by 2 before the wait gives back its mutex), and a broadcast that
// sees a wait counted there wakes it. The receiver announces each wait before
// it makes it and withdraws the announcement if the message came meanwhile;
// the sender posts, waits until every announced wait has entered, and sets
// once. Each message then wakes a receiver that sleeps, as a round trip
// through two condition variables with their own flags would.
//
// One window remains: glibc counts a wait in the waiter sequence a moment
// before it registers it as a waiter, and a broadcast in between wakes
// nobody. So the sender stays until the receiver has taken the message, and
// sets again if that takes longer than about a millisecond: rare enough not
// to move the figures, and nothing can hang.

#ifndef __GLIBC__
#error "the ping-pong reads glibc's count of waits on a condition variable"
#endif

/// The waits that have entered `condition` since it was initialised.
unsigned long long enteredWaits(pthread_cond_t* condition)
{
    return __atomic_load_n(&condition->__data.__wseq.__value64, __ATOMIC_ACQUIRE) >> 1;
}

struct EventPulse
{
    OrvaEvent event;
    void set() { event.set(); }
    void wait() { event.wait(OrvaSupport::c_nWaitForever); }
    // The event's block starts with its condition variable.
    pthread_cond_t* condition() { return static_cast<pthread_cond_t*>(event.getHandle()); }
};

struct ConditionPulse
{
    std::mutex mutex;
    std::condition_variable variable;
    void set() { variable.notify_all(); }
    void wait()
    {
        std::unique_lock<std::mutex> lock(mutex);
        variable.wait(lock);
    }
    pthread_cond_t* condition() { return variable.native_handle(); }
};

template <class Pulse>
struct Mailbox
{
    std::atomic<long> posted{0};
    std::atomic<unsigned long long> announced{0};
    unsigned long long waits = 0; // the receiver's own count
    Pulse pulse;

    std::atomic<long> received{0};

    void send(long k)
    {
        posted.store(k);
        while (enteredWaits(pulse.condition()) < announced.load())
            _mm_pause();
        pulse.set();
        for (unsigned spins = 1; received.load() < k; ++spins)
        {
            _mm_pause();
            if (spins % (1u << 16) == 0)
                pulse.set();
        }
    }

    void receive(long k)
    {
        for (;;)
        {
            announced.store(waits + 1);
            if (posted.load() >= k)
            {
                announced.store(waits);
                received.store(k);
                return;
            }
            pulse.wait();
            ++waits;
            if (posted.load() >= k)
            {
                received.store(k);
                return;
            }
        }
    }
};

template <class Pulse>
void pingPong(benchmark::State& state)
{
    Mailbox<Pulse> toPartner;
    Mailbox<Pulse> toMe;
    std::atomic<bool> stop{false};
    std::thread partner(
        [&]
        {
            ovkit_bench::ProcessorPin pin(1);
            for (long k = 1;; ++k)
            {
                toPartner.receive(k);
                if (stop.load())
                    return;
                toMe.send(k);
            }
        });

    ovkit_bench::ProcessorPin pin(0);
    long k = 0;
    for (auto _ : state)
    {
        ++k;
        toPartner.send(k);
        toMe.receive(k);
    }
    stop.store(true);
    toPartner.send(k + 1);
    partner.join();
}

// A thread started and waited for, with nothing to do. Ours is a new thread
// object each time (an object starts once); wait(-1) returns at once when the
// work has already returned, and the object's destructor then lets the
// thread go.

class EmptyThread : public OrvaThread
{
public:
    int run() override { return 0; }
};

void startJoinOvkit(benchmark::State& state)
{
    for (auto _ : state)
    {
        EmptyThread thread;
        thread.start();
        thread.wait(OrvaSupport::c_nWaitForever);
    }
}

void startJoinStdThread(benchmark::State& state)
{
    for (auto _ : state)
    {
        std::thread thread([] {});
        thread.join();
    }
}

} // namespace

BENCHMARK(setNoWaiterOvkit)->Name("Event_SetNoWaiter/ovkit");
BENCHMARK(setNoWaiterConditionVariable)->Name("Event_SetNoWaiter/std::condition_variable");

BENCHMARK(pingPong<EventPulse>)->Name("Event_PingPong/ovkit")->UseRealTime();
BENCHMARK(pingPong<ConditionPulse>)->Name("Event_PingPong/std::condition_variable")->UseRealTime();

BENCHMARK(startJoinOvkit)->Name("Thread_StartJoin/ovkit")->UseRealTime();
BENCHMARK(startJoinStdThread)->Name("Thread_StartJoin/std::thread")->UseRealTime();
