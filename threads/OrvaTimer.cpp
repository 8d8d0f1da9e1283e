#include <ovkit/OrvaTimer.h>

#include <ovkit/OrvaException.h>
#include <ovkit/OrvaModule.h>
#include <ovkit/OrvaThread.h>

#include "sync/AtomicField.h"
#include "sync/LockInternals.h"
#include "sync/OrvaEventBlock.h"
#include "threads/LibraryRuntime.h"
#include "threads/LibrarySignals.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <cxxabi.h>
#include <sys/time.h>
#include <unistd.h>

namespace OrvaSupport
{

/// The short-lived thread that does the firing after a SIGALRM. It deletes
/// itself when done. A parked one is created ahead, outside signal context,
/// and waits until the signal handler releases it; the handler itself only
/// posts a semaphore. Every expiry thread is one of the library's own threads,
/// which the stop sequence lets end before it takes the library down.
class OrvaTimerThread : public OrvaThread
{
public:
    OrvaTimerThread(OrvaTimerManager* manager, bool parked) : m_pManager(manager), m_bParked(parked)
    {
        internal::libraryThreadCreated();
    }
    ~OrvaTimerThread() override
    {
        if (!getHandle())
            internal::libraryThreadDiscarded(); // never started
    }

    using OrvaThread::run;
    int run() override
    {
        internal::markLibraryThread();
        if (m_bParked)
        {
            internal::waitForExpiryRelease();
            internal::releaseExpiryParking();
        }
        if (OrvaTimerManager::isExiting() || m_pManager->isStopping())
            return 0;
        m_pManager->elapsed();
        return 0;
    }

private:
    OrvaTimerManager* m_pManager;
    bool m_bParked;
};

OrvaTimerManager* OrvaTimerManager::m_pThis = nullptr;
bool OrvaTimerManager::m_bExiting = false;

namespace
{

// When the armed system timer expires, on the monotonic clock in
// nanoseconds; 0 when none is known to be armed. Under the list lock.
long long s_nArmedDeadline = 0;

// The system timer is armed only when it would otherwise expire later than
// asked. One that is already due sooner is left alone: its expiry scans, finds
// nothing due yet, and arms again for what remains, so every timer still
// fires at its time. A timer started and stopped at a high rate (the log's
// record watchdog) thus costs one system call now and then, not one a start.
// The deadline armed is kept under the list lock; a scan forgets it, for the
// expiry that started it has passed. A deadline already past is not trusted
// either: its expiry may have released an expiry thread that found the
// manager stopping and left without a scan, and nothing would arm again.
void armSystemTimer(const itimerval& value)
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    const long long current = static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec;
    const long long deadline = current + static_cast<long long>(value.it_value.tv_sec) * 1000000000LL +
                               static_cast<long long>(value.it_value.tv_usec) * 1000LL;
    if (s_nArmedDeadline > current && s_nArmedDeadline <= deadline)
        return;
    // A value the system refuses (negative milliseconds) arms nothing.
    if (setitimer(ITIMER_REAL, &value, nullptr) == 0)
        s_nArmedDeadline = deadline;
}

// The handler of both SIGALRM and SIGUSR1 only releases the parked expiry
// thread: a signal handler must not allocate, create a thread or run a
// dependent, and the thread it interrupts is arbitrary. The expiry thread
// scans, and its scan ends by arming the system timer again. SIGUSR1 is no
// longer sent by the library (arming is done where it is decided); one that
// arrives is taken as a request to scan and re-arm.
void releaseExpiryOnSignal(int)
{
    const int savedErrno = errno;
    internal::releaseExpiryThread();
    errno = savedErrno;
}

} // namespace

void OVKITInitOrvaTimer()
{
    internal::setChildForkHandler(OrvaTimerManager::resumeAfterFork);
    installLibrarySignalHandler(SIGALRM, releaseExpiryOnSignal);
    installLibrarySignalHandler(SIGUSR1, releaseExpiryOnSignal);
}

void OVKITFinitOrvaTimer()
{
    OrvaTimerManager::deleteInstance();
}

// --- TimeInterval ---------------------------------------------------------

OrvaTimer::TimeInterval::TimeInterval() : m_nSeconds(0), m_nMilliseconds(0) {}

OrvaTimer::TimeInterval::TimeInterval(long seconds, long milliseconds)
{
    set(seconds, milliseconds);
}

void OrvaTimer::TimeInterval::set(long seconds, long milliseconds)
{
    m_nSeconds = seconds + milliseconds / 1000;
    m_nMilliseconds = milliseconds % 1000;
}

