/// \file
/// Recursive, lazily opened, recoverable locks.
///
///     static OrvaCriticalSectionObject s_lock;      // zero-filled: valid, unopened
///     {
///         OrvaCriticalSection guard(s_lock, true);  // held until the end of the scope
///         ...
///     }
///
/// OrvaCriticalSectionObject is a handle: the lock itself comes into being at
/// the first operation. Copies of an opened handle name the same lock; a copy
/// of an unopened handle opens a lock of its own. Recursion is counted by the
/// class on a plain, non-recursive mutex. Every thread keeps a private list of
/// the locks it holds, so that OrvaCriticalSectionRecoverFn, run on that thread
/// (the library's threads install it as their cancellation clean-up), gives
/// them all back.
///
/// A thread that ends normally while it holds a lock leaves it held for ever.
///
/// Killed threads. A thread may be cancelled at any instruction of lock(),
/// unlock(), testAndSet(), unwind() and the guard: it gives back exactly the
/// locks it held or had just taken, and a thread blocked in lock() dies where
/// it waits. The guard's destructor may therefore let a cancellation pass
/// (noexcept(false)); keep a guard out of destructors that must not throw.
#ifndef OVKIT_ORVACRITICALSECTION_H
#define OVKIT_ORVACRITICALSECTION_H

#include <ovkit/OrvaExport.h>
#include <ovkit/OrvaObjectBase.h>

#include <pthread.h>

/// Owner of the thread key whose per-thread value heads the list of locks the
/// thread holds (newest first). The key is never deleted.
class OVKIT_API LockThreadStorage
{
public:
    LockThreadStorage() { createKey(); }
    ~LockThreadStorage() {}

    /// Creates the key once; idempotent and unguarded. Every lock calls it,
    /// because a lock may be opened before the library's statics are built.
    static void createKey();

    /// True once createKey() has made the key.
    static bool m_keyCreated;
    /// The key; its per-thread value is the newest lock the thread holds.
    static pthread_key_t m_mutexListKey;
};

/// Counts its references with plain, unsynchronised arithmetic: the
/// process-wide count lock is itself one of these locks. Copies or
/// destructions of handles of one lock must not run concurrently.
class OVKIT_API LockBase : public OrvaSupport::OrvaObjectBase
{
public:
    int addRef() override;
    int release() override;
};

/// The shared lock behind every handle: the mutex storage, the owner's thread
/// id (0 when free), the owner's recursion depth, and the links of the owner's
/// held list. The mutex is never locked through the C library: the first word
/// of its storage is the lock word, 0 when free and otherwise holding the
/// owner's locker id, written by the same atomic step that takes the lock.
class OVKIT_API LockImplementation : public LockBase
{
public:
    LockImplementation();
    /// Releases the lock first if the destroying thread still holds it,
    /// whatever the depth, then destroys the mutex.
    ~LockImplementation() override;

    pthread_mutex_t m_mutex;         ///< Storage whose first word is the lock word.
    pthread_t m_owner;               ///< The owning thread; 0 when the lock is free.
    LockImplementation* m_pNextHeld; ///< The lock the owner took before this one, or null.
    LockImplementation* m_pPrevHeld; ///< The lock the owner took after this one, or null.
    int m_nLockCount;                ///< The owner's recursion depth; 0 when free.
};

namespace OrvaSupport
{

class OrvaCriticalSectionObject;
namespace internal
{
void reclaimLockAfterFork(OrvaCriticalSectionObject& lock);
int adjustUnderLock(OrvaCriticalSectionObject& lock, int& count, int delta);
struct BriefHold;
BriefHold beginBriefHold(OrvaCriticalSectionObject& lock);
} // namespace internal

extern template class OVKIT_API OrvaSmartPointer<LockImplementation>;

/// Handle on a recursive lock. Unlock by a thread that does not own the lock
/// is ignored. Failures of the underlying system calls are not reported.
class OVKIT_API OrvaCriticalSectionObject
{
public:
    /// Writes only zeros: a zero-filled object is a valid, unopened lock.
    constexpr OrvaCriticalSectionObject() : m_pHolder(nullptr), m_bFlag(false) {}
    /// The flag is kept and copied but read by no operation.
    constexpr explicit OrvaCriticalSectionObject(bool flag) : m_pHolder(nullptr), m_bFlag(flag) {}
    /// Shares the source's lock if it is opened; otherwise the copy is a
    /// separate lock for ever.
    OrvaCriticalSectionObject(const OrvaCriticalSectionObject& other);
    /// Drops this handle's lock (nothing is unlocked), then shares the
    /// source's as the copy constructor does. No effect on self-assignment.
    OrvaCriticalSectionObject& operator=(const OrvaCriticalSectionObject& other);
    /// The lock dies with its last handle.
    ~OrvaCriticalSectionObject();

