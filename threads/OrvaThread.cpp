#include <ovkit/OrvaThread.h>

#include <ovkit/OrvaModule.h>

#include "threads/LibrarySignals.h"

#include <cerrno>
#include <csignal>
#include <cxxabi.h>
#include <pthread.h>
#include <typeinfo>
#include <unistd.h>

namespace OrvaSupport
{

template class OrvaSmartPointer<OrvaThread>;
template class OrvaSmartPointer<OrvaThread::OrvaRunnable>;
template class OrvaSmartPointer<OrvaWorkInformation>;

OrvaCriticalSectionObject g_exitThreadLock;
std::vector<unsigned long> g_vExitThreads;

namespace
{

// At exit the exit list and its lock die before the library's stop sequence,
// while self-deleting threads (timer expiries among them) may still end and
// SIGUSR2 may still arrive. This object is defined after the two, so it dies
// first: from then on the list is left alone, and a thread that ends detaches
// itself instead of waiting to be joined.
bool s_bExitListGone = false;

struct ExitListCloser
{
    ~ExitListCloser()
    {
        OrvaCriticalSection guard(g_exitThreadLock, true);
        __atomic_store_n(&s_bExitListGone, true, __ATOMIC_SEQ_CST);
    }
} s_exitListCloser;

inline bool exitListGone()
{
    return __atomic_load_n(&s_bExitListGone, __ATOMIC_SEQ_CST);
}

// The running flag is written by the thread and read by others. Atomic
// accesses are plain moves on this machine; the release order also makes the
// exit code, written before it, visible to whoever sees the flag fall.
inline bool loadFlag(const bool& flag)
{
    return __atomic_load_n(&flag, __ATOMIC_ACQUIRE);
}

inline void storeFlag(bool& flag, bool value)
{
    __atomic_store_n(&flag, value, __ATOMIC_RELEASE);
}

std::string defaultThreadName()
{
    return "class " + OrvaObjectBase::normalizeClassName(typeid(OrvaThread).name());
}

pthread_t* threadHandle(void* handle)
{
    return static_cast<pthread_t*>(handle);
}

// Joins the self-deleted threads, on whatever thread receives SIGUSR2.
void joinExitedThreads(int)
{
    if (exitListGone())
        return;
    const int savedErrno = errno;
    {
        OrvaCriticalSection guard(g_exitThreadLock, true);
        if (!exitListGone())
        {
            for (unsigned long id : g_vExitThreads)
                pthread_join(static_cast<pthread_t>(id), nullptr);
            g_vExitThreads.clear();
        }
    }
    errno = savedErrno;
}

// The last act of a thread that deleted its own object: leaves its id to be
// joined and tells the process. SIGUSR2 stays blocked on this thread, so the
// handler cannot run here, neither inside the list update nor on the thread
// it is about to join.
void announceExit(pthread_t id)
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    if (exitListGone())
    {
        pthread_detach(id);
        return;
    }
    g_exitThreadLock.lock();
    const bool listed = !exitListGone();
    if (listed)
        g_vExitThreads.push_back(static_cast<unsigned long>(id));
    else
        pthread_detach(id);
    g_exitThreadLock.unlock();
    if (listed)
        kill(getpid(), SIGUSR2);
}

// Creates the thread with the library's signals blocked on the calling
// thread: their handlers create and join threads, which must not happen on a
// thread that is itself inside pthread_create (the thread library's own locks
// are held there). The new thread starts with the caller's signal mask, as it
// would without this.
bool createThread(pthread_t* handle, OrvaThread* thread)
{
    sigset_t librarySignals, callerMask;
    librarySignalSet(&librarySignals);
    pthread_sigmask(SIG_BLOCK, &librarySignals, &callerMask);
    pthread_attr_t attributes;
    bool created = false;
    if (pthread_attr_init(&attributes) == 0)
    {
        pthread_attr_setsigmask_np(&attributes, &callerMask);
        created = pthread_create(handle, &attributes, OrvaThreadFn, thread) == 0;
        pthread_attr_destroy(&attributes);
    }
    pthread_sigmask(SIG_SETMASK, &callerMask, nullptr);
    return created;
}

} // namespace

void librarySignalSet(sigset_t* signals)
{
    sigemptyset(signals);
    sigaddset(signals, SIGALRM);
    sigaddset(signals, SIGUSR1);
    sigaddset(signals, SIGUSR2);
}

