#include "threads/DeliveryWatch.h"

#include "sync/KillShield.h"

#include <pthread.h>

namespace OrvaSupport
{
namespace internal
{

std::atomic<int> g_nDeliveryWatches{0};

namespace
{

// The registry: a list of watches, its mutex, and the condition on which
// endWatch() waits for marks to clear. All three are constant-initialised
// and have no destructor, so deliveries during the process's exit find them.
//
// The mutex is a plain one and is never held across a cancellation point: a
// delivery holds it with cancellation deferred, the owner of a watch with
// cancellation disabled, and neither calls anything that blocks but the
// condition wait of endWatch(), where cancellation is off.
pthread_mutex_t s_registryMutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t s_markCleared = PTHREAD_COND_INITIALIZER;
DeliveryWatch* s_pWatches = nullptr;

DeliveryWatch* markDelivery(OrvaDependent& dependent)
{
    pthread_mutex_lock(&s_registryMutex);
    DeliveryWatch* watch = s_pWatches;
    while (watch && watch->m_pDependent != &dependent)
        watch = watch->m_pNext;
    if (watch)
        ++watch->m_nUnderWay;
    pthread_mutex_unlock(&s_registryMutex);
    return watch;
}

// Clears the mark of one delivery when the callback is over, also when it
// throws or its thread is cancelled inside it.
class MarkedDelivery
{
public:
    explicit MarkedDelivery(DeliveryWatch& watch) : m_rWatch(watch) {}
    ~MarkedDelivery()
    {
        pthread_mutex_lock(&s_registryMutex);
        if (--m_rWatch.m_nUnderWay == 0)
            pthread_cond_broadcast(&s_markCleared);
        pthread_mutex_unlock(&s_registryMutex);
    }

    MarkedDelivery(const MarkedDelivery&) = delete;
    MarkedDelivery& operator=(const MarkedDelivery&) = delete;

private:
    DeliveryWatch& m_rWatch;
};

} // namespace

void beginWatch(DeliveryWatch& watch, OrvaDependent& dependent)
{
    int cancelState;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState);
    pthread_mutex_lock(&s_registryMutex);
    watch.m_pDependent = &dependent;
    watch.m_nUnderWay = 0;
    watch.m_pPrevious = nullptr;
    watch.m_pNext = s_pWatches;
    if (s_pWatches)
        s_pWatches->m_pPrevious = &watch;
    s_pWatches = &watch;
    g_nDeliveryWatches.fetch_add(1, std::memory_order_release);
    pthread_mutex_unlock(&s_registryMutex);
    pthread_setcancelstate(cancelState, &cancelState);
}

// Cancellation is off for the whole wait: a watch left in the registry would
// point into memory that its owner is about to free.
void endWatch(DeliveryWatch& watch)
{
    int cancelState;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState);
    pthread_mutex_lock(&s_registryMutex);
    while (watch.m_nUnderWay > 0)
        pthread_cond_wait(&s_markCleared, &s_registryMutex);
    if (watch.m_pNext)
        watch.m_pNext->m_pPrevious = watch.m_pPrevious;
    if (watch.m_pPrevious)
        watch.m_pPrevious->m_pNext = watch.m_pNext;
    else
        s_pWatches = watch.m_pNext;
    watch.m_pNext = watch.m_pPrevious = nullptr;
    g_nDeliveryWatches.fetch_sub(1, std::memory_order_release);
    pthread_mutex_unlock(&s_registryMutex);
    pthread_setcancelstate(cancelState, &cancelState);
}

// The mark is made while the collaborator's list lock is still held, so a
// removeDependent(), which takes that lock, comes after it: the owner's
// endWatch() sees every delivery that read the dependent before the removal.
// Marking and the marked call run shielded, so that no kill lands between the
// mark and the clearing. Any other dependent is called after the shield, as
// notify() calls it otherwise.
//
// This frame has no exception tables (the body runs in runCatching), so an
// asynchronous cancellation may land anywhere in it outside the shield.
void deliverWatched(OrvaCollaborator& collaborator, OrvaDependent& dependent,
                    const OrvaNotification& notification, OrvaCriticalSectionObject& listLock)
{
    DeliveryWatch* watch = nullptr;
    runShielded(
        [&]
        {
            watch = markDelivery(dependent);
            listLock.unlock();
            if (!watch)
                return;
            MarkedDelivery marked(*watch);
            dependent.handleNotification(collaborator, notification);
        });
    if (!watch)
        dependent.handleNotification(collaborator, notification);
}

} // namespace internal
} // namespace OrvaSupport
