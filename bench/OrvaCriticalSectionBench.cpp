// Critical sections and the smart pointer, measured against pthreads and the
// standard library in the same run.
//
// Every benchmark is named "<Family>_<Measure>/<implementation>": "ovkit" is
// ours, any other implementation is the peer that bench/report.py sets beside
// it. Implementation names must not contain '/'.
#include <ovkit/OrvaCriticalSection.h>
#include <ovkit/OrvaObjectBase.h>


#include "BenchSupport.h"

#include <benchmark/benchmark.h>
#include <pthread.h>

#include <memory>
#include <mutex>

using OrvaSupport::OrvaCriticalSection;
using OrvaSupport::OrvaCriticalSectionObject;
using OrvaSupport::OrvaObjectBase;
using OrvaSupport::OrvaSmartPointer;
using ovkit_bench::ProcessorPin;

namespace
{

// First level: the lock is free and this thread does not hold it. The lock
// is opened before the loop, so the loop measures the take and the give-back.

void firstLockUnlockOvkit(benchmark::State& state)
{
    OrvaCriticalSectionObject lock;
    lock.lock(); // opens the lock
    lock.unlock();
    for (auto _ : state)
    {
        lock.lock();
        lock.unlock();
        benchmark::ClobberMemory();
    }
}

void firstLockUnlockPthread(benchmark::State& state)
{
    pthread_mutex_t mutex;
    pthread_mutex_init(&mutex, nullptr);
    for (auto _ : state)
    {
        pthread_mutex_lock(&mutex);
        pthread_mutex_unlock(&mutex);
        benchmark::ClobberMemory();
    }
    pthread_mutex_destroy(&mutex);
}

// Re-entry: the thread holds the lock once for the whole loop, and each
// iteration takes and gives back one more level.

void reentrantLockUnlockOvkit(benchmark::State& state)
{
    OrvaCriticalSectionObject lock;
    lock.lock();
    for (auto _ : state)
    {
        lock.lock();
        lock.unlock();
        benchmark::ClobberMemory();
    }
    lock.unlock();
}

void reentrantLockUnlockRecursiveMutex(benchmark::State& state)
{
    std::recursive_mutex mutex;
    mutex.lock();
    for (auto _ : state)
    {
        mutex.lock();
        mutex.unlock();
        benchmark::ClobberMemory();
    }
    mutex.unlock();
}

// A scope guard entered and left on a free lock.

void guardScopeOvkit(benchmark::State& state)
{
    OrvaCriticalSectionObject lock;
    lock.lock(); // opens the lock
    lock.unlock();
    for (auto _ : state)
    {
        {
            OrvaCriticalSection guard(lock, true);
            benchmark::ClobberMemory();
        }
    }
}

void guardScopeLockGuard(benchmark::State& state)
{
    std::mutex mutex;
    for (auto _ : state)
    {
        {
            std::lock_guard<std::mutex> guard(mutex);
            benchmark::ClobberMemory();
        }
    }
}

// Copying a smart pointer and dropping the copy, on one thread: one count up
// and one count down of an object that stays alive.

void smartPointerCopyOvkit(benchmark::State& state)
{
    OrvaSmartPointer<OrvaObjectBase> p(new OrvaObjectBase);
    for (auto _ : state)
    {
        OrvaSmartPointer<OrvaObjectBase> q(p);
        benchmark::DoNotOptimize(q);
    }
}

void smartPointerCopySharedPtr(benchmark::State& state)
{
    auto p = std::make_shared<int>(0);
    for (auto _ : state)
    {
        std::shared_ptr<int> q(p);
        benchmark::DoNotOptimize(q);
    }
}


// Two threads, each on a processor of its own (see ProcessorPin in
// BenchSupport.h), each copying and dropping a smart pointer to an object of
// its own, made on that thread. Nothing is shared between the two but what
// the implementation shares: the reported time is the wall-clock time per
// copy of both threads together, and items per second their throughput.

void smartPointerCopyTwoThreadsOvkit(benchmark::State& state)
{
    ProcessorPin pin(state.thread_index());
    OrvaSmartPointer<OrvaObjectBase> p(new OrvaObjectBase);
    for (auto _ : state)
    {
        OrvaSmartPointer<OrvaObjectBase> q(p);
        benchmark::DoNotOptimize(q);
    }
    state.SetItemsProcessed(state.iterations());
}

void smartPointerCopyTwoThreadsSharedPtr(benchmark::State& state)
{
    ProcessorPin pin(state.thread_index());
    auto p = std::make_shared<int>(0);
    for (auto _ : state)
    {
        std::shared_ptr<int> q(p);
        benchmark::DoNotOptimize(q);
    }
    state.SetItemsProcessed(state.iterations());
}

// Two threads taking turns on one lock, each incrementing a shared counter
// inside it. The locks are statics so that both threads of a run share them.

OrvaCriticalSectionObject s_contendedLock;
pthread_mutex_t s_contendedMutex = PTHREAD_MUTEX_INITIALIZER;
long s_contendedCount = 0;

void contendedOvkit(benchmark::State& state)
{
    ProcessorPin pin(state.thread_index());
    s_contendedLock.lock(); // opens the lock
    s_contendedLock.unlock();
    for (auto _ : state)
    {
        s_contendedLock.lock();
        ++s_contendedCount;
        benchmark::ClobberMemory();
        s_contendedLock.unlock();
    }
}

void contendedPthread(benchmark::State& state)
{
    ProcessorPin pin(state.thread_index());
    for (auto _ : state)
    {
        pthread_mutex_lock(&s_contendedMutex);
        ++s_contendedCount;
        benchmark::ClobberMemory();
        pthread_mutex_unlock(&s_contendedMutex);
    }
}

} // namespace

BENCHMARK(firstLockUnlockOvkit)->Name("CriticalSection_FirstLockUnlock/ovkit");
BENCHMARK(firstLockUnlockPthread)->Name("CriticalSection_FirstLockUnlock/pthread_mutex");

BENCHMARK(reentrantLockUnlockOvkit)->Name("CriticalSection_ReentrantLockUnlock/ovkit");
BENCHMARK(reentrantLockUnlockRecursiveMutex)
    ->Name("CriticalSection_ReentrantLockUnlock/std::recursive_mutex");

BENCHMARK(guardScopeOvkit)->Name("CriticalSection_GuardScope/ovkit");
BENCHMARK(guardScopeLockGuard)->Name("CriticalSection_GuardScope/std::lock_guard<std::mutex>");

BENCHMARK(smartPointerCopyOvkit)->Name("SmartPointer_CopyDestroy/ovkit");
BENCHMARK(smartPointerCopySharedPtr)->Name("SmartPointer_CopyDestroy/std::shared_ptr");

BENCHMARK(smartPointerCopyTwoThreadsOvkit)->Name("SmartPointer_CopyDestroy/ovkit")->Threads(2)->UseRealTime();
BENCHMARK(smartPointerCopyTwoThreadsSharedPtr)
    ->Name("SmartPointer_CopyDestroy/std::shared_ptr")
    ->Threads(2)
    ->UseRealTime();

BENCHMARK(contendedOvkit)->Name("CriticalSection_Contended/ovkit")->Threads(2)->UseRealTime();
BENCHMARK(contendedPthread)->Name("CriticalSection_Contended/pthread_mutex")->Threads(2)->UseRealTime();
