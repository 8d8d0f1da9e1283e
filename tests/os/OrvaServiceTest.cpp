// The foreground and daemon roads of the service frame, and the one signal
// that reaches a service.
#include <ovkit/OrvaService.h>

#include <ovkit/OrvaLogging.h>

#include "support/Processes.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <initializer_list>
#include <poll.h>
#include <string>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <thread>

using namespace OrvaSupport;

namespace
{

// True when each of `signals` is handled by `handler`.
bool handledBy(void (*handler)(int), std::initializer_list<int> signals)
{
    struct sigaction action;
    for (int each : signals)
        if (sigaction(each, nullptr, &action) != 0 || action.sa_handler != handler)
            return false;
    return true;
}

// Journals what the frame calls, with the state at the call: "start(x)@1
// stop@2 ". When onStart succeeds and an action is set, it starts a thread
// that repeats the action until onStop has run: the stop event keeps no
// memory, so a stop that comes before start has begun to wait is lost and
// has to come again.
struct TestService : OrvaService
{
    explicit TestService(bool startResult = true, int reportFd = -1)
        : m_bStartResult(startResult), m_nReportFd(reportFd)
    {
    }
    ~TestService() override { endAction(); }

    bool onStart(const std::string& argument) override
    {
        m_sJournal += "start(" + argument + ")@" + std::to_string(state()) + " ";
        if (m_bStartResult && m_fnAction && !m_oThread.joinable())
            m_oThread = std::thread(
                [this]
                {
                    // A service that does not stop ends the process rather than hanging the test.
                    const auto actUnlessStopped = [this]
                    {
                        if (!m_bStopped)
                            m_fnAction(*this);
                        return m_bStopped.load();
                    };
                    if (!ovkit_test::waitFor(actUnlessStopped, 10))
                        std::abort();
                });
        report("");
        // A second call fails, so that a start that wrongly makes it cannot
        // block the thread that calls it.
        return m_bStartResult && m_sJournal.rfind("start") == 0;
    }
    void onStop() override
    {
        m_sJournal += "stop@" + std::to_string(state()) + " ";
        endAction();
    }
    void endAction()
    {
        m_bStopped = true;
        if (m_oThread.joinable())
            m_oThread.join();
    }

    // One line to the report descriptor, if any: the process id, what the
    // daemon road set up, the journal and `more`.
    void report(const std::string& more)
    {
        const mode_t mask = umask(0);
        umask(mask);
        char cwd[64] = "?";
        if (m_nReportFd >= 0 && getcwd(cwd, sizeof cwd))
            dprintf(m_nReportFd, "%d leader=%d cwd=%s umask=%o handlers=%d %s%s\n", getpid(),
                    getsid(0) == getpid(), cwd, mask,
                    handledBy(ControlHandler, {SIGINT, SIGTERM, SIGCHLD, SIGPIPE}), m_sJournal.c_str(),
                    more.c_str());
    }

    bool m_bStartResult;
    int m_nReportFd;
    std::string m_sJournal;
    std::function<void(TestService&)> m_fnAction;
    std::atomic<bool> m_bStopped{false};
    std::thread m_oThread;
};

} // namespace

TEST(OrvaServiceTest, ForegroundRunsUntilStoppedAndIgnoresAStartWhileRunning)
{
    // A failing onStart leaves the state and the signal handlers as they were;
    // serviceStopping does not count as running.
    for (int caught : {SIGINT, SIGTERM, SIGPIPE})
        signal(caught, SIG_IGN);
    TestService failing(false);
    failing.stop();
    EXPECT_FALSE(failing.start("x", false));
    EXPECT_EQ(failing.m_sJournal, "start(x)@2 ");
    EXPECT_EQ(failing.state(), OrvaService::serviceStopping);
    EXPECT_TRUE(handledBy(SIG_IGN, {SIGINT, SIGTERM, SIGPIPE}));

    OrvaLogging log("unused", 2, 9); // standard output only
    OrvaLogging::setInstance(log);
    testing::internal::CaptureStdout();
    TestService service;
    bool tried = false, again = false;
    service.m_fnAction = [&](TestService& running)
    {
        if (!tried && running.state() == OrvaService::serviceRunning)
        {
            tried = true;
            again = running.start("again", false); // returns at once, calls nothing
        }
        if (tried)
            running.stop();
    };
    EXPECT_TRUE(service.start("fg", false));
    const std::string output = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(again);
    EXPECT_EQ(service.m_sJournal, "start(fg)@1 stop@2 "); // not yet running in onStart
    EXPECT_EQ(service.state(), OrvaService::serviceStopped);
    EXPECT_TRUE(handledBy(ControlHandler, {SIGINT, SIGTERM, SIGPIPE}));
    const auto completed = output.find("OrvaService::start: service completed.");
    EXPECT_TRUE(completed != std::string::npos &&
                output.find("OrvaService::start: waiting for service to exit") < completed)
        << output;
}

