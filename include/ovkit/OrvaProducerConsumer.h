/// \file
/// The core of a blocking queue: a queue with its lock, and the bracket that
/// lets consumers sleep until something arrives or production has ended.
///
///     // in a subclass of OrvaBaseProducerConsumer, with the subclass's queue:
///     lockSyncMutex(); push(item); setSyncEvent(); unlockSyncMutex();   // producer
///     lockSyncMutex();                                                  // consumer
///     while (empty() && !m_bSentinel)
///         waitForSyncEvent();
///     bool got = takeOne(item);          // false once drained after the sentinel
///     unlockSyncMutex();
///     produceSentinel(false);  /* join the consumers */  /* destroy */  // the end
///
/// The library holds no elements: the client's subclasses do, and they carry
/// the typed add and take operations and the test of the sentinel. Unlike an
/// OrvaEvent, the sync mutex links producer and consumer: a consumer tests the
/// queue and the sentinel while it holds the mutex, and waitForSyncEvent()
/// gives the mutex up only inside the wait, so no wake-up is lost.
///
/// Two locks, two jobs: the queue's OrvaCriticalSectionObject guards the
/// container, the sync mutex orders the waiting. The order is always the sync
/// mutex first, then the queue lock, then the log lock.
///
/// Ending: produceSentinel() wakes every consumer, which then drains what is
/// left (nothing, if the queue was cleared) and leaves. Destroy the
/// producer/consumer only after that, in this order: produceSentinel(), wait
/// for (join) every consumer thread, destroy. Destroying it while a consumer
/// still waits in waitForSyncEvent() destroys a condition variable in use,
/// which may hang the destroying thread for ever.
#ifndef OVKIT_ORVAPRODUCERCONSUMER_H
#define OVKIT_ORVAPRODUCERCONSUMER_H

#include <ovkit/OrvaCriticalSection.h>
#include <ovkit/OrvaExport.h>

namespace OrvaSupport
{

/// The queue's side: its lock and a way to empty it. The client's subclass
/// holds the elements.
class OVKIT_API OrvaBaseSynchronizedQueue
{
public:
    OrvaBaseSynchronizedQueue();
    virtual ~OrvaBaseSynchronizedQueue();

    /// Empties the queue. produceSentinel(true) calls it while it holds the
    /// sync mutex, which is not recursive: an implementation may take the
    /// queue's lock, but must not call lockSyncMutex() (the thread would block
    /// on itself).
    virtual void clear() = 0;
    /// The lock that guards the container.
    OrvaCriticalSectionObject& getLock();

private:
    OrvaCriticalSectionObject m_oLock;
};

/// The waiting side: the sync mutex and condition variable, and the sentinel.
///
/// Not copyable: the sync block is owned. The queue is not owned and must
/// outlive this object. Results of the thread library's calls are not looked
/// at, apart from the one that says a mutex's owner died (see below).
///
/// Killed threads. waitForSyncEvent() is a point where a consumer may be
/// killed: the mutex is given back as it dies, so a killed waiting consumer
/// never blocks produceSentinel() or the other consumers. A thread that dies
/// anywhere else while it holds the sync mutex gives it back as well: the
/// next thread to lock it takes it over.
class OVKIT_API OrvaBaseProducerConsumer
{
public:
    /// Keeps a reference to `queue`; sets up the sync block; the sentinel is
    /// false.
    explicit OrvaBaseProducerConsumer(OrvaBaseSynchronizedQueue& queue);
    /// Destroys the sync block. No thread may be waiting in
    /// waitForSyncEvent() (see the order of ending above).
    virtual ~OrvaBaseProducerConsumer();

    /// Locks the sync mutex. Not recursive: a thread that holds it and locks
    /// it again blocks for ever.
    void lockSyncMutex();
    /// Unlocks the sync mutex, which the calling thread holds.
    void unlockSyncMutex();
    /// Wakes every thread waiting in waitForSyncEvent().
    void setSyncEvent();
    /// Waits for the next setSyncEvent(), with the sync mutex, which the
    /// caller holds, given up during the wait and held again on return.
    /// Wake-ups may be spurious: callers test their condition in a loop.
    void waitForSyncEvent();

    /// Signals that nothing more will come: under the sync mutex, sets the
    /// sentinel, empties the queue with its clear() if `clearQueue` is set,
    /// and wakes every consumer. Traced at log level 9: "waiting for lock",
    /// "adding sentinel", "clearing queue". The sentinel is never reset by
    /// the library. If clear() throws, the sentinel stays set, the consumers
    /// are woken, the mutex is given up, and the exception passes on.
    /// All of it, the wait for the mutex included, runs with cancellation of
    /// the calling thread held back; a kill that arrives meanwhile takes
    /// effect on the way out.
    void produceSentinel(bool clearQueue);

    OrvaBaseProducerConsumer(const OrvaBaseProducerConsumer&) = delete;
    OrvaBaseProducerConsumer& operator=(const OrvaBaseProducerConsumer&) = delete;

protected:
    /// True once produceSentinel() has run. Read it while holding the sync mutex.
    bool m_bSentinel;

private:
    void* m_pSyncBlock;

protected:
    /// The queue, for the subclass's add and take operations.
    OrvaBaseSynchronizedQueue& m_rQueue;
};

} // namespace OrvaSupport

#endif // OVKIT_ORVAPRODUCERCONSUMER_H
