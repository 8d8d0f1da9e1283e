// End-to-end runs of the example daemon, in the foreground and detached.
#include "support/Processes.h"
#include "support/ScratchDir.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <glob.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace
{

using ovkit_test::readFile;
using ovkit_test::waitFor;

struct Outcome
{
    int status = -1; // exit status; 124 when the run took longer than 30 seconds
    std::string out;
    std::string err;
};

// Runs a program to its end with both output streams captured in files (a
// daemon child inherits them, so pipes would stay open after the starter).
// The arguments are paths of the scratch directory and plain words: quoting
// each in single quotes is enough for the shell.
Outcome run(const std::string& dir, const std::vector<std::string>& args)
{
    std::string command = "timeout 30";
    for (const std::string& arg : args)
        command += " '" + arg + "'";
    const int status = std::system((command + " >" + dir + "/run.out 2>" + dir + "/run.err").c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(dir + "/run.out"),
            readFile(dir + "/run.err")};
}

int countOf(const std::string& text, const std::string& piece)
{
    int count = 0;
    for (size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + 1))
        ++count;
    return count;
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

// True once the process has ended (an unreaped zombie counts), within 20 seconds.
bool processGone(pid_t pid)
{
    return waitFor([pid] { return kill(pid, 0) != 0 || ovkit_test::taskState(pid, false) == 'Z'; });
}

class TickdTest : public ::testing::Test
{
protected:
    void SetUp() override { ovkit_test::writeFile(config(), "interval=1\nname=tickd\nticklevel=3\n"); }
    void TearDown() override
    {
        if (daemonPid() > 0)
            kill(daemonPid(), SIGKILL);
    }

    std::string config() const { return m_sDir + "/tickd.properties"; }
    std::string pidFile() const { return m_sDir + "/tickd.pid"; }
    std::vector<std::string> command(std::vector<std::string> extra) const
    {
        std::vector<std::string> args{OVKIT_TICKD_PATH, "-c", config(), "-l", m_sDir + "/tickd.log"};
        args.insert(args.end(), extra.begin(), extra.end());
        return args;
    }
    pid_t daemonPid() const { return std::atoi(readFile(pidFile()).c_str()); }

    ovkit_test::ScratchDir m_oScratch;
    const std::string m_sDir = m_oScratch.path();
};

} // namespace

TEST_F(TickdTest, ForegroundRunWritesTicksAndStopsItself)
{
    Outcome outcome = run(m_sDir, command({"-n", "3"}));
    EXPECT_EQ(0, outcome.status) << outcome.err;
    EXPECT_EQ(3, countOf(outcome.out, " 3 tickd      ["));
    EXPECT_NE(std::string::npos, outcome.out.find("] tick 3 at "));
    EXPECT_NE(std::string::npos, outcome.out.find("] stopped after 3 ticks"));
    EXPECT_NE(std::string::npos, outcome.err.find("OrvaLogging: Opening " + m_sDir + "/tickd"));

    std::string log = logFileIn(m_sDir);
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(3, countOf(readFile(log), "] tick "));
}

TEST_F(TickdTest, UnusableConfigurationFailsOnBothRoads)
{
    ovkit_test::writeFile(config(), "interval=soon\n");
    const struct
    {
        std::vector<std::string> args;
        int status;
        const char* error;
    } cases[] = {
        {command({}), 1, "interval must be a whole number"},
        {command({"-d"}), 1, "interval must be a whole number"},
        {{OVKIT_TICKD_PATH, "-c", m_sDir + "/none", "-l", m_sDir + "/tickd.log"},
         1,
         "cannot read the configuration file"},
        {{OVKIT_TICKD_PATH, "--verbose"}, 2, "Unrecognized option: --verbose"},
    };
    for (const auto& c : cases)
    {
        const Outcome outcome = run(m_sDir, c.args);
        EXPECT_EQ(c.status, outcome.status) << c.error;
        EXPECT_NE(std::string::npos, outcome.err.find(c.error)) << outcome.err;
    }
}

TEST_F(TickdTest, DaemonStartsDetachedTicksAndEndsOnTerm)
{
    Outcome starter = run(m_sDir, command({"-d", "-p", pidFile()}));
    ASSERT_EQ(0, starter.status) << starter.err;
    ASSERT_TRUE(waitFor([&] { return daemonPid() > 0; }));
    pid_t pid = daemonPid();
    EXPECT_NE(getpid(), getsid(pid)); // a session of its own
    struct stat pidFileStat = {};     // not world-writable, although the daemon runs with umask 0
    EXPECT_TRUE(stat(pidFile().c_str(), &pidFileStat) == 0 && (pidFileStat.st_mode & 0777) == 0644);

    std::string log = logFileIn(m_sDir);
    ASSERT_FALSE(log.empty());
    EXPECT_TRUE(waitFor([&] { return countOf(readFile(log), "] tick ") >= 2; }));
    EXPECT_TRUE(starter.out.empty()); // the daemon logs to its file only

    ASSERT_EQ(0, kill(pid, SIGTERM));
    EXPECT_TRUE(processGone(pid));
    EXPECT_NE(std::string::npos, readFile(log).find("] stopped after "));
}