namespace
{

// Only the first SIGINT or SIGTERM of a process reaches a service. That uses
// up the process, as ctest gives each test one of its own; in a shared one an
// earlier test's service shows that the signal may be spent already.
void expectFirstSignalStopsTheLatestServiceAndNothingAfter(int first)
{
    if (OrvaService::getService() != nullptr)
        GTEST_SKIP() << "needs a process of its own";
    const int other = first == SIGINT ? SIGTERM : SIGINT;
    TestService older;
    TestService latest;
    bool raised = false;
    latest.m_fnAction = [&](TestService& running)
    {
        if (raised)
            running.getEventObject().set(); // the stop may have come before the wait
        else if (handledBy(ControlHandler, {first}))
            raised = raise(first) == 0; // handled on this thread before raise returns
    };

    EXPECT_TRUE(latest.start("", false));
    EXPECT_EQ(latest.m_sJournal, "start()@1 stop@2 ");
    EXPECT_EQ(older.state(), OrvaService::serviceStopped);

    raise(other);
    raise(first);
    EXPECT_EQ(latest.state(), OrvaService::serviceStopped);
    TestService third;
    raise(other);
    EXPECT_EQ(third.state(), OrvaService::serviceStopped);
}

} // namespace

TEST(OrvaServiceTest, FirstInterruptStopsTheLatestServiceAndNothingAfter)
{
    expectFirstSignalStopsTheLatestServiceAndNothingAfter(SIGINT);
}

TEST(OrvaServiceTest, FirstTerminationRequestStopsTheLatestServiceAndNothingAfter)
{
    expectFirstSignalStopsTheLatestServiceAndNothingAfter(SIGTERM);
}

namespace
{

// A report line from `fd`, each byte waited for up to 10 seconds.
std::string readReport(int fd)
{
    std::string line;
    struct pollfd readable = {fd, POLLIN, 0};
    for (char c = 0; c != '\n' && poll(&readable, 1, 10000) == 1 && read(fd, &c, 1) == 1;)
        line += c;
    return line;
}

// The exit code of child `pid`; -1 when a signal ended it, or when it had to
// be killed because it did not end within 10 seconds.
int exitCode(pid_t pid)
{
    int status = 0;
    return ovkit_test::reapChild(pid, 10, status) && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace

TEST(OrvaServiceTest, DaemonStarterLeavesWithTheOutcomeOfOnStartInADetachedChild)
{
    // The test process becomes the subreaper of the daemon child, so that it
    // can reap it as well. A successful daemon stops itself only once the
    // starter has been reaped.
    ASSERT_EQ(0, prctl(PR_SET_CHILD_SUBREAPER, 1));
    for (bool succeeds : {true, false})
    {
        SCOPED_TRACE(succeeds ? "onStart true" : "onStart false");
        int reports[2], go[2];
        ASSERT_TRUE(pipe(reports) == 0 && pipe(go) == 0);
        const pid_t starter = fork();
        if (starter == 0)
        {
            close(reports[0]);
            close(go[1]);
            TestService service(succeeds, reports[1]);
            service.m_fnAction = [wait = go[0]](TestService& running)
            {
                char byte;
                while (read(wait, &byte, 1) > 0)
                {
                }
                running.stop();
            };
            const bool result = service.start("daemon", true);
            service.report("returned " + std::to_string(result) + "@" + std::to_string(service.state()));
            _exit(0); // in the daemon child only: the starter leaves inside start
        }
        close(reports[1]);
        close(go[0]);
        std::string started = readReport(reports[0]);
        EXPECT_EQ(exitCode(starter), succeeds ? 0 : 1);
        close(go[1]);
        std::string ended = readReport(reports[0]);
        close(reports[0]);
        const pid_t daemon = atoi(started.c_str());
        EXPECT_NE(daemon, starter);
        EXPECT_EQ(daemon > 0 && daemon != starter ? exitCode(daemon) : -1, 0);
        for (std::string* report : {&started, &ended})
            report->erase(0, report->find(' ') + 1);
        // A session of its own, the root directory, no umask, the handlers in
        // place, and already running in onStart.
        const std::string setUp = "leader=1 cwd=/ umask=0 handlers=1 start(daemon)@0 ";
        EXPECT_EQ(started, setUp + "\n");
        EXPECT_EQ(ended, setUp + (succeeds ? "stop@2 returned 1@1\n" : "returned 0@1\n"));
    }
}