    /// Opens the lock if it is not open yet (under g_pCriticalSection, except
    /// for g_pCriticalSection itself). Every operation starts with it.
    void init();
    /// Takes one level. The re-entrant path costs one thread-local read and a
    /// comparison: no system call, no atomic operation.
    void lock();
    /// Gives back one level; the last level frees the lock. Does nothing when
    /// the caller is not the owner.
    void unlock();
    /// Takes a level without blocking. True for the owner (one more level) and
    /// when the lock was free; false, with nothing changed, when another
    /// thread holds it.
    bool testAndSet();
    /// The recursion depth, read from any thread without checking the owner.
    int lockCount();
    /// Releases all of the caller's levels at once; nothing on a free lock.
    /// For the owner only: a thread that calls it on a lock held by another
    /// thread spins until it owns the lock, which it cannot come to do, so it
    /// hangs.
    void unwind();

private:
    friend void internal::reclaimLockAfterFork(OrvaCriticalSectionObject& lock);
    friend int internal::adjustUnderLock(OrvaCriticalSectionObject& lock, int& count, int delta);
    friend internal::BriefHold internal::beginBriefHold(OrvaCriticalSectionObject& lock);

    LockImplementation* impl();
    void open();

    OrvaSmartPointer<LockImplementation>* m_pHolder;
    bool m_bFlag;
};

/// A lock with the same behaviour, under the name that clients use for a mutex.
class OVKIT_API OrvaMutexObject : public OrvaCriticalSectionObject
{
public:
    OrvaMutexObject() : OrvaCriticalSectionObject(false) {}
};

/// Scope guard: with lockNow true it takes one level at construction, and
/// gives it back at the end of the scope or at an earlier unlock().
class OVKIT_API OrvaCriticalSection
{
public:
    /// Guards `lock`, which must outlive the guard; takes one level now if
    /// `lockNow` is true, and otherwise holds nothing.
    OrvaCriticalSection(OrvaCriticalSectionObject& lock, bool lockNow) : m_rLock(lock), m_bLocked(false)
    {
        if (lockNow)
        {
            m_rLock.lock();
            m_bLocked = true;
        }
    }
    /// May pass on the cancellation of a thread killed inside unlock().
    ~OrvaCriticalSection() noexcept(false) { unlock(); }

    /// Leaves the section before the end of the scope; a second call does nothing.
    void unlock()
    {
        if (m_bLocked)
        {
            m_bLocked = false;
            m_rLock.unlock();
        }
    }

    OrvaCriticalSection(const OrvaCriticalSection&) = delete;
    OrvaCriticalSection& operator=(const OrvaCriticalSection&) = delete;

private:
    OrvaCriticalSectionObject& m_rLock;
    bool m_bLocked;
};

/// Releases every lock that the calling thread holds, whatever the depth, and
/// empties its list; the argument is ignored. Shaped as a thread clean-up
/// routine, and only meaningful on the thread concerned. The library's threads
/// run it when they are cancelled.
OVKIT_API void OrvaCriticalSectionRecoverFn(void* unused);

} // namespace OrvaSupport

// The clean-up routine is also reachable from the global namespace.
using OrvaSupport::OrvaCriticalSectionRecoverFn;

/// The one global instance; its constructor creates the thread key.
OVKIT_API extern LockThreadStorage g_lockThreadStorage;

#endif // OVKIT_ORVACRITICALSECTION_H
