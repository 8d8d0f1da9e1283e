#include <ovkit/OrvaEvent.h>

#include "sync/OrvaEventBlock.h"

#include <cerrno>
#include <cstdint>
#include <ctime>

namespace OrvaSupport
{

namespace
{

void unlockEventMutex(void* mutex)
{
    pthread_mutex_unlock(static_cast<pthread_mutex_t*>(mutex));
}

// The deadline of a limited wait: the milliseconds read as an absolute time
// counted from the epoch, in 32-bit arithmetic, so it lies long past. The
// nanoseconds are not reduced to the remainder: from one second on they are
// as a rule out of range, and the wait fails instead of timing out.
timespec pastDeadline(int milliseconds)
{
    const std::int32_t ms = milliseconds;
    timespec deadline;
    deadline.tv_sec = ms / 1000;
    deadline.tv_nsec = static_cast<std::int32_t>(static_cast<std::uint32_t>(ms) * 1000000u);
    return deadline;
}

int waitResult(int rc)
{
    if (rc == 0)
        return 0;
    if (rc == ETIMEDOUT)
        return -2;
    return -3;
}

} // namespace

OrvaEventNotification::OrvaEventNotification() : OrvaNotification(1) {}

OrvaEventNotification::OrvaEventNotification(const OrvaEventNotification& other) : OrvaNotification(other) {}

OrvaEventNotification& OrvaEventNotification::operator=(const OrvaEventNotification& other)
{
    OrvaNotification::operator=(other);
    return *this;
}

OrvaEventNotification::~OrvaEventNotification() {}

OrvaEvent::OrvaEvent() : m_pHandle(nullptr)
{
    OrvaEventBlock* block = new OrvaEventBlock;
    pthread_mutex_init(&block->m_mutex, nullptr);
    pthread_cond_init(&block->m_cond, nullptr);
    block->m_nSetsUnderWay = 0;
    m_pHandle = block;
}

OrvaEvent::~OrvaEvent()
{
    if (!m_pHandle)
        return;
    waitForEventSets(m_pHandle);
    OrvaEventBlock* block = eventBlock(m_pHandle);
    pthread_cond_destroy(&block->m_cond);
    pthread_mutex_destroy(&block->m_mutex);
    delete block;
    m_pHandle = nullptr;
}

void OrvaEvent::set()
{
    if (!m_pHandle)
        return;
    EventSetMark mark(m_pHandle);
    OrvaNotification* notification = createNotification();
    try
    {
        m_oCollaborator.notify(*notification);
    }
    catch (...)
    {
        // A dependent's failure (or the thread's cancellation) passes on; the
        // waiters are then not woken.
        destroyNotification(notification);
        throw;
    }
    destroyNotification(notification);
    // The mutex is not taken: a set() that comes before a waiter has entered
    // its wait is lost.
    pthread_cond_broadcast(&eventBlock(m_pHandle)->m_cond);
}

void OrvaEvent::reset()
{
    if (m_pHandle)
        pthread_cond_init(&eventBlock(m_pHandle)->m_cond, nullptr);
}

int OrvaEvent::wait(int milliseconds)
{
    if (!m_pHandle)
        return 0;
    OrvaEventBlock* block = eventBlock(m_pHandle);

    // The library's threads run with asynchronous cancellation. For the wait
    // cancellation is deferred, so that it can only act inside the condition
    // wait, which takes the mutex back before the clean-up gives it up. Once
    // the old type is back, a cancellation that came meanwhile acts at once.
    int oldType = PTHREAD_CANCEL_DEFERRED;
    pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, &oldType);
    int rc = 0;
    pthread_mutex_lock(&block->m_mutex);
    pthread_cleanup_push(unlockEventMutex, &block->m_mutex);
    if (milliseconds == -1)
    {
        rc = pthread_cond_wait(&block->m_cond, &block->m_mutex);
    }
    else
    {
        const timespec deadline = pastDeadline(milliseconds);
        rc = pthread_cond_timedwait(&block->m_cond, &block->m_mutex, &deadline);
    }
    pthread_cleanup_pop(1);
    pthread_setcanceltype(oldType, nullptr);
    return waitResult(rc);
}

void* OrvaEvent::getHandle()
{
    return m_pHandle;
}

OrvaNotification* OrvaEvent::createNotification()
{
    return new OrvaEventNotification;
}

void OrvaEvent::destroyNotification(OrvaNotification* notification)
{
    delete notification;
}

void OrvaEvent::addDependent(OrvaDependent& dependent)
{
    m_oCollaborator.addDependent(dependent);
}

void OrvaEvent::removeDependent(OrvaDependent& dependent)
{
    m_oCollaborator.removeDependent(dependent);
}

} // namespace OrvaSupport
