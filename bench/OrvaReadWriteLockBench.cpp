// Read/write locks, measured against pthreads and the standard library in the
// same run. Named as the other benchmarks are: "<Family>_<Measure>/<implementation>".
#include <ovkit/OrvaReadWriteLock.h>

#include "BenchSupport.h"

#include <benchmark/benchmark.h>
#include <pthread.h>

#include <shared_mutex>

using ovkit_bench::ProcessorPin;

namespace
{

// Each lock behind the shared-access calls of std::shared_mutex, so that one
// loop measures them all; the calls are inline and cost nothing themselves.

struct OvkitLock
{
    OrvaSupport::OrvaReadWriteLock m_oLock;
    void lock_shared() { m_oLock.readLock(); }
    void unlock_shared() { m_oLock.readUnLock(); }
};

struct PthreadLock
{
    PthreadLock() { pthread_rwlock_init(&m_lock, nullptr); }
    ~PthreadLock() { pthread_rwlock_destroy(&m_lock); }
    void lock_shared() { pthread_rwlock_rdlock(&m_lock); }
    void unlock_shared() { pthread_rwlock_unlock(&m_lock); }
    pthread_rwlock_t m_lock;
};

template <class Lock>
void readLoop(benchmark::State& state, Lock& lock)
{
    for (auto _ : state)
    {
        lock.lock_shared();
        lock.unlock_shared();
        benchmark::ClobberMemory();
    }
}

// One reader on a free lock: take shared access and give it back.
template <class Lock>
void readLockUnlock(benchmark::State& state)
{
    Lock lock;
    readLoop(state, lock);
}

// Two readers, each on a processor of its own, on one lock: they never wait
// for each other, but both write the lock's reader count. The lock is a
// static, so that both threads of a run share it.
template <class Lock>
void readContended(benchmark::State& state)
{
    static Lock s_lock;
    ProcessorPin pin(state.thread_index());
    readLoop(state, s_lock);
}

} // namespace

BENCHMARK_TEMPLATE(readLockUnlock, OvkitLock)->Name("ReadWriteLock_ReadLockUnlock/ovkit");
BENCHMARK_TEMPLATE(readLockUnlock, PthreadLock)->Name("ReadWriteLock_ReadLockUnlock/pthread_rwlock");
BENCHMARK_TEMPLATE(readLockUnlock, std::shared_mutex)->Name("ReadWriteLock_ReadLockUnlock/std::shared_mutex");

BENCHMARK_TEMPLATE(readContended, OvkitLock)
    ->Name("ReadWriteLock_ReadContended/ovkit")
    ->Threads(2)
    ->UseRealTime();
BENCHMARK_TEMPLATE(readContended, PthreadLock)
    ->Name("ReadWriteLock_ReadContended/pthread_rwlock")
    ->Threads(2)
    ->UseRealTime();
BENCHMARK_TEMPLATE(readContended, std::shared_mutex)
    ->Name("ReadWriteLock_ReadContended/std::shared_mutex")
    ->Threads(2)
    ->UseRealTime();
