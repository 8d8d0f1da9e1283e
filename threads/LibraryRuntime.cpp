#include "threads/LibraryRuntime.h"

#include <atomic>

#include <cerrno>
#include <ctime>
#include <pthread.h>
#include <semaphore.h>

namespace OrvaSupport
{
namespace internal
{

namespace
{

pthread_mutex_t s_oMutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t s_oAllEnded = PTHREAD_COND_INITIALIZER;
int s_nLibraryThreads = 0;
std::atomic<bool> s_bExpiryParked{false}; // an expiry thread is parked or being parked
sem_t s_oExpiryRelease;
bool s_bStarted = false;
void (*s_pChildForkHandler)() = nullptr;

__attribute__((tls_model("initial-exec"))) thread_local bool t_bLibraryThread = false;
__attribute__((tls_model("initial-exec"))) thread_local bool t_bStartFailed = false;
__attribute__((tls_model("initial-exec"))) thread_local bool t_bForkingToExec = false;

void beforeFork()
{
    pthread_mutex_lock(&s_oMutex);
}

void afterForkInParent()
{
    pthread_mutex_unlock(&s_oMutex);
}

// The child has only the forking thread: none of the library's threads came
// along, and no expiry thread is parked.
void afterForkInChild()
{
    pthread_mutex_unlock(&s_oMutex);
    s_nLibraryThreads = 0;
    s_bExpiryParked.store(false, std::memory_order_relaxed);
    sem_init(&s_oExpiryRelease, 0, 0);
    t_bLibraryThread = false;
    if (s_pChildForkHandler)
        s_pChildForkHandler();
}

} // namespace

void startLibraryRuntime()
{
    if (s_bStarted)
        return;
    s_bStarted = true;
    sem_init(&s_oExpiryRelease, 0, 0);
    pthread_atfork(beforeFork, afterForkInParent, afterForkInChild);
}

void libraryThreadCreated()
{
    pthread_mutex_lock(&s_oMutex);
    ++s_nLibraryThreads;
    pthread_mutex_unlock(&s_oMutex);
}

void markLibraryThread()
{
    t_bLibraryThread = true;
}

void libraryThreadDiscarded()
{
    pthread_mutex_lock(&s_oMutex);
    if (--s_nLibraryThreads == 0)
        pthread_cond_broadcast(&s_oAllEnded);
    pthread_mutex_unlock(&s_oMutex);
}

void noteStartFailure()
{
    t_bStartFailed = true;
}

bool takeStartFailure()
{
    const bool failed = t_bStartFailed;
    t_bStartFailed = false;
    return failed;
}

void endOfThreadFunction()
{
    if (!t_bLibraryThread)
        return;
    t_bLibraryThread = false;
    libraryThreadDiscarded();
}

void waitForLibraryThreads(int milliseconds)
{
    timespec deadline;
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_sec += milliseconds / 1000;
    deadline.tv_nsec += (milliseconds % 1000) * 1000000L;
    if (deadline.tv_nsec >= 1000000000L)
    {
        deadline.tv_sec += 1;
        deadline.tv_nsec -= 1000000000L;
    }
    pthread_mutex_lock(&s_oMutex);
    while (s_nLibraryThreads > 0)
    {
        if (pthread_cond_timedwait(&s_oAllEnded, &s_oMutex, &deadline) == ETIMEDOUT)
            break;
    }
    pthread_mutex_unlock(&s_oMutex);
}

void releaseExpiryThread()
{
    if (s_bStarted)
        sem_post(&s_oExpiryRelease);
}

void waitForExpiryRelease()
{
    while (sem_wait(&s_oExpiryRelease) != 0 && errno == EINTR)
    {
    }
}

// The parking place is claimed on every arming of the system timer: a plain
// load settles the usual case, in which a thread is parked already.
bool claimExpiryParking()
{
    if (s_bExpiryParked.load(std::memory_order_acquire))
        return false;
    return !s_bExpiryParked.exchange(true, std::memory_order_acq_rel);
}

void releaseExpiryParking()
{
    s_bExpiryParked.store(false, std::memory_order_release);
}

void setChildForkHandler(void (*handler)())
{
    s_pChildForkHandler = handler;
}

void setForkingToExec(bool forking)
{
    t_bForkingToExec = forking;
}

bool isForkingToExec()
{
    return t_bForkingToExec;
}

} // namespace internal
} // namespace OrvaSupport
