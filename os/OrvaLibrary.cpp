#include <ovkit/OrvaLibrary.h>

#include <ovkit/OrvaException.h>

#include "sync/KillShield.h"

#include <dlfcn.h>
#include <map>
#include <mutex>

namespace OrvaSupport
{

template class OrvaSmartPointer<OrvaLibrary>;

namespace
{

// Copies share the loader's handle without loading again, and the first of
// them to be destroyed unloads the library. A second dlclose of that handle
// would drop a reference that belongs to somebody else (another dlopen of the
// same file returns the same handle) or touch a link map that is gone, and
// the handle's value may come back from a later dlopen. So every object is
// entered here, under its own address, with the opening it shares: one
// record per successful dlopen, marked once that dlopen has been closed.
// Nothing is added to the objects themselves.
struct Opening
{
    bool m_bClosed;
    int m_nMembers;
};

class OpeningRegistry
{
public:
    void join(const OrvaLibrary* object, Opening* opening)
    {
        ++opening->m_nMembers;
        m_mapMembers[object] = opening;
    }

    // The opening of `object`, or null for an object that is not entered
    // (one whose constructor failed).
    Opening* find(const OrvaLibrary* object) const
    {
        auto entry = m_mapMembers.find(object);
        return entry != m_mapMembers.end() ? entry->second : nullptr;
    }

    void leave(const OrvaLibrary* object)
    {
        auto entry = m_mapMembers.find(object);
        if (entry == m_mapMembers.end())
            return;
        Opening* opening = entry->second;
        m_mapMembers.erase(entry);
        if (--opening->m_nMembers == 0)
            delete opening;
    }

private:
    std::map<const OrvaLibrary*, Opening*> m_mapMembers;
};

// Built at first use and never destroyed: an object with static storage may
// be destroyed after any static of this unit.
std::mutex& registryLock()
{
    static std::mutex* s_pLock = new std::mutex;
    return *s_pLock;
}

OpeningRegistry& registry()
{
    static OpeningRegistry* s_pRegistry = new OpeningRegistry;
    return *s_pRegistry;
}

// Runs `body` on the registry with its lock held and the caller's
// cancellation held back: the body allocates, and a thread killed inside it
// would keep the lock for ever.
template <class Body>
void withRegistry(Body&& body)
{
    internal::runShielded(
        [&]
        {
            std::lock_guard<std::mutex> guard(registryLock());
            body(registry());
        });
}

} // namespace

OrvaLibrary::OrvaLibrary(const std::string& name, bool exactName) : m_sName(name), m_pHandle(nullptr)
{
    const std::string fileName = exactName ? name : "lib" + name + ".so";
    internal::runShielded([&] { m_pHandle = dlopen(fileName.c_str(), RTLD_NOW); });
    if (m_pHandle == nullptr)
    {
        const char* reason = dlerror();
        throw OrvaException("OrvaLibrary::OrvaLibrary: failed to load: " + name + ".  " +
                                (reason != nullptr ? reason : ""),
                            0);
    }
    try
    {
        withRegistry([this](OpeningRegistry& openings) { openings.join(this, new Opening{false, 0}); });
    }
    catch (...)
    {
        dlclose(m_pHandle);
        throw;
    }
}

OrvaLibrary::OrvaLibrary(const OrvaLibrary& other)
    : OrvaObjectBase(other), m_sName(other.m_sName), m_pHandle(other.m_pHandle)
{
    withRegistry(
        [&](OpeningRegistry& openings)
        {
            if (Opening* shared = openings.find(&other))
                openings.join(this, shared);
        });
}

OrvaLibrary& OrvaLibrary::operator=(const OrvaLibrary& other)
{
    if (this == &other)
        return *this;
    withRegistry(
        [&](OpeningRegistry& openings)
        {
            // Joined first, so that an opening shared by both is not freed between.
            Opening* shared = openings.find(&other);
            openings.leave(this);
            if (shared != nullptr)
                openings.join(this, shared);
        });
    m_sName = other.m_sName;
    m_pHandle = other.m_pHandle;
    return *this;
}

OrvaLibrary::~OrvaLibrary()
{
    bool closeHere = false;
    withRegistry(
        [&](OpeningRegistry& openings)
        {
            Opening* opening = openings.find(this);
            if (opening != nullptr && !opening->m_bClosed)
            {
                opening->m_bClosed = true;
                closeHere = true;
            }
            openings.leave(this);
        });
    // Outside the registry's lock: the library's own destructors run in
    // dlclose, and may destroy OrvaLibrary objects of their own.
    if (closeHere && m_pHandle != nullptr)
        internal::runShielded([this] { dlclose(m_pHandle); });
}

void* OrvaLibrary::getProcAddr(const std::string& symbol)
{
    if (m_pHandle == nullptr)
        return nullptr;
    bool closed = true;
    withRegistry(
        [&](OpeningRegistry& openings)
        {
            const Opening* opening = openings.find(this);
            closed = opening == nullptr || opening->m_bClosed;
        });
    if (closed)
        return nullptr;

    void* address = nullptr;
    internal::runShielded(
        [&]
        {
            // Cleared first, so that an error reported afterwards is this lookup's.
            dlerror();
            address = dlsym(m_pHandle, symbol.c_str());
            if (dlerror() != nullptr)
                address = nullptr;
        });
    return address;
}

} // namespace OrvaSupport
