#include <ovkit/OrvaCriticalSection.h>

#include "sync/AtomicField.h"
#include "sync/Futex.h"
#include "sync/KillShield.h"
#include "sync/LockInternals.h"

#include <atomic>
#include <climits>
#include <new>

using OrvaSupport::OrvaCriticalSection;
using OrvaSupport::OrvaCriticalSectionObject;
using OrvaSupport::OrvaSmartPointer;

bool LockThreadStorage::m_keyCreated = false;
pthread_key_t LockThreadStorage::m_mutexListKey;

LockThreadStorage g_lockThreadStorage;

namespace OrvaSupport
{
template class OrvaSmartPointer<LockImplementation>;
}

// How a lock survives a thread that is cancelled at any instruction.
//
// The lock is not the C library's mutex code, in which the lock word is taken
// some instructions before the owner is recorded: a thread stopped in between
// would hold a mutex that nobody can tell it holds. Instead the first word of
// the mutex's storage is the lock word itself, and the atomic step that takes
// it writes the taker's locker id into it. Every thread has a locker id of its
// own for the life of the process (ids are never handed out twice, unlike
// thread handles), so "the word holds my id" is exactly "I hold this lock".
//
// Before a thread touches a lock word it names that lock as pending in its
// thread-local state, and the held list is only ever changed in an order that
// keeps every held lock reachable from the list head. The recover function,
// which runs on the cancelled thread itself, releases every listed lock and
// the pending one, each only if its word holds the thread's id. So whatever
// instruction the cancellation interrupts, the thread gives back exactly what
// it took, and takes nothing it did not.
//
// The functions on these paths have no exception tables: an unwind that starts
// at any of their instructions passes through them untouched. Compiler fences
// keep the stores in the order the recover function relies on; they cost
// nothing at run time.

