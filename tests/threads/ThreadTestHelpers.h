// Helpers for the tests of threads, events and timers: polling with a
// deadline, whether a thread sleeps in the kernel, and waiting until the
// library's short-lived threads have gone. The pollers use plain system
// calls and no heap, because a timer signal may land on the polling thread
// and its handler allocates.
#ifndef OVKIT_TESTS_THREADTESTHELPERS_H
#define OVKIT_TESTS_THREADTESTHELPERS_H

#include <ovkit/OrvaThread.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

namespace ovkit_test
{

/// Polls `condition` every millisecond until it holds or `limit` has passed.
template <class Condition>
bool waitUntil(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(20))
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition())
    {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        usleep(1000);
    }
    return true;
}

inline pid_t currentTid()
{
    return static_cast<pid_t>(syscall(SYS_gettid));
}

/// Field `index` (3 is the state) of /proc/self/task/<tid>/stat, or of
/// /proc/self/stat for `tid` 0; null if it cannot be read.
inline const char* statField(pid_t tid, int index, char* buffer, size_t size)
{
    char path[64];
    snprintf(path, sizeof path, tid ? "/proc/self/task/%d/stat" : "/proc/self/stat", static_cast<int>(tid));
    int fd = open(path, O_RDONLY);
    if (fd < 0)
        return nullptr;
    ssize_t length = read(fd, buffer, size - 1);
    close(fd);
    if (length <= 0)
        return nullptr;
    buffer[length] = '\0';
    const char* field = strrchr(buffer, ')');
    for (int i = 2; field && i < index; ++i)
        field = strchr(field + 1, ' ');
    return field ? field + 1 : nullptr;
}

/// Waits until the thread sleeps in the kernel (state S), as one blocked on a
/// condition variable or a mutex does.
inline bool waitUntilSleeping(pid_t tid)
{
    return waitUntil(
        [tid]
        {
            char buffer[1024];
            const char* state = statField(tid, 3, buffer, sizeof buffer);
            return state && *state == 'S';
        });
}

inline int threadCount()
{
    char buffer[1024];
    const char* field = statField(0, 20, buffer, sizeof buffer);
    return field ? atoi(field) : -1;
}

inline bool exitListEmpty()
{
    OrvaSupport::OrvaCriticalSection guard(OrvaSupport::g_exitThreadLock, true);
    return OrvaSupport::g_vExitThreads.empty();
}

/// Disarms the system timer and waits until the process is back to `threads`
/// threads and every self-deleted thread has been joined, so that no thread
/// of the library is still at work when the test process ends.
inline bool settleLibraryThreads(int threads = 1)
{
    itimerval off = {};
    setitimer(ITIMER_REAL, &off, nullptr);
    return waitUntil([threads] { return threadCount() <= threads && exitListEmpty(); });
}

} // namespace ovkit_test

#endif // OVKIT_TESTS_THREADTESTHELPERS_H
