#include <ovkit/OrvaLogging.h>

#include <ovkit/OrvaDateTime.h>
#include <ovkit/OrvaException.h>
#include <ovkit/OrvaLocaleFactory.h>
#include <ovkit/OrvaLoggingTimer.h>
#include <ovkit/OrvaModule.h>
#include <ovkit/OrvaStringUtilities.h>

#include "log/LogMessage.h"
#include "sync/KillShield.h"
#include "threads/LibraryRuntime.h"

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <pthread.h>

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

} // namespace

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
    m_nLogLevel = level;
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
    internal::runShielded(
        [&]
        {
            if (getLogAccess())
                appendFormatted(format, value);
        });
    return *this;
}

OrvaLogging& OrvaLogging::operator<<(const char* text)
{
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
    internal::runShielded([&] { *this << std::string(text.data(), text.size()); });
    return *this;
}

OrvaLogging& OrvaLogging::operator<<(const std::wstring& text)
{
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
    internal::runShielded([&] { *this << std::wstring(text.data(), text.size()); });
    return *this;
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

    m_nCurrentLevel = c_nDefaultRecordLevel;
    m_sCurrentName.clear();
    m_oLogLock.unwind();
}

void OrvaLogging::writeRecord(const std::string& label, const std::string& text)
{
    char prefixBuffer[8192];
    prefixBuffer[0] = '\0';
    std::string longPrefix;
    const char* prefix = prefixBuffer;
    if (m_bPrefix && m_nCurrentLevel != 0)
    {
        OrvaDateTime now;
        auto format = [&](char* buffer, std::size_t size)
        {
            return snprintf(buffer, size, c_szPrefixFormat, now.getYear(), now.getMonth() + 1,
                            now.getDayOfMonth(), now.getHour(), now.getMinute(), now.getSecond(),
                            m_nCurrentLevel, label.c_str(), printableThreadId());
        };
        const int length = format(prefixBuffer, sizeof(prefixBuffer));
        if (length >= static_cast<int>(sizeof(prefixBuffer)))
        {
            // A label of several kilobytes: format again at full size rather than cut it.
            longPrefix.resize(static_cast<size_t>(length) + 1);
            format(&longPrefix[0], longPrefix.size());
            prefix = longPrefix.c_str();
        }
    }

    if ((m_nTarget & c_nFileTarget) != 0 && m_pFile != nullptr)
    {
        fprintf(m_pFile, "%s%s\n", prefix, text.c_str());
        fflush(m_pFile);
    }
    if ((m_nTarget & c_nStdoutTarget) != 0)
    {
        fprintf(stdout, "%s%s\n", prefix, text.c_str());
        fflush(stdout);
    }
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
    internal::runShielded(
        [&]
        {
            OrvaCriticalSection guard(m_oLogLock, true);
            beginRecordShield(this);
            if (level < -1)
                return;
            m_sCurrentName = name;
            m_nCurrentLevel = level;
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
        m_bTimerIdle = false;
    }
}

void OrvaLogging::cancelTimer()
{
    m_oRecordTimer.stop();
    m_bTimerIdle = true;
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
