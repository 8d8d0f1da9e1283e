/// \file
/// Shared and exclusive locking on one operating-system read/write lock.
///
///     OrvaReadWriteLock lock;             // opened here, never lazily
///     OrvaReadWriteLock sameLock(lock);   // a copy names the same lock
///     lock.readLock();  ...  lock.readUnLock();
///
/// OrvaReadWriteLock is a handle: a pointer to a heap-held smart pointer on the
/// shared RwLockImplementation, so that copies share one lock and the lock
/// dies with its last handle. Unlike OrvaCriticalSectionObject it is opened at
/// construction, has no recursion of its own and keeps no per-thread list: the
/// system lock's rules apply as they are (the reader/writer preference is the
/// platform's; nothing guarantees recursion for writers).
///
/// Failures. The blocking calls never report to the caller: a failed system
/// call is logged at level 1, through the registered log, and the call returns
/// as if it had succeeded. The text is the operation's own, directly followed
/// by 2 when the system reported a timeout and 3 for any other error:
///
///     "OrvaReadWriteLock::readLock: Acquiring Readlock exited with the following error 3"
///     "OrvaReadWriteLock::writeLock: Acquiring Writelock exited with the following error3"
///
/// (only the read lock's text ends in a blank). So a second writeLock() by the
/// writer, or a readLock() under one's own write lock, is logged with 3 and
/// returns, and the caller goes on as though it held the lock it asked for.
/// The try forms log nothing.
///
/// Unlocking a lock that nobody holds is not reported by this platform's
/// threads library: the call succeeds, nothing is logged, and the lock is
/// broken for good (tryWriteLock() fails from then on). Unlock only what the
/// calling thread holds.
///
/// Killed threads. A thread cancelled while it holds this lock does not
/// release it: the lock stands in no per-thread list, unlike a critical
/// section. Keep killable threads out of it, or make sure it is never needed
/// again.
///
/// Lifetime. The last handle destroys the lock without releasing it first; no
/// thread may hold it or wait for it then.
#ifndef OVKIT_ORVAREADWRITELOCK_H
#define OVKIT_ORVAREADWRITELOCK_H

#include <ovkit/OrvaExport.h>
#include <ovkit/OrvaObjectBase.h>

#include <pthread.h>

/// The shared lock behind every handle. Counts its references through
/// g_pCriticalSection like any OrvaObjectBase.
class OVKIT_API RwLockImplementation : public OrvaSupport::OrvaObjectBase
{
public:
    /// Initialises the lock with default attributes. A failure is logged at
    /// level 1 ("OrvaReadWriteLock::RwLockImplementation: Initialization of
    /// readwrite Lock failed") and the object is kept as it is.
    RwLockImplementation();
    /// Destroys the lock without releasing it.
    ~RwLockImplementation() override;

    pthread_rwlock_t m_rwLock; ///< The lock itself, shared by every handle.
};

namespace OrvaSupport
{

extern template class OVKIT_API OrvaSmartPointer<RwLockImplementation>;

/// Handle on a read/write lock; see the top of this file. Handles may be
/// copied and destroyed while other threads use the lock.
class OVKIT_API OrvaReadWriteLock
{
public:
    /// Opens a new lock.
    OrvaReadWriteLock();
    /// A second handle on the source's lock.
    OrvaReadWriteLock(const OrvaReadWriteLock& other);
    /// Not available: there is no way to make a handle name another lock.
    OrvaReadWriteLock& operator=(const OrvaReadWriteLock&) = delete;
    /// Drops this handle; the last one destroys the lock, which must then be
    /// free.
    virtual ~OrvaReadWriteLock() noexcept(false);

    /// Waits for shared access. Failures are logged, not reported.
    void readLock();
    /// Gives back shared access. Failures are logged, not reported.
    void readUnLock();
    /// Takes shared access if it is free now; true when it was taken.
    bool tryReadLock();
    /// Waits for exclusive access. Failures are logged, not reported.
    void writeLock();
    /// Gives back exclusive access: the same system call as readUnLock(), so
    /// either one releases whatever the caller holds. Failures are logged,
    /// not reported.
    void writeUnLock();
    /// Takes exclusive access if it is free now; true when it was taken.
    bool tryWriteLock();

private:
    pthread_rwlock_t* rwLock() const { return &(*m_pHolder)->m_rwLock; }

    OrvaSmartPointer<RwLockImplementation>* m_pHolder;
};

} // namespace OrvaSupport

#endif // OVKIT_ORVAREADWRITELOCK_H
