#include <ovkit/OrvaReadWriteLock.h>

#include "log/LogMessage.h"
#include "sync/KillShield.h"

#include <cerrno>

using OrvaSupport::OrvaReadWriteLock;
using OrvaSupport::OrvaSmartPointer;

namespace OrvaSupport
{
template class OrvaSmartPointer<RwLockImplementation>;
}

// The lock operations are on the paths of threads that may be cancelled at
// any instruction, so they must carry no exception tables: each is a system
// call and a test, and a failure goes to an out-of-line function that forms
// the log record with cancellation held back.

namespace
{

const char c_szReadLockFailed[] = "readLock: Acquiring Readlock exited with the following error ";
const char c_szReadUnlockFailed[] = "readUnLock: Releasing readlock exited with the following error";
const char c_szWriteLockFailed[] = "writeLock: Acquiring Writelock exited with the following error";
const char c_szWriteUnlockFailed[] = "writeUnLock: Releasing Writelock exited with the following error";

// What a failed call is reported as: 2 for a timeout, 3 for anything else.
int mappedResult(int result)
{
    return result == ETIMEDOUT ? 2 : 3;
}

__attribute__((noinline, cold)) void logFailure(const char* operation, int result)
{
    OrvaSupport::internal::runShielded(
        [&] { OVKIT_LOG(1, "OrvaReadWriteLock::" << operation << mappedResult(result)); });
}

inline void checked(int result, const char* operation)
{
    if (__builtin_expect(result != 0, 0))
        logFailure(operation, result);
}

inline void unlockChecked(pthread_rwlock_t* lock, const char* operation)
{
    checked(pthread_rwlock_unlock(lock), operation);
}

} // namespace

RwLockImplementation::RwLockImplementation()
{
    if (pthread_rwlock_init(&m_rwLock, nullptr) != 0)
        OVKIT_LOG(1, "OrvaReadWriteLock::RwLockImplementation: Initialization of readwrite Lock failed");
}

RwLockImplementation::~RwLockImplementation()
{
    pthread_rwlock_destroy(&m_rwLock);
}

namespace OrvaSupport
{

// Handles are made and dropped with cancellation held back: they allocate,
// and the last one runs the lock's destructor.

OrvaReadWriteLock::OrvaReadWriteLock() : m_pHolder(nullptr)
{
    internal::runShielded(
        [this]
        {
            OrvaSmartPointer<RwLockImplementation> lock(new RwLockImplementation);
            m_pHolder = new OrvaSmartPointer<RwLockImplementation>(lock);
        });
}

OrvaReadWriteLock::OrvaReadWriteLock(const OrvaReadWriteLock& other) : m_pHolder(nullptr)
{
    internal::runShielded([&] { m_pHolder = new OrvaSmartPointer<RwLockImplementation>(*other.m_pHolder); });
}

OrvaReadWriteLock::~OrvaReadWriteLock() noexcept(false)
{
    internal::runShielded([this] { delete m_pHolder; });
}

// Both unlocks are the same system call; each logs under its own name.

void OrvaReadWriteLock::readLock()
{
    checked(pthread_rwlock_rdlock(rwLock()), c_szReadLockFailed);
}

void OrvaReadWriteLock::writeLock()
{
    checked(pthread_rwlock_wrlock(rwLock()), c_szWriteLockFailed);
}

bool OrvaReadWriteLock::tryReadLock()
{
    return pthread_rwlock_tryrdlock(rwLock()) == 0;
}

bool OrvaReadWriteLock::tryWriteLock()
{
    return pthread_rwlock_trywrlock(rwLock()) == 0;
}

void OrvaReadWriteLock::readUnLock()
{
    unlockChecked(rwLock(), c_szReadUnlockFailed);
}

void OrvaReadWriteLock::writeUnLock()
{
    unlockChecked(rwLock(), c_szWriteUnlockFailed);
}

} // namespace OrvaSupport
