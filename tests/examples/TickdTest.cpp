// End-to-end runs of the example daemon, in the foreground and detached.
#include "support/ScratchDir.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <glob.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{

struct Outcome
{
    int status = -1; // exit status, or -1 when killed by a signal
    std::string out;
    std::string err;
};

std::string readAll(int fd)
{
    std::string text;
    char buffer[4096];
    ssize_t n;
    while ((n = read(fd, buffer, sizeof buffer)) > 0)
        text.append(buffer, static_cast<size_t>(n));
    return text;
}

// Runs a program to its end with both output streams captured in files (a
// daemon child inherits them, so pipes would stay open after the starter).
Outcome run(const std::string& dir, const std::vector<std::string>& args)
{
    const std::string outPath = dir + "/run.out", errPath = dir + "/run.err";
    pid_t pid = fork();
    if (pid == 0)
    {
        int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(out, 1);
        dup2(err, 2);
        std::vector<char*> argv;
        for (const std::string& arg : args)
            argv.push_back(const_cast<char*>(arg.c_str()));
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    Outcome outcome;
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    int out = open(outPath.c_str(), O_RDONLY), err = open(errPath.c_str(), O_RDONLY);
    outcome.out = readAll(out);
    outcome.err = readAll(err);
    close(out);
    close(err);
    return outcome;
}

int countOf(const std::string& text, const std::string& piece)
{
    int count = 0;
    for (size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + 1))
        ++count;
    return count;
}

std::string fileText(const std::string& path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// The one log file in `dir` (the log names it with a random number).
std::string logFileIn(const std::string& dir)
{
    glob_t found;
    std::string path;
    if (glob((dir + "/tickd*.log").c_str(), 0, nullptr, &found) == 0 && found.gl_pathc == 1)
        path = found.gl_pathv[0];
    globfree(&found);
    return path;
}

template <class Condition>
bool eventually(Condition condition, std::chrono::seconds limit = std::chrono::seconds(20))
{
    auto deadline = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < deadline)
    {
        if (condition())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return condition();
}

bool processGone(pid_t pid)
{
    if (kill(pid, 0) != 0)
        return true;
    // An unreaped zombie counts as gone.
    std::string stat = fileText("/proc/" + std::to_string(pid) + "/stat");
    size_t close = stat.rfind(')');
    return close != std::string::npos && stat.size() > close + 2 && stat[close + 2] == 'Z';
}

class Tickd : public ::testing::Test
{
protected:
    void SetUp() override { writeConfig("interval=1\nname=tickd\nticklevel=3\n"); }
    void TearDown() override
    {
        std::string pidText = fileText(pidFile());
        if (!pidText.empty())
            kill(std::atoi(pidText.c_str()), SIGKILL);
    }

    void writeConfig(const std::string& text) { std::ofstream(config()) << text; }
    std::string config() const { return m_sDir + "/tickd.properties"; }
    std::string pidFile() const { return m_sDir + "/tickd.pid"; }
    std::vector<std::string> command(std::vector<std::string> extra) const
    {
        std::vector<std::string> args{OVKIT_TICKD_PATH, "-c", config(), "-l", m_sDir + "/tickd.log"};
        args.insert(args.end(), extra.begin(), extra.end());
        return args;
    }
    pid_t daemonPid() const { return std::atoi(fileText(pidFile()).c_str()); }

    ovkit_test::ScratchDir m_oScratch;
    const std::string m_sDir = m_oScratch.path();
};

} // namespace

TEST_F(Tickd, ForegroundRunWritesTicksAndStopsItself)
{
    Outcome outcome = run(m_sDir, command({"-n", "3"}));
    EXPECT_EQ(0, outcome.status) << outcome.err;
    EXPECT_EQ(3, countOf(outcome.out, " 3 tickd      ["));
    EXPECT_NE(std::string::npos, outcome.out.find("] tick 3 at "));
    EXPECT_NE(std::string::npos, outcome.out.find("] stopped after 3 ticks"));
    EXPECT_NE(std::string::npos, outcome.err.find("OrvaLogging: Opening " + m_sDir + "/tickd"));

    std::string log = logFileIn(m_sDir);
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(3, countOf(fileText(log), "] tick "));
}

TEST_F(Tickd, UnusableConfigurationFailsOnBothRoads)
{
    writeConfig("interval=soon\n");
    Outcome foreground = run(m_sDir, command({}));
    EXPECT_EQ(1, foreground.status);
    EXPECT_NE(std::string::npos, foreground.err.find("interval must be a whole number"));

    Outcome daemon = run(m_sDir, command({"-d"}));
    EXPECT_EQ(1, daemon.status);
    EXPECT_NE(std::string::npos, daemon.err.find("interval must be a whole number"));

    Outcome missing = run(m_sDir, {OVKIT_TICKD_PATH, "-c", m_sDir + "/none", "-l", m_sDir + "/tickd.log"});
    EXPECT_EQ(1, missing.status);
    EXPECT_NE(std::string::npos, missing.err.find("cannot read the configuration file"));

    Outcome badOption = run(m_sDir, {OVKIT_TICKD_PATH, "--verbose"});
    EXPECT_EQ(2, badOption.status);
    EXPECT_NE(std::string::npos, badOption.err.find("Unrecognized option: --verbose"));
}

TEST_F(Tickd, DaemonStartsDetachedTicksAndEndsOnTerm)
{
    Outcome starter = run(m_sDir, command({"-d", "-p", pidFile()}));
    ASSERT_EQ(0, starter.status) << starter.err;
    ASSERT_TRUE(eventually([&] { return daemonPid() > 0; }));
    pid_t pid = daemonPid();
    EXPECT_NE(getpid(), getsid(pid)); // a session of its own

    std::string log = logFileIn(m_sDir);
    ASSERT_FALSE(log.empty());
    EXPECT_TRUE(eventually([&] { return countOf(fileText(log), "] tick ") >= 2; }));
    EXPECT_TRUE(starter.out.empty()); // the daemon logs to its file only

    ASSERT_EQ(0, kill(pid, SIGTERM));
    EXPECT_TRUE(eventually([&] { return processGone(pid); }));
    EXPECT_NE(std::string::npos, fileText(log).find("] stopped after "));
}

TEST_F(Tickd, DaemonRunsUnderStartStopDaemon)
{
    if (access("/sbin/start-stop-daemon", X_OK) != 0)
        GTEST_SKIP() << "start-stop-daemon is not installed";
    // The pid file keeps other tests' daemons of the same program out of the match.
    std::vector<std::string> start{
        "/sbin/start-stop-daemon", "--start", "--exec", OVKIT_TICKD_PATH, "--pidfile", pidFile(), "--"};
    for (const std::string& arg : command({"-d", "-p", pidFile()}))
        if (arg != OVKIT_TICKD_PATH)
            start.push_back(arg);
    Outcome started = run(m_sDir, start);
    ASSERT_EQ(0, started.status) << started.err;
    ASSERT_TRUE(eventually([&] { return daemonPid() > 0; }));
    pid_t pid = daemonPid();
    EXPECT_TRUE(eventually([&] { return countOf(fileText(logFileIn(m_sDir)), "] tick ") >= 1; }));

    Outcome stopped = run(m_sDir, {"/sbin/start-stop-daemon", "--stop", "--exec", OVKIT_TICKD_PATH,
                                   "--pidfile", pidFile(), "--retry", "10"});
    EXPECT_EQ(0, stopped.status) << stopped.err;
    EXPECT_TRUE(eventually([&] { return processGone(pid); }));
}
