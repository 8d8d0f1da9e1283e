// The block behind an OrvaEvent's handle, shared by the event and the timer
// manager. Not installed.
#ifndef OVKIT_SYNC_ORVAEVENTBLOCK_H
#define OVKIT_SYNC_ORVAEVENTBLOCK_H

#include <pthread.h>
#include <sched.h>

namespace OrvaSupport
{

// The condition variable comes first and its mutex second, so that a client
// that reads getHandle() finds them where it expects. The count behind them
// is the number of set() calls under way on this event: the event is not
// destroyed while one of them still uses it.
struct OrvaEventBlock
{
    pthread_cond_t m_cond;
    pthread_mutex_t m_mutex;
    int m_nSetsUnderWay;
};

inline OrvaEventBlock* eventBlock(void* handle)
{
    return static_cast<OrvaEventBlock*>(handle);
}

// Marks a set() as under way. The timer manager calls it while the timer is
// still on its list, so that a timer whose owner takes it off the list and
// destroys it waits for a firing that has already been decided.
inline void beginEventSet(void* handle)
{
    if (handle)
        __atomic_add_fetch(&eventBlock(handle)->m_nSetsUnderWay, 1, __ATOMIC_SEQ_CST);
}

inline void endEventSet(void* handle)
{
    if (handle)
        __atomic_sub_fetch(&eventBlock(handle)->m_nSetsUnderWay, 1, __ATOMIC_SEQ_CST);
}

// Waits until no set() uses the event any more. Must not be called from
// inside a set() of the same event.
inline void waitForEventSets(void* handle)
{
    if (!handle)
        return;
    while (__atomic_load_n(&eventBlock(handle)->m_nSetsUnderWay, __ATOMIC_SEQ_CST) != 0)
        sched_yield();
}

// Keeps a set() marked as under way for a scope, also when a dependent throws.
class EventSetMark
{
public:
    explicit EventSetMark(void* handle) : m_pHandle(handle) { beginEventSet(m_pHandle); }
    ~EventSetMark() { endEventSet(m_pHandle); }

    EventSetMark(const EventSetMark&) = delete;
    EventSetMark& operator=(const EventSetMark&) = delete;

private:
    void* m_pHandle;
};

} // namespace OrvaSupport

#endif // OVKIT_SYNC_ORVAEVENTBLOCK_H
