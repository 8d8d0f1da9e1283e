#include "TickService.h"

#include <ovkit/OrvaDateTime.h>
#include <ovkit/OrvaLogging.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <iostream>
#include <sys/stat.h>
#include <unistd.h>

using namespace OrvaSupport;

namespace tickd
{

namespace
{

// A whole number within [low, high], or false.
bool parseNumber(const std::string& text, long low, long high, long& value)
{
    if (text.empty())
        return false;
    char* end = nullptr;
    long parsed = std::strtol(text.c_str(), &end, 10);
    if (*end != '\0' || parsed < low || parsed > high)
        return false;
    value = parsed;
    return true;
}

bool readNumber(const OrvaProperties<std::string>& config, const std::string& key, long low, long high,
                long& value, std::string& error)
{
    std::string text;
    if (!config.getPropertyValue(key, text))
        return true; // not given: keep the default
    if (parseNumber(text, low, high, value))
        return true;
    error = key + " must be a whole number from " + std::to_string(low) + " to " + std::to_string(high) +
            ", not \"" + text + "\"";
    return false;
}

// The calling form of every record: nothing is formatted unless the log
// would take it.
bool logWants(int level)
{
    return OrvaLogging::isAccessAllowed() && OrvaLogging::getInstance()->getGlobalLogLevel() >= level;
}

} // namespace

bool readSettings(const OrvaProperties<std::string>& config, TickSettings& settings, std::string& error)
{
    long tickLevel = settings.tickLevel;
    long logLevel = settings.logLevel;
    if (!readNumber(config, "interval", 1, 86400, settings.intervalSeconds, error) ||
        !readNumber(config, "ticklevel", 1, 9, tickLevel, error) ||
        !readNumber(config, "loglevel", -1, 9, logLevel, error))
        return false;
    settings.tickLevel = static_cast<int>(tickLevel);
    settings.logLevel = static_cast<int>(logLevel);
    config.getPropertyValue("name", settings.name);
    if (settings.name.empty())
    {
        error = "name must not be empty";
        return false;
    }
    return true;
}

int TickThread::run()
{
    while (m_rService.timer().wait(-1) == 0 && m_rService.tick())
    {
    }
    return 0;
}

TickService::TickService(const OrvaProperties<std::string>& config, long tickLimit, std::string pidFile)
    : m_rConfig(config), m_nTickLimit(tickLimit), m_sPidFile(std::move(pidFile)), m_oThread(*this)
{
}

TickService::~TickService()
{
    // The thread's own destructor would wait for it: make sure it ends.
    m_bStopping = true;
    m_oTimer.set();
}

bool TickService::onStart(const std::string& configPath)
{
    std::string error;
    if (!readSettings(m_rConfig, m_oSettings, error))
    {
        std::cerr << "ovkit-tickd: " << configPath << ": " << error << std::endl;
        return false;
    }
    if (m_oSettings.logLevel != -2 && OrvaLogging::getInstance())
        OrvaLogging::getInstance()->setGlobalLogLevel(m_oSettings.logLevel);
    if (!m_sPidFile.empty())
    {
        // The daemon runs with umask 0: give the file its mode explicitly, so
        // that it is not world-writable (start-stop-daemon refuses such files).
        int fd = open(m_sPidFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (fd < 0)
        {
            std::cerr << "ovkit-tickd: cannot write the pid file " << m_sPidFile << std::endl;
            return false;
        }
        fchmod(fd, 0644);
        std::string pid = std::to_string(getpid()) + "\n";
        bool written = write(fd, pid.data(), pid.size()) == static_cast<ssize_t>(pid.size());
        close(fd);
        if (!written)
        {
            std::cerr << "ovkit-tickd: cannot write the pid file " << m_sPidFile << std::endl;
            return false;
        }
    }
    if (logWants(1))
        *OrvaLogging::getInstance() << setloglevel(m_oSettings.name, 1) << "started: one tick every "
                                    << m_oSettings.intervalSeconds << " s" << endrecord;
    // The tick thread leaves SIGTERM and SIGINT to the other threads: their
    // handler stops the service, and that is best done away from a thread
    // that may be in the middle of a record.
    sigset_t stopSignals, previous;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stopSignals, &previous);
    m_oThread.start();
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    m_oTimer.start(m_oSettings.intervalSeconds, 0, false);
    return true;
}

void TickService::onStop()
{
    m_bStopping = true;
    // The timer goes on until the thread has seen the flag: a set() that
    // finds the thread busy is lost, the next tick is not.
    m_oTimer.set();
    m_oThread.waitForThreadExit();
    m_oTimer.stop();
    if (logWants(1))
        *OrvaLogging::getInstance() << setloglevel(m_oSettings.name, 1) << "stopped after " << m_nTicks
                                    << " ticks" << endrecord;
    if (!m_sPidFile.empty())
        unlink(m_sPidFile.c_str());
}

bool TickService::tick()
{
    if (m_bStopping)
        return false;
    ++m_nTicks;
    if (logWants(m_oSettings.tickLevel))
    {
        OrvaDateTime now;
        char time[16];
        std::snprintf(time, sizeof time, "%02d:%02d:%02d", now.getHour(), now.getMinute(), now.getSecond());
        *OrvaLogging::getInstance() << setloglevel(m_oSettings.name, m_oSettings.tickLevel) << "tick "
                                    << m_nTicks << " at " << time << endrecord;
    }
    if (m_nTickLimit > 0 && m_nTicks >= m_nTickLimit)
    {
        stop();
        return false;
    }
    return true;
}

} // namespace tickd
