#include <ovkit/OrvaThread.h>

#include <ovkit/OrvaEvent.h>
#include <ovkit/OrvaModule.h>

#include "sync/AtomicField.h"
#include "threads/LibraryRuntime.h"
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

// The exit list is built ahead of the library's module record and so dies
// after the module's stop sequence: threads that end while the process exits
// (the stop sequence waits for the library's own) always find it in place.
OrvaCriticalSectionObject g_exitThreadLock __attribute__((init_priority(101)));
std::vector<unsigned long> g_vExitThreads __attribute__((init_priority(101)));

namespace
{

// The block behind getHandle(): the thread id first, where clients expect a
// pthread_t, then whether someone has joined or detached the thread. A
// thread nobody joins is detached when its object lets go of the handle, so
// that its stack is given back.
struct ThreadHandle
{
    pthread_t m_id;
    bool m_bReleased;
};

std::string defaultThreadName()
{
    return "class " + OrvaObjectBase::normalizeClassName(typeid(OrvaThread).name());
}

ThreadHandle* threadHandle(void* handle)
{
    return static_cast<ThreadHandle*>(handle);
}

// Handles SIGUSR2 on whatever thread receives it. A self-deleted thread
// detaches itself before it leaves its id here, so there is nothing left to
// join: the handler empties the list. It neither blocks nor frees memory (a
// signal handler must not): a busy lock means a thread is adding its id, and
// that thread sends a signal of its own afterwards.
void joinExitedThreads(int)
{
    const int savedErrno = errno;
    if (g_exitThreadLock.testAndSet())
    {
        g_vExitThreads.clear();
        g_exitThreadLock.unlock();
    }
    errno = savedErrno;
}

// The last act of a thread that deleted its own object: leaves its id in the
// exit list and tells the process. SIGUSR2 stays blocked on this thread, so
// its handler cannot break in while this thread holds the list.
void announceExit(pthread_t id)
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    g_exitThreadLock.lock();
    g_vExitThreads.push_back(static_cast<unsigned long>(id));
    g_exitThreadLock.unlock();
    kill(getpid(), SIGUSR2);
}

bool createThread(pthread_t* id, OrvaThread* thread)
{
    return pthread_create(id, nullptr, OrvaThreadFn, thread) == 0;
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

    pthread_setcanceltype(PTHREAD_CANCEL_ASYNCHRONOUS, nullptr);
    pthread_cleanup_push(OrvaCriticalSectionRecoverFn, nullptr);
    const int rc = thread->_run();
    markedForDeath = thread->m_bMarkForDeath;
    if (!markedForDeath)
    {
        // The exit code is in place before anyone can see the thread ended,
        // and whoever reads it sees all that the work did before.
        internal::storeRelease(thread->m_nExitCode, rc);
        internal::storeRelease(thread->m_bRunning, false);
    }
    pthread_cleanup_pop(0);

    // A thread that owns itself lets go of its handle in the destructor,
    // which detaches it: nobody is left to join it.
    if (markedForDeath)
    {
        const bool announce = thread->m_pHandle != nullptr;
        delete thread;
        if (announce)
            announceExit(pthread_self());
    }
    internal::endOfThreadFunction();
    return nullptr;
}

void OVKITInitOrvaThread()
{
    internal::startLibraryRuntime();
    // Opened now, so that the SIGUSR2 handler never has to allocate.
    g_exitThreadLock.init();
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
    ThreadHandle* handle = new ThreadHandle();
    m_pHandle = handle;
    // Running is set before the thread exists: a thread marked for death may
    // delete this object before pthread_create has returned, and a short one
    // may have ended already.
    internal::storeRelease(m_bRunning, true);
    if (!createThread(&handle->m_id, this))
    {
        internal::noteStartFailure();
        internal::storeRelease(m_bRunning, false);
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
    if (!m_pHandle || !internal::loadAcquire(m_bRunning))
        return c_nWaitDone;
    if (milliseconds == c_nWaitForever)
    {
        ThreadHandle* handle = threadHandle(m_pHandle);
        if (pthread_join(handle->m_id, nullptr) == 0)
            handle->m_bReleased = true;
        return c_nWaitDone;
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
    if (m_pHandle && !threadHandle(m_pHandle)->m_bReleased)
    {
        pthread_detach(threadHandle(m_pHandle)->m_id);
        threadHandle(m_pHandle)->m_bReleased = true;
    }
}

void OrvaThread::kill()
{
    if (!m_pHandle)
        return;
    // A thread whose work has returned holds nothing worth recovering, and
    // once it is gone (detached, or joined) its id may already name another
    // thread: only a running thread is cancelled.
    if (internal::loadAcquire(m_bRunning))
        pthread_cancel(threadHandle(m_pHandle)->m_id);
    cleanup(m_pHandle);
}

void OrvaThread::cleanup(void*& handle)
{
    ThreadHandle* block = threadHandle(handle);
    if (block && !block->m_bReleased)
        pthread_detach(block->m_id);
    delete block;
    handle = nullptr;
    internal::storeRelease(m_bRunning, false);
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
    return m_pHandle ? internal::loadAcquire(m_nExitCode) : -1;
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
