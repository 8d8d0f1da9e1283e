#include <ovkit/OrvaService.h>

#include <ovkit/OrvaLogging.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <poll.h>
#include <string>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace OrvaSupport;
using namespace std::chrono_literals;

namespace
{

bool handlerIs(int signal, void (*handler)(int))
{
    struct sigaction action;
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == handler;
}

// What a daemon child tells the test, one record per write (atomic on a pipe).
struct Record
{
    char kind = 0; // 'S' in onStart, 'E' once start has returned
    int pid = 0;
    int sid = 0;
    int state = -1;
    int stops = 0;
    bool result = false;
    bool handlers = false; // ControlHandler on SIGINT, SIGTERM, SIGCHLD and SIGPIPE
    unsigned mask = 0;
    char cwd[64] = {};
};

// Records what the frame does to it. When onStart succeeds and an action is
// set, it starts a thread that repeats the action until onStop has run: the
// stop event keeps no memory, so a stop that comes before start has begun to
// wait is lost and has to come again.
class TestService : public OrvaService
{
public:
    explicit TestService(bool startResult = true, int reportFd = -1)
        : m_bStartResult(startResult), m_nReportFd(reportFd)
    {
    }
    ~TestService() override
    {
        m_bStopped = true;
        if (m_oThread.joinable())
            m_oThread.join();
    }

    bool onStart(const std::string& argument) override
    {
        ++m_nStarts;
        m_sArgument = argument;
        m_eStateInOnStart = state();
        if (m_bStartResult && m_fnAction && !m_oThread.joinable())
            m_oThread = std::thread([this] { repeatActionUntilStopped(); });
        report('S');
        // A second call fails, so that a start that wrongly makes it cannot
        // block the thread that calls it.
        return m_bStartResult && m_nStarts == 1;
    }
    void onStop() override
    {
        ++m_nStops;
        m_eStateInOnStop = state();
        m_bStopped = true;
        m_oThread.join();
    }

    void report(char kind, bool result = false)
    {
        if (m_nReportFd < 0)
            return;
        Record record;
        record.kind = kind;
        record.pid = getpid();
        record.sid = getsid(0);
        record.state = state();
        record.stops = m_nStops;
        record.result = result;
        record.handlers = handlerIs(SIGINT, ControlHandler) && handlerIs(SIGTERM, ControlHandler) &&
                          handlerIs(SIGCHLD, ControlHandler) && handlerIs(SIGPIPE, ControlHandler);
        record.mask = umask(0);
        umask(record.mask);
        if (getcwd(record.cwd, sizeof(record.cwd)) == nullptr)
            record.cwd[0] = '\0';
        (void)!write(m_nReportFd, &record, sizeof(record));
    }

    std::function<void(TestService&)> m_fnAction;
    int m_nStarts = 0;
    int m_nStops = 0;
    std::string m_sArgument;
    t_ServiceState m_eStateInOnStart = serviceStopping;
    t_ServiceState m_eStateInOnStop = serviceRunning;

private:
    void repeatActionUntilStopped()
    {
        const auto deadline = std::chrono::steady_clock::now() + 10s;
        while (!m_bStopped)
        {
            if (std::chrono::steady_clock::now() > deadline)
            {
                std::fputs("TestService: the service did not stop\n", stderr);
                std::abort();
            }
            m_fnAction(*this);
            std::this_thread::sleep_for(1ms);
        }
    }

    bool m_bStartResult;
    int m_nReportFd;
    std::atomic<bool> m_bStopped{false};
    std::thread m_oThread;
};

} // namespace

TEST(OrvaServiceTest, ForegroundRunsUntilStoppedAndIgnoresAStartWhileRunning)
{
    OrvaLogging log("unused", 2, 9); // standard output only
    OrvaLogging::setInstance(log);
    testing::internal::CaptureStdout();
    TestService service;
    bool tried = false;
    bool again = false;
    service.m_fnAction = [&](TestService& running)
    {
        if (!tried)
        {
            if (running.state() != OrvaService::serviceRunning)
                return;
            tried = true;
            again = running.start("again", false); // returns at once, calls nothing
        }
        running.stop();
    };

    EXPECT_TRUE(service.start("fg-argument", false));
    const std::string output = testing::internal::GetCapturedStdout();

    EXPECT_TRUE(again);
    EXPECT_EQ(service.m_nStarts, 1);
    EXPECT_EQ(service.m_sArgument, "fg-argument");
    EXPECT_EQ(service.m_eStateInOnStart, OrvaService::serviceStopped); // not running yet
    EXPECT_EQ(service.m_nStops, 1);
    EXPECT_EQ(service.m_eStateInOnStop, OrvaService::serviceStopping);
    EXPECT_EQ(service.state(), OrvaService::serviceStopped);
    for (int caught : {SIGINT, SIGTERM, SIGPIPE})
        EXPECT_TRUE(handlerIs(caught, ControlHandler)) << caught;
    const auto waiting = output.find("OrvaService::start: waiting for service to exit");
    const auto completed = output.find("OrvaService::start: service completed.");
    EXPECT_NE(completed, std::string::npos) << output;
    EXPECT_LT(waiting, completed) << output;
}

