#include <ovkit/OrvaTimer.h>

#include <ovkit/OrvaException.h>
#include <ovkit/OrvaModule.h>
#include <ovkit/OrvaThread.h>

#include "sync/OrvaEventBlock.h"
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

/// The short-lived thread that does the firing after each SIGALRM. It deletes
/// itself when done. The live ones are counted, so that the manager's
/// destructor can let them finish before the process takes the library down.
class OrvaTimerThread : public OrvaThread
{
public:
    explicit OrvaTimerThread(OrvaTimerManager* manager) : m_pManager(manager)
    {
        __atomic_add_fetch(&s_nLiveThreads, 1, __ATOMIC_SEQ_CST);
    }
    ~OrvaTimerThread() override { __atomic_sub_fetch(&s_nLiveThreads, 1, __ATOMIC_SEQ_CST); }

    using OrvaThread::run;
    int run() override
    {
        if (OrvaTimerManager::isExiting() || m_pManager->isStopping())
            return 0;
        m_pManager->elapsed();
        return 0;
    }

    static int liveThreads() { return __atomic_load_n(&s_nLiveThreads, __ATOMIC_SEQ_CST); }

private:
    static int s_nLiveThreads;
    OrvaTimerManager* m_pManager;
};

int OrvaTimerThread::s_nLiveThreads = 0;

OrvaTimerManager* OrvaTimerManager::m_pThis = nullptr;
bool OrvaTimerManager::m_bExiting = false;

namespace
{

inline bool loadFlag(const bool& flag)
{
    return __atomic_load_n(&flag, __ATOMIC_SEQ_CST);
}

inline void storeFlag(bool& flag, bool value)
{
    __atomic_store_n(&flag, value, __ATOMIC_SEQ_CST);
}

// Holds the manager's list lock with SIGUSR1 blocked on this thread. The
// SIGUSR1 handler enters the list itself; on the very thread that is in the
// middle of changing the list the recursive lock would let it in. Blocked
// here, the signal goes to another thread, which waits for the lock, or waits
// itself until the lock is left.
class ListGuard
{
public:
    explicit ListGuard(OrvaCriticalSectionObject& lock) : m_rLock(lock), m_bHeld(false) { enter(); }
    ~ListGuard()
    {
        if (m_bHeld)
            leave();
    }

    void enter()
    {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGUSR1);
        pthread_sigmask(SIG_BLOCK, &signals, &m_oSavedMask);
        m_rLock.lock();
        m_bHeld = true;
    }

    void leave()
    {
        m_bHeld = false;
        m_rLock.unlock();
        pthread_sigmask(SIG_SETMASK, &m_oSavedMask, nullptr);
    }

    ListGuard(const ListGuard&) = delete;
    ListGuard& operator=(const ListGuard&) = delete;

private:
    OrvaCriticalSectionObject& m_rLock;
    bool m_bHeld;
    sigset_t m_oSavedMask;
};

// The handlers ask isExiting() first: after the manager is gone they end
// exactly as the caught failure of getInstance() would, without building an
// exception while the process is shutting down.
void timerExpired(int)
{
    const int savedErrno = errno;
    if (!OrvaTimerManager::isExiting())
    {
        try
        {
            OrvaTimerManager::getInstance()->timeout();
        }
        catch (OrvaException&)
        {
        }
    }
    errno = savedErrno;
}

void armTimer(int)
{
    const int savedErrno = errno;
    if (!OrvaTimerManager::isExiting())
    {
        try
        {
            OrvaTimerManager::getInstance()->reset(true);
        }
        catch (OrvaException&)
        {
        }
    }
    errno = savedErrno;
}

} // namespace