// The milliseconds are compared with this operand's own seconds, not with the
// other's milliseconds; the timer list and the due test rely on exactly that.
bool OrvaTimer::TimeInterval::operator<(const TimeInterval& b) const
{
    return m_nSeconds < b.m_nSeconds || (m_nSeconds == b.m_nSeconds && m_nMilliseconds < m_nSeconds);
}

bool OrvaTimer::TimeInterval::operator==(const TimeInterval& b) const
{
    return m_nSeconds == b.m_nSeconds && m_nMilliseconds == m_nSeconds;
}

bool OrvaTimer::TimeInterval::operator<=(const TimeInterval& b) const
{
    return *this < b || *this == b;
}

// --- OrvaTimer ------------------------------------------------------------

OrvaTimer::OrvaTimer() : m_bOneShot(false), m_bVisited(false), m_bQueued(false) {}

OrvaTimer::OrvaTimer(long milliseconds, bool oneShot)
    : m_oInterval(0, milliseconds), m_bOneShot(oneShot), m_bVisited(false), m_bQueued(false)
{
}

OrvaTimer::OrvaTimer(long seconds, long milliseconds, bool oneShot)
    : m_oInterval(seconds, milliseconds), m_bOneShot(oneShot), m_bVisited(false), m_bQueued(false)
{
}

OrvaTimer::~OrvaTimer()
{
    stop();
    // A firing that the manager decided on before the timer left its list is
    // about to call set(): wait until that call has taken over the event's
    // block. The delivery itself is not waited for.
    if (void* handle = getHandle())
        internal::waitForAnnouncedSets(internal::eventBlock(handle));
}

void OrvaTimer::reset()
{
    start(m_oInterval.m_nSeconds, m_oInterval.m_nMilliseconds, m_bOneShot);
}

void OrvaTimer::start(long milliseconds, bool oneShot)
{
    start(0, milliseconds, oneShot);
}

void OrvaTimer::start(long seconds, long milliseconds, bool oneShot)
{
    if (OrvaTimerManager::isExiting())
        return;
    try
    {
        OrvaTimerManager* manager = OrvaTimerManager::getInstance();
        // One hold of the list lock for both steps: a restart is one change
        // of the list for the other threads.
        OrvaCriticalSection guard(manager->m_oListLock, true);
        manager->remove(*this);
        m_oInterval.set(seconds, milliseconds);
        m_bOneShot = oneShot;
        if (seconds > 0 || milliseconds > 0)
            manager->add(*this);
    }
    catch (OrvaException&)
    {
        // The library is shutting down: the timer stays as it is.
    }
}

void OrvaTimer::stop()
{
    if (OrvaTimerManager::isExiting() || !OrvaTimerManager::m_pThis)
        return;
    try
    {
        OrvaTimerManager::getInstance()->removeIfQueued(*this);
    }
    catch (OrvaException&)
    {
    }
}

bool OrvaTimer::isOneShot() const
{
    return m_bOneShot;
}

bool OrvaTimer::isQueued() const
{
    return internal::loadAcquire(m_bQueued);
}

const OrvaTimer::TimeInterval& OrvaTimer::getInterval() const
{
    return m_oInterval;
}

OrvaTimer::TimeInterval OrvaTimer::getTrigger() const
{
    return m_oTrigger;
}

// --- OrvaTimerManager -----------------------------------------------------
//
// Lock order: the elapse lock (one scan at a time) before the list lock. A
// scan holds the elapse lock while it calls the timers' set(), with the list
// lock given up by one level, so a set() may add and remove timers.

OrvaTimerManager* OrvaTimerManager::getInstance()
{
    if (m_bExiting)
        throw OrvaException("OrvaTimerManager::getInstance: Exiting system", 0);
    if (!m_pThis)
        m_pThis = new OrvaTimerManager;
    return m_pThis;
}

void OrvaTimerManager::deleteInstance()
{
    if (m_pThis)
    {
        delete m_pThis;
        m_pThis = nullptr;
    }
}

bool OrvaTimerManager::isExiting()
{
    return internal::loadSequenced(m_bExiting);
}

OrvaTimerManager::OrvaTimerManager() : m_bStopping(false), m_bElapsing(false) {}

