#include <ovkit/OrvaEvent.h>

#include "sync/Futex.h"
#include "sync/KillShield.h"
#include "sync/OrvaEventBlock.h"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <ctime>

namespace OrvaSupport
{

using internal::eventBlock;
using internal::OrvaEventBlock;

namespace
{

// The block whose set() the timer manager has announced on this thread.
__attribute__((tls_model("initial-exec"))) thread_local OrvaEventBlock* t_pAnnounced = nullptr;

void consumeAnnouncement(OrvaEventBlock* block)
{
    t_pAnnounced = nullptr;
    if (block->m_nAnnounced.fetch_sub(1, std::memory_order_acq_rel) == 1)
        internal::futexWake(&block->m_nAnnounced, INT_MAX);
}

void takeOverAnnouncement(OrvaEventBlock* block)
{
    if (t_pAnnounced == block)
        consumeAnnouncement(block);
}

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

// The function that a virtual call through `pmf` reaches for `object`. In
// the C++ ABI of this platform a pointer to a virtual member function holds
// one more than the byte offset of its slot in the virtual table.
template <class MemberFunction>
void* finalOverrider(const OrvaEvent* object, MemberFunction pmf)
{
    std::uintptr_t representation[2];
    static_assert(sizeof(pmf) == sizeof(representation), "two-word member function pointer");
    std::memcpy(representation, &pmf, sizeof(representation));
    const char* table = *reinterpret_cast<const char* const*>(object);
    return *reinterpret_cast<void* const*>(table + representation[0] - 1);
}

// OrvaEvent's own createNotification and destroyNotification, read from the
// virtual table of the first event constructed (while it is being
// constructed, its table is OrvaEvent's).
std::atomic<void*> s_pOwnCreate{nullptr};
std::atomic<void*> s_pOwnDestroy{nullptr};

void noteOwnNotificationFunctions(const OrvaEvent* event)
{
    if (s_pOwnCreate.load(std::memory_order_acquire))
        return;
    s_pOwnDestroy.store(finalOverrider(event, &OrvaEvent::destroyNotification), std::memory_order_relaxed);
    s_pOwnCreate.store(finalOverrider(event, &OrvaEvent::createNotification), std::memory_order_release);
}

// True when neither notification function is overridden, so that a set()
// with no dependents may skip making a notification nobody would receive.
bool usesOwnNotifications(const OrvaEvent* event)
{
    return finalOverrider(event, &OrvaEvent::createNotification) ==
               s_pOwnCreate.load(std::memory_order_acquire) &&
           finalOverrider(event, &OrvaEvent::destroyNotification) ==
               s_pOwnDestroy.load(std::memory_order_relaxed);
}

int waitResult(int rc)
{
    if (rc == 0)
        return c_nWaitDone;
    if (rc == ETIMEDOUT)
        return c_nWaitTimedOut;
    return c_nWaitFailed;
}

} // namespace

namespace internal
{

OrvaEventBlock* newEventBlock()
{
    OrvaEventBlock* block = new OrvaEventBlock;
    pthread_mutex_init(&block->m_mutex, nullptr);
    pthread_cond_init(&block->m_cond, nullptr);
    block->m_nReferences.store(1, std::memory_order_relaxed);
    block->m_nAnnounced.store(0, std::memory_order_relaxed);
    block->m_bOrphaned = false;
    block->m_bEverHadDependents.store(false, std::memory_order_relaxed);
    return block;
}

void pinEventBlock(OrvaEventBlock* block)
{
    block->m_nReferences.fetch_add(1, std::memory_order_relaxed);
}

void unpinEventBlock(OrvaEventBlock* block)
{
    if (block->m_nReferences.fetch_sub(1, std::memory_order_acq_rel) != 1)
        return;
    pthread_cond_destroy(&block->m_cond);
    pthread_mutex_destroy(&block->m_mutex);
    delete block;
}

void announceEventSet(OrvaEventBlock* block)
{
    pinEventBlock(block);
    block->m_nAnnounced.fetch_add(1, std::memory_order_relaxed);
    t_pAnnounced = block;
}

void settleEventAnnouncement(OrvaEventBlock* block)
{
    takeOverAnnouncement(block);
    unpinEventBlock(block);
}

void waitForAnnouncedSets(OrvaEventBlock* block)
{
    takeOverAnnouncement(block); // a set() of this very thread never comes
    for (;;)
    {
        const int announced = block->m_nAnnounced.load(std::memory_order_acquire);
        if (announced == 0)
            return;
        futexWait(&block->m_nAnnounced, announced);
    }
}

} // namespace internal

OrvaEventNotification::OrvaEventNotification() : OrvaNotification(1) {}

OrvaEventNotification::OrvaEventNotification(const OrvaEventNotification& other) : OrvaNotification(other) {}

OrvaEventNotification& OrvaEventNotification::operator=(const OrvaEventNotification& other)
{
    OrvaNotification::operator=(other);
    return *this;
}

OrvaEventNotification::~OrvaEventNotification() {}

OrvaEvent::OrvaEvent() : m_pHandle(internal::newEventBlock())
{
    noteOwnNotificationFunctions(this);
}

// The block outlives the event while a set() still delivers through it.
OrvaEvent::~OrvaEvent()
{
    if (!m_pHandle)
        return;
    OrvaEventBlock* block = eventBlock(m_pHandle);
    pthread_mutex_lock(&block->m_mutex);
    block->m_bOrphaned = true;
    pthread_mutex_unlock(&block->m_mutex);
    m_pHandle = nullptr;
    internal::unpinEventBlock(block);
}

void OrvaEvent::set()
{
    if (!m_pHandle)
        return;
    OrvaEventBlock* block = eventBlock(m_pHandle);
    if (!block->m_bEverHadDependents.load(std::memory_order_acquire) && usesOwnNotifications(this))
    {
        // Nobody to tell, and no notification function of a subclass that
        // would expect its calls: only the waiters are woken. An announced
        // timer stays alive until the announcement is taken over, so the
        // broadcast comes first.
        pthread_cond_broadcast(&block->m_cond);
        takeOverAnnouncement(block);
        return;
    }
    internal::pinEventBlock(block);
    OrvaNotification* notification = createNotification();
    // Whether the event's own destroyNotification() applies is settled while
    // the event is known to be alive: its destructor rewrites the dispatch
    // table as it begins, so a virtual call made later could race with it.
    OrvaEvent* const owner = usesOwnNotifications(this) ? nullptr : this;
    takeOverAnnouncement(block);
    // From here on this event may be destroyed, by a dependent or by another
    // thread: only the block is used until the event is known to be alive.
    try
    {
        block->m_oDependents.notify(*notification);
    }
    catch (...)
    {
        // A dependent's failure (or the thread's cancellation) passes on; the
        // waiters are then not woken.
        finishDelivery(owner, block, notification);
        internal::unpinEventBlock(block);
        throw;
    }
    finishDelivery(owner, block, notification);
    // The mutex is not taken: a set() that comes before a waiter has entered
    // its wait is lost.
    pthread_cond_broadcast(&block->m_cond);
    internal::unpinEventBlock(block);
}

// Hands the notification back to the event whose subclass overrides the
// notification functions (`event`), or deletes it if the event is gone or
// uses its own functions (`event` null): the event is only touched in the
// first case. The block's mutex keeps the event from finishing its
// destruction meanwhile.
void OrvaEvent::finishDelivery(OrvaEvent* event, void* handle, OrvaNotification* notification)
{
    OrvaEventBlock* block = eventBlock(handle);
    pthread_mutex_lock(&block->m_mutex);
    if (!event || block->m_bOrphaned)
        delete notification;
    else
        event->destroyNotification(notification);
    pthread_mutex_unlock(&block->m_mutex);
}

void OrvaEvent::reset()
{
    if (m_pHandle)
        pthread_cond_init(&eventBlock(m_pHandle)->m_cond, nullptr);
}

// The library's threads run with asynchronous cancellation. For the wait it
// is held back (a shield), so that it can only act inside the condition wait,
// which takes the mutex back before the clean-up gives it up. When the shield
// is left, a cancellation that came meanwhile acts at once. This frame keeps
// no exception tables, so that it may do so.
int OrvaEvent::wait(int milliseconds)
{
    if (!m_pHandle)
        return c_nWaitDone;
    internal::enterKillShield();
    const int rc = waitOnBlock(m_pHandle, milliseconds);
    internal::leaveKillShield();
    return waitResult(rc);
}

int OrvaEvent::waitOnBlock(void* handle, int milliseconds)
{
    OrvaEventBlock* block = eventBlock(handle);
    int rc = 0;
    pthread_mutex_lock(&block->m_mutex);
    pthread_cleanup_push(unlockEventMutex, &block->m_mutex);
    if (milliseconds == c_nWaitForever)
    {
        rc = pthread_cond_wait(&block->m_cond, &block->m_mutex);
    }
    else
    {
        const timespec deadline = pastDeadline(milliseconds);
        rc = pthread_cond_timedwait(&block->m_cond, &block->m_mutex, &deadline);
    }
    pthread_cleanup_pop(1);
    return rc;
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

// The dependents are kept in the counted block rather than in the
// collaborator member, so that a delivery outlives the event.
void OrvaEvent::addDependent(OrvaDependent& dependent)
{
    if (!m_pHandle)
        return;
    OrvaEventBlock* block = eventBlock(m_pHandle);
    block->m_bEverHadDependents.store(true, std::memory_order_release);
    block->m_oDependents.addDependent(dependent);
}

void OrvaEvent::removeDependent(OrvaDependent& dependent)
{
    if (m_pHandle)
        eventBlock(m_pHandle)->m_oDependents.removeDependent(dependent);
}

} // namespace OrvaSupport
