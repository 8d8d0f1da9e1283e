#include <ovkit/OrvaProcess.h>

#include <ovkit/OrvaTimer.h>

#include "support/LogTestHelpers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace OrvaSupport;

namespace
{

const std::string c_sProbe = OVKIT_CHILD_PROBE_PATH;

std::string drain(int fd)
{
    std::string text;
    char buffer[4096];
    for (ssize_t got; (got = read(fd, buffer, sizeof(buffer))) > 0;)
        text.append(buffer, static_cast<std::size_t>(got));
    close(fd);
    return text;
}

// Runs and waits for `commandLine` with its standard output into a pipe;
// gives back what it wrote, and its exit status in `status`.
std::string runCaptured(const std::string& commandLine, int& status)
{
    int out[2];
    pipe2(out, O_CLOEXEC);
    int processId = -7;
    EXPECT_TRUE(OrvaExecuteProgramEx(commandLine, -1, out[1], true, &processId, &status));
    EXPECT_EQ(processId, -7) << "a wait leaves the process id alone";
    close(out[1]);
    return drain(out[0]);
}

} // namespace

TEST(OrvaProcessTest, ExitStatuses)
{
    auto statusOf = [](const std::string& commandLine)
    {
        int status = -5;
        EXPECT_TRUE(OrvaExecuteProgram(commandLine, true, nullptr, &status)) << commandLine;
        return status;
    };
    EXPECT_EQ(statusOf("/bin/sh -c \"exit 3\""), 3);
    EXPECT_EQ(statusOf("/bin/sh -c \"exit 3\"\n"), 3);
    // Killed, not found, not a path, no words: all read as 0.
    for (const char* line :
         {"/bin/sh -c \"kill -9 $$\"", "/no/such/program", "sh -c \"exit 3\"", "", "\n", " \"\" "})
        EXPECT_EQ(statusOf(line), 0) << line;
}

TEST(OrvaProcessTest, CommandLineSplittingAndTheDroppedLastByte)
{
    const char* cases[][2] = {{" a  \"b c\" d\n", "[a][b c][d]"},
                              {" a\tb", "[a\tb]"},
                              {" x\"y z\"w", "[xy zw]"},
                              {" a.", "[a]"},
                              {" \"a b\"", "[a b]"},
                              {" a\n\n", "[a\n]"},
                              {" \"\" a/", "[a]"}};
    for (const auto& c : cases)
    {
        int status = -5;
        EXPECT_EQ(runCaptured(c_sProbe + c[0], status), c[1]) << c[0];
        EXPECT_EQ(status, 0) << c[0];
    }
}

TEST(OrvaProcessTest, TwoHundredKilobytesThroughPipesWithoutWaiting)
{
    int in[2], out[2];
    pipe2(in, O_CLOEXEC);
    pipe2(out, O_CLOEXEC);
    int processId = 0;
    int status = -5;
    ASSERT_TRUE(OrvaExecuteProgramEx("/bin/cat", in[0], out[1], false, &processId, &status));
    EXPECT_EQ(status, -5) << "no wait, no status";
    close(in[0]);
    close(out[1]);
    std::string sent;
    for (int i = 0; i < 200 * 1024; ++i)
        sent += static_cast<char>(i * 7 % 251);
    std::thread writer(
        [&]
        {
            EXPECT_EQ(write(in[1], sent.data(), sent.size()), static_cast<ssize_t>(sent.size()));
            close(in[1]);
        });
    const std::string received = drain(out[0]);
    writer.join();
    EXPECT_TRUE(received == sent) << received.size() << " bytes came back";
    ASSERT_EQ(waitpid(processId, &status, 0), processId) << "the child is the caller's to reap";
    EXPECT_EQ(status, 0);
}

