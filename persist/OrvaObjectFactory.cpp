#include <ovkit/OrvaObjectFactory.h>

#include "sync/KillShield.h"

#include <atomic>
#include <mutex>
#include <set>

namespace OrvaSupport
{

namespace
{

// Every factory that exists, so that a registration that outlives its
// factory can tell and leave the dead object alone. Created at first use and
// never destroyed: registrations may end during the process's exit, after
// any static of the library would be gone. A factory made at the address of
// a dead one counts as that one's successor; a stale registration then takes
// its name out of the new factory, but touches no freed memory.
//
// The mutex is taken only inside shields, where a kill cannot stop the
// thread before it is given back.
struct LiveFactories
{
    std::mutex m_oLock;
    std::set<const OrvaObjectFactory*> m_setFactories;
};

LiveFactories& liveFactories()
{
    static LiveFactories* s_pLiveFactories = new LiveFactories;
    return *s_pLiveFactories;
}

// Set by the deletion of the process-wide factory, whose pointer stays as it
// was: a second deleteGlobalInstance() must not delete it again.
std::atomic<bool> s_bGlobalInstanceDeleted{false};

} // namespace

OrvaObjectFactory* OrvaObjectFactory::m_pGlobalInstance = nullptr;

OrvaObjectFactory* OrvaObjectFactory::getGlobalInstance()
{
    if (!m_pGlobalInstance)
        m_pGlobalInstance = new OrvaObjectFactory;
    return m_pGlobalInstance;
}

void OrvaObjectFactory::deleteGlobalInstance()
{
    if (m_pGlobalInstance && !s_bGlobalInstanceDeleted.exchange(true, std::memory_order_acq_rel))
        delete m_pGlobalInstance;
}

OrvaObjectFactory::OrvaObjectFactory()
{
    internal::runShielded(
        [this]
        {
            LiveFactories& live = liveFactories();
            std::lock_guard<std::mutex> guard(live.m_oLock);
            live.m_setFactories.insert(this);
        });
}

// The lock is a new one: a copied handle of an opened lock would make both
// factories share it.
OrvaObjectFactory::OrvaObjectFactory(const OrvaObjectFactory& other) : OrvaObjectFactory()
{
    m_mapCreators = other.m_mapCreators;
}

OrvaObjectFactory& OrvaObjectFactory::operator=(const OrvaObjectFactory& other)
{
    if (this != &other)
        m_mapCreators = other.m_mapCreators;
    return *this;
}

OrvaObjectFactory::~OrvaObjectFactory() noexcept(false)
{
    internal::runShielded(
        [this]
        {
            LiveFactories& live = liveFactories();
            std::lock_guard<std::mutex> guard(live.m_oLock);
            live.m_setFactories.erase(this);
        });
}

void OrvaObjectFactory::add(const std::string& name, CreatorFunction creator)
{
    internal::runShielded(
        [&]
        {
            OrvaCriticalSection guard(m_oLock, true);
            m_mapCreators[name] = creator;
        });
}

void OrvaObjectFactory::add(const std::string& name, OrvaObjectFactoryRegistration& registration)
{
    internal::runShielded(
        [&]
        {
            OrvaCriticalSection guard(m_oLock, true);
            m_mapRegistrations[name] = &registration;
        });
}

void OrvaObjectFactory::remove(const std::string& name)
{
    internal::runShielded(
        [&]
        {
            OrvaCriticalSection guard(m_oLock, true);
            if (m_mapRegistrations.erase(name) == 0)
                m_mapCreators.erase(name);
        });
}

// Only the look-up holds the lock: the creator runs outside it, so that it
// may use the factory, and what it throws leaves the lock released.
OrvaSmartPointer<OrvaObjectBase> OrvaObjectFactory::construct(const std::string& name)
{
    OrvaObjectFactoryRegistration* registration = nullptr;
    CreatorFunction creator = nullptr;
    internal::runShielded(
        [&]
        {
            OrvaCriticalSection guard(m_oLock, true);
            const auto entered = m_mapRegistrations.find(name);
            if (entered != m_mapRegistrations.end())
            {
                registration = entered->second;
                return;
            }
            const auto created = m_mapCreators.find(name);
            if (created != m_mapCreators.end())
                creator = created->second;
        });

    OrvaSmartPointer<OrvaObjectBase> result;
    if (registration)
        result = registration->createInstance();
    else if (creator)
        result = creator();
    return result;
}

std::vector<std::string> OrvaObjectFactory::getRegisteredClasses() const
{
    std::vector<std::string> names;
    names.reserve(m_mapCreators.size() + m_mapRegistrations.size());
    for (const auto& entry : m_mapCreators)
        names.push_back(entry.first);
    for (const auto& entry : m_mapRegistrations)
        names.push_back(entry.first);
    return names;
}

OrvaObjectFactoryRegistration::OrvaObjectFactoryRegistration(const std::string& className,
                                                             OrvaObjectFactory& factory)
    : m_sClassName(className), m_pFactory(&factory)
{
    factory.add(className, *this);
}

// The set of live factories stays locked while the factory removes the name,
// so that the factory cannot die in between.
OrvaObjectFactoryRegistration::~OrvaObjectFactoryRegistration() noexcept(false)
{
    internal::runShielded(
        [this]
        {
            LiveFactories& live = liveFactories();
            std::lock_guard<std::mutex> guard(live.m_oLock);
            if (live.m_setFactories.count(m_pFactory) != 0)
                m_pFactory->remove(m_sClassName);
        });
}

OrvaExemplar::~OrvaExemplar() {}

} // namespace OrvaSupport
