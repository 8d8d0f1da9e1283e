/// \file
/// Observers: a collaborator tells its dependents about things that happen.
///
///     class Watcher : public OrvaDependent
///     {
///         void handleNotification(OrvaCollaborator& from, const OrvaNotification& n) override { ... }
///     };
///     Watcher w;
///     event.addDependent(w);          // w is told of every set() of the event
///     ...
///     event.removeDependent(w);       // before w dies: the list holds plain pointers
///
/// OrvaCollaborator is the subject: it keeps a list of OrvaDependent pointers,
/// which it does not own, and hands each of them an OrvaNotification. Events,
/// threads and timers are built on it; the derived notifications carry the
/// data of their sender (OrvaEventNotification, OrvaThread::ThreadDone).
#ifndef OVKIT_ORVANOTIFICATION_H
#define OVKIT_ORVANOTIFICATION_H

#include <ovkit/OrvaCriticalSection.h>
#include <ovkit/OrvaExport.h>

#include <vector>

namespace OrvaSupport
{

class OrvaCollaborator;

/// What a collaborator sends: an integer id, and whatever a derived class adds.
class OVKIT_API OrvaNotification
{
public:
    /// The id has no meaning until setId() or an assignment gives it one.
    OrvaNotification();
    /// A notification with the id; not explicit, so an int converts.
    OrvaNotification(int id);
    ///@{
    /// Copies the id.
    OrvaNotification(const OrvaNotification& other);
    OrvaNotification& operator=(const OrvaNotification& other);
    ///@}
    /// Sets the id, as setId() does.
    OrvaNotification& operator=(int id);
    virtual ~OrvaNotification() noexcept(false);

    /// Sets the id.
    void setId(int id);
    /// The id.
    int getId() const;

protected:
    int m_nId; ///< The id.
};

/// An observer. The base class ignores every notification.
class OVKIT_API OrvaDependent
{
public:
    OrvaDependent() {}
    ///@{
    /// The base class holds nothing: copying does nothing.
    OrvaDependent(const OrvaDependent&) {}
    OrvaDependent& operator=(const OrvaDependent&) { return *this; }
    ///@}
    virtual ~OrvaDependent() noexcept(false);

    /// Called on the notifying thread, with the collaborator's list unlocked.
    virtual void handleNotification(OrvaCollaborator& collaborator, const OrvaNotification& notification);
};

/// The subject: an ordered list of dependents, not owned, duplicates allowed.
///
/// Any thread may add, remove or notify at any time. A dependent that dies
/// first must remove itself: the collaborator's destructor tells nobody.
/// removeDependent() does not wait for a delivery that another thread has
/// already begun, so a dependent that is removed while a notify() runs
/// elsewhere may still be called once; its owner keeps it alive until such a
/// notify() is over.
class OVKIT_API OrvaCollaborator
{
public:
    OrvaCollaborator();
    /// A copy is a new subject: it has a lock of its own and no dependents.
    OrvaCollaborator(const OrvaCollaborator& other);
    /// Leaves this collaborator's dependents as they are.
    OrvaCollaborator& operator=(const OrvaCollaborator& other);
    /// Frees the list only; no dependent is told.
    virtual ~OrvaCollaborator() noexcept(false);

    /// Appends the dependent. One added twice is called twice.
    void addDependent(OrvaDependent& dependent);
    /// Removes every occurrence of the dependent, keeping the order of the
    /// others. A dependent that is not listed changes nothing.
    void removeDependent(OrvaDependent& dependent);

    /// Calls handleNotification(*this, notification) on each dependent, on
    /// the calling thread, going through the list by index and reading its
    /// size anew at each step. The list lock is released around every call,
    /// so a callback may add or remove dependents, itself included. Because
    /// delivery goes by index, removing an entry at or before the current one
    /// makes the next entry be skipped in this pass, and entries added during
    /// the pass are called in it. Two concurrent notify() calls interleave
    /// their callbacks. An exception from a callback passes to the caller and
    /// the remaining dependents are not called.
    virtual void notify(const OrvaNotification& notification);

private:
    OrvaCriticalSectionObject m_oListLock;
    std::vector<OrvaDependent*> m_vDependents;
};

} // namespace OrvaSupport

#endif // OVKIT_ORVANOTIFICATION_H
