#include <ovkit/OrvaLogging.h>

#include <ovkit/OrvaDateTime.h>
#include <ovkit/OrvaException.h>
#include <ovkit/OrvaLocaleFactory.h>
#include <ovkit/OrvaLoggingTimer.h>
#include <ovkit/OrvaModule.h>
#include <ovkit/OrvaStringUtilities.h>

#include "log/ForkedChildLog.h"
#include "log/LogMessage.h"
#include "sync/AtomicField.h"
#include "sync/KillShield.h"
#include "threads/LibraryRuntime.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <pthread.h>
#include <type_traits>
#include <unistd.h>

namespace OrvaSupport
{

namespace
{

const int c_nFileTarget = 1;
const int c_nStdoutTarget = 2;
const int c_nDefaultRecordLevel = 9;
const long c_nWatchdogMilliseconds = 60000;
const char c_szPrefixFormat[] = "%04d%02d%02d_%02d:%02d:%02d %d %-10s [%d] ";

// The thread id as the log prints it: the low 32 bits, read as a signed int.
int printableThreadId()
{
    return static_cast<int>(static_cast<unsigned int>(pthread_self()));
}

// Writes `value` in decimal at `out`, zero-padded to `width` digits, and
// returns the end. For values from 0 up, as the date fields are.
char* putPadded(char* out, unsigned value, int width)
{
    char* end = out + width;
    for (char* digit = end; digit != out;)
    {
        *--digit = static_cast<char>('0' + value % 10);
        value /= 10;
    }
    return end;
}

// Writes an integer as "%d" or "%u" (and their long forms) do, and returns
// the end.
template <class Integer>
char* putDecimal(char* out, Integer value)
{
    using Magnitude = typename std::make_unsigned<Integer>::type;
    char digits[24];
    char* first = digits + sizeof(digits);
    Magnitude magnitude = static_cast<Magnitude>(value);
    bool negative = false;
    if constexpr (std::is_signed<Integer>::value)
    {
        negative = value < 0;
        if (negative)
            magnitude = static_cast<Magnitude>(0) - magnitude;
    }
    do
    {
        *--first = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    if (negative)
        *--first = '-';
    const std::size_t length = static_cast<std::size_t>(digits + sizeof(digits) - first);
    std::memcpy(out, first, length);
    return out + length;
}

// The prefix of a written line, as c_szPrefixFormat gives it, from the date
// fields (year, month 1-12, day, hour, minute, second), the record's level
// and the thread id. Returns the length the prefix has, which may be more
// than fits: then only the part that fits (with a terminating zero) is
// written, as snprintf does. Dates in their usual ranges are formatted here;
// anything else goes through snprintf itself.
std::size_t formatPrefix(char* buffer, std::size_t size, const int (&fields)[8], const char* label)
{
    static const int c_anWidths[6] = {4, 2, 2, 2, 2, 2};
    static const int c_anLimits[6] = {9999, 12, 31, 23, 59, 60};
    const std::size_t labelLength = std::strlen(label);
    bool ordinary = size >= 64 + labelLength;
    for (int i = 0; i < 6 && ordinary; ++i)
        ordinary = fields[i] >= 0 && fields[i] <= c_anLimits[i];
    if (!ordinary)
    {
        const int length = snprintf(buffer, size, c_szPrefixFormat, fields[0], fields[1], fields[2],
                                    fields[3], fields[4], fields[5], fields[6], label, fields[7]);
        return length < 0 ? 0 : static_cast<std::size_t>(length);
    }
    static const char c_acSeparators[6] = {'\0', '\0', '\0', '_', ':', ':'};
    char* out = buffer;
    for (int i = 0; i < 6; ++i)
    {
        if (c_acSeparators[i] != '\0')
            *out++ = c_acSeparators[i];
        out = putPadded(out, static_cast<unsigned>(fields[i]), c_anWidths[i]);
    }
    *out++ = ' ';
    out = putDecimal(out, fields[6]);
    *out++ = ' ';
    std::memcpy(out, label, labelLength);
    out += labelLength;
    for (std::size_t pad = labelLength; pad < 10; ++pad)
        *out++ = ' ';
    *out++ = ' ';
    *out++ = '[';
    out = putDecimal(out, fields[7]);
    *out++ = ']';
    *out++ = ' ';
    *out = '\0';
    return static_cast<std::size_t>(out - buffer);
}

void unlockStream(void* stream)
{
    funlockfile(static_cast<FILE*>(stream));
}

// One line to one stream, flushed: a single write to the file for a line
// that fits its buffer. The write is a cancellation point; a thread killed
// there gives the stream back.
void writeLine(FILE* stream, const char* prefix, std::size_t prefixLength, const char* text,
               std::size_t textLength)
{
    flockfile(stream);
    pthread_cleanup_push(unlockStream, stream);
    fwrite_unlocked(prefix, 1, prefixLength, stream);
    fwrite_unlocked(text, 1, textLength, stream);
    fputc_unlocked('\n', stream);
    fflush_unlocked(stream);
    pthread_cleanup_pop(1);
}

// Logs whose record currently has a name; changed under the log's lock.
std::atomic<int> s_nNamedRecords{0};

} // namespace

// The cheap tests that let a record below the global level pass without the
// log lock. Each decides from a few relaxed loads that the locked path would
// change nothing a later step could tell apart, while the global level stays
// as it is:
//   - an insertion whose record level is above the global level is dropped;
//   - the log at rest (record level 9 above the global level, no name, no
//     watchdog running, so no record open) needs no new level above the
//     global one: the record stays as silent as it would be, and endrecord()
//     puts the level back to 9 anyway;
//   - endrecord() at rest has nothing to write and nothing to give back.
// A log that is not at rest (a record open, a name set, or a level at or
// below the global one) takes the locked path.
struct internal::LogFastPath
{
    static bool isSilent(const OrvaLogging& log)
    {
        return loadRelaxed(log.m_nLogLevel) < loadRelaxed(log.m_nCurrentLevel);
    }

