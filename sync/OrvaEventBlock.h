// The block behind an OrvaEvent's handle, shared by the event and the timer
// manager. Not installed.
#ifndef OVKIT_SYNC_ORVAEVENTBLOCK_H
#define OVKIT_SYNC_ORVAEVENTBLOCK_H

#include <ovkit/OrvaNotification.h>

#include <atomic>
#include <pthread.h>

namespace OrvaSupport
{
namespace internal
{

// The condition variable comes first and its mutex second, so that a client
// that reads getHandle() finds them where it expects.
//
// The block is counted: the event holds one reference, and every set() under
// way holds one more. It also keeps the event's dependents. So a set() that is
// delivering while its event is destroyed (by a dependent, or by another
// thread) goes on with memory that is still there, and the destructor never
// waits for a delivery: it marks the block as orphaned and lets the last
// reference free it.
struct OrvaEventBlock
{
    pthread_cond_t m_cond;
    pthread_mutex_t m_mutex;
    std::atomic<int> m_nReferences;
    // Firings the timer manager has decided on, whose set() has not yet
    // taken its own reference; a dying timer waits for these (see below).
    std::atomic<int> m_nAnnounced;
    bool m_bOrphaned; // the event is gone; guarded by m_mutex
    // Set by the first addDependent() and never cleared: until then a set()
    // has nobody to tell.
    std::atomic<bool> m_bEverHadDependents;
    OrvaCollaborator m_oDependents;
};

inline OrvaEventBlock* eventBlock(void* handle)
{
    return static_cast<OrvaEventBlock*>(handle);
}

OrvaEventBlock* newEventBlock();
void pinEventBlock(OrvaEventBlock* block);
void unpinEventBlock(OrvaEventBlock* block);

// The timer manager announces a firing while the timer is still on its list,
// then calls set() with the list lock given up. The timer's destructor, which
// takes it off the list first, waits until every announced set() has pinned
// the block (a few instructions of library code, never a dependent), so the
// set() call itself never lands on a destroyed timer.
void announceEventSet(OrvaEventBlock* block);
// Called by the manager after set() returned, in case set() (overridden)
// never reached the point where it takes over the announcement.
void settleEventAnnouncement(OrvaEventBlock* block);
void waitForAnnouncedSets(OrvaEventBlock* block);

} // namespace internal
} // namespace OrvaSupport

#endif // OVKIT_SYNC_ORVAEVENTBLOCK_H
