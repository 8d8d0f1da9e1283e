/// \file
/// The broadcast event: a pulse that wakes every thread waiting at that moment.
///
///     OrvaEvent ready;
///     // waiting thread:                     // other thread:
///     ready.wait(-1);                        ready.set();
///
/// An event has no signalled state and keeps no memory of a set(): a set()
/// with no waiter is lost, and a thread that starts waiting after a set()
/// waits for the next one. Dependents (see OrvaNotification.h) are told of
/// each set() before the waiters are woken. OrvaTimer is an event that sets
/// itself.
///
/// Results of every wait: 0 woken by a set (or nothing to wait on), -2 timed
/// out, -3 failed; a timeout of -1 means no limit. The constants c_nWaitDone,
/// c_nWaitTimedOut, c_nWaitFailed and c_nWaitForever name them.
#ifndef OVKIT_ORVAEVENT_H
#define OVKIT_ORVAEVENT_H

#include <ovkit/OrvaExport.h>
#include <ovkit/OrvaNotification.h>

#include <vector>

namespace OrvaSupport
{

/// The results of every wait of the library (events, timers, threads), and
/// the timeout that means no limit.
constexpr int c_nWaitDone = 0;      ///< woken by a set, or nothing to wait on
constexpr int c_nWaitTimedOut = -2; ///< the time ran out
constexpr int c_nWaitFailed = -3;   ///< interrupted, or any other failure
constexpr int c_nWaitForever = -1;  ///< as a timeout: wait without limit

/// What an event sends to its dependents: id 1, nothing more.
class OVKIT_API OrvaEventNotification : public OrvaNotification
{
public:
    OrvaEventNotification();
    /// Copies the id.
    OrvaEventNotification(const OrvaEventNotification& other);
    /// Copies the id.
    OrvaEventNotification& operator=(const OrvaEventNotification& other);
    ~OrvaEventNotification() override;
};

/// A broadcast pulse on a condition variable.
///
/// Neither a flag nor the mutex links setter and waiter, so a set() that falls
/// between a thread's decision to wait and its arrival in the wait is lost;
/// callers that cannot afford that keep their own state. A spurious wake-up
/// of the condition variable returns 0 as if the event had been set.
///
/// Failures of the thread library in set() and reset() are ignored; wait()
/// reports through its result and never throws.
///
/// Lifetime: an event may be destroyed while a set() delivers to its
/// dependents, also by one of those dependents. The destructor does not wait
/// for the delivery: the delivery goes on with the remaining dependents, hands
/// its notification to the event only if the event still exists (otherwise
/// deletes it), and wakes nobody who could still be waiting on a dead event.
class OVKIT_API OrvaEvent
{
public:
    /// The event is ready to use at once.
    OrvaEvent();
    /// Dependents are not told.
    virtual ~OrvaEvent();

    /// Tells the dependents first, on the calling thread, through a
    /// notification from createNotification(), which is then handed to
    /// destroyNotification(); then wakes every thread waiting at this moment.
    virtual void set();
    /// Initialises the condition variable again. Meant for an event on which
    /// nobody waits; it does not wake anyone.
    virtual void reset();
    /// Waits for the next set().
    ///
    /// With -1 the wait has no limit. Any other value does not block: the
    /// time is passed on as an absolute time long past (the seconds and
    /// nanoseconds of `milliseconds`, counted from the epoch, in 32-bit
    /// arithmetic), so 0 to 999 return -2 at once, and larger values as a
    /// rule return -3 at once (the nanoseconds are out of range). A bounded
    /// wait is done with an OrvaTimer and a wait without limit.
    virtual int wait(int milliseconds);
    /// The block behind the event: a pthread_cond_t followed by its
    /// pthread_mutex_t, then state of the library's own. set() broadcasts the
    /// condition variable without taking the mutex.
    virtual void* getHandle();
    /// A new OrvaEventNotification; the caller hands it back to destroyNotification().
    virtual OrvaNotification* createNotification();
    /// Deletes the notification; null is allowed.
    virtual void destroyNotification(OrvaNotification* notification);

    /// Appends a dependent to the event's list (see OrvaCollaborator): it is
    /// told of every later set() on the setting thread, before the waiters
    /// wake. The dependent is not owned and must be removed before it dies.
    void addDependent(OrvaDependent& dependent);
    /// Removes every occurrence of the dependent. Does not wait for a set()
    /// that is delivering to it on another thread at that moment.
    void removeDependent(OrvaDependent& dependent);

    /// Waits for several events: for one of them (`waitAll` false; result: an
    /// index into `events`) or for all of them (result 0); -2 when the limit
    /// ran out first.
    ///
    /// Every event gets an OrvaEventWaitThread (see OrvaEventThread.h) that
    /// waits on it with `milliseconds`, and the call waits for those threads
    /// with OrvaThread's group wait. With -1 the threads really wait, and the
    /// call returns when the chosen condition holds. Any other value makes
    /// every thread's wait return at once (see wait(int)) and says nothing
    /// about the events: the call then ends with whatever comes first, a
    /// thread that ends after the group wait has begun to listen, or the
    /// limit, counted by a timer in whole seconds. A limit of 0 or below
    /// (other than -1) arms no timer, so the call may block for ever; so may
    /// an empty list with `waitAll` false, while with `waitAll` true it
    /// returns 0 at once.
    ///
    /// With `waitAll` false the index is that of a thread that ended: the last
    /// one to report before the group wait looked, not necessarily the first.
    ///
    /// Before it returns, the call destroys the threads in order: each sets
    /// its event and is joined. So every listed event has been set at least
    /// once when the call returns, and its other waiters and dependents have
    /// seen that set(). A set() lost in the instant before a thread's wait
    /// leaves the call waiting for another set() of that event.
    static int wait(std::vector<OrvaEvent*>& events, bool waitAll, int milliseconds);
    /// The same on `count` consecutive event objects.
    static int wait(int count, OrvaEvent* events, bool waitAll, int milliseconds);

    OrvaEvent(const OrvaEvent&) = delete;
    OrvaEvent& operator=(const OrvaEvent&) = delete;

private:
    static void finishDelivery(OrvaEvent* event, void* handle, OrvaNotification* notification);
    static int waitOnBlock(void* handle, int milliseconds);

    /// Kept for the layout; the dependents live in the block behind the
    /// handle, which a delivery under way keeps alive.
    OrvaCollaborator m_oCollaborator;
    void* m_pHandle;
};

} // namespace OrvaSupport

#endif // OVKIT_ORVAEVENT_H
