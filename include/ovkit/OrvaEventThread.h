/// \file
/// Threads that wait on an event: once, or at every firing of a timer.
///
///     class Poller : public OrvaEventTimerThread
///     {
///     public:
///         explicit Poller(OrvaTimer& timer) : OrvaEventTimerThread("poller", timer) {}
///         void onTimer() override { ... }            // on the poller's own thread
///     };
///     OrvaTimer tick(5000, false);
///     Poller poller(tick);
///     poller.start();
///     tick.reset();                                  // onTimer() every five seconds
///
/// OrvaEventWaitThread turns one wait on an event into a thread, so that events
/// can be awaited with the group wait of OrvaThread; OrvaEvent's static wait()
/// on several events is built on it. OrvaEventTimerThread calls onTimer() on its
/// own thread at each firing of a timer.
///
/// Both share one start handshake. An event keeps no memory of a set(), so a
/// destructor that wants to release the thread's wait must not set the event
/// before the thread has reached it: it looks every 100 milliseconds until the
/// thread's run() has begun. Even so, a set() that comes after run() has begun
/// but before it has entered the wait is lost, and the thread then waits for
/// the next set() or firing; a destructor that met such a moment waits with it.
#ifndef OVKIT_ORVAEVENTTHREAD_H
#define OVKIT_ORVAEVENTTHREAD_H

#include <ovkit/OrvaEvent.h>
#include <ovkit/OrvaExport.h>
#include <ovkit/OrvaThread.h>
#include <ovkit/OrvaTimer.h>

#include <string>

namespace OrvaSupport
{

/// A thread that waits once on an event, with the event's own wait(), and
/// ends. Its name is "EventWaitThread" unless the constructor that takes a
/// name is used.
///
/// The wait is `event.wait(milliseconds)`: with -1 it lasts until the next
/// set(); any other value returns at once (see OrvaEvent::wait()), so the
/// thread ends as soon as it has begun. run() returns 0 either way.
class OVKIT_API OrvaEventWaitThread : public OrvaThread
{
public:
    /// Neither starts the thread nor touches the event, which is not owned
    /// and must outlive this object.
    OrvaEventWaitThread(OrvaEvent& event, int milliseconds);
    /// The same, with a name of the caller's for the thread.
    OrvaEventWaitThread(const std::string& name, OrvaEvent& event, int milliseconds);
    /// Releases the thread and joins it. If a thread was started, waits
    /// (looking every 100 milliseconds) until its run() has begun, sets the
    /// event and waits for the thread's end. The event is set in any case,
    /// also when the wait has long returned and when no thread exists (never
    /// started, or the start failed), so the event's other waiters and its
    /// dependents see a set() from every destroyed wait thread. A set() lost
    /// in the moment before the thread's wait leaves this destructor waiting
    /// for another set() of the event.
    ~OrvaEventWaitThread() override;

    /// Marks the thread as started, waits on the event, returns 0.
    int run() override;

private:
    OrvaEvent* m_pEvent;
    int m_nTimeout;
    bool m_bStarted;
};

/// A thread that calls onTimer() at each firing of a timer, until the object
/// is destroyed. Abstract: a subclass supplies onTimer().
///
/// The timer is not owned, outlives the thread object, and is configured and
/// started by the client; the thread only waits on it. Each firing that finds
/// the thread waiting makes one call of onTimer(), on this object's thread, in
/// the order of the firings; a firing that comes while onTimer() still runs
/// is lost to the thread (the timer is an event). An exception out of
/// onTimer() ends the thread quietly, with exit code 0: no further calls.
class OVKIT_API OrvaEventTimerThread : public OrvaThread
{
public:
    /// The name goes to OrvaThread. Not started; the timer is not touched.
    OrvaEventTimerThread(const std::string& name, OrvaTimer& timer);
    /// Ends the thread and joins it, if a thread was started and its loop is
    /// still meant to go on: waits (looking every 100 milliseconds) until
    /// run() has begun, stops the loop and calls set() on the timer, which
    /// releases the thread and counts, for every other waiter and dependent of
    /// the timer, as one more firing. No onTimer() call comes after this
    /// destructor has returned. A thread never started (or whose start failed)
    /// is left at once. Traced at log level 9: "entering", "setting exit
    /// event", "waiting for thread to exit", "exiting".
    ///
    /// A subclass's own destructor runs first. A firing between its start and
    /// the moment this destructor stops the loop calls onTimer() on an object
    /// whose subclass part is gone, which ends the process. Stopping the
    /// timer in the subclass's destructor is not enough, for a firing decided
    /// on before the stop may still come: a subclass that cannot rule it out
    /// ends the loop itself first, e.g. by a flag that makes onTimer() throw,
    /// then a set() of its own, repeated until the thread has ended.
    ~OrvaEventTimerThread() override;

    /// Marks the loop as active, then starts the thread. Marking first means
    /// that a firing in the first instants is never taken for the end. If no
    /// thread could be created the object has no handle, and the destructor
    /// does nothing but trace.
    void start() override;
    /// The loop: marks the thread as started, waits on the timer without
    /// limit, and after each wake-up returns 0 if the loop is no longer
    /// active, or else calls onTimer().
    int run() override;

    /// Called on this object's thread at each firing of the timer.
    virtual void onTimer() = 0;

private:
    OrvaTimer* m_pTimer;
    bool m_bStarted;
    bool m_bActive;
};

} // namespace OrvaSupport

#endif // OVKIT_ORVAEVENTTHREAD_H
