#include <ovkit/OrvaLockFactory.h>

#include <ovkit/OrvaException.h>

#include "sync/KillShield.h"

namespace OrvaSupport
{

// Every operation that allocates, frees or throws runs with cancellation
// held back, and takes the factory lock inside that shield, so that a killed
// thread leaves neither the heap nor the factory locked.

template <class K, class L>
OrvaLockFactory<K, L>::OrvaLockFactory() : m_mapLocks(), m_oFactoryLock()
{
}

// The factory lock is a new one: copying the source's handle of an opened
// lock would make both factories share it.
template <class K, class L>
OrvaLockFactory<K, L>::OrvaLockFactory(const OrvaLockFactory& other) : m_mapLocks(), m_oFactoryLock()
{
    internal::runShielded([&] { copyLocksFrom(other); });
}

template <class K, class L>
OrvaLockFactory<K, L>& OrvaLockFactory<K, L>::operator=(const OrvaLockFactory& other)
{
    if (this != &other)
    {
        internal::runShielded(
            [&]
            {
                OrvaCriticalSection guard(m_oFactoryLock, true);
                copyLocksFrom(other);
            });
    }
    return *this;
}

// The locks die inside the shield: the last handle of a read/write lock
// holds back cancellation itself, and a kill that took effect as it lets go
// would otherwise have to unwind through the map's destructor, which may not
// throw. The factory lock goes after them.
template <class K, class L>
OrvaLockFactory<K, L>::~OrvaLockFactory() noexcept(false)
{
    internal::runShielded([this] { m_mapLocks.clear(); });
}

// The map is copied as a whole and swapped in, so that its locks are only
// ever copy-constructed (a read/write lock handle has no assignment). The
// old locks die with `copy` at the end.
template <class K, class L>
void OrvaLockFactory<K, L>::copyLocksFrom(const OrvaLockFactory& other)
{
    std::map<K, L> copy(other.m_mapLocks);
    m_mapLocks.swap(copy);
}

// try_emplace default-constructs the lock only when the name is new: an
// unopened critical section, or a fresh read/write lock.
template <class K, class L>
void OrvaLockFactory<K, L>::createLock(const K& name)
{
    internal::runShielded(
        [&]
        {
            OrvaCriticalSection guard(m_oFactoryLock, true);
            m_mapLocks.try_emplace(name);
        });
}

template <class K, class L>
bool OrvaLockFactory<K, L>::exists(const K& name)
{
    L* unused = nullptr;
    return getImpl(name, unused);
}

template <class K, class L>
bool OrvaLockFactory<K, L>::getImpl(const K& name, L*& lock)
{
    L* found = nullptr;
    internal::runShielded(
        [&]
        {
            OrvaCriticalSection guard(m_oFactoryLock, true);
            const typename std::map<K, L>::iterator entry = m_mapLocks.find(name);
            if (entry != m_mapLocks.end())
                found = &entry->second;
        });
    if (!found)
        return false;
    lock = found;
    return true;
}

template <class K, class L>
L& OrvaLockFactory<K, L>::get(const K& name)
{
    L* lock = nullptr;
    internal::runShielded(
        [&]
        {
            if (!getImpl(name, lock))
                throw OrvaNoSuchElementException(name);
        });
    return *lock;
}

template <class K, class L>
std::vector<K> OrvaLockFactory<K, L>::getRegisteredLockNames()
{
    std::vector<K> names;
    internal::runShielded(
        [&]
        {
            OrvaCriticalSection guard(m_oFactoryLock, true);
            names.reserve(m_mapLocks.size());
            for (const auto& entry : m_mapLocks)
                names.push_back(entry.first);
        });
    return names;
}

template class OrvaLockFactory<std::string, OrvaCriticalSectionObject>;
template class OrvaLockFactory<std::string, OrvaMutexObject>;
template class OrvaLockFactory<std::string, OrvaReadWriteLock>;

} // namespace OrvaSupport
