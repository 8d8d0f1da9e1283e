// Helpers for the tests of threads, events and timers. The pollers use plain
// system calls and no heap, because a timer signal may land on the polling
// thread and its handler allocates.
#ifndef OVKIT_TESTS_SUPPORT_THREADTESTHELPERS_H
#define OVKIT_TESTS_SUPPORT_THREADTESTHELPERS_H

#include <ovkit/OrvaThread.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <functional>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

namespace ovkit_test
{

/// Polls `condition` every millisecond until it holds or 20 seconds have passed.
template <class Condition>
bool waitUntil(Condition condition)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition())
    {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        usleep(1000);
    }
    return true;
}

/// The state letter of a thread of this process (R, S, ...); X once it is gone.
inline char taskState(pid_t tid)
{
    char path[64], line[512];
    snprintf(path, sizeof path, "/proc/self/task/%d/stat", static_cast<int>(tid));
    const int fd = open(path, O_RDONLY);
    const ssize_t length = fd < 0 ? 0 : read(fd, line, sizeof line - 1);
    if (fd >= 0)
        close(fd);
    line[length > 0 ? length : 0] = '\0';
    const char* name = strrchr(line, ')'); // the state follows the name
    return name && name[1] == ' ' ? name[2] : 'X';
}

/// Waits until every other thread of the process sleeps in the kernel, as
/// threads blocked on a condition variable or a mutex do.
inline bool othersSleeping()
{
    const pid_t self = static_cast<pid_t>(syscall(SYS_gettid));
    return waitUntil(
        [self]
        {
            char entries[8192];
            const int fd = open("/proc/self/task", O_RDONLY | O_DIRECTORY);
            const long length = fd < 0 ? 0 : syscall(SYS_getdents64, fd, entries, sizeof entries);
            if (fd >= 0)
                close(fd);
            for (long at = 0; at < length; at += reinterpret_cast<dirent64*>(entries + at)->d_reclen)
            {
                const pid_t tid = atoi(reinterpret_cast<dirent64*>(entries + at)->d_name);
                if (tid > 0 && tid != self && taskState(tid) != 'S')
                    return false;
            }
            return length > 0;
        });
}

/// A thread that runs `body` once; its destructor joins it.
class BodyThread
{
public:
    template <class Body>
    explicit BodyThread(Body body)
        : m_oThread(
              [this, body]
              {
                  m_nTid = static_cast<pid_t>(syscall(SYS_gettid));
                  body();
              })
    {
    }
    ~BodyThread() { m_oThread.join(); }

    /// Waits until the thread sleeps in the kernel (state S), as one blocked
    /// on a condition variable or a mutex does.
    bool sleeping()
    {
        return waitUntil([this] { return m_nTid && taskState(m_nTid) == 'S'; });
    }

private:
    std::atomic<pid_t> m_nTid{0};
    std::thread m_oThread;
};

/// A dependent that hands each notification to a function.
struct CallDependent : OrvaSupport::OrvaDependent
{
    using Call = std::function<void(const OrvaSupport::OrvaNotification&)>;
    explicit CallDependent(Call call) : m_fnCall(call) {}
    void handleNotification(OrvaSupport::OrvaCollaborator&, const OrvaSupport::OrvaNotification& n) override
    {
        m_fnCall(n);
    }
    Call m_fnCall;
};

inline bool exitListEmpty()
{
    OrvaSupport::OrvaCriticalSection guard(OrvaSupport::g_exitThreadLock, true);
    return OrvaSupport::g_vExitThreads.empty();
}

/// Disarms the system timer, lets the expiry thread that waits for it go (as
/// its expiry would), and waits until the process is down to its main thread
/// and every self-deleted thread has been joined, so that no thread of the
/// library is at work when the process ends.
inline bool settleLibraryThreads()
{
    itimerval off = {};
    setitimer(ITIMER_REAL, &off, nullptr);
    raise(SIGALRM);
    return waitUntil(
        []
        {
            struct stat tasks; // the directory has two links and one per thread
            return stat("/proc/self/task", &tasks) == 0 && tasks.st_nlink <= 3 && exitListEmpty();
        });
}

} // namespace ovkit_test

#endif // OVKIT_TESTS_SUPPORT_THREADTESTHELPERS_H
