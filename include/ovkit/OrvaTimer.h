/// \file
/// Timers: events that set themselves after an interval, once or repeatedly.
///
///     OrvaTimer tick(2000, false);   // every two seconds, once started
///     tick.reset();                  // start with the stored interval
///     while (tick.wait(-1) == 0) { ... }
///
/// All timers of a process share one operating-system timer (ITIMER_REAL). The
/// OrvaTimerManager singleton keeps the queued timers in a list sorted by
/// their next firing, arms the system timer for the earliest one, and at each
/// SIGALRM starts a short-lived thread that sets the timers that are due. A
/// timer's set(), and so its dependents and the waking of its waiters, runs
/// as a rule on that thread.
///
/// Resolution is whole seconds. A timer's next firing is the current second
/// plus the interval's seconds, with the interval's milliseconds beside it;
/// a firing in the present second is due at once, whatever its milliseconds.
/// So an interval below one second fires as soon as the signals have been
/// handled, and, repeating, fires again after every scan. A repeating timer's
/// next firing counts from the time it fired.
///
/// The library owns SIGALRM and SIGUSR1; clients leave them alone.
#ifndef OVKIT_ORVATIMER_H
#define OVKIT_ORVATIMER_H

#include <ovkit/OrvaCriticalSection.h>
#include <ovkit/OrvaEvent.h>
#include <ovkit/OrvaExport.h>

#include <cstddef>
#include <vector>

namespace OrvaSupport
{

class OrvaTimerManager;

/// An event that the timer manager sets when its interval has passed.
///
/// A timer is idle or queued: start() and reset() queue it; stop(), and the
/// firing of a one-shot timer, make it idle. The destructor stops it, so a
/// timer destroyed while queued leaves the manager's list before its event
/// goes. During the library's shutdown start() does nothing and stop() leaves
/// the timer as it is.
class OVKIT_API OrvaTimer : public OrvaEvent
{
public:
    /// Whole seconds and the milliseconds beside them.
    ///
    /// The comparisons are part of the timer's behaviour and look odd on
    /// purpose: when the seconds are equal, they compare the left operand's
    /// milliseconds with the left operand's own seconds. For triggers counted
    /// in seconds since the epoch that makes two triggers in one second
    /// compare as less in both directions, and a trigger in the present
    /// second count as due.
    class OVKIT_API TimeInterval
    {
    public:
        /// 0 seconds, 0 milliseconds.
        TimeInterval();
        /// As set().
        TimeInterval(long seconds, long milliseconds);
        /// seconds + milliseconds / 1000, and milliseconds % 1000.
        void set(long seconds, long milliseconds);

        /// this.seconds < b.seconds, or, with equal seconds,
        /// this.milliseconds < this.seconds.
        bool operator<(const TimeInterval& b) const;
        /// this.seconds == b.seconds and this.milliseconds == this.seconds.
        bool operator==(const TimeInterval& b) const;
        /// operator< or operator==.
        bool operator<=(const TimeInterval& b) const;

        long m_nSeconds;      ///< Whole seconds.
        long m_nMilliseconds; ///< Milliseconds beyond them, below 1000 after set().
    };

    /// Zero interval, not one-shot, idle.
    OrvaTimer();
    /// An interval of `milliseconds`; not started.
    OrvaTimer(long milliseconds, bool oneShot);
    /// An interval of `seconds` and `milliseconds`; not started.
    OrvaTimer(long seconds, long milliseconds, bool oneShot);
    /// stop(), then waits until a firing already under way has begun its
    /// set() (the delivery itself is not waited for).
    ~OrvaTimer() override;

    /// Starts the timer again with its stored interval and one-shot flag.
    void reset() override;
    /// start(0, milliseconds, oneShot).
    virtual void start(long milliseconds, bool oneShot);
    /// Takes the timer off the list, stores the new interval and flag, and,
    /// if either number is above 0, queues it to fire one interval from now.
    /// With both numbers 0 or below it just stops the timer. Due timers may
    /// fire on the calling thread.
    virtual void start(long seconds, long milliseconds, bool oneShot);
    /// Takes a queued timer off the list; an idle timer is left alone. A
    /// firing that the manager had already decided on may still set the
    /// event after stop() has returned: stop() does not wait for it.
    virtual void stop();
    /// The one-shot flag last given.
    virtual bool isOneShot() const;

