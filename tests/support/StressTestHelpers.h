// Helpers for the stress tests: a scenario run in a child process under a
// deadline, so that a deadlock or an abort fails the one test instead of
// wedging or killing the test program, and probes of a thread by its kernel id.
#ifndef OVKIT_TESTS_SUPPORT_STRESSTESTHELPERS_H
#define OVKIT_TESTS_SUPPORT_STRESSTESTHELPERS_H

#include "support/ThreadTestHelpers.h"

#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <sys/wait.h>

namespace ovkit_test
{

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
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    int status = 0;
    pid_t done = 0;
    while ((done = waitpid(child, &status, WNOHANG)) <= 0 && std::chrono::steady_clock::now() < deadline)
        usleep(2000);
    char text[512] = {};
    if (done <= 0)
    {
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
    }
    (void)!read(channel[0], text, sizeof text - 1);
    close(channel[0]);
    if (done <= 0)
        return testing::AssertionFailure()
               << "still running after " << seconds << " s (deadlocked?) " << text;
    if (WIFSIGNALED(status))
        return testing::AssertionFailure() << "died of signal " << WTERMSIG(status) << " ("
                                           << strsignal(WTERMSIG(status)) << ") " << text;
    if (WEXITSTATUS(status) != 0)
        return testing::AssertionFailure() << "exit status " << WEXITSTATUS(status) << ": " << text;
    return testing::AssertionSuccess();
}

inline pid_t currentTid()
{
    return static_cast<pid_t>(syscall(SYS_gettid));
}

/// Polls `condition` every 100 microseconds for at most `seconds`.
template <class Condition>
bool waitFor(int seconds, Condition condition)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (!condition())
    {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        usleep(100);
    }
    return true;
}

/// True once the thread has left the process, or at least its user code (a
/// zombie), within five seconds.
inline bool threadGone(pid_t tid)
{
    return waitFor(5, [tid] { return taskState(tid) == 'X' || taskState(tid) == 'Z'; });
}

} // namespace ovkit_test

#endif // OVKIT_TESTS_SUPPORT_STRESSTESTHELPERS_H