TEST(OrvaProcessTest, ChildStartsCleanLogsAfterItsIdAndEndsQuietlyOnABadHandle)
{
    // A running timer and records of the child's own must leave no system
    // timer armed, and a signal the caller blocks is not blocked there.
    ovkit_test::FileLog file(9);
    OrvaLogging::setInstance(file.log);
    OrvaTimer timer(5000, false);
    timer.reset();
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    int status = -5;
    EXPECT_EQ(runCaptured(c_sProbe + " x", status), "[x]");
    EXPECT_EQ(status, 0) << "1: interval timer armed, 2: a signal blocked";
    EXPECT_TRUE(OrvaExecuteProgramEx("/bin/false", 987, -1, true, nullptr, &status));
    EXPECT_EQ(status, 0);

    const std::vector<std::string> lines = file.lines(true);
    auto at = [&](const std::string& text)
    { return std::find(lines.begin(), lines.end(), text) - lines.begin(); };
    EXPECT_LT(at("OrvaExecuteProgram: child process id: 0"), at("OrvaExecuteProgram: argv[0] = " + c_sProbe));
    const long end = static_cast<long>(lines.size());
    EXPECT_LT(at("OrvaExecuteProgram: argv[1] = x"), end);
    EXPECT_LT(at("OrvaExecuteProgram: could not duplicate requested standard input handle: "), end);
}

TEST(OrvaProcessTest, CreateAndRemoveDirectoriesAndTheirErrorTexts)
{
    ovkit_test::ScratchDir dir;
    const std::string d = dir.path() + "/";
    std::ofstream(d + "file") << "x";
    for (const char* path : {"a/b/c/", "a", "file", "p/q\\r"})
        EXPECT_TRUE(OrvaCreateDirectory(d + path)) << path;
    for (const std::string& path : {d + "file/x/y", std::string(), d + std::string(5000, 'n') + "/x"})
        EXPECT_FALSE(OrvaCreateDirectory(path)) << path.substr(0, 80);
    struct stat info;
    EXPECT_TRUE(stat((d + "p/q/r").c_str(), &info) == 0 && S_ISDIR(info.st_mode));
    std::ofstream(d + "a/b/c/f") << "x";

    const struct
    {
        const char* name;
        bool recursive;
        bool result;
        int code; // 1234: untouched
    } removes[] = {{"a/b/c/f", false, false, ENOTDIR},
                   {"a", false, false, ENOTEMPTY},
                   {"p/q/r", true, true, 1234},
                   {"a", true, true, 0},
                   {"missing", true, false, ENOENT}};
    for (const auto& r : removes)
    {
        std::string errorText = "untouched";
        int errorCode = 1234;
        EXPECT_EQ(OrvaRemoveDirectoryImpl(d + r.name, r.recursive, errorText, errorCode), r.result) << r.name;
        EXPECT_EQ(errorCode, r.code) << r.name;
        EXPECT_EQ(errorText, r.result ? "untouched"
                                      : "OrvaRemoveDirectory: Could not remove the directory " + d + r.name);
    }
    EXPECT_NE(access((d + "a").c_str(), F_OK), 0);
    std::string text;
    std::wstring wide;
    OrvaGetOSErrorMessage(ENOTEMPTY, text);
    OrvaGetOSErrorMessage(4711, wide);
    EXPECT_EQ(text + " / " + std::string(wide.begin(), wide.end()),
              "Directory not empty / Unknown error 4711");

    if (geteuid() != 0) // root writes everywhere
    {
        OrvaCreateDirectory(d + "locked/sub");
        std::ofstream(d + "locked/sub/f") << "x";
        chmod((d + "locked").c_str(), 0555);
        EXPECT_FALSE(OrvaCreateDirectory(d + "locked/new/deeper"));
        std::string errorText;
        int errorCode = 0;
        EXPECT_FALSE(
            OrvaRemoveDirectoryImpl(d + "locked", true, errorText, errorCode)); // rm cannot take out sub
        EXPECT_EQ(errorCode, 1);
        chmod((d + "locked").c_str(), 0755);
    }
}