void OVKITInitOrvaTimer()
{
    installLibrarySignalHandler(SIGALRM, timerExpired);
    installLibrarySignalHandler(SIGUSR1, armTimer);
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
    // A firing that the manager decided on before the timer left its list may
    // still be running set() on another thread.
    waitForEventSets(getHandle());
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
    if (!isQueued() || OrvaTimerManager::isExiting())
        return;
    try
    {
        OrvaTimerManager::getInstance()->remove(*this);
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
    return loadFlag(m_bQueued);
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
    return loadFlag(m_bExiting);
}

OrvaTimerManager::OrvaTimerManager() : m_bStopping(false), m_bElapsing(false) {}

OrvaTimerManager::~OrvaTimerManager()
{
    storeFlag(m_bExiting, true);
    cancelTimer();
    // Expiry threads still under way use this manager, and the process-wide
    // locks that the stop sequence is about to destroy: give them a bounded
    // time to end, so that a process leaving right after a firing is safe.
    for (int waited = 0; waited < 2000 && OrvaTimerThread::liveThreads() > 0; ++waited)
        usleep(1000);
}

void OrvaTimerManager::add(OrvaTimer& timer)
{
    ListGuard guard(m_oListLock);
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
    storeFlag(timer.m_bQueued, true);
}

void OrvaTimerManager::remove(OrvaTimer& timer)
{
    ListGuard guard(m_oListLock);
    m_vTimers.erase(std::remove(m_vTimers.begin(), m_vTimers.end(), &timer), m_vTimers.end());
    // An operating-system timer that is running is left to expire; its
    // SIGALRM then finds nothing to do.
    if (!m_vTimers.empty())
        reset(false);
    else
        cancelTimer();
    storeFlag(timer.m_bQueued, false);
}

void OrvaTimerManager::reset(bool fromSignal)
{
    ListGuard guard(m_oListLock);
    if (m_bElapsing || m_vTimers.empty())
        return;
    const OrvaTimer::TimeInterval& first = m_vTimers.front()->m_oTrigger;
    m_oNextInterval.m_nSeconds = first.m_nSeconds - static_cast<long>(time(nullptr));
    m_oNextInterval.m_nMilliseconds = first.m_nMilliseconds;
    if (m_oNextInterval.m_nSeconds < 0 ||
        (m_oNextInterval.m_nSeconds == 0 && m_oNextInterval.m_nMilliseconds == 0))
    {
        // Already due: fired here, on the caller's thread (a client in
        // start(), or the SIGUSR1 handler).
        scan(true);
        return;
    }
    if (!fromSignal)
    {
        // The arming itself is done by the SIGUSR1 handler, wherever it runs.
        kill(getpid(), SIGUSR1);
        return;
    }
    // The milliseconds go into the microsecond field as they are.
    itimerval value = {};
    value.it_value.tv_sec = m_oNextInterval.m_nSeconds;
    value.it_value.tv_usec = m_oNextInterval.m_nMilliseconds;
    setitimer(ITIMER_REAL, &value, nullptr);
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
            return;
    }
    else
    {
        m_oElapseLock.lock();
    }
    struct ElapseRelease
    {
        OrvaCriticalSectionObject& lock;
        ~ElapseRelease() { lock.unlock(); }
    } release{m_oElapseLock};

    if (m_bElapsing)
        return;

    ListGuard list(m_oListLock);
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
        // Marked as being set while it is still on the list: an owner that
        // takes it off and destroys it waits for this firing.
        EventSetMark mark(timer->getHandle());
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
            list.enter();
            endScan();
            throw;
        }
        catch (...)
        {
            // A failing dependent must not stop the timers of the process.
        }
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
    OrvaTimerThread* thread = new OrvaTimerThread(this);
    thread->setMarkForDeath();
    thread->start();
}

void OrvaTimerManager::cancelTimer()
{
    storeFlag(m_bStopping, true);
    {
        ListGuard guard(m_oListLock);
        m_oManagerEvent.set();
    }
    storeFlag(m_bStopping, false);
}

bool OrvaTimerManager::isStopping() const
{
    return loadFlag(m_bStopping);
}

std::size_t OrvaTimerManager::getTimerCount()
{
    ListGuard guard(m_oListLock);
    return m_vTimers.size();
}

OrvaEvent& OrvaTimerManager::getManagerEvent()
{
    return m_oManagerEvent;
}

} // namespace OrvaSupport
