#include <ovkit/OrvaProcess.h>

#include <ovkit/OrvaTimer.h>

#include "support/LogTestHelpers.h"
#include "support/ScratchDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace OrvaSupport;
using ovkit_test::ScratchDir;

namespace
{

const std::string c_sProbe = OVKIT_CHILD_PROBE_PATH;

struct Pipe
{
    Pipe() { EXPECT_EQ(pipe2(fds, O_CLOEXEC), 0); }
    ~Pipe()
    {
        closeRead();
        closeWrite();
    }
    void closeRead() { closeEnd(0); }
    void closeWrite() { closeEnd(1); }
    void closeEnd(int i)
    {
        if (fds[i] >= 0)
            close(fds[i]);
        fds[i] = -1;
    }
    std::string drain()
    {
        std::string text;
        char buffer[4096];
        for (ssize_t got; (got = read(fds[0], buffer, sizeof(buffer))) > 0;)
            text.append(buffer, static_cast<std::size_t>(got));
        return text;
    }
    int fds[2] = {-1, -1};
};

// Runs `commandLine` with its standard output into a pipe, waits, and gives
// back what it wrote; `status` gets the exit status.
std::string runCaptured(const std::string& commandLine, int& status)
{
    Pipe out;
    int processId = -77;
    EXPECT_TRUE(OrvaExecuteProgramEx(commandLine, -1, out.fds[1], true, &processId, &status));
    EXPECT_EQ(processId, -77) << "a wait leaves the process id alone";
    out.closeWrite();
    return out.drain();
}

} // namespace

TEST(OrvaProcessTest, ExitStatusesOfWaitedChildren)
{
    struct Case
    {
        std::string commandLine;
        int status;
    } cases[] = {
        {"/bin/sh -c \"exit 3\"", 3},
        {"/bin/sh -c \"exit 3\"\n", 3},
        {"/bin/sh -c \"kill -9 $$\"", 0}, // killed: reads as 0
        {"/no/such/program", 0},
        {"sh -c \"exit 3\"", 0}, // no PATH search
        {"", 0},
        {"\n", 0},
        {"  \"\" ", 0},
    };
    for (const Case& c : cases)
    {
        int status = -5;
        EXPECT_TRUE(OrvaExecuteProgram(c.commandLine, true, nullptr, &status)) << c.commandLine;
        EXPECT_EQ(status, c.status) << c.commandLine;
    }
    EXPECT_TRUE(OrvaExecuteProgram("/bin/true", true, nullptr, nullptr));
}

TEST(OrvaProcessTest, WithoutWaitGivesTheIdAndLeavesTheStatus)
{
    int processId = 0;
    int status = -5;
    ASSERT_TRUE(OrvaExecuteProgram("/bin/sh -c \"exit 4\"", false, &processId, &status));
    EXPECT_EQ(status, -5);
    int raw = 0;
    ASSERT_EQ(waitpid(processId, &raw, 0), processId) << "the child is the caller's to reap";
    EXPECT_EQ(WEXITSTATUS(raw), 4);
}

TEST(OrvaProcessTest, CommandLineSplittingAndTheDroppedLastByte)
{
    struct Case
    {
        std::string arguments;
        std::string output;
    } cases[] = {
        {" a  \"b c\" d\n", "a\nb c\nd\n"},
        {" a\tb", "a\tb\n"},
        {" x\"y z\"w", "xy zw\n"},
        {" a.", "a\n"},
        {" a/", "a\n"},
        {" \"a b\"", "a b\n"},
        {" a\n\n", "a\n\n"},
        {" \"\" a", "a\n"},
    };
    for (const Case& c : cases)
    {
        int status = -5;
        EXPECT_EQ(runCaptured(c_sProbe + c.arguments, status), c.output) << c.arguments;
        EXPECT_EQ(status, 0) << c.arguments;
    }
}

TEST(OrvaProcessTest, TwoHundredKilobytesThroughPipes)
{
    Pipe in;
    Pipe out;
    int processId = 0;
    ASSERT_TRUE(OrvaExecuteProgramEx("/bin/cat", in.fds[0], out.fds[1], false, &processId, nullptr));
    in.closeRead();
    out.closeWrite();
    std::string sent(200 * 1024, '\0');
    for (std::size_t i = 0; i < sent.size(); ++i)
        sent[i] = static_cast<char>(i * 7 % 251);
    std::thread writer(
        [&]
        {
            for (std::size_t done = 0; done < sent.size();)
            {
                const ssize_t n = write(in.fds[1], sent.data() + done, sent.size() - done);
                ASSERT_GT(n, 0);
                done += static_cast<std::size_t>(n);
            }
            in.closeWrite();
        });
    const std::string received = out.drain();
    writer.join();
    EXPECT_TRUE(received == sent) << received.size() << " bytes came back";
    int raw = -1;
    ASSERT_EQ(waitpid(processId, &raw, 0), processId);
    EXPECT_EQ(raw, 0);
}

