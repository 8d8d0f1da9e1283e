#include <ovkit/OrvaProducerConsumer.h>

#include "log/LogMessage.h"
#include "sync/KillShield.h"

#include <cerrno>
#include <pthread.h>

namespace OrvaSupport
{

namespace
{

// The block behind the sync pointer: the condition variable first and its
// mutex second, the same shape as an event's block.
struct SyncBlock
{
    pthread_cond_t m_cond;
    pthread_mutex_t m_mutex;
};

SyncBlock* syncBlock(void* block)
{
    return static_cast<SyncBlock*>(block);
}

// The mutex is robust. The library's threads can be killed at any
// instruction, also while a consumer holds the mutex between its test of the
// queue and its wait; an ordinary mutex would then stay locked for ever and
// block the producer. A robust one is handed to the next thread that locks
// it, which marks it usable again: the mutex guards no data of its own (the
// queue has its lock), so there is nothing to repair.
void takeOverIfOwnerDied(pthread_mutex_t* mutex, int rc)
{
    if (rc == EOWNERDEAD)
        pthread_mutex_consistent(mutex);
}

void unlockSyncMutexOf(void* mutex)
{
    pthread_mutex_unlock(static_cast<pthread_mutex_t*>(mutex));
}

// A consumer killed in the wait gets the mutex back from the condition wait
// and gives it up here, in the clean-up, on its way out.
__attribute__((noinline)) void waitOnSyncBlock(SyncBlock* block)
{
    int rc = 0;
    pthread_cleanup_push(unlockSyncMutexOf, &block->m_mutex);
    rc = pthread_cond_wait(&block->m_cond, &block->m_mutex);
    pthread_cleanup_pop(0);
    takeOverIfOwnerDied(&block->m_mutex, rc);
}

// The end of produceSentinel(), also when clear() throws: the consumers are
// woken and the mutex is given up.
class WakeAndUnlock
{
public:
    explicit WakeAndUnlock(OrvaBaseProducerConsumer& queue) : m_rQueue(queue) {}
    ~WakeAndUnlock()
    {
        m_rQueue.setSyncEvent();
        m_rQueue.unlockSyncMutex();
    }

    WakeAndUnlock(const WakeAndUnlock&) = delete;
    WakeAndUnlock& operator=(const WakeAndUnlock&) = delete;

private:
    OrvaBaseProducerConsumer& m_rQueue;
};

} // namespace

OrvaBaseSynchronizedQueue::OrvaBaseSynchronizedQueue() {}

OrvaBaseSynchronizedQueue::~OrvaBaseSynchronizedQueue() {}

OrvaCriticalSectionObject& OrvaBaseSynchronizedQueue::getLock()
{
    return m_oLock;
}

OrvaBaseProducerConsumer::OrvaBaseProducerConsumer(OrvaBaseSynchronizedQueue& queue)
    : m_bSentinel(false), m_pSyncBlock(new SyncBlock), m_rQueue(queue)
{
    SyncBlock* block = syncBlock(m_pSyncBlock);
    pthread_mutexattr_t robust;
    pthread_mutexattr_init(&robust);
    pthread_mutexattr_setrobust(&robust, PTHREAD_MUTEX_ROBUST);
    pthread_mutex_init(&block->m_mutex, &robust);
    pthread_mutexattr_destroy(&robust);
    pthread_cond_init(&block->m_cond, nullptr);
}

OrvaBaseProducerConsumer::~OrvaBaseProducerConsumer()
{
    SyncBlock* block = syncBlock(m_pSyncBlock);
    pthread_cond_destroy(&block->m_cond);
    pthread_mutex_destroy(&block->m_mutex);
    delete block;
}

void OrvaBaseProducerConsumer::lockSyncMutex()
{
    pthread_mutex_t* mutex = &syncBlock(m_pSyncBlock)->m_mutex;
    takeOverIfOwnerDied(mutex, pthread_mutex_lock(mutex));
}

void OrvaBaseProducerConsumer::unlockSyncMutex()
{
    pthread_mutex_unlock(&syncBlock(m_pSyncBlock)->m_mutex);
}

void OrvaBaseProducerConsumer::setSyncEvent()
{
    pthread_cond_broadcast(&syncBlock(m_pSyncBlock)->m_cond);
}

// Cancellation is held back around the wait, so that a kill can only act
// inside the condition wait, whose clean-up gives the mutex up. This frame
// keeps no exception tables: a kill that arrived just after the wait takes
// effect as the shield is left, and unwinds through here.
void OrvaBaseProducerConsumer::waitForSyncEvent()
{
    internal::enterKillShield();
    waitOnSyncBlock(syncBlock(m_pSyncBlock));
    internal::leaveKillShield();
}

// The traces and clear() may allocate or throw, so the steps run shielded;
// the lock order is the sync mutex, then whatever clear() takes (the queue's
// lock), then the log's.
void OrvaBaseProducerConsumer::produceSentinel(bool clearQueue)
{
    internal::runShielded(
        [this, clearQueue]
        {
            OVKIT_LOG(9, "OrvaBaseProducerConsumer::produceSentinel: waiting for lock");
            lockSyncMutex();
            WakeAndUnlock wakeAndUnlock(*this);
            OVKIT_LOG(9, "OrvaBaseProducerConsumer::produceSentinel: adding sentinel");
            m_bSentinel = true;
            if (clearQueue)
            {
                OVKIT_LOG(9, "OrvaBaseProducerConsumer::produceSentinel: clearing queue");
                m_rQueue.clear();
            }
        });
}

} // namespace OrvaSupport