void installLibrarySignalHandler(int signalNumber, void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    librarySignalSet(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(signalNumber, &action, nullptr);
}

void* OrvaThreadFn(void* object)
{
    OrvaThread* thread = static_cast<OrvaThread*>(object);
    bool markedForDeath = false;
    bool haveId = false;
    pthread_t id = pthread_t();

    pthread_setcanceltype(PTHREAD_CANCEL_ASYNCHRONOUS, nullptr);
    pthread_cleanup_push(OrvaCriticalSectionRecoverFn, nullptr);
    const int rc = thread->_run();
    markedForDeath = thread->m_bMarkForDeath;
    if (!markedForDeath)
    {
        // The exit code is in place before anyone can see the thread ended.
        thread->m_nExitCode = rc;
        storeFlag(thread->m_bRunning, false);
    }
    else if (thread->m_pHandle)
    {
        id = pthread_self();
        haveId = true;
    }
    pthread_cleanup_pop(0);

    if (!markedForDeath)
        return nullptr;
    delete thread;
    if (haveId)
        announceExit(id);
    return nullptr;
}

void OVKITInitOrvaThread()
{
    installLibrarySignalHandler(SIGUSR2, joinExitedThreads);
}

void OVKITFinitOrvaThread() {}

OrvaWorkInformation::~OrvaWorkInformation() {}

OrvaThread::OrvaRunnable::~OrvaRunnable() {}

int OrvaThread::OrvaRunnable::run()
{
    return 0;
}

int OrvaThread::OrvaRunnable::run(OrvaWorkInformation&)
{
    return 0;
}

OrvaThread::ThreadDone::ThreadDone() : OrvaNotification(), m_nExitCode(0) {}

OrvaThread::ThreadDone::ThreadDone(int exitCode) : OrvaNotification(), m_nExitCode(exitCode) {}

OrvaThread::ThreadDone::ThreadDone(const ThreadDone& other)
    : OrvaNotification(other), m_nExitCode(other.m_nExitCode)
{
}

OrvaThread::ThreadDone& OrvaThread::ThreadDone::operator=(const ThreadDone& other)
{
    OrvaNotification::operator=(other);
    m_nExitCode = other.m_nExitCode;
    return *this;
}

OrvaThread::ThreadDone::~ThreadDone() {}

int OrvaThread::ThreadDone::getExitCode() const
{
    return m_nExitCode;
}

void OrvaThread::ThreadDone::setExitCode(int exitCode)
{
    m_nExitCode = exitCode;
}

OrvaThread::OrvaThread() : OrvaThread(OrvaSmartPointer<OrvaRunnable>(), defaultThreadName()) {}

OrvaThread::OrvaThread(const std::string& name) : OrvaThread(OrvaSmartPointer<OrvaRunnable>(), name) {}

OrvaThread::OrvaThread(OrvaSmartPointer<OrvaRunnable> runnable) : OrvaThread(runnable, defaultThreadName()) {}

OrvaThread::OrvaThread(OrvaSmartPointer<OrvaRunnable> runnable, const std::string& name)
    : m_pHandle(nullptr), m_pWorkInfo(), m_sName(name), m_nExitCode(-1), m_bMarkForDeath(false),
      m_bMarkForKill(false), m_bRunning(false), m_pRunnable(static_cast<OrvaRunnable*>(runnable))
{
}

OrvaThread::~OrvaThread()
{
    if (!m_pHandle)
        return;
    if (m_bMarkForKill)
    {
        kill();
    }
    else if (!m_bMarkForDeath)
    {
        waitForThreadExit();
        if (m_pHandle)
            cleanup(m_pHandle);
    }
    else
    {
        cleanup(m_pHandle);
    }
}

void OrvaThread::start()
{
    if (m_pHandle)
        return;
    pthread_t* handle = new pthread_t();
    m_pHandle = handle;
    // Running is set before the thread exists: a thread marked for death may
    // delete this object before pthread_create has returned, and a short one
    // may have ended already.
    storeFlag(m_bRunning, true);
    if (!createThread(handle, this))
    {
        storeFlag(m_bRunning, false);
        m_pHandle = nullptr;
        delete handle;
    }
}

void OrvaThread::stop() {}

void OrvaThread::setWorkInfo(OrvaSmartPointer<OrvaWorkInformation> work)
{
    m_pWorkInfo = work;
}

int OrvaThread::wait(int milliseconds)
{
    if (!m_pHandle || !loadFlag(m_bRunning))
        return 0;
    if (milliseconds == -1)
    {
        pthread_join(*threadHandle(m_pHandle), nullptr);
        return 0;
    }
    return wait(1, this, true, milliseconds);
}

int OrvaThread::setPriority(t_Priority)
{
    return 0;
}

int OrvaThread::run()
{
    return 0;
}

int OrvaThread::run(OrvaWorkInformation&)
{
    return 0;
}

int OrvaThread::waitForThreadExit()
{
    return wait(-1);
}

void OrvaThread::setMarkForDeath()
{
    m_bMarkForDeath = true;
}

void OrvaThread::setMarkForKill()
{
    m_bMarkForKill = true;
    if (m_pHandle)
        pthread_detach(*threadHandle(m_pHandle));
}

void OrvaThread::kill()
{
    if (!m_pHandle)
        return;
    // A thread whose work has returned holds nothing worth recovering, and
    // once it is gone (detached, or joined) its id may already name another
    // thread: only a running thread is cancelled.
    if (loadFlag(m_bRunning))
        pthread_cancel(*threadHandle(m_pHandle));
    cleanup(m_pHandle);
}

void OrvaThread::cleanup(void*& handle)
{
    delete threadHandle(handle);
    handle = nullptr;
    storeFlag(m_bRunning, false);
}

bool OrvaThread::isAlive()
{
    return m_pHandle != nullptr;
}

void* OrvaThread::getHandle()
{
    return m_pHandle;
}

int OrvaThread::getExitCode() const
{
    return m_pHandle ? m_nExitCode : -1;
}

std::string OrvaThread::getName() const
{
    return m_sName;
}

void OrvaThread::setName(const std::string& name)
{
    m_sName = name;
}

unsigned long OrvaThread::getCurrentThreadId()
{
    return static_cast<unsigned long>(pthread_self());
}

int OrvaThread::_run()
{
    int result = 0;
    try
    {
        OrvaRunnable* runnable = static_cast<OrvaRunnable*>(static_cast<OrvaObjectBase*>(m_pRunnable));
        OrvaWorkInformation* work = m_pWorkInfo;
        if (runnable)
            result = work ? runnable->run(*work) : runnable->run();
        else
            result = work ? run(*work) : run();
    }
    catch (abi::__forced_unwind&)
    {
        // The thread is being cancelled: the unwinding must go on, to the
        // clean-up that gives back its critical sections.
        throw;
    }
    catch (...)
    {
        // A failure of the work ends the thread quietly; the result stays 0.
    }
    ThreadDone done(result);
    notify(done);
    return result;
}

} // namespace OrvaSupport
