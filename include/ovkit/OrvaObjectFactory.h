/// \file
/// Creation of reference-counted objects from a class name.
///
///     OrvaObjectBase* makeWidget() { return new Widget; }
///     OrvaObjectFactory::getGlobalInstance()->add("Widget", &makeWidget);
///     OrvaSmartPointer<OrvaObjectBase> w = OrvaObjectFactory::getGlobalInstance()->construct("Widget");
///
/// A class enters a factory as a plain creator function, or as a registration
/// object whose createInstance() builds the object. Names are keys as given,
/// compared byte for byte: nothing normalises them. Where one name stands both
/// as a registration and as a creator, the registration wins.
///
/// One process-wide factory, getGlobalInstance(), exists beside any that a
/// client makes. The library's stop sequence deletes it first of all (see
/// OrvaModule.h).
#ifndef OVKIT_ORVAOBJECTFACTORY_H
#define OVKIT_ORVAOBJECTFACTORY_H

#include <ovkit/OrvaCriticalSection.h>
#include <ovkit/OrvaExport.h>
#include <ovkit/OrvaObjectBase.h>

#include <map>
#include <string>
#include <vector>

namespace OrvaSupport
{

class OrvaObjectFactoryRegistration;

/// A table of names, each leading to a creator function or a registration.
///
/// Threads: add(), remove() and the look-up of construct() exclude each other
/// through the factory's lock; the creator or createInstance() runs outside
/// it, so it may use the factory itself, and a remove() may run meanwhile (a
/// registration found must outlive the call). getGlobalInstance(),
/// getRegisteredClasses(), the copy constructor and operator= take no lock and
/// are not safe against a concurrent add() or remove(). (Locking both sides of
/// an assignment could deadlock two threads doing a = b and b = a.)
class OVKIT_API OrvaObjectFactory
{
public:
    /// A creator: returns a new object, or null for none.
    typedef OrvaObjectBase* (*CreatorFunction)();

    /// The process-wide factory, created with new on the first call. No lock
    /// guards the creation: make the first call before threads compete for
    /// it. After deleteGlobalInstance() this returns the deleted factory's
    /// old address, which must not be used.
    static OrvaObjectFactory* getGlobalInstance();
    /// Deletes the process-wide factory, if there is one. The pointer is left
    /// as it is, intentionally, so no new factory is made afterwards; a second
    /// call (the library's stop sequence makes one) deletes nothing.
    static void deleteGlobalInstance();

    /// Both tables empty.
    OrvaObjectFactory();
    /// A factory with its own lock and the source's creators. Registrations
    /// belong to one factory and are not copied.
    OrvaObjectFactory(const OrvaObjectFactory& other);
    /// Replaces the creators by a copy of the source's; the registrations stay
    /// as they were. Nothing on self-assignment.
    OrvaObjectFactory& operator=(const OrvaObjectFactory& other);
    /// Leaves the registrations alone; a registration that outlives its
    /// factory finds it gone and does nothing at its own end.
    virtual ~OrvaObjectFactory() noexcept(false);

    /// Enters `name` with `creator`, replacing the creator of that name. A
    /// null creator stands for one that returns null.
    void add(const std::string& name, CreatorFunction creator);
    /// Enters `name` with the registration's address, replacing the
    /// registration of that name. The factory does not own it.
    void add(const std::string& name, OrvaObjectFactoryRegistration& registration);
    /// Takes `name` out of the registrations; only if no registration had
    /// that name, out of the creators. Unknown names are ignored.
    void remove(const std::string& name);
    /// A new object of the class entered as `name`: from its registration if
    /// there is one, else from its creator. Empty for an unknown name and for
    /// a creator that returns null. What the creator or createInstance()
    /// throws passes through, with the factory's lock already released.
    OrvaSmartPointer<OrvaObjectBase> construct(const std::string& name);
    /// The names of the creators in order, then those of the registrations in
    /// order: a name in both tables comes twice.
    std::vector<std::string> getRegisteredClasses() const;

private:
    static OrvaObjectFactory* m_pGlobalInstance;

    OrvaCriticalSectionObject m_oLock;
    std::map<std::string, CreatorFunction> m_mapCreators;
    std::map<std::string, OrvaObjectFactoryRegistration*> m_mapRegistrations;
};

/// A class's entry in a factory, as an object: a client derives from it and
/// builds the instances in createInstance().
///
/// The constructor enters the registration into the factory before the
/// derived part exists, and the destructor takes it out after the derived
/// part is gone: register only objects that no other thread can reach through
/// the factory until construction is over, and destroy them only when no
/// other thread constructs through them.
class OVKIT_API OrvaObjectFactoryRegistration
{
public:
    /// Stores both and calls factory.add(className, *this).
    OrvaObjectFactoryRegistration(const std::string& className, OrvaObjectFactory& factory);
    /// Calls remove(className) on the factory, which takes out whatever is
    /// entered under that name at that moment, registration first. Nothing
    /// when the factory no longer exists.
    virtual ~OrvaObjectFactoryRegistration() noexcept(false);

    /// Returns a new object of the registered class.
    virtual OrvaSmartPointer<OrvaObjectBase> createInstance() = 0;

    /// A copy would share the name, and its end would take the original's
    /// entry out of the factory.
    OrvaObjectFactoryRegistration(const OrvaObjectFactoryRegistration&) = delete;
    OrvaObjectFactoryRegistration& operator=(const OrvaObjectFactoryRegistration&) = delete;

protected:
    std::string m_sClassName;      ///< The name it is entered under.
    OrvaObjectFactory* m_pFactory; ///< The factory it is entered in; not owned.
};

/// A class with no state: a base for a client's exemplar objects.
class OVKIT_API OrvaExemplar
{
public:
    OrvaExemplar() {}
    virtual ~OrvaExemplar();
};

} // namespace OrvaSupport

#endif // OVKIT_ORVAOBJECTFACTORY_H
