// Waiting with a deadline: on a condition, on the state of a task, and on the
// end of a child process.
#ifndef OVKIT_TESTS_SUPPORT_POLLING_H
#define OVKIT_TESTS_SUPPORT_POLLING_H

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
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

/// The state letter of a thread of this process (R, S, Z, ...), or of the
/// process `tid` when `ofThisProcess` is false; X once it is gone.
inline char taskState(pid_t tid, bool ofThisProcess = true)
{
    char path[64], line[512];
    snprintf(path, sizeof path, ofThisProcess ? "/proc/self/task/%d/stat" : "/proc/%d/stat",
             static_cast<int>(tid));
    const int fd = open(path, O_RDONLY);
    const ssize_t length = fd < 0 ? 0 : read(fd, line, sizeof line - 1);
    if (fd >= 0)
        close(fd);
    line[length > 0 ? length : 0] = '\0';
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

} // namespace ovkit_test

#endif // OVKIT_TESTS_SUPPORT_POLLING_H
