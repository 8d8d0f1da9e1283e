/// \file
/// The process's one log: records built from stream-like insertions, one line each.
///
///     OrvaLogging log("/var/tmp/agent.log", 3, 5);   // file and standard output, level 5
///     OrvaLogging::setInstance(log);
///     log << setloglevel(5) << "Agent::start: port " << port << endrecord;
///
/// The client builds the log and registers it; the library never creates,
/// registers or deletes one, and with nothing registered it is silent. A record
/// begins at its first accepted insertion, which takes the log lock, and ends at
/// `endrecord`, which writes one line and releases the lock, so records of
/// different threads never mix. The calling form that the library uses, and
/// that clients should use, tests the cheap conditions before forming any text:
///
///     if (OrvaLogging::isAccessAllowed() && OrvaLogging::getInstance()->getGlobalLogLevel() >= 5)
///         *OrvaLogging::getInstance() << setloglevel(5) << "Agent::start: port " << port << endrecord;
///
/// Levels run from -1 to 9; a higher number means more detail. Three of them
/// meet in a record:
///   - the global level, set at construction (or by setGlobalLogLevel): -1
///     switches the log off (for the calling form above), and a record is only
///     collected while its level is not above the global level;
///   - per-name levels (`setLogLevel`), which can only narrow what the global
///     level lets through: a named record above its name's level is collected
///     and then dropped at `endrecord`;
///   - the record's own level and name, set by the `setloglevel` manipulator and
///     put back to 9 and no name by every `endrecord`. An insertion with no
///     manipulator before it is therefore a level 9 insertion.
///
/// A level 0 record passes every per-name test and is written without prefix.
///
/// A written line is the prefix, the text and a line feed:
///
///     20261115_06:41:25 3 scheduler  [-1208485184] tick
///
/// that is, local date "_" time, the record's level, its name or "Global" left
/// justified in 10 columns (longer names are not cut), and the writing thread's
/// id printed as a signed int in brackets. Every line is flushed at once.
///
/// Targets are a bit mask: 1 the log file, 2 standard output; 0 formats records
/// and drops them. The file's name is the constructor's name cut at its last
/// dot, followed by a number from rand() and ".log": "/var/tmp/agent.log"
/// becomes for instance "/var/tmp/agent1804289383.log"; a double quote at the
/// start of that name is dropped ("\"/tmp/x.log" opens "/tmp/x<n>.log"). The file is truncated
/// at opening, each opening draws a new number, and the opening and any
/// failure to open are announced on standard error whatever the level.
///
/// A record left open for a minute is watched: if its thread was cancelled
/// (which gives back its locks), the watchdog writes out what was collected.
/// Until then, or if the kill came inside endrecord's own write, the collected
/// text stays in the record and comes out in front of the next record that any
/// thread writes.
/// A thread is not cancelled in the middle of a record: a kill that arrives
/// between the record's first step (`setloglevel` or the first accepted
/// insertion) and its `endrecord` takes effect in `endrecord`, or earlier at a
/// cancellation point of the C library (a sleep, a read) inside the record.
/// The frame that writes a record is the caller's: `setloglevel(n)` leaves a
/// temporary in it, and a kill that lands on one of that frame's own
/// instructions before the record starts or after it ended cannot unwind it
/// and ends the process. Threads that are meant to be killed while they log
/// call `setCurrentLevel(n)` and then insert, which leaves no temporary. A
/// thread that ends normally inside a record leaves the log locked for ever.
#ifndef OVKIT_ORVALOGGING_H
#define OVKIT_ORVALOGGING_H

#include <ovkit/OrvaCriticalSection.h>
#include <ovkit/OrvaExport.h>
#include <ovkit/OrvaNotification.h>
#include <ovkit/OrvaStringTraits.h>
#include <ovkit/OrvaTimer.h>

#include <cstdio>
#include <map>
#include <sstream>
#include <string>

namespace OrvaSupport
{

class OrvaLogging;
namespace internal
{
struct LogFastPath;
struct ForkedChildRecord;
} // namespace internal

/// Carries a call of the form fn(log, name, level) into an insertion chain.
/// Built by the `setloglevel` functions; inserting it into a log calls the
/// function with the stored name and level and yields the log.
class OVKIT_API OrvaSetLogLevelManipulator
{
public:
    /// The function that an insertion calls: fn(log, name, level), returning the log.
    typedef OrvaLogging& (*t_SetLevelFunction)(OrvaLogging&, const std::string&, int);