    static bool isAtRest(const OrvaLogging& log)
    {
        return loadRelaxed(log.m_nCurrentLevel) == c_nDefaultRecordLevel &&
               loadRelaxed(log.m_nLogLevel) < c_nDefaultRecordLevel && loadRelaxed(log.m_bTimerIdle) &&
               s_nNamedRecords.load(std::memory_order_relaxed) == 0;
    }

    static bool keepsSilentLevel(const OrvaLogging& log, const std::string& name, int level)
    {
        return name.empty() && level != 0 && level > loadRelaxed(log.m_nLogLevel) && isAtRest(log);
    }

    // A case-insensitive string goes in as the plain string of its width.
    template <class Plain, class Text>
    static OrvaLogging& insertAs(OrvaLogging& log, const Text& text)
    {
        if (isSilent(log))
            return log;
        internal::runShielded([&] { log << Plain(text.data(), text.size()); });
        return log;
    }

    // Keeps the count of named records as the log's name changes (under its lock).
    static void setName(OrvaLogging& log, const std::string& name)
    {
        const bool wasNamed = !log.m_sCurrentName.empty();
        log.m_sCurrentName = name;
        const int change = static_cast<int>(!name.empty()) - static_cast<int>(wasNamed);
        if (change != 0)
            s_nNamedRecords.fetch_add(change, std::memory_order_relaxed);
    }
};

using internal::LogFastPath;

OrvaLogging* OrvaLogging::m_pInstance = nullptr;
char OrvaLogging::m_szConversionBuffer[8192];

// ---------------------------------------------------------------------------
// The manipulator

OrvaSetLogLevelManipulator::OrvaSetLogLevelManipulator(const OrvaSetLogLevelManipulator& other)
    : m_pFunction(other.m_pFunction), m_sName(other.m_sName), m_nLevel(other.m_nLevel)
{
}

OrvaSetLogLevelManipulator::OrvaSetLogLevelManipulator(t_SetLevelFunction function, const std::string& name,
                                                       int level)
    : m_pFunction(function), m_sName(name), m_nLevel(level)
{
}

OrvaSetLogLevelManipulator::OrvaSetLogLevelManipulator(t_SetLevelFunction function, int level)
    : m_pFunction(function), m_sName(), m_nLevel(level)
{
}

OrvaLogging& __setloglevel(OrvaLogging& log, const std::string& name, int level)
{
    log.setCurrentLevel(name, level);
    return log;
}

OrvaSetLogLevelManipulator setloglevel(const std::string& name, int level)
{
    return OrvaSetLogLevelManipulator(__setloglevel, name, level);
}

OrvaSetLogLevelManipulator setloglevel(int level)
{
    return OrvaSetLogLevelManipulator(__setloglevel, level);
}

OrvaLogging& operator<<(OrvaLogging& log, const OrvaSetLogLevelManipulator& manipulator)
{
    if (manipulator.m_pFunction == nullptr)
        return log;
    return manipulator.m_pFunction(log, manipulator.m_sName, manipulator.m_nLevel);
}

OrvaLogging& endrecord(OrvaLogging& log)
{
    log.endrecord();
    return log;
}

// ---------------------------------------------------------------------------
// Construction and registration

OrvaLogging::OrvaLogging() : OrvaLogging("log", c_nStdoutTarget, -1) {}

OrvaLogging::OrvaLogging(const std::string& fileName, int target, int level)
    : m_nTarget(target), m_nLogLevel(level), m_sCurrentName(), m_nCurrentLevel(c_nDefaultRecordLevel),
      m_oRecordStream(std::ios_base::out), m_pFile(nullptr), m_oLogLock(),
      m_oRecordTimer(c_nWatchdogMilliseconds, false), m_mapLogLevels(), m_sFileName(fileName),
      m_bPrefix(true), m_bTimerIdle(true)
{
    m_oRecordTimer.addDependent(*this);
    OrvaLogging::startLogging();
}

OrvaLogging::~OrvaLogging()
{
    if (m_pInstance == this)
        m_pInstance = nullptr;
    stopLogging(0);
    // The timer dies with this object; make sure that no firing reaches a
    // half-destroyed log meanwhile.
    m_oRecordTimer.removeDependent(*this);
}

void OrvaLogging::setInstance(OrvaLogging& log)
{
    m_pInstance = &log;
}

void OrvaLogging::setGlobalLogLevel(int level)
{
    if (level < -1 || level > 9)
        return;
    internal::storeRelaxed(m_nLogLevel, level);
}

// ---------------------------------------------------------------------------
// Insertions

bool OrvaLogging::getLogAccess()
{
    m_oLogLock.lock();
    if (m_nLogLevel < m_nCurrentLevel)
    {
        m_oLogLock.unlock();
        return false;
    }
    resetTimer();
    beginRecordShield(this);
    return true;
}

void OrvaLogging::appendText(const char* text)
{
    m_oRecordStream << text;
}

void OrvaLogging::appendFormatted(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(m_szConversionBuffer, sizeof(m_szConversionBuffer), format, arguments);
    va_end(arguments);
    m_oRecordStream << m_szConversionBuffer;
}

// One numeric insertion: formatted into the record if the log accepts it.
template <class Value>
OrvaLogging& OrvaLogging::insertFormatted(const char* format, Value value)
{
    if (LogFastPath::isSilent(*this))
        return *this;
    internal::runShielded(
        [&]
        {
            if (!getLogAccess())
                return;
            // Integers are written here, as printf would write them.
            if constexpr (std::is_integral<Value>::value && !std::is_same<Value, char>::value)
            {
                *putDecimal(m_szConversionBuffer, value) = '\0';
                appendText(m_szConversionBuffer);
            }
            else
            {
                appendFormatted(format, value);
            }
        });
    return *this;
}

OrvaLogging& OrvaLogging::operator<<(const char* text)
{
    if (LogFastPath::isSilent(*this))
        return *this;
    internal::runShielded(
        [&]
        {
            if (getLogAccess())
                appendText(text != nullptr ? text : "(null)");
        });
    return *this;
}

OrvaLogging& OrvaLogging::operator<<(bool value)
{
    if (LogFastPath::isSilent(*this))
        return *this;
    internal::runShielded(
        [&]
        {
            if (getLogAccess())
                appendText(value ? "true" : "false");
        });
    return *this;
}

OrvaLogging& OrvaLogging::operator<<(short value)
{
    return insertFormatted("%d", value);
}

OrvaLogging& OrvaLogging::operator<<(unsigned short value)
{
    return insertFormatted("%u", value);
}

OrvaLogging& OrvaLogging::operator<<(int value)
{
    return insertFormatted("%d", value);
}

OrvaLogging& OrvaLogging::operator<<(unsigned int value)
{
    return insertFormatted("%u", value);
}

OrvaLogging& OrvaLogging::operator<<(long value)
{
    return insertFormatted("%ld", value);
}

OrvaLogging& OrvaLogging::operator<<(unsigned long value)
{
    return insertFormatted("%lu", value);
}

OrvaLogging& OrvaLogging::operator<<(float value)
{
    return insertFormatted("%f", static_cast<double>(value));
}

OrvaLogging& OrvaLogging::operator<<(double value)
{
    return insertFormatted("%f", value);
}

OrvaLogging& OrvaLogging::operator<<(const void* value)
{
    return insertFormatted("%p", value);
}

OrvaLogging& OrvaLogging::operator<<(char value)
{
    return insertFormatted("%c", value);
}

OrvaLogging& OrvaLogging::operator<<(const std::string& text)
{
    if (LogFastPath::isSilent(*this))
        return *this;
    internal::runShielded(
        [&]
        {
            if (getLogAccess())
                m_oRecordStream << text;
        });
    return *this;
}

OrvaLogging& OrvaLogging::operator<<(const std::basic_string<char, char_traits_ci<char>>& text)
{
    return LogFastPath::insertAs<std::string>(*this, text);
}

OrvaLogging& OrvaLogging::operator<<(const std::wstring& text)
{
    if (LogFastPath::isSilent(*this))
        return *this;
    internal::runShielded(
        [&]
        {
            if (!getLogAccess())
                return;
            try
            {
                m_oRecordStream << OrvaStringUtilities::narrow(text,
                                                               OrvaLocaleFactory::getDefaultLocale(true));
            }
            catch (const OrvaException&)
            {
                // No conversion facet: the piece is dropped, and the record goes on.
            }
        });
    return *this;
}

OrvaLogging& OrvaLogging::operator<<(const std::basic_string<wchar_t, char_traits_ci<wchar_t>>& text)
{
    return LogFastPath::insertAs<std::wstring>(*this, text);
}

OrvaLogging& OrvaLogging::operator<<(OrvaLogging& (*function)(OrvaLogging&))
{
    return function(*this);
}

// ---------------------------------------------------------------------------
// Ending a record

// A record is formed with the thread's cancellation held back from its first
// step (the level manipulator or the first accepted insertion) to its end: the
// frame that writes `log << setloglevel(n) << ... << endrecord` holds a
// temporary with a destructor, and a cancellation that landed between two of
// its calls would end the process. A kill that comes meanwhile takes effect
// in endrecord(). A thread that never ends its record stays cancellable at the
// C library's cancellation points only.
namespace
{

__attribute__((tls_model("initial-exec"))) thread_local const OrvaLogging* t_pShieldedRecord = nullptr;

} // namespace

void OrvaLogging::beginRecordShield(const OrvaLogging* log)
{
    if (t_pShieldedRecord)
        return;
    internal::enterKillShield();
    t_pShieldedRecord = log;
}

void OrvaLogging::endRecordShield(const OrvaLogging* log)
{
    if (t_pShieldedRecord != log)
        return;
    t_pShieldedRecord = nullptr;
    internal::leaveKillShield();
}

// Records are formed and written with the thread's cancellation held back:
// a thread killed inside the C library's stream or allocation code would
// leave its locks taken for ever. A kill that comes meanwhile takes effect
// once the insertion or the record is done.
void OrvaLogging::endrecord()
{
    if (!LogFastPath::isAtRest(*this))
        internal::runShielded([this] { endrecordShielded(); });
    endRecordShield(this);
}

void OrvaLogging::endrecordShielded()
{
    // Never block here: the watchdog thread and threads with nothing open must
    // not hang behind a thread in mid-record.
    if (!m_oLogLock.testAndSet())
        return;

    int applicableLevel = m_nLogLevel;
    std::string label = "Global";
    cancelTimer();
    if (!m_sCurrentName.empty())
    {
        std::map<std::string, int>::const_iterator entry = m_mapLogLevels.find(m_sCurrentName);
        if (entry != m_mapLogLevels.end())
            applicableLevel = entry->second;
        label = m_sCurrentName;
    }

    // A rejected record keeps its text in the stream: it comes out in front
    // of the next record that is written.
    if (m_nCurrentLevel <= applicableLevel || m_nCurrentLevel == 0)
    {
        std::string text = m_oRecordStream.str();
        if (!text.empty())
        {
            writeRecord(label, text);
            m_oRecordStream.str(std::string());
        }
    }

    internal::storeRelaxed(m_nCurrentLevel, c_nDefaultRecordLevel);
    LogFastPath::setName(*this, std::string());
    m_oLogLock.unwind();
}

void OrvaLogging::writeRecord(const std::string& label, const std::string& text)
{
    char prefixBuffer[8192];
    std::string longPrefix;
    const char* prefix = prefixBuffer;
    std::size_t prefixLength = 0;
    if (m_bPrefix && m_nCurrentLevel != 0)
    {
        OrvaDateTime now;
        const int fields[] = {now.getYear(),   now.getMonth() + 1, now.getDayOfMonth(), now.getHour(),
                              now.getMinute(), now.getSecond(),    m_nCurrentLevel,     printableThreadId()};
        prefixLength = formatPrefix(prefixBuffer, sizeof(prefixBuffer), fields, label.c_str());
        if (prefixLength >= sizeof(prefixBuffer))
        {
            // A label of several kilobytes: format again at full size rather than cut it.
            longPrefix.resize(prefixLength + 1);
            formatPrefix(&longPrefix[0], longPrefix.size(), fields, label.c_str());
            prefix = longPrefix.c_str();
        }
    }

    // The text ends at its first zero character, if it holds one.
    const std::size_t textLength = std::strlen(text.c_str());
    if ((m_nTarget & c_nFileTarget) != 0 && m_pFile != nullptr)
        writeLine(m_pFile, prefix, prefixLength, text.c_str(), textLength);
    if ((m_nTarget & c_nStdoutTarget) != 0)
        writeLine(stdout, prefix, prefixLength, text.c_str(), textLength);
}

// ---------------------------------------------------------------------------
// Records of a forked child (see ForkedChildLog.h)

namespace
{

// write(2) until all of `line` is out, or the descriptor fails.
void writeFully(int fd, const std::string& line)
{
    std::size_t done = 0;
    while (done < line.size())
    {
        const ssize_t written = write(fd, line.data() + done, line.size() - done);
        if (written > 0)
            done += static_cast<std::size_t>(written);
        else if (written < 0 && errno != EINTR)
            return;
    }
}

} // namespace

struct internal::ForkedChildRecord
{
    static void write(OrvaLogging& log, const int (&date)[6], int level, const std::string& text)
    {
        if (!log.m_oLogLock.testAndSet())
            return;
        std::string line;
        if (log.m_bPrefix && level != 0)
        {
            const int fields[8] = {date[0], date[1], date[2], date[3],
                                   date[4], date[5], level,   printableThreadId()};
            char prefix[128];
            line.assign(prefix,
                        std::min(formatPrefix(prefix, sizeof(prefix), fields, "Global"), sizeof(prefix) - 1));
        }
        line += text.c_str();
        line += '\n';
        if ((log.m_nTarget & c_nFileTarget) != 0 && log.m_pFile != nullptr)
            writeFully(fileno_unlocked(log.m_pFile), line);
        if ((log.m_nTarget & c_nStdoutTarget) != 0)
            writeFully(fileno_unlocked(stdout), line);
        log.m_oLogLock.unlock();
    }
};

internal::ForkedChildLog::ForkedChildLog() : m_bLogOn(OrvaLogging::isAccessAllowed()), m_anDate()
{
    if (!m_bLogOn)
        return;
    OrvaDateTime now;
    const int date[6] = {now.getYear(), now.getMonth() + 1, now.getDayOfMonth(),
                         now.getHour(), now.getMinute(),    now.getSecond()};
    std::copy(date, date + 6, m_anDate);
}

void internal::ForkedChildLog::write(int level, const std::string& text) const
{
    OrvaLogging* log = OrvaLogging::getInstance();
    if (m_bLogOn && OrvaLogging::isAccessAllowed() && log->getGlobalLogLevel() >= level)
        ForkedChildRecord::write(*log, m_anDate, level, text);
}

// ---------------------------------------------------------------------------
// Levels

void OrvaLogging::setLogLevel(const std::string& name, int level)
{
    if (level < -1 || level > 9)
        return;
    m_mapLogLevels[name] = level;
}

int OrvaLogging::getLogLevel(const std::string& name) const
{
    std::map<std::string, int>::const_iterator entry = m_mapLogLevels.find(name);
    return entry != m_mapLogLevels.end() ? entry->second : m_nLogLevel;
}

void OrvaLogging::setCurrentLevel(const std::string& name, int level)
{
    if (LogFastPath::keepsSilentLevel(*this, name, level))
    {
        beginRecordShield(this);
        return;
    }
    internal::runShielded(
        [&]
        {
            OrvaCriticalSection guard(m_oLogLock, true);
            beginRecordShield(this);
            if (level < -1)
                return;
            LogFastPath::setName(*this, name);
            internal::storeRelaxed(m_nCurrentLevel, level);
        });
}

void OrvaLogging::setCurrentLevel(int level)
{
    internal::runShielded([&] { setCurrentLevel(std::string(), level); });
}

// ---------------------------------------------------------------------------
// Targets and the file

void OrvaLogging::setTarget(int target)
{
    if (target == m_nTarget)
        return;
    stopLogging(target);
    m_nTarget = target;
    startLogging();
}

void OrvaLogging::startLogging()
{
    if ((m_nTarget & c_nFileTarget) != 0)
        openLogFile();
}

void OrvaLogging::stopLogging(int newTarget)
{
    if ((m_nTarget & c_nFileTarget) != 0 && (newTarget & c_nFileTarget) == 0 && m_pFile != nullptr)
    {
        fclose(m_pFile);
        m_pFile = nullptr;
    }
}

void OrvaLogging::openLogFile()
{
    if (m_pFile != nullptr)
        return;

    // The name is cut at its last dot, wherever it stands (also in a
    // directory part), and gets a random number and ".log".
    std::string name = m_sFileName;
    std::string::size_type dot = name.rfind('.');
    if (dot != std::string::npos)
        name.erase(dot);
    char number[16];
    snprintf(number, sizeof(number), "%d", rand());
    name += number;
    name += ".log";
    if (!name.empty() && name[0] == '"')
        name.erase(0, 1);

    fprintf(stderr, "OrvaLogging: Opening %s for logging...\n", name.c_str());
    m_pFile = fopen(name.c_str(), "w");
    if (m_pFile == nullptr)
    {
        int error = errno;
        fprintf(stderr, "OrvaLogging: Cannot open log file %s (%d)\n", name.c_str(), error);
    }
}

// ---------------------------------------------------------------------------
// The record watchdog

void OrvaLogging::resetTimer()
{
    if (m_bTimerIdle)
    {
        m_oRecordTimer.reset();
        internal::storeRelaxed(m_bTimerIdle, false);
    }
}

void OrvaLogging::cancelTimer()
{
    m_oRecordTimer.stop();
    internal::storeRelaxed(m_bTimerIdle, true);
}

void OrvaLogging::handleNotification(OrvaCollaborator&, const OrvaNotification&)
{
    // Runs on the timer's firing thread: hand the work to a thread of its own,
    // so that the timer is never held up by the log lock.
    OrvaLoggingEventTimerThread* thread = new OrvaLoggingEventTimerThread(this);
    thread->setMarkForDeath();
    internal::takeStartFailure();
    thread->start();
    // From here on the thread may already have deleted itself: do not touch
    // it, unless no thread came into being.
    if (internal::takeStartFailure())
        delete thread;
}

void OrvaLogging::timerElapsed()
{
    // Succeeds only when the record's owner is gone (cancelled, its locks
    // given back); then what it collected is written out.
    endrecord();
    OVKIT_LOG(
        9,
        "OrvaLogging::timerElapsed: called (NOTE: This message only appears and repeats when LogLevel = 9)");
}

// ---------------------------------------------------------------------------
// Module entry points: the log needs no start-up or clean-up of its own.

void OVKITInitOrvaLogging() {}

void OVKITFinitOrvaLogging() {}

} // namespace OrvaSupport