TEST(OrvaProcessTest, ChildLogsAfterItsIdAndABadHandleEndsItQuietly)
{
    LogTest::FileLog file(9);
    OrvaLogging::setInstance(file.log);
    int status = -5;
    EXPECT_TRUE(OrvaExecuteProgramEx("/bin/true x", 987, -1, true, nullptr, &status));
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(OrvaExecuteProgramEx("/bin/true", -1, 987, true, nullptr, &status));
    const std::vector<std::string> lines = file.lines(true);
    auto at = [&](const std::string& text)
    { return std::find(lines.begin(), lines.end(), text) - lines.begin(); };
    const long end = static_cast<long>(lines.size());
    EXPECT_LT(at("OrvaExecuteProgram: child process id: 0"), at("OrvaExecuteProgram: argv[0] = /bin/true"));
    EXPECT_LT(at("OrvaExecuteProgram: argv[1] = x"), end);
    EXPECT_LT(at("OrvaExecuteProgram: could not duplicate requested standard input handle: "), end);
    EXPECT_LT(at("OrvaExecuteProgram: could not duplicate requested standard output handle: "), end);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "OrvaExecuteProgramEx: Execution Started."), 2);
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(),
                            [](const std::string& line)
                            { return line.find(" completed with status 0") != std::string::npos; }));
}

TEST(OrvaProcessTest, StartedProgramInheritsNoTimerAndNoBlockedSignal)
{
    // A running timer and a record of the child's own must not leave the
    // system timer armed, and a signal the caller blocks is not blocked there.
    LogTest::FileLog file(9);
    OrvaLogging::setInstance(file.log);
    OrvaTimer timer(5000, false);
    timer.reset();
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    int status = -5;
    EXPECT_EQ(runCaptured(c_sProbe, status), "");
    EXPECT_EQ(status, 0) << "1: interval timer armed, 2: a signal blocked";
}

TEST(OrvaProcessTest, CreateDirectoryWalksParentsAndTakesAnyExistingName)
{
    ScratchDir dir;
    const std::string d = dir.path();
    std::ofstream(dir.file("file")) << "x";
    struct Case
    {
        std::string path;
        bool result;
        std::string made; // a directory that must exist afterwards, if any
    } cases[] = {
        {d + "/a/b/c/", true, d + "/a/b/c"},
        {d + "/a", true, d + "/a"},
        {d + "/file", true, ""},
        {d + "/p/q\\r", true, d + "/p/q/r"},
        {d + "/file/x/y", false, ""},
        {"", false, ""},
        {d + "/" + std::string(5000, 'n') + "/x", false, ""},
    };
    for (const Case& c : cases)
    {
        EXPECT_EQ(OrvaCreateDirectory(c.path), c.result) << c.path.substr(0, 80);
        struct stat info;
        if (!c.made.empty())
        {
            EXPECT_TRUE(stat(c.made.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) << c.made;
        }
    }
    if (geteuid() != 0)
    {
        ASSERT_EQ(chmod(d.c_str(), 0555), 0);
        EXPECT_FALSE(OrvaCreateDirectory(d + "/new/deeper"));
        chmod(d.c_str(), 0755);
    }
}

TEST(OrvaProcessTest, RemoveDirectoryRoads)
{
    ScratchDir dir;
    const std::string d = dir.path();
    auto full = [&](const std::string& name)
    {
        OrvaCreateDirectory(d + "/" + name + "/sub");
        std::ofstream(d + "/" + name + "/sub/f") << "x";
        return d + "/" + name;
    };
    const std::string text = "OrvaRemoveDirectory: Could not remove the directory ";
    struct Case
    {
        std::string path;
        bool recursive;
        bool result;
        int code;         // 1234: untouched
        bool textTouched; // errorText set
    } cases[] = {
        {full("notdir") + "/sub/f", false, false, ENOTDIR, true}, // rmdir of a file
        {full("plain"), false, false, ENOTEMPTY, true},
        {full("deep"), true, true, 0, false},
        {d + "/missing", true, false, ENOENT, true},
    };
    OrvaCreateDirectory(d + "/bare");
    for (const Case& c : cases)
    {
        std::string errorText = "untouched";
        int code = 1234;
        EXPECT_EQ(OrvaRemoveDirectoryImpl(c.path, c.recursive, errorText, code), c.result) << c.path;
        EXPECT_EQ(code, c.code) << c.path;
        EXPECT_EQ(errorText, c.textTouched ? text + c.path : "untouched") << c.path;
    }
    std::string errorText = "untouched";
    int code = 1234;
    EXPECT_TRUE(OrvaRemoveDirectoryImpl(d + "/bare", true, errorText, code));
    EXPECT_EQ(code, 1234);
    EXPECT_NE(access((d + "/deep").c_str(), F_OK), 0);
    if (geteuid() != 0)
    {
        // rm empties sub but cannot take it out of a read-only parent.
        const std::string locked = full("locked");
        ASSERT_EQ(chmod(locked.c_str(), 0555), 0);
        EXPECT_FALSE(OrvaRemoveDirectoryImpl(locked, true, errorText, code));
        EXPECT_EQ(code, 1);
        EXPECT_EQ(errorText, text + locked);
        chmod(locked.c_str(), 0755);
    }
}

TEST(OrvaProcessTest, ErrorTexts)
{
    struct Case
    {
        int error;
        const char* text;
    } cases[] = {{ENOENT, "No such file or directory"},
                 {0, "Success"},
                 {4711, "Unknown error 4711"},
                 {-3, "Unknown error -3"}};
    for (const Case& c : cases)
    {
        std::string narrow = "old";
        std::wstring wide = L"old";
        OrvaGetOSErrorMessage(c.error, narrow);
        OrvaGetOSErrorMessage(c.error, wide);
        EXPECT_EQ(narrow, c.text);
        EXPECT_EQ(wide, std::wstring(narrow.begin(), narrow.end()));
    }
}
