/// \file
/// Locks found by name, so that code that shares no objects can agree on a lock.
///
///     OrvaLockFactory<std::string, OrvaCriticalSectionObject> locks;
///     locks.createLock("spool");                             // once; again changes nothing
///     OrvaCriticalSection guard(locks.get("spool"), true);   // throws if never created
///
/// Each factory is a registry of its own; there is no process-wide one. The
/// template is built into the library for three lock types, and only these
/// may be used:
///
///     OrvaLockFactory<std::string, OrvaCriticalSectionObject>
///     OrvaLockFactory<std::string, OrvaMutexObject>
///     OrvaLockFactory<std::string, OrvaReadWriteLock>
///
/// The factory holds each lock by value in a map sorted by name, and get()
/// hands out the lock in the map itself. Entries are never removed, so the
/// reference stays good as long as the factory is neither destroyed nor
/// assigned to. Each name's critical section is a lock of its own, opened at
/// its first use.
///
/// Copies. A copy holds the same names, each lock copied by its own rule: a
/// critical section that was opened is shared with the source, one that was
/// never used becomes a fresh lock of the copy's, and a read/write lock is
/// always shared. Assignment replaces the whole map by such a copy.
///
/// Lifetime. Destroying or assigning to a factory destroys the locks behind
/// every reference that get() and getImpl() gave out (locks still shared with
/// a copy live on). None of them may be held or waited for then: the
/// destructor of a critical section that another thread holds spins for
/// ever, and a read/write lock must be free when it dies.
///
/// Threads. createLock, exists, getImpl, get, getRegisteredLockNames and the
/// target side of operator= hold the factory's own lock, briefly; the locks
/// handed out are used outside it. Copying reads the source without its lock:
/// keep other threads from creating locks in it meanwhile, and from copying
/// it at the same moment (the handles of critical sections count their
/// sharers without a lock).
#ifndef OVKIT_ORVALOCKFACTORY_H
#define OVKIT_ORVALOCKFACTORY_H

#include <ovkit/OrvaCriticalSection.h>
#include <ovkit/OrvaExport.h>
#include <ovkit/OrvaReadWriteLock.h>

#include <map>
#include <string>
#include <vector>

namespace OrvaSupport
{

/// A registry of locks of type L under names of type K; see the top of this
/// file.
template <class K, class L>
class OVKIT_API OrvaLockFactory
{
public:
    /// No names.
    OrvaLockFactory();
    /// Destroys the locks with the factory; none may be in use.
    virtual ~OrvaLockFactory() noexcept(false);
    /// The source's names with copies of its locks, and a factory lock of its
    /// own. The source's factory lock is not taken.
    OrvaLockFactory(const OrvaLockFactory& other);
    /// Replaces the map by a copy of the source's, under this factory's lock
    /// (the source's is not taken). The locks that this factory held before
    /// die unless a copy shares them. Self-assignment does nothing.
    OrvaLockFactory& operator=(const OrvaLockFactory& other);

    /// Registers a new, unused lock under `name`. A name that is already
    /// registered keeps its lock, and nothing changes.
    void createLock(const K& name);
    /// True when `name` is registered.
    bool exists(const K& name);
    /// Stores the address of the lock of `name` in `lock` and returns true;
    /// returns false and leaves `lock` alone when the name is not registered.
    bool getImpl(const K& name, L*& lock);
    /// The lock of `name`. Throws OrvaNoSuchElementException, with the text
    /// "OrvaNoSuchElementException - " and the name, when it is not
    /// registered.
    L& get(const K& name);
    /// All registered names, in ascending order.
    std::vector<K> getRegisteredLockNames();

private:
    void copyLocksFrom(const OrvaLockFactory& other);

    std::map<K, L> m_mapLocks;
    OrvaCriticalSectionObject m_oFactoryLock;
};

extern template class OVKIT_API OrvaLockFactory<std::string, OrvaCriticalSectionObject>;
extern template class OVKIT_API OrvaLockFactory<std::string, OrvaMutexObject>;
extern template class OVKIT_API OrvaLockFactory<std::string, OrvaReadWriteLock>;

} // namespace OrvaSupport

#endif // OVKIT_ORVALOCKFACTORY_H