OrvaTimerManager::~OrvaTimerManager()
{
    internal::storeSequenced(m_bExiting, true);
    cancelTimer();
    // The library's threads still under way (the parked expiry thread, a
    // scan, a log watchdog) use this manager and the process-wide locks that
    // the stop sequence is about to destroy. The parked one is released; all
    // are waited for, on a condition, for at most two seconds (a dependent
    // that never returns must not hold up the process's exit for ever).
    internal::releaseExpiryThread();
    internal::waitForLibraryThreads(2000);
}

void OrvaTimerManager::add(OrvaTimer& timer)
{
    OrvaCriticalSection guard(m_oListLock, true);
    addImpl(timer);
    reset(false);
}

void OrvaTimerManager::addImpl(OrvaTimer& timer)
{
    // The seconds count from now; the milliseconds are not carried into them.
    timer.m_oTrigger.m_nSeconds = static_cast<long>(time(nullptr)) + timer.m_oInterval.m_nSeconds;
    timer.m_oTrigger.m_nMilliseconds = timer.m_oInterval.m_nMilliseconds;
    auto position = m_vTimers.begin();
    while (position != m_vTimers.end() && !(timer.m_oTrigger <= (*position)->m_oTrigger))
        ++position;
    m_vTimers.insert(position, &timer);
    internal::storeRelease(timer.m_bQueued, true);
}

void OrvaTimerManager::removeIfQueued(OrvaTimer& timer)
{
    OrvaCriticalSection guard(m_oListLock, true);
    if (timer.m_bQueued)
        remove(timer);
}

void OrvaTimerManager::remove(OrvaTimer& timer)
{
    OrvaCriticalSection guard(m_oListLock, true);
    m_vTimers.erase(std::remove(m_vTimers.begin(), m_vTimers.end(), &timer), m_vTimers.end());
    // An operating-system timer that is running is left to expire; its
    // SIGALRM then finds nothing to do, and releases the parked expiry
    // thread, which ends. Until then that thread stays parked, ready for the
    // next timer: a timer that is started and stopped again and again (the
    // log's record watchdog) costs one setitimer per start and no thread.
    if (!m_vTimers.empty())
        reset(false);
    else
        cancelTimer();
    internal::storeRelease(timer.m_bQueued, false);
}

// A due timer is fired on the calling thread only when the elapse lock is
// free: waiting for it here, with the list lock held, could deadlock against
// a scan. Otherwise, and always from a signal, the firing is handed to an
// expiry thread. A timer not yet due needs a parked expiry thread for the
// signal to release, then setitimer.
void OrvaTimerManager::reset(bool fromSignal)
{
    OrvaCriticalSection guard(m_oListLock, true);
    if (m_bElapsing || m_vTimers.empty())
        return;
    const OrvaTimer::TimeInterval& first = m_vTimers.front()->m_oTrigger;
    m_oNextInterval.m_nSeconds = first.m_nSeconds - static_cast<long>(time(nullptr));
    m_oNextInterval.m_nMilliseconds = first.m_nMilliseconds;
    if (m_oNextInterval.m_nSeconds < 0 ||
        (m_oNextInterval.m_nSeconds == 0 && m_oNextInterval.m_nMilliseconds == 0))
    {
        // Already due: fired here, on the caller's thread, when the caller is
        // a client; a request that came through a signal goes to an expiry
        // thread.
        if (fromSignal)
            handOverFiring();
        else
            scan(true);
        return;
    }
    // A thread waits for the expiry before the system timer is armed. The
    // milliseconds go into the microsecond field as they are.
    parkExpiryThread();
    itimerval value = {};
    value.it_value.tv_sec = m_oNextInterval.m_nSeconds;
    value.it_value.tv_usec = m_oNextInterval.m_nMilliseconds;
    armSystemTimer(value);
}

// Parks an expiry thread unless one is parked already. Outside signal
// context; a thread that cannot be created is tried again at the next arming,
// and a release posted meanwhile waits in the semaphore.
void OrvaTimerManager::parkExpiryThread()
{
    if (isExiting() || !internal::claimExpiryParking())
        return;
    if (!startExpiryThread(true))
        internal::releaseExpiryParking();
}

bool OrvaTimerManager::startExpiryThread(bool parked)
{
    OrvaTimerThread* thread = new OrvaTimerThread(this, parked);
    thread->setMarkForDeath();
    internal::takeStartFailure();
    thread->start();
    // A started thread may have deleted itself already: touch it only if no
    // thread came into being.
    if (!internal::takeStartFailure())
        return true;
    delete thread;
    return false;
}

