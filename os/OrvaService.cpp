#include <ovkit/OrvaService.h>

#include "log/LogMessage.h"
#include "sync/AtomicField.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <poll.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace OrvaSupport
{

OrvaService* OrvaService::m_pThis = nullptr;

namespace
{

// Set by the first SIGINT or SIGTERM that reaches a service, and never
// cleared: one stop by signal per process.
bool s_bControlSignalHandled = false;

// What the starting process reports when the child ended without writing its
// outcome (the read then gets no bytes): the daemon did not come up.
const std::int32_t c_nNoReportStatus = 1;
const std::int32_t c_nReportTimedOut = -3;
const std::int32_t c_nReportWaitFailed = -4;
const long c_nReportTimeoutSeconds = 60;
const useconds_t c_nStopPauseMicroseconds = 10000;

// Waits until the descriptor is readable (or closed), at most `milliseconds`
// in all: 1 readable, 0 timed out, -1 failed. A signal that interrupts the
// wait (the library's own threads send some) does not end it.
int waitReadable(int fd, long milliseconds)
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    const long long deadline = now.tv_sec * 1000LL + now.tv_nsec / 1000000 + milliseconds;
    for (;;)
    {
        clock_gettime(CLOCK_MONOTONIC, &now);
        const long long left = deadline - (now.tv_sec * 1000LL + now.tv_nsec / 1000000);
        if (left <= 0)
            return 0;
        pollfd watched = {fd, POLLIN, 0};
        const int ready = poll(&watched, 1, static_cast<int>(left));
        if (ready > 0)
            return 1;
        if (ready == 0)
            return 0;
        if (errno != EINTR)
            return -1;
    }
}

// The starting process's side of the start pipe: waits for the child's
// report and leaves with it, so that nothing of the process's own clean-up
// (destructors, static or otherwise) runs here.
[[noreturn]] void exitWithDaemonReport(int readFd)
{
    std::int32_t status = c_nNoReportStatus;
    const int ready = waitReadable(readFd, c_nReportTimeoutSeconds * 1000);
    if (ready > 0)
    {
        // The count is not looked at: a child that died before reporting
        // closed the pipe, the read gets nothing, and the status stays as set.
        const ssize_t got = read(readFd, &status, sizeof(status));
        (void)got;
    }
    else if (ready == 0)
    {
        status = c_nReportTimedOut;
    }
    else
    {
        status = c_nReportWaitFailed;
    }
    close(readFd);
    _exit(status);
}

// The child's side: the outcome of onStart, as 4 bytes in host order.
void writeDaemonReport(int writeFd, std::int32_t status)
{
    const ssize_t written = write(writeFd, &status, sizeof(status));
    (void)written;
    close(writeFd);
}

} // namespace

OrvaService::OrvaService() : m_bDaemon(false), m_bOption(false), m_nState(serviceStopped)
{
    m_pThis = this;
}

OrvaService::OrvaService(bool option, const std::string& fourth)
    : m_sFourthName(fourth), m_bDaemon(false), m_bOption(option), m_nState(serviceStopped)
{
    m_pThis = this;
}

OrvaService::OrvaService(const std::string& first, const std::string& serviceName, const std::string& third,
                         const std::string& fourth, bool option)
    : m_sFirstName(first), m_sServiceName(serviceName), m_sThirdName(third), m_sFourthName(fourth),
      m_bDaemon(false), m_bOption(option), m_nState(serviceStopped)
{
    m_pThis = this;
}

OrvaService::~OrvaService() {}

bool OrvaService::start(const std::string& argument, bool daemon)
{
    if (state() == serviceRunning)
        return true;

    const bool bResult = daemon ? startAsDaemon(argument) : startInForeground(argument);

    OVKIT_LOG(9, "OrvaService::start: exiting");
    return bResult;
}

bool OrvaService::startInForeground(const std::string& argument)
{
    if (!onStart(argument))
        return false;

    internal::storeRelaxed(m_nState, serviceRunning);
    signal(SIGINT, ControlHandler);
    signal(SIGTERM, ControlHandler);
    signal(SIGPIPE, ControlHandler);

    OVKIT_LOG(9, "OrvaService::start: waiting for service to exit");
    m_oStopEvent.wait(-1);
    OVKIT_LOG(9, "OrvaService::start: service completed.");

    onStop();
    internal::storeRelaxed(m_nState, serviceStopped);
    return true;
}

bool OrvaService::startAsDaemon(const std::string& argument)
{
    m_bDaemon = true;

    int startPipe[2];
    if (pipe(startPipe) != 0)
        return false;

    const pid_t child = fork();
    if (child < 0)
    {
        close(startPipe[0]);
        close(startPipe[1]);
        return false;
    }
    if (child > 0)
    {
        close(startPipe[1]);
        exitWithDaemonReport(startPipe[0]);
    }

    close(startPipe[0]);
    return runDaemonChild(argument, startPipe[1]);
}

bool OrvaService::runDaemonChild(const std::string& argument, int reportFd)
{
    setsid();
    if (chdir("/") != 0)
    {
        // Nothing to be done about it; the service runs where it is.
    }
    umask(0);
    signal(SIGINT, ControlHandler);
    signal(SIGTERM, ControlHandler);
    signal(SIGCHLD, ControlHandler);
    signal(SIGPIPE, ControlHandler);

    OVKIT_LOG(9, "OrvaService::start: waiting for service to exit");
    internal::storeRelaxed(m_nState, serviceRunning);

    if (!onStart(argument))
    {
        writeDaemonReport(reportFd, 1);
        internal::storeRelaxed(m_nState, serviceStopped);
        return false;
    }

    // The report goes out before the wait, so that the starting process is
    // gone as soon as the work is up.
    writeDaemonReport(reportFd, 0);
    m_oStopEvent.wait(-1);
    usleep(c_nStopPauseMicroseconds);
    onStop();
    internal::storeRelaxed(m_nState, serviceStopped);
    return true;
}

bool OrvaService::stop()
{
    OVKIT_LOG(9, "OrvaService::stop: entering");
    internal::storeRelaxed(m_nState, serviceStopping);
    getEventObject().set();
    OVKIT_LOG(9, "OrvaService::stop: exiting");
    return true;
}

bool OrvaService::install()
{
    return true;
}

bool OrvaService::remove()
{
    return true;
}

std::string OrvaService::serviceName() const
{
    return m_sServiceName;
}

OrvaService::t_ServiceState OrvaService::state() const
{
    return internal::loadRelaxed(m_nState);
}

OrvaEvent& OrvaService::getEventObject()
{
    return m_oStopEvent;
}

OrvaService* OrvaService::getService()
{
    return m_pThis;
}

void ControlHandler(int signal)
{
    if (signal != SIGINT && signal != SIGTERM)
        return;
    if (s_bControlSignalHandled)
        return;
    OrvaService* pService = OrvaService::getService();
    if (pService == nullptr)
        return;

    const int savedErrno = errno;
    s_bControlSignalHandled = true;
    pService->stop();
    errno = savedErrno;
}

} // namespace OrvaSupport