TEST(OrvaServiceTest, ForegroundStartThatFailsLeavesStateAndSignalsAlone)
{
    for (int caught : {SIGINT, SIGTERM, SIGPIPE})
        signal(caught, SIG_IGN);
    TestService service(false);
    service.stop(); // serviceStopping does not count as running, and has to stay

    EXPECT_FALSE(service.start("x", false));
    EXPECT_EQ(service.m_nStarts, 1);
    EXPECT_EQ(service.m_nStops, 0);
    EXPECT_EQ(service.state(), OrvaService::serviceStopping);
    for (int caught : {SIGINT, SIGTERM, SIGPIPE})
        EXPECT_TRUE(handlerIs(caught, SIG_IGN)) << caught;
}

class OrvaServiceSignalTest : public testing::TestWithParam<int>
{
};

// Only the first SIGINT or SIGTERM of a process reaches a service. That uses
// up the process, as ctest gives each test one of its own; in a shared one an
// earlier test's service shows that the signal may be spent already.
TEST_P(OrvaServiceSignalTest, FirstSignalStopsTheLatestServiceAndNothingAfter)
{
    if (OrvaService::getService() != nullptr)
        GTEST_SKIP() << "needs a process of its own";
    const int first = GetParam();
    const int other = first == SIGINT ? SIGTERM : SIGINT;
    TestService older;
    TestService latest;
    bool raised = false;
    latest.m_fnAction = [&](TestService& running)
    {
        if (raised)
            running.getEventObject().set(); // the stop may have come before the wait
        else if (handlerIs(first, ControlHandler))
            raised = raise(first) == 0; // handled on this thread before raise returns
    };

    EXPECT_TRUE(latest.start("", false));
    EXPECT_EQ(latest.m_eStateInOnStop, OrvaService::serviceStopping);
    EXPECT_EQ(older.state(), OrvaService::serviceStopped);

    raise(other);
    raise(first);
    EXPECT_EQ(latest.state(), OrvaService::serviceStopped);
    TestService third;
    raise(other);
    EXPECT_EQ(third.state(), OrvaService::serviceStopped);
}

INSTANTIATE_TEST_SUITE_P(Signals, OrvaServiceSignalTest, testing::Values(SIGINT, SIGTERM),
                         [](const testing::TestParamInfo<int>& info)
                         { return std::string(info.param == SIGINT ? "Interrupt" : "Terminate"); });

namespace
{

bool readRecord(int fd, Record& record)
{
    struct pollfd readable = {fd, POLLIN, 0};
    return poll(&readable, 1, 10000) == 1 && read(fd, &record, sizeof(record)) == sizeof(record);
}

// The exit code of child `pid`; -1 when a signal ended it, or when it had to
// be killed because it did not end within 10 seconds.
int exitCode(pid_t pid)
{
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    int status = 0;
    pid_t reaped = 0;
    while ((reaped = waitpid(pid, &status, WNOHANG)) == 0)
    {
        if (std::chrono::steady_clock::now() > deadline)
        {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            return -1;
        }
        std::this_thread::sleep_for(1ms);
    }
    return reaped == pid && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

struct DaemonRun
{
    pid_t starter = -1;
    int starterExit = -1;
    int daemonExit = -1;
    Record started;
    Record ended;
};

// Forks a starter process that calls start("daemon", true). The test process
// becomes the subreaper of the daemon child, so that it can reap it as well.
// A successful daemon stops itself only once the starter has been reaped.
DaemonRun runDaemon(bool startResult)
{
    DaemonRun run;
    int records[2];
    int go[2];
    if (prctl(PR_SET_CHILD_SUBREAPER, 1) != 0 || pipe(records) != 0 || pipe(go) != 0)
        return run;
    run.starter = fork();
    if (run.starter == 0)
    {
        close(records[0]);
        close(go[1]);
        TestService service(startResult, records[1]);
        service.m_fnAction = [wait = go[0]](TestService& running)
        {
            char byte;
            while (read(wait, &byte, 1) > 0)
            {
            }
            running.stop();
        };
        const bool result = service.start("daemon", true);
        service.report('E', result); // in the daemon child only
        _exit(0);
    }
    close(records[1]);
    close(go[0]);
    readRecord(records[0], run.started);
    run.starterExit = exitCode(run.starter);
    close(go[1]);
    readRecord(records[0], run.ended);
    if (run.started.pid > 0 && run.started.pid != run.starter)
        run.daemonExit = exitCode(run.started.pid);
    close(records[0]);
    return run;
}

} // namespace

TEST(OrvaServiceDaemonTest, StarterLeavesWithTheOutcomeOfOnStartInADetachedChild)
{
    for (bool succeeds : {true, false})
    {
        SCOPED_TRACE(succeeds ? "onStart true" : "onStart false");
        const DaemonRun run = runDaemon(succeeds);
        EXPECT_EQ(run.starterExit, succeeds ? 0 : 1);

        EXPECT_EQ(run.started.kind, 'S');
        EXPECT_NE(run.started.pid, run.starter);
        EXPECT_EQ(run.started.sid, run.started.pid); // a session of its own
        EXPECT_STREQ(run.started.cwd, "/");
        EXPECT_EQ(run.started.mask, 0u);
        EXPECT_TRUE(run.started.handlers);
        EXPECT_EQ(run.started.state, OrvaService::serviceRunning);

        EXPECT_EQ(run.ended.kind, 'E');
        EXPECT_EQ(run.ended.result, succeeds);
        EXPECT_EQ(run.ended.stops, succeeds ? 1 : 0);
        EXPECT_EQ(run.ended.state, OrvaService::serviceStopped);
        EXPECT_EQ(run.daemonExit, 0);
    }
}
