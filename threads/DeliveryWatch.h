// Deliveries under way to one dependent, for an owner that must know when the
// last of them is over before the dependent dies. Not installed.
//
// OrvaCollaborator::notify() reads a dependent from its list under the list
// lock and calls it with the lock given up, so removeDependent() cannot tell
// whether another thread has read the pointer and is about to call it. While
// a dependent is watched, notify() marks each delivery to it before it gives
// the list lock up and clears the mark when the callback has returned. An
// owner that has removed the dependent from every collaborator then waits in
// endWatch() for the marks of deliveries that began before the removal, and
// for those only: callbacks to other dependents are never waited for.
//
//     DeliveryWatch watch;
//     beginWatch(watch, dependent);          // before the first addDependent
//     ... add, wait, remove from every collaborator ...
//     endWatch(watch);                       // no delivery touches it any more
//
// A marked delivery runs with cancellation deferred, so a thread killed while
// it delivers clears its mark as it unwinds and never leaves the owner waiting.
#ifndef OVKIT_THREADS_DELIVERYWATCH_H
#define OVKIT_THREADS_DELIVERYWATCH_H

#include <ovkit/OrvaNotification.h>

#include <atomic>

namespace OrvaSupport
{
namespace internal
{

/// One watched dependent. Its fields belong to the watch registry.
struct DeliveryWatch
{
    OrvaDependent* m_pDependent = nullptr;
    int m_nUnderWay = 0;
    DeliveryWatch* m_pNext = nullptr;
    DeliveryWatch* m_pPrevious = nullptr;
};

/// Number of watches in the registry: notify() marks nothing while it is 0.
extern std::atomic<int> g_nDeliveryWatches;

/// True while any dependent is watched. A delivery that has read a watched
/// dependent under the list lock always sees it, for the watch began before
/// the dependent was added.
inline bool deliveriesWatched()
{
    return g_nDeliveryWatches.load(std::memory_order_acquire) != 0;
}

/// Enters `watch` for `dependent` in the registry.
void beginWatch(DeliveryWatch& watch, OrvaDependent& dependent);
/// Waits until no marked delivery to the watched dependent is under way, then
/// takes the watch out of the registry. Every collaborator must have removed
/// the dependent first, or new deliveries may keep coming.
void endWatch(DeliveryWatch& watch);

/// The delivery of one notify() step while watches exist. Called with
/// `listLock` held; returns with it given up. A watched dependent's delivery
/// is marked and runs with cancellation deferred; any other is made exactly
/// as notify() makes it otherwise.
void deliverWatched(OrvaCollaborator& collaborator, OrvaDependent& dependent,
                    const OrvaNotification& notification, OrvaCriticalSectionObject& listLock);

} // namespace internal
} // namespace OrvaSupport

#endif // OVKIT_THREADS_DELIVERYWATCH_H
