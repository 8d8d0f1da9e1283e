/// \file
/// The reference-counted object root and its intrusive smart pointer.
///
/// Every shared object of the library derives from OrvaObjectBase and lives
/// as long as some OrvaSmartPointer holds it:
///
///     OrvaSmartPointer<OrvaObjectBase> p(new MyObject);   // count 1
///     OrvaSmartPointer<OrvaObjectBase> q(p);              // count 2
///     p = nullptr;                                         // count 1; q's end deletes it
///
/// All counting goes through one process-wide critical section,
/// g_pCriticalSection, which the module frame creates first at load and
/// destroys last at unload (see OrvaModule.h).
#ifndef OVKIT_ORVAOBJECTBASE_H
#define OVKIT_ORVAOBJECTBASE_H

#include <ovkit/OrvaExport.h>

#include <string>

namespace OrvaSupport
{

class OrvaCriticalSectionObject;

/// The lock that guards every reference count of the process. Null before the
/// module start sequence and after the stop sequence.
OVKIT_API extern OrvaCriticalSectionObject* g_pCriticalSection;

/// Creates g_pCriticalSection if it does not exist yet; otherwise does nothing.
OVKIT_API void OVKITInitOrvaObjectBase();
/// Destroys g_pCriticalSection, if any, and sets it to null. A second call does nothing.
OVKIT_API void OVKITFinitOrvaObjectBase();

/// Root of every reference-counted class. A new object has count 0; the first
/// smart pointer brings it to 1, and the release from 1 to 0 deletes it.
/// Objects with automatic or member storage must never be put under a smart
/// pointer, for the last release would delete them.
class OVKIT_API OrvaObjectBase
{
public:
    OrvaObjectBase() : m_nRefCount(0) {}
    /// A copy starts at count 0: the references of the source are not copied.
    OrvaObjectBase(const OrvaObjectBase&) : m_nRefCount(0) {}
    /// Assigning from another object sets this object's count to 0: a counted
    /// object that is assigned to forgets its references. Self-assignment
    /// changes nothing.
    OrvaObjectBase& operator=(const OrvaObjectBase& other)
    {
        if (this != &other)
            m_nRefCount = 0;
        return *this;
    }
    /// Does not check that the count is 0. Declared noexcept(false), as are the
    /// destructors of the smart pointer and of the library's other base
    /// classes: a thread killed while it drops a reference unwinds through
    /// them, and an unwind through a noexcept frame would end the process.
    /// A class that derives from OrvaObjectBase and also from a class with a
    /// noexcept virtual destructor must declare its own destructor noexcept.
    virtual ~OrvaObjectBase() noexcept(false);

    /// Adds one reference under g_pCriticalSection; returns the new count.
    virtual int addRef();
    /// Removes one reference under g_pCriticalSection and returns the new
    /// count. At 0 the object deletes itself, after leaving the section, so
    /// the destructor never runs inside it. On an object with count 0 the
    /// result is -1 and nothing is deleted.
    virtual int release();
    /// The count, read without locking: a snapshot.
    virtual int refCount() const { return m_nRefCount; }
    /// True when `name` equals getClassName() byte for byte. An identity test,
    /// not a walk over the bases: a derived object is not isA its base's name.
    virtual bool isA(const std::string& name) const;
    /// normalizeClassName() of the run-time type name of the dynamic type.
    /// With this compiler's name scheme a namespaced class keeps its inner
    /// length digits and closing letter ("OrvaSupport10OrvaThreadE"), and a
    /// class of the global namespace reads plainly ("LockImplementation").
    virtual std::string getClassName() const;

    /// Turns a run-time type name into a class name. Understands the nested
    /// form "Q<n><len><name>..." (also "Q_<n>_...") and plain length-prefixed
    /// names; any other form loses only its first length prefix. Throws
    /// std::out_of_range when a position runs past the end of the text
    /// (the empty string, for one).
    static std::string normalizeClassName(const std::string& rawName);

protected:
    int m_nRefCount; ///< The reference count; see addRef() and release().
};

/// Intrusive smart pointer: one machine word, holding a T* on which it calls
/// addRef() and release(). Not itself thread-safe: one smart pointer object
/// must not be assigned from two threads at once.
template <class T>
class OrvaSmartPointer
{
public:
    OrvaSmartPointer() : m_pObject(nullptr) {}
    /// Holds `object` (which may be null) and adds a reference to it. Not
    /// explicit: a raw pointer converts, and takes a reference as it does.
    OrvaSmartPointer(T* object) : m_pObject(object)
    {
        if (m_pObject)
            m_pObject->addRef();
    }
    /// Holds the other's object and adds a reference to it.
    OrvaSmartPointer(const OrvaSmartPointer& other) : m_pObject(other.m_pObject)
    {
        if (m_pObject)
            m_pObject->addRef();
    }
    /// Releases the object, if any; the stored pointer is left as it was.
    /// noexcept(false): see ~OrvaObjectBase().
    ~OrvaSmartPointer() noexcept(false)
    {
        if (m_pObject)
            m_pObject->release();
    }

    /// No effect when both hold the same pointer. Otherwise the old object is
    /// released first and the new one added after: assigning from a pointer
    /// whose only other reference is reached through the old object is the
    /// caller's risk.
    OrvaSmartPointer& operator=(const OrvaSmartPointer& other)
    {
        if (this != &other && m_pObject != other.m_pObject)
            assign(other.m_pObject);
        return *this;
    }
    /// As the copy assignment: release old, store, add new.
    OrvaSmartPointer& operator=(T* object)
    {
        if (m_pObject != object)
            assign(object);
        return *this;
    }

    ///@{
    /// The stored pointer, unchecked: a null one is the caller's fault. The
    /// const forms give non-const access too: constness is the pointer's,
    /// not the object's.
    T* operator->() { return m_pObject; }
    T* operator->() const { return m_pObject; }
    T& operator*() { return *m_pObject; }
    T& operator*() const { return *m_pObject; }
    operator T*() const { return m_pObject; }
    ///@}

    /// True when both hold the same pointer.
    bool operator==(const OrvaSmartPointer& other) const { return m_pObject == other.m_pObject; }
    /// True when the stored pointer is `object`; lets `p == nullptr` and
    /// `p == raw` compile without an ambiguous conversion.
    bool operator==(T* object) const { return m_pObject == object; }
    /// Always false: a smart pointer gives no ordering, so it must not be the
    /// key of a sorted container.
    bool operator<(const OrvaSmartPointer&) const { return false; }

    /// Hands the reference to the caller: returns the pointer and empties this
    /// smart pointer without a release.
    T* getOwnership()
    {
        T* object = m_pObject;
        m_pObject = nullptr;
        return object;
    }

private:
    void assign(T* object)
    {
        if (m_pObject)
            m_pObject->release();
        m_pObject = object;
        if (m_pObject)
            m_pObject->addRef();
    }

    T* m_pObject;
};

extern template class OVKIT_API OrvaSmartPointer<OrvaObjectBase>;

} // namespace OrvaSupport

#endif // OVKIT_ORVAOBJECTBASE_H
