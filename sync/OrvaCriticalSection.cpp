#include <ovkit/OrvaCriticalSection.h>

#include <errno.h>

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

namespace
{

// The owner field is written only by the owning thread and compared by
// others; relaxed atomic accesses compile to plain moves and keep that
// comparison well defined.
inline pthread_t loadOwner(const LockImplementation* lock)
{
    return __atomic_load_n(&lock->m_owner, __ATOMIC_RELAXED);
}

inline void storeOwner(LockImplementation* lock, pthread_t owner)
{
    __atomic_store_n(&lock->m_owner, owner, __ATOMIC_RELAXED);
}

// While a thread moves a lock between "mutex taken" and "entered in its held
// list" (or back), an asynchronous cancellation would leave a mutex that no
// recovery can find. These steps run with cancellation disabled; a
// cancellation that arrives meanwhile acts when it is enabled again, which
// unwinds the stack from inside the destructor: hence noexcept(false).
class CancellationBlocker
{
public:
    CancellationBlocker() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_nOldState); }
    ~CancellationBlocker() noexcept(false)
    {
        int ignored;
        pthread_setcancelstate(m_nOldState, &ignored);
    }

private:
    int m_nOldState;
};

LockImplementation* heldListHead()
{
    return static_cast<LockImplementation*>(pthread_getspecific(LockThreadStorage::m_mutexListKey));
}

void insertIntoHeldList(LockImplementation* lock)
{
    LockImplementation* head = heldListHead();
    if (head)
        head->m_pPrevHeld = lock;
    pthread_setspecific(LockThreadStorage::m_mutexListKey, lock);
    lock->m_pNextHeld = head;
    lock->m_pPrevHeld = nullptr;
}

void removeFromHeldList(LockImplementation* lock)
{
    if (lock->m_pNextHeld)
        lock->m_pNextHeld->m_pPrevHeld = lock->m_pPrevHeld;
    if (lock->m_pPrevHeld)
        lock->m_pPrevHeld->m_pNextHeld = lock->m_pNextHeld;
    else
        pthread_setspecific(LockThreadStorage::m_mutexListKey, lock->m_pNextHeld);
    lock->m_pNextHeld = nullptr;
    lock->m_pPrevHeld = nullptr;
}

// The last level is gone: the lock leaves the owner's list and its mutex.
void releaseLastLevel(LockImplementation* lock)
{
    CancellationBlocker blocker;
    storeOwner(lock, 0);
    removeFromHeldList(lock);
    pthread_mutex_unlock(&lock->m_mutex);
}

// Gives back all of the caller's levels. A caller that does not own the lock
// spins here until it does, which it cannot come to do: for owners only.
void unwindLock(LockImplementation* lock)
{
    int count = lock->m_nLockCount;
    if (count < 1)
        return;
    const pthread_t self = pthread_self();
    while (count > 0)
    {
        if (loadOwner(lock) != self)
            continue;
        lock->m_nLockCount = --count;
        if (count == 0)
        {
            releaseLastLevel(lock);
            count = 0;
        }
    }
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
    OrvaSmartPointer<LockImplementation>* source = __atomic_load_n(&other.m_pHolder, __ATOMIC_ACQUIRE);
    if (source)
        m_pHolder = new OrvaSmartPointer<LockImplementation>(*source);
}

OrvaCriticalSectionObject& OrvaCriticalSectionObject::operator=(const OrvaCriticalSectionObject& other)
{
    if (this == &other)
        return *this;
    delete m_pHolder;
    m_pHolder = nullptr;
    OrvaSmartPointer<LockImplementation>* source = __atomic_load_n(&other.m_pHolder, __ATOMIC_ACQUIRE);
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
    if (__atomic_load_n(&m_pHolder, __ATOMIC_ACQUIRE))
        return;
    if (this == g_pCriticalSection)
    {
        // The global section opens itself: nothing to guard it with.
        auto* holder = new OrvaSmartPointer<LockImplementation>(new LockImplementation);
        __atomic_store_n(&m_pHolder, holder, __ATOMIC_RELEASE);
        return;
    }
    OrvaCriticalSection guard(*g_pCriticalSection, true);
    if (!m_pHolder)
    {
        auto* holder = new OrvaSmartPointer<LockImplementation>(new LockImplementation);
        __atomic_store_n(&m_pHolder, holder, __ATOMIC_RELEASE);
    }
}

inline LockImplementation* OrvaCriticalSectionObject::impl()
{
    init();
    return *m_pHolder;
}

void OrvaCriticalSectionObject::lock()
{
    LockImplementation* lock = impl();
    const pthread_t self = pthread_self();
    if (loadOwner(lock) != self)
    {
        CancellationBlocker blocker;
        pthread_mutex_lock(&lock->m_mutex);
        storeOwner(lock, self);
        lock->m_nLockCount = 0;
        insertIntoHeldList(lock);
    }
    ++lock->m_nLockCount;
}

bool OrvaCriticalSectionObject::testAndSet()
{
    LockImplementation* lock = impl();
    const pthread_t self = pthread_self();
    if (loadOwner(lock) == self)
    {
        ++lock->m_nLockCount;
        return true;
    }
    CancellationBlocker blocker;
    int result = pthread_mutex_trylock(&lock->m_mutex);
    if (result == EBUSY || result == EINVAL)
        return false;
    storeOwner(lock, self);
    lock->m_nLockCount = 1;
    insertIntoHeldList(lock);
    return true;
}

void OrvaCriticalSectionObject::unlock()
{
    LockImplementation* lock = impl();
    if (loadOwner(lock) != pthread_self())
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
    LockImplementation* entry = heldListHead();
    pthread_setspecific(LockThreadStorage::m_mutexListKey, nullptr);
    while (entry)
    {
        LockImplementation* next = entry->m_pNextHeld;
        entry->m_pPrevHeld = nullptr;
        entry->m_pNextHeld = nullptr;
        entry->m_nLockCount = 0;
        storeOwner(entry, 0);
        pthread_mutex_unlock(&entry->m_mutex);
        entry = next;
    }
}

} // namespace OrvaSupport
