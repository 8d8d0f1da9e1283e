/// \file
/// Module lifetime frame: what makes the library ready when it is loaded and
/// quiet when it is unloaded.
///
/// Every module record (the library's own g_ModuleData, and any record a
/// client derives from ModuleData) joins one process-wide list at
/// construction. ModuleData::entry() attaches the records oldest first;
/// ModuleData::exit() detaches them newest first. A client that wants to drive
/// the list at one point of its own uses the bracket:
///
///     int main() { OrvaSupport::ModuleDataControl control; ... }
///
/// The library's record is constructed before the other static objects of the
/// library (only the thread exit list comes earlier, so that it outlives the
/// stop sequence) and destroyed after them, so its start sequence runs first
/// at load and its stop sequence last at unload:
///
///     start: OVKITInitOrvaObjectBase, OVKITInitOrvaThread, OVKITInitOrvaLogging,
///            OVKITInitOrvaTimer, OVKITInitOrvaLoggingTimer;
///     stop:  OrvaObjectFactory::deleteGlobalInstance first, then the
///            OVKITFinit... functions in the reverse order,
///            OVKITFinitOrvaObjectBase last.
///
/// The timer step of the stop sequence waits, at most two seconds, for the
/// library's own threads still under way.
/// Nothing here locks: the list is touched during static initialisation and
/// termination, or by a ModuleDataControl on the main thread before threads start.
#ifndef OVKIT_ORVAMODULE_H
#define OVKIT_ORVAMODULE_H

#include <ovkit/OrvaExport.h>
#include <ovkit/OrvaObjectBase.h>

namespace OrvaSupport
{

/// A record of the module list, with a use count (0 means detached).
class OVKIT_API ModuleData
{
public:
    /// Inserts the record at the head of the list.
    explicit ModuleData(bool autoAttach);
    /// Leaves the list. Records are expected to die in the reverse order of
    /// their construction, each being the head when it goes; a record that
    /// dies out of that order stays linked to its neighbours.
    virtual ~ModuleData();

    /// The record's start steps; entry() calls it when the use count is 0.
    virtual void attach() = 0;
    /// The record's stop steps; exit() calls it when the use count drops to 0.
    virtual void detach() = 0;

    /// From the oldest record to the newest: attaches a record whose use count
    /// is 0, then adds 1 to its count. The list must not be empty.
    static void entry();
    /// From the newest record to the oldest: for each record whose count is
    /// above 0, subtracts 1 and detaches it on reaching 0.
    static void exit();

    /// The flag of the constructor. ModuleData only keeps it; a derived
    /// record decides what it means (Module attaches itself when it is set).
    bool autoAttach() const { return m_bAutoAttach; }
    /// How many entries hold the record attached; 0 when detached.
    int useCount() const { return m_nUseCount; }
    /// The record constructed just after this one (nearer the head), or null
    /// at the head.
    ModuleData* previous() const { return m_pPrev; }
    /// The record constructed just before this one, or null at the oldest.
    ModuleData* next() const { return m_pNext; }
    /// The most recently constructed record.
    static ModuleData* head() { return m_pHead; }

    /// Head of the list: the most recently constructed record.
    static ModuleData* m_pHead;

protected:
    bool m_bAutoAttach;  ///< See autoAttach().
    ModuleData* m_pPrev; ///< Inserted after this one (nearer the head); null at the head.
    ModuleData* m_pNext; ///< Inserted before this one; null at the oldest.
    int m_nUseCount;     ///< See useCount().
};

/// Enters the module list at construction and exits it at destruction.
class OVKIT_API ModuleDataControl
{
public:
    ModuleDataControl();
    virtual ~ModuleDataControl();
};

///@{
/// Initialise and finalise functions of the subsystems, called by the
/// library's module record; a client has no need to call them. The thread
/// step sets up the library's run time and the handler of SIGUSR2, the timer
/// step the handlers of SIGALRM and SIGUSR1; finalising the timers deletes
/// the timer manager. The thread finaliser and the logging pairs do nothing.
OVKIT_API void OVKITInitOrvaThread();
OVKIT_API void OVKITFinitOrvaThread();
OVKIT_API void OVKITInitOrvaLogging();
OVKIT_API void OVKITFinitOrvaLogging();
OVKIT_API void OVKITInitOrvaTimer();
OVKIT_API void OVKITFinitOrvaTimer();
OVKIT_API void OVKITInitOrvaLoggingTimer();
OVKIT_API void OVKITFinitOrvaLoggingTimer();
///@}

} // namespace OrvaSupport

/// The library's own module record. Constructed with auto-attach true: its
/// construction runs the start sequence and its destruction the stop
/// sequence, sharing the use count with entry() and exit().
class OVKIT_API Module : public OrvaSupport::ModuleData
{
public:
    /// Joins the list; with `autoAttach` true, attaches at once unless the
    /// use count says it is attached already, and counts one use.
    explicit Module(bool autoAttach);
    /// With auto-attach, gives back the construction's use and detaches on
    /// reaching 0. An exception out of a stop step ends the stop sequence
    /// there; the record still leaves the list.
    ~Module() override;

    /// The start sequence, in the order given at the top of this file.
    void attach() override;
    /// The stop sequence, in the order given at the top of this file.
    void detach() override;
};

/// The library's one module record.
OVKIT_API extern Module g_ModuleData;

namespace OrvaSupport
{
/// The record is also reachable from the library's namespace.
using ::g_ModuleData;
} // namespace OrvaSupport

#endif // OVKIT_ORVAMODULE_H