namespace
{

using namespace OrvaSupport::internal;
using OrvaSupport::internal::enterKillShield;
using OrvaSupport::internal::futexWait;
using OrvaSupport::internal::futexWake;
using OrvaSupport::internal::leaveKillShield;

const int c_nWaitersBit = INT_MIN;   // someone sleeps on the word
const int c_nLockerIdMask = INT_MAX; // the holder's locker id

struct ThreadLocks
{
    LockImplementation* m_pHead;    // newest held lock; mirrored in the thread key
    LockImplementation* m_pPending; // lock whose word this thread is taking or giving back
    pthread_t m_self;
    int m_nLockerId; // 0 until the thread first locks
};

__attribute__((tls_model("initial-exec"))) thread_local ThreadLocks t_locks = {nullptr, nullptr, 0, 0};

std::atomic<int> s_nLastLockerId{0};

inline void orderForRecovery()
{
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

__attribute__((noinline)) int assignLockerId()
{
    int id;
    do
        id = (s_nLastLockerId.fetch_add(1, std::memory_order_relaxed) + 1) & c_nLockerIdMask;
    while (id == 0);
    t_locks.m_self = pthread_self();
    t_locks.m_nLockerId = id;
    return id;
}

inline int myLockerId()
{
    const int id = t_locks.m_nLockerId;
    return id != 0 ? id : assignLockerId();
}

// --- the lock word ---------------------------------------------------------

inline int& lockWord(LockImplementation* lock)
{
    return lock->m_mutex.__data.__lock;
}

inline int loadWord(LockImplementation* lock)
{
    return loadRelaxed(lockWord(lock));
}

inline bool heldByMe(LockImplementation* lock, int id)
{
    return (loadWord(lock) & c_nLockerIdMask) == id;
}

inline bool tryTakeWord(LockImplementation* lock, int id)
{
    return replaceAcquire(lockWord(lock), 0, id);
}

// Sleeps until the word is free, then takes it. Once a thread has slept it
// takes the word with the waiters bit set, for others may still sleep.
__attribute__((noinline)) void takeWordContended(LockImplementation* lock, int id)
{
    int& word = lockWord(lock);
    for (;;)
    {
        const int seen = loadRelaxed(word);
        if (seen == 0)
        {
            if (replaceAcquire(word, 0, id | c_nWaitersBit))
                return;
            continue;
        }
        if ((seen & c_nWaitersBit) == 0 && !replaceRelaxed(word, seen, seen | c_nWaitersBit))
            continue;
        futexWait(&word, seen | c_nWaitersBit);
    }
}

inline void releaseWord(LockImplementation* lock)
{
    if (exchangeRelease(lockWord(lock), 0) & c_nWaitersBit)
        futexWake(&lockWord(lock), 1);
}

// --- the held list ---------------------------------------------------------

inline void storeOwner(LockImplementation* lock, pthread_t owner)
{
    storeRelaxed(lock->m_owner, owner);
}

inline void publishHead(LockImplementation* head)
{
    t_locks.m_pHead = head;
    orderForRecovery();
    pthread_setspecific(LockThreadStorage::m_mutexListKey, head);
}

// The lock's own links are filled before it becomes the head, so the list
// from the head always reaches every held lock.
inline void insertIntoHeldList(LockImplementation* lock)
{
    LockImplementation* head = t_locks.m_pHead;
    lock->m_pNextHeld = head;
    lock->m_pPrevHeld = nullptr;
    orderForRecovery();
    if (head)
        head->m_pPrevHeld = lock;
    publishHead(lock);
}

inline void removeFromHeldList(LockImplementation* lock)
{
    if (lock->m_pNextHeld)
        lock->m_pNextHeld->m_pPrevHeld = lock->m_pPrevHeld;
    orderForRecovery();
    if (lock->m_pPrevHeld)
        lock->m_pPrevHeld->m_pNextHeld = lock->m_pNextHeld;
    else
        publishHead(lock->m_pNextHeld);
    orderForRecovery();
    lock->m_pNextHeld = nullptr;
    lock->m_pPrevHeld = nullptr;
}

// The word is this thread's: record the owner and enter the list. The
// pending slot goes back to what it named before (a signal handler may take
// a lock while the thread it interrupted is taking another).
inline void completeTaking(LockImplementation* lock, LockImplementation* previousPending, int count)
{
    orderForRecovery();
    storeOwner(lock, t_locks.m_self);
    insertIntoHeldList(lock);
    orderForRecovery();
    t_locks.m_pPending = previousPending;
    lock->m_nLockCount = count;
}

// The last level is gone: the lock leaves the owner's list and its word.
__attribute__((noinline)) void releaseLastLevel(LockImplementation* lock)
{
    LockImplementation* const previousPending = t_locks.m_pPending;
    t_locks.m_pPending = lock;
    orderForRecovery();
    storeOwner(lock, 0);
    removeFromHeldList(lock);
    orderForRecovery();
    releaseWord(lock);
    orderForRecovery();
    t_locks.m_pPending = previousPending;
}

// Frees a lock this thread holds, whatever its depth or its place in the list.
void forceRelease(LockImplementation* lock)
{
    lock->m_pPrevHeld = nullptr;
    lock->m_pNextHeld = nullptr;
    lock->m_nLockCount = 0;
    storeOwner(lock, 0);
    releaseWord(lock);
}

__attribute__((always_inline)) inline void takeLock(LockImplementation* lock, int id)
{
    LockImplementation* const previousPending = t_locks.m_pPending;
    t_locks.m_pPending = lock;
    orderForRecovery();
    if (!tryTakeWord(lock, id))
        takeWordContended(lock, id);
    completeTaking(lock, previousPending, 1);
}

// Gives back all of the caller's levels. A caller that does not own the lock
// spins here until it does, which it cannot come to do: for owners only.
void unwindLock(LockImplementation* lock)
{
    int count = lock->m_nLockCount;
    if (count < 1)
        return;
    const int id = myLockerId();
    while (count > 0)
    {
        if (!heldByMe(lock, id))
            continue;
        lock->m_nLockCount = --count;
        if (count == 0)
            releaseLastLevel(lock);
    }
}

// Opens a lock under the shield: allocation must not be cut short.
OrvaSmartPointer<LockImplementation>* newHolder()
{
    LockImplementation* lock = new (std::nothrow) LockImplementation;
    if (!lock)
        return nullptr;
    auto* holder = new (std::nothrow) OrvaSmartPointer<LockImplementation>(lock);
    if (!holder)
        delete lock;
    return holder;
}

__attribute__((noinline)) void wakeOneWaiter(LockImplementation* lock)
{
    futexWake(&lockWord(lock), 1);
}

// A brief hold: the lock is named as pending, which is all the recover
// function needs, and kept out of the held list. The depth is one meanwhile,
// so that a signal handler on this thread that locks and unlocks the same
// lock leaves it held. Returns what the pending slot named before.
__attribute__((always_inline)) inline LockImplementation* takeBriefly(LockImplementation* lock, int id)
{
    LockImplementation* const previousPending = t_locks.m_pPending;
    t_locks.m_pPending = lock;
    orderForRecovery();
    if (__builtin_expect(!tryTakeWord(lock, id), 0))
        takeWordContended(lock, id);
    lock->m_nLockCount = 1;
    orderForRecovery();
    return previousPending;
}

__attribute__((always_inline)) inline void giveBackBriefly(LockImplementation* lock,
                                                           LockImplementation* previousPending)
{
    lock->m_nLockCount = 0;
    orderForRecovery();
    if (__builtin_expect(exchangeRelease(lockWord(lock), 0) & c_nWaitersBit, 0))
        wakeOneWaiter(lock);
    orderForRecovery();
    t_locks.m_pPending = previousPending;
}

} // namespace

void LockThreadStorage::createKey()
{
    if (!m_keyCreated)
    {
        pthread_key_create(&m_mutexListKey, nullptr);
        m_keyCreated = true;
    }
}

int LockBase::addRef()
{
    return ++m_nRefCount;
}

int LockBase::release()
{
    int count = --m_nRefCount;
    if (count == 0)
        delete this;
    return count;
}

LockImplementation::LockImplementation()
{
    LockThreadStorage::createKey();
    m_owner = 0;
    m_nLockCount = 0;
    m_pNextHeld = nullptr;
    m_pPrevHeld = nullptr;
    pthread_mutex_init(&m_mutex, nullptr);
}

LockImplementation::~LockImplementation()
{
    unwindLock(this);
    pthread_mutex_destroy(&m_mutex);
}

namespace OrvaSupport
{

OrvaCriticalSectionObject::OrvaCriticalSectionObject(const OrvaCriticalSectionObject& other)
    : m_pHolder(nullptr), m_bFlag(other.m_bFlag)
{
    OrvaSmartPointer<LockImplementation>* source = loadAcquire(other.m_pHolder);
    if (source)
        m_pHolder = new OrvaSmartPointer<LockImplementation>(*source);
}

OrvaCriticalSectionObject& OrvaCriticalSectionObject::operator=(const OrvaCriticalSectionObject& other)
{
    if (this == &other)
        return *this;
    delete m_pHolder;
    m_pHolder = nullptr;
    OrvaSmartPointer<LockImplementation>* source = loadAcquire(other.m_pHolder);
    if (source)
        m_pHolder = new OrvaSmartPointer<LockImplementation>(*source);
    m_bFlag = other.m_bFlag;
    return *this;
}

OrvaCriticalSectionObject::~OrvaCriticalSectionObject()
{
    delete m_pHolder;
}

void OrvaCriticalSectionObject::init()
{
    // The holder is published with release order and tested with acquire
    // order: plain moves on this machine, and a sound double-checked open.
    if (loadAcquire(m_pHolder))
        return;
    open();
}

// No guard object here: g_pCriticalSection is taken and left by hand, so
// that this frame needs no exception tables (see the top of this file).
void OrvaCriticalSectionObject::open()
{
    enterKillShield();
    OrvaSmartPointer<LockImplementation>* holder = nullptr;
    bool failed = false;
    if (this == g_pCriticalSection)
    {
        // The global section opens itself: nothing to guard it with.
        holder = newHolder();
        failed = holder == nullptr;
        if (holder)
            storeRelease(m_pHolder, holder);
    }
    else
    {
        g_pCriticalSection->lock();
        if (!m_pHolder)
        {
            holder = newHolder();
            failed = holder == nullptr;
            if (holder)
                storeRelease(m_pHolder, holder);
        }
        g_pCriticalSection->unlock();
    }
    leaveKillShield();
    if (failed)
        throw std::bad_alloc();
}

inline LockImplementation* OrvaCriticalSectionObject::impl()
{
    OrvaSmartPointer<LockImplementation>* holder = loadAcquire(m_pHolder);
    if (__builtin_expect(holder == nullptr, 0))
    {
        open();
        holder = m_pHolder;
    }
    return *holder;
}

void OrvaCriticalSectionObject::lock()
{
    LockImplementation* lock = impl();
    const int id = myLockerId();
    if (heldByMe(lock, id))
        ++lock->m_nLockCount;
    else
        takeLock(lock, id);
}

bool OrvaCriticalSectionObject::testAndSet()
{
    LockImplementation* lock = impl();
    const int id = myLockerId();
    if (heldByMe(lock, id))
    {
        ++lock->m_nLockCount;
        return true;
    }
    LockImplementation* const previousPending = t_locks.m_pPending;
    t_locks.m_pPending = lock;
    orderForRecovery();
    if (!tryTakeWord(lock, id))
    {
        t_locks.m_pPending = previousPending;
        return false;
    }
    completeTaking(lock, previousPending, 1);
    return true;
}

void OrvaCriticalSectionObject::unlock()
{
    LockImplementation* lock = impl();
    if (!heldByMe(lock, myLockerId()))
        return;
    if (--lock->m_nLockCount != 0)
        return;
    releaseLastLevel(lock);
}

int OrvaCriticalSectionObject::lockCount()
{
    return impl()->m_nLockCount;
}

void OrvaCriticalSectionObject::unwind()
{
    unwindLock(impl());
}

void OrvaCriticalSectionRecoverFn(void*)
{
    const int id = t_locks.m_nLockerId;
    LockImplementation* entry = t_locks.m_pHead;
    LockImplementation* pending = t_locks.m_pPending;
    publishHead(nullptr);
    t_locks.m_pPending = nullptr;
    if (id == 0)
        return; // this thread never locked
    while (entry && heldByMe(entry, id))
    {
        LockImplementation* next = entry->m_pNextHeld;
        forceRelease(entry);
        entry = next;
    }
    // The lock being taken or given back when the thread stopped: released
    // only if its word shows that this thread got it.
    if (pending && heldByMe(pending, id))
        forceRelease(pending);
}

namespace internal
{

void reclaimLockAfterFork(OrvaCriticalSectionObject& lock)
{
    OrvaSmartPointer<LockImplementation>* holder = lock.m_pHolder;
    if (!holder)
        return;
    LockImplementation* impl = *holder;
    const int word = loadWord(impl);
    if (word == 0 || (word & c_nLockerIdMask) == myLockerId())
        return;
    impl->m_pPrevHeld = nullptr;
    impl->m_pNextHeld = nullptr;
    impl->m_nLockCount = 0;
    storeOwner(impl, 0);
    storeRelease(lockWord(impl), 0);
}

// The lock is not open yet or the thread has no locker id: both are made,
// then the common path runs.
__attribute__((noinline)) int adjustUnderLockFirstTime(OrvaCriticalSectionObject& section, int& count,
                                                       int delta)
{
    section.init();
    myLockerId();
    return adjustUnderLock(section, count, delta);
}

// The reference counts of every object go through here: a brief hold, with
// the slow cases out of line.
int adjustUnderLock(OrvaCriticalSectionObject& section, int& count, int delta)
{
    OrvaSmartPointer<LockImplementation>* holder = loadAcquire(section.m_pHolder);
    const int id = t_locks.m_nLockerId;
    if (__builtin_expect(holder == nullptr || id == 0, 0))
        return adjustUnderLockFirstTime(section, count, delta);
    LockImplementation* lock = *holder;
    if (heldByMe(lock, id))
        return count += delta;
    LockImplementation* const previousPending = takeBriefly(lock, id);
    const int result = count += delta;
    giveBackBriefly(lock, previousPending);
    return result;
}

// As adjustUnderLock, with the stretch of code between the two calls.
BriefHold beginBriefHold(OrvaCriticalSectionObject& section)
{
    LockImplementation* lock = section.impl();
    const int id = myLockerId();
    if (heldByMe(lock, id))
        return {nullptr, nullptr};
    return {lock, takeBriefly(lock, id)};
}

void endBriefHold(const BriefHold& hold)
{
    if (hold.m_pLock)
        giveBackBriefly(hold.m_pLock, hold.m_pPreviousPending);
}

} // namespace internal

} // namespace OrvaSupport