    /// True while the timer is on the manager's list.
    bool isQueued() const;
    /// The configured period.
    const TimeInterval& getInterval() const;
    /// The next firing: seconds since the epoch, and the interval's milliseconds.
    TimeInterval getTrigger() const;

private:
    friend class OrvaTimerManager;

    TimeInterval m_oInterval;
    TimeInterval m_oTrigger;
    bool m_bOneShot;
    bool m_bVisited;
    bool m_bQueued;
};

/// The process's one timer list, and the system timer behind it.
///
/// It exists from the first getInstance() to deleteInstance(), which the
/// library calls when it is unloaded; after that every getInstance() throws.
/// One scan runs at a time and calls the due timers' set() in turn, so a slow
/// dependent delays every other timer. Firings run on library threads, never
/// in signal context. A child process after fork() keeps its timers: the
/// system timer is armed again there. One library thread waits ahead for the
/// system timer's next expiry; it stays after the last timer stopped, until
/// that expiry (at most the longest interval armed) or the library's unload. At unload the manager waits (at
/// most two seconds) for the library's own threads that are still under way.
class OVKIT_API OrvaTimerManager
{
public:
    /// The instance, created at the first call without any lock: the first
    /// use should come from one thread. After deleteInstance() it throws
    /// OrvaException "OrvaTimerManager::getInstance: Exiting system", code 0.
    static OrvaTimerManager* getInstance();
    /// Deletes the instance, if there is one. The manager cannot be created
    /// again afterwards.
    static void deleteInstance();
    /// True once the instance has been deleted; never cleared.
    static bool isExiting();

    /// Queues the timer (addImpl) and re-arms, under the list lock.
    void add(OrvaTimer& timer);
    /// Computes the timer's next firing from the present second and inserts
    /// it before the first entry that it compares less than or equal to.
    /// Among timers due in the same second the newest comes first.
    void addImpl(OrvaTimer& timer);
    /// Takes every occurrence of the timer off the list and marks it idle.
    /// Re-arms for the remaining timers; an empty list cancels instead, and
    /// a system timer that is still running then expires with nothing to do.
    void remove(OrvaTimer& timer);
    /// Arms for the earliest timer. A timer that is already due fires at
    /// once: on the calling thread when `fromSignal` is false and no scan is
    /// under way, otherwise on a library thread as soon as the running scan
    /// is over. The milliseconds go into the microsecond field of setitimer
    /// unscaled, so 500 milliseconds arm 500 microseconds. Does nothing
    /// during a scan or with an empty list.
    void reset(bool fromSignal);
    /// The scan: sets each due timer once, in list order, re-queueing the
    /// repeating ones from the present time, then re-arms. The set() calls
    /// run on this thread; a timer's set() may add and remove timers. An
    /// exception from a timer's dependents is dropped, so that the other
    /// timers go on.
    void elapsed();
    /// Starts a self-deleting thread that runs elapsed().
    void timeout();
    /// Marks the manager as stopping while it sets the manager event.
    void cancelTimer();

    /// True during cancelTimer().
    bool isStopping() const;
    /// The number of entries in the list.
    std::size_t getTimerCount();
    /// Set on each cancelTimer(); the library does not wait on it.
    OrvaEvent& getManagerEvent();

    OrvaTimerManager(const OrvaTimerManager&) = delete;
    OrvaTimerManager& operator=(const OrvaTimerManager&) = delete;

protected:
    OrvaTimerManager();
    /// Marks the library as exiting and cancels. The system timer is not
    /// disarmed: a later SIGALRM finds no manager and does nothing.
    virtual ~OrvaTimerManager();

private:
    friend class OrvaTimer;
    friend void OVKITInitOrvaTimer();

    void scan(bool fromReset);
    void endScan();
    void removeIfQueued(OrvaTimer& timer);
    void parkExpiryThread();
    bool startExpiryThread(bool parked);
    void handOverFiring();
    static void resumeAfterFork();

    OrvaEvent m_oManagerEvent;
    std::vector<OrvaTimer*> m_vTimers;
    OrvaCriticalSectionObject m_oListLock;
    OrvaTimer::TimeInterval m_oNextInterval;
    bool m_bStopping;
    OrvaCriticalSectionObject m_oElapseLock;
    bool m_bElapsing;

    static OrvaTimerManager* m_pThis;
    static bool m_bExiting;
};

} // namespace OrvaSupport

#endif // OVKIT_ORVATIMER_H
