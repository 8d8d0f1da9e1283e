// ovkit-tickd: an example daemon that logs one record per timer tick.
//
//     ovkit-tickd -c tickd.properties [-l LOGFILE] [-v LEVEL] [-n TICKS] [-p PIDFILE] [-d|--daemon]
//
// It walks the whole road of a tick: the command line, the log, the property
// file, the service frame (foreground, or a detached daemon with -d), a
// thread woken by a repeating timer, a log record per tick, and a stop on
// SIGTERM or SIGINT, or by itself after -n ticks.
#include "TickService.h"

#include <ovkit/OrvaException.h>
#include <ovkit/OrvaLogging.h>
#include <ovkit/OrvaProgramOptions.h>
#include <ovkit/OrvaProperties.h>

#include <cstdlib>
#include <iostream>

using namespace OrvaSupport;

namespace
{

const char* const kUsage =
    "usage: ovkit-tickd -c CONFIG [-l LOGFILE] [-v LEVEL] [-n TICKS] [-p PIDFILE] [-d|--daemon]\n"
    "  -c CONFIG   property file (interval, name, ticklevel, loglevel)\n"
    "  -l LOGFILE  log file name; a random number goes before \".log\" (default ovkit-tickd.log)\n"
    "  -v LEVEL    log level from -1 (off) to 9 (default 5)\n"
    "  -n TICKS    stop after this many ticks (default: run until SIGTERM or SIGINT)\n"
    "  -p PIDFILE  write the pid of the running service there\n"
    "  -d, --daemon  detach and run as a daemon; the starter exits 0 once the service is up\n";

struct CommandLine
{
    std::string configPath;
    std::string logFile = "ovkit-tickd.log";
    std::string pidFile;
    int logLevel = 5;
    long tickLimit = 0;
    bool daemon = false;
    bool help = false;
};

bool toNumber(const std::string& text, long low, long high, long& value)
{
    char* end = nullptr;
    long parsed = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || parsed < low || parsed > high)
        return false;
    value = parsed;
    return true;
}

// Returns false, with a message on standard error, for a line that cannot be used.
bool readCommandLine(int argc, char** argv, CommandLine& line)
{
    try
    {
        OrvaProgramOptions options(argc, argv, "c:l:v:n:p:dh", ":daemon:help:", false);
        const OrvaProperties<std::string>& values = options.getProperties();
        std::string text;
        line.help = values.getPropertyValue("h", text) || values.getPropertyValue("help", text);
        line.daemon = values.getPropertyValue("d", text) || values.getPropertyValue("daemon", text);
        values.getPropertyValue("c", line.configPath);
        values.getPropertyValue("l", line.logFile);
        values.getPropertyValue("p", line.pidFile);
        long number = 0;
        if (values.getPropertyValue("v", text))
        {
            if (!toNumber(text, -1, 9, number))
                throw OrvaException("-v takes a level from -1 to 9, not \"" + text + "\"", 0);
            line.logLevel = static_cast<int>(number);
        }
        if (values.getPropertyValue("n", text))
        {
            if (!toNumber(text, 0, 1000000000L, number))
                throw OrvaException("-n takes a number of ticks, not \"" + text + "\"", 0);
            line.tickLimit = number;
        }
        if (options.getArgumentCount() > 0)
            throw OrvaException("unexpected argument \"" + options.getArgument(0) + "\"", 0);
        if (!line.help && line.configPath.empty())
            throw OrvaException("no configuration file: give one with -c", 0);
    }
    catch (const OrvaException& failure)
    {
        std::cerr << "ovkit-tickd: " << failure.getText() << "\n" << kUsage;
        return false;
    }
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    CommandLine line;
    if (!readCommandLine(argc, argv, line))
        return 2;
    if (line.help)
    {
        std::cout << kUsage;
        return 0;
    }

    // The log: to the file, and to standard output in the foreground.
    OrvaLogging log(line.logFile, line.daemon ? 1 : 3, line.logLevel);
    OrvaLogging::setInstance(log);

    OrvaProperties<std::string> config(false);
    if (!config.loadPropertiesImpl(line.configPath, '='))
    {
        std::cerr << "ovkit-tickd: cannot read the configuration file " << line.configPath << std::endl;
        return 1;
    }

    tickd::TickService service(config, line.tickLimit, line.pidFile);
    bool done = service.start(line.configPath, line.daemon);
    return done ? 0 : 1;
}