    /// Copies the function, the name and the level.
    OrvaSetLogLevelManipulator(const OrvaSetLogLevelManipulator& other);
    /// Stores the function, the name and the level.
    OrvaSetLogLevelManipulator(t_SetLevelFunction function, const std::string& name, int level);
    /// The name is left empty.
    OrvaSetLogLevelManipulator(t_SetLevelFunction function, int level);

    t_SetLevelFunction m_pFunction; ///< Called by the insertion.
    std::string m_sName;            ///< Passed to the function; may be empty.
    int m_nLevel;                   ///< Passed to the function.
};

/// The log. Construct it once, register it with setInstance(), and destroy it
/// only at the very end of the process: the library and the watchdog threads
/// hold plain pointers to it.
///
/// Thread safety: insertions, `endrecord` and `setCurrentLevel` go through the
/// log lock. The registration, the target, the levels (global and per-name)
/// and the file are plain data without a lock, meant to be set while the
/// process starts up.
class OVKIT_API OrvaLogging : public OrvaDependent
{
public:
    /// File name "log", target 2 (standard output only), global level -1 (off).
    OrvaLogging();
    /// Takes the arguments as they are, without any range check; opens the
    /// file at once if the file bit of `target` is set.
    OrvaLogging(const std::string& fileName, int target, int level);
    /// Unregisters this log if it is the registered one, then closes the file.
    /// A record still open is lost.
    ~OrvaLogging() override;

    OrvaLogging(const OrvaLogging&) = delete;
    OrvaLogging& operator=(const OrvaLogging&) = delete;

    /// Registers `log` as the process's log, replacing (not deleting) any
    /// earlier one. The caller keeps ownership. No lock.
    static void setInstance(OrvaLogging& log);
    /// The registered log, or null.
    static OrvaLogging* getInstance() { return m_pInstance; }
    /// True when a log is registered and its global level is 0 or more.
    static bool isAccessAllowed() { return m_pInstance != nullptr && m_pInstance->m_nLogLevel >= 0; }

    /// The global level, read without a lock (the second read of the calling form).
    int getGlobalLogLevel() const { return m_nLogLevel; }
    /// Sets the global level. Like setLogLevel, a value below -1 or above 9 is
    /// ignored without a message. No lock: meant for start-up.
    void setGlobalLogLevel(int level);

    ///@{
    /// Insertions. Each one first calls getLogAccess(); when that refuses, the
    /// value is dropped. Numbers are formatted as printf does with "%d", "%u",
    /// "%ld", "%lu", "%f" (float and double), "%p" and "%c"; bool gives
    /// "true" or "false"; a null C string gives "(null)"; wide strings are
    /// narrowed with the library's default locale, characters without a
    /// narrow form becoming blanks (a piece that cannot be converted at all
    /// is dropped). Other integer types, such as long long, do not convert:
    /// cast them to one of these.
    OrvaLogging& operator<<(const char* text);
    OrvaLogging& operator<<(bool value);
    OrvaLogging& operator<<(short value);
    OrvaLogging& operator<<(unsigned short value);
    OrvaLogging& operator<<(int value);
    OrvaLogging& operator<<(unsigned int value);
    OrvaLogging& operator<<(long value);
    OrvaLogging& operator<<(unsigned long value);
    OrvaLogging& operator<<(float value);
    OrvaLogging& operator<<(double value);
    OrvaLogging& operator<<(const void* value);
    OrvaLogging& operator<<(char value);
    OrvaLogging& operator<<(const std::string& text);
    OrvaLogging& operator<<(const std::basic_string<char, char_traits_ci<char>>& text);
    OrvaLogging& operator<<(const std::wstring& text);
    OrvaLogging& operator<<(const std::basic_string<wchar_t, char_traits_ci<wchar_t>>& text);
    ///@}
    /// Calls `function` with this log: the form that makes `endrecord` work.
    OrvaLogging& operator<<(OrvaLogging& (*function)(OrvaLogging&));

    /// Ends the record under way. Does nothing at all when another thread has
    /// a record open (it never blocks). Otherwise stops the watchdog and
    /// decides: the level that applies is the record name's own level if the
    /// name has one, else the global level; a record above it, unless of level
    /// 0, is not written, and its text stays collected and comes out in front
    /// of the next record that is written. An empty text writes nothing, not
    /// even a prefix. A text holding a zero character is written up to it.
    /// Finally the level goes back to 9, the name to none, and the caller's
    /// hold on the log lock is released completely.
    void endrecord();