// A due firing that cannot be done here: the scan is left to an expiry
// thread, which waits for any scan under way and then makes its own, so no
// firing is lost.
void OrvaTimerManager::handOverFiring()
{
    parkExpiryThread();
    internal::releaseExpiryThread();
}

// In a child after fork() only the forking thread lives on: a lock that
// another thread held stays held for ever, a scan under way never ends, and
// the system timer is not inherited. Take the state back and arm again, so
// that timers keep working in the child.
void OrvaTimerManager::resumeAfterFork()
{
    if (g_pCriticalSection)
        internal::reclaimLockAfterFork(*g_pCriticalSection);
    OrvaTimerManager* manager = m_pThis;
    // A child that is about to run another program needs no timers.
    if (!manager || isExiting() || internal::isForkingToExec())
        return;
    internal::reclaimLockAfterFork(manager->m_oElapseLock);
    internal::reclaimLockAfterFork(manager->m_oListLock);
    s_nArmedDeadline = 0; // a child does not inherit the system timer
    manager->endScan();
    manager->reset(false);
}

void OrvaTimerManager::elapsed()
{
    scan(false);
}

void OrvaTimerManager::scan(bool fromReset)
{
    // Reached from reset() the list lock is already held, against the lock
    // order. There the elapse lock is only tried: if another thread holds it,
    // that thread has a scan, or the re-arming after one, still ahead of it,
    // and fires what is due then; waiting for it here could deadlock.
    if (fromReset)
    {
        if (!m_oElapseLock.testAndSet())
        {
            handOverFiring();
            return;
        }
    }
    else
    {
        m_oElapseLock.lock();
    }
    struct ElapseRelease
    {
        OrvaCriticalSectionObject& lock;
        ~ElapseRelease() noexcept(false) { lock.unlock(); }
    } release{m_oElapseLock};

    if (m_bElapsing)
        return;

    m_oListLock.lock();
    s_nArmedDeadline = 0;
    struct ListRelease
    {
        OrvaCriticalSectionObject& lock;
        bool held;
        ~ListRelease() noexcept(false)
        {
            if (held)
                lock.unlock();
        }
        void leave()
        {
            held = false;
            lock.unlock();
        }
        void enter()
        {
            lock.lock();
            held = true;
        }
    } list{m_oListLock, true};
    m_bElapsing = true;
    std::size_t position = 0;
    for (;;)
    {
        while (position < m_vTimers.size() && m_vTimers[position]->m_bVisited)
            ++position;
        if (position >= m_vTimers.size())
            break;
        OrvaTimer* timer = m_vTimers[position];
        timer->m_bVisited = true;
        const OrvaTimer::TimeInterval now(static_cast<long>(time(nullptr)), 0);
        if (!(timer->m_oTrigger <= now))
        {
            ++position;
            continue;
        }
        // Announced while it is still on the list: an owner that takes it off
        // and destroys it waits until set() has taken over the event's block.
        internal::OrvaEventBlock* block = internal::eventBlock(timer->getHandle());
        if (block)
            internal::announceEventSet(block);
        remove(*timer);
        if (!timer->isOneShot())
            addImpl(*timer);
        list.leave();
        try
        {
            timer->set();
        }
        catch (abi::__forced_unwind&)
        {
            // This thread is being cancelled: leave the list fit for the next scan.
            if (block)
                internal::settleEventAnnouncement(block);
            list.enter();
            endScan();
            throw;
        }
        catch (...)
        {
            // A failing dependent must not stop the timers of the process.
        }
        if (block)
            internal::settleEventAnnouncement(block);
        list.enter();
        position = 0;
    }
    endScan();
    list.leave();
    reset(false);
}

void OrvaTimerManager::endScan()
{
    for (OrvaTimer* timer : m_vTimers)
        timer->m_bVisited = false;
    m_bElapsing = false;
}

void OrvaTimerManager::timeout()
{
    startExpiryThread(false);
}

void OrvaTimerManager::cancelTimer()
{
    internal::storeRelease(m_bStopping, true);
    {
        OrvaCriticalSection guard(m_oListLock, true);
        m_oManagerEvent.set();
    }
    internal::storeRelease(m_bStopping, false);
}

bool OrvaTimerManager::isStopping() const
{
    return internal::loadAcquire(m_bStopping);
}

std::size_t OrvaTimerManager::getTimerCount()
{
    OrvaCriticalSection guard(m_oListLock, true);
    return m_vTimers.size();
}

OrvaEvent& OrvaTimerManager::getManagerEvent()
{
    return m_oManagerEvent;
}

} // namespace OrvaSupport
