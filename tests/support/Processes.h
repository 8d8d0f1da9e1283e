// Waiting with a deadline: on a condition, on the state of a task, and on the
// end of a child process; and a scenario run in a child process under a
// deadline, so that a deadlock or an abort fails the one test instead of
// wedging or killing the test program.
#ifndef OVKIT_TESTS_SUPPORT_PROCESSES_H
#define OVKIT_TESTS_SUPPORT_PROCESSES_H

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ovkit_test
{

/// Polls `condition` until it holds or `seconds` have passed: first every 100
/// microseconds, then less often, down to every 5 milliseconds.
template <class Condition>
bool waitFor(Condition condition, int seconds = 20)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    for (useconds_t pause = 100; !condition(); pause = pause < 5000 ? pause * 2 : pause)
    {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        usleep(pause);
    }
    return true;
}

inline pid_t currentTid()
{
    return static_cast<pid_t>(syscall(SYS_gettid));
}

/// Reads the start of a /proc file into `text` (`size` bytes with the
/// closing zero); an empty text if it cannot be read.
inline void readProcText(const char* path, char* text, std::size_t size)
{
    const int fd = open(path, O_RDONLY);
    const ssize_t length = fd < 0 ? 0 : read(fd, text, size - 1);
    if (fd >= 0)
        close(fd);
    text[length > 0 ? length : 0] = '\0';
}

/// The state letter of a thread of this process (R, S, Z, ...), or of the
/// process `tid` when `ofThisProcess` is false; X once it is gone.
inline char taskState(pid_t tid, bool ofThisProcess = true)
{
    char path[64], line[512];
    snprintf(path, sizeof path, ofThisProcess ? "/proc/self/task/%d/stat" : "/proc/%d/stat",
             static_cast<int>(tid));
    readProcText(path, line, sizeof line);
    const char* name = strrchr(line, ')'); // the state follows the name
    return name && name[1] == ' ' ? name[2] : 'X';
}

/// Reaps child `pid` into `status` within `seconds`; a child still running
/// then is killed, reaped, and false returned.
inline bool reapChild(pid_t pid, int seconds, int& status)
{
    pid_t done = 0;
    if (waitFor([&] { return (done = waitpid(pid, &status, WNOHANG)) != 0; }, seconds))
        return done == pid;
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
    return false;
}

/// Set in a child that leaves through exit() from the middle of a test: the
/// test framework's own objects are still alive then, which is no leak.
inline bool g_bLeavingMidTest = false;

/// Forks and runs `scenario`, which returns a failure text (empty on success),
/// in the child, and waits up to `seconds` for it. The child leaves with
/// _exit, or with exit(0) when `viaExit` is set, so that the static
/// destructors and the library's stop sequence run. A child still running at
/// the deadline is killed; one that dies of a signal (std::terminate raises
/// SIGABRT) fails as well.
template <class Scenario>
testing::AssertionResult runInChild(int seconds, Scenario scenario, bool viaExit = false)
{
    int channel[2];
    if (pipe2(channel, O_NONBLOCK) != 0) // other children may hold the writing end too
        return testing::AssertionFailure() << "pipe: " << strerror(errno);
    fflush(nullptr);
    const pid_t child = fork();
    if (child < 0)
        return testing::AssertionFailure() << "fork: " << strerror(errno);
    if (child == 0)
    {
        const std::string failure = scenario();
        if (!failure.empty())
        {
            (void)!write(channel[1], failure.data(), failure.size());
            _exit(1);
        }
        if (viaExit)
        {
            g_bLeavingMidTest = true;
            exit(0);
        }
        _exit(0);
    }
    close(channel[1]);
    int status = 0;
    const bool ended = reapChild(child, seconds, status);
    char text[512] = {};
    (void)!read(channel[0], text, sizeof text - 1);
    close(channel[0]);
    if (!ended)
        return testing::AssertionFailure()
               << "still running after " << seconds << " s (deadlocked?) " << text;
    if (WIFSIGNALED(status))
        return testing::AssertionFailure() << "died of signal " << WTERMSIG(status) << " ("
                                           << strsignal(WTERMSIG(status)) << ") " << text;
    if (WEXITSTATUS(status) != 0)
        return testing::AssertionFailure() << "exit status " << WEXITSTATUS(status) << ": " << text;
    return testing::AssertionSuccess();
}

/// True once the thread has left the process, or at least its user code (a
/// zombie), within five seconds.
inline bool threadGone(pid_t tid)
{
    return waitFor([tid] { return taskState(tid) == 'X' || taskState(tid) == 'Z'; }, 5);
}

} // namespace ovkit_test

#endif // OVKIT_TESTS_SUPPORT_PROCESSES_H