    /// Sets the level of a name, -1 to 9; other values are ignored without a
    /// message. No lock. The name "Global" is an ordinary name here.
    void setLogLevel(const std::string& name, int level);
    /// The level of a name, or the global level if the name has none.
    int getLogLevel(const std::string& name) const;
    /// Under the log lock (for this call only), sets the record's name and
    /// level. A level below -1 is ignored, and the name is then left alone
    /// too; there is no upper limit, but a record above the global level is
    /// never collected.
    void setCurrentLevel(const std::string& name, int level);
    /// The same with no name.
    void setCurrentLevel(int level);

    /// Changes the target bit mask (1 file, 2 standard output; other bits are
    /// kept and ignored). A new value calls stopLogging(target), stores it and
    /// calls startLogging(), so switching the file bit on opens a new file
    /// with a fresh number. The current value again does nothing.
    void setTarget(int target);
    /// The target bit mask as last set.
    int getTarget() const { return m_nTarget; }
    /// Opens the file if the file bit is set (see openLogFile).
    virtual void startLogging();
    /// Closes the file if the file bit is set now and not in `newTarget`.
    virtual void stopLogging(int newTarget);
    /// Opens the file unless one is open. Announces "OrvaLogging: Opening
    /// <name> for logging..." on standard error; on failure also "OrvaLogging:
    /// Cannot open log file <name> (<errno>)", and the log goes on without a
    /// file. Missing directories are not created, and a failed open is not
    /// retried until the file bit is switched off and on again.
    void openLogFile();

    /// Starts the record watchdog if it is idle.
    void resetTimer();
    /// Stops the record watchdog.
    void cancelTimer();
    /// The watchdog's minute has passed: starts a self-deleting
    /// OrvaLoggingEventTimerThread that calls timerElapsed(). Touches neither
    /// the record nor the lock, and ignores its arguments.
    void handleNotification(OrvaCollaborator& source, const OrvaNotification& notification) override;
    /// Tries to end the record under way (which only succeeds if its thread
    /// was cancelled), then, at global level 9, logs a level 9 note. The note
    /// blocks while another thread holds a record open.
    void timerElapsed();

    /// Takes the log lock for one insertion. If the global level is below the
    /// record's level, gives the lock back and returns false; otherwise starts
    /// the watchdog and returns true with the lock kept, one level per
    /// accepted insertion until `endrecord`.
    bool getLogAccess();

private:
    friend struct internal::LogFastPath;
    friend struct internal::ForkedChildRecord;
    void endrecordShielded();
    static void beginRecordShield(const OrvaLogging* log);
    static void endRecordShield(const OrvaLogging* log);
    void appendText(const char* text);
    void appendFormatted(const char* format, ...) __attribute__((format(printf, 2, 3)));
    template <class Value>
    OrvaLogging& insertFormatted(const char* format, Value value);
    void writeRecord(const std::string& label, const std::string& text);

    int m_nTarget;
    int m_nLogLevel;
    std::string m_sCurrentName;
    int m_nCurrentLevel;
    std::ostringstream m_oRecordStream;
    FILE* m_pFile;
    OrvaCriticalSectionObject m_oLogLock;
    OrvaTimer m_oRecordTimer;
    std::map<std::string, int> m_mapLogLevels;
    std::string m_sFileName;
    bool m_bPrefix;
    bool m_bTimerIdle;

    static OrvaLogging* m_pInstance;
    /// The numeric insertions format here; only the holder of the log lock touches it.
    static char m_szConversionBuffer[8192];
};

/// Ends the record: calls log.endrecord() and returns the log.
OVKIT_API OrvaLogging& endrecord(OrvaLogging& log);
/// Calls log.setCurrentLevel(name, level) and returns the log.
OVKIT_API OrvaLogging& __setloglevel(OrvaLogging& log, const std::string& name, int level);
/// Manipulator that sets the record's name and level.
OVKIT_API OrvaSetLogLevelManipulator setloglevel(const std::string& name, int level);
/// Manipulator that sets the record's level, with no name.
OVKIT_API OrvaSetLogLevelManipulator setloglevel(int level);
/// Calls the manipulator's function with the log, its name and its level.
OVKIT_API OrvaLogging& operator<<(OrvaLogging& log, const OrvaSetLogLevelManipulator& manipulator);

/// Module entry points; both do nothing (see OrvaModule.h).
OVKIT_API void OVKITInitOrvaLogging();
OVKIT_API void OVKITFinitOrvaLogging();

} // namespace OrvaSupport

#endif // OVKIT_ORVALOGGING_H
