// Helpers for the tests of threads, events and timers, and the kill loop of
// the stress tests.
#ifndef OVKIT_TESTS_SUPPORT_THREADTESTHELPERS_H
#define OVKIT_TESTS_SUPPORT_THREADTESTHELPERS_H

#include <ovkit/OrvaThread.h>

#include "support/Processes.h"
#include "support/Sanitizers.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <functional>
#include <string>
#include <sys/stat.h>
#include <sys/time.h>
#include <thread>
#include <utility>
#include <vector>

namespace ovkit_test
{

/// Runs `body` on a thread of its own, waits for it, and returns its result.
template <class Body>
bool onOtherThread(Body body)
{
    bool result = false;
    std::thread([&] { result = body(); }).join();
    return result;
}

/// How often thread `tid` of this process has given up the processor of its
/// own accord, or -1 if it is gone.
inline long voluntarySwitches(pid_t tid)
{
    char path[64], text[4096];
    snprintf(path, sizeof path, "/proc/self/task/%d/status", static_cast<int>(tid));
    readProcText(path, text, sizeof text);
    const char* field = strstr(text, "voluntary_ctxt_switches:");
    return field && (field == text || field[-1] == '\n') ? atol(field + 24) : -1;
}

/// Waits until every other thread of the process sleeps in the kernel, as
/// threads blocked on a condition variable or a mutex do, and has stayed
/// asleep without waking for a while: a thread that only dozes on a lock on
/// its way somewhere (as happens often under a sanitizer) wakes again and
/// does not count. With `atLeast`, that many other threads must exist.
inline bool othersSleeping(std::size_t atLeast = 0)
{
    const pid_t self = currentTid();
    std::vector<std::pair<pid_t, long>> seen;
    auto seenAt = std::chrono::steady_clock::now();
    return waitFor(
        [&]
        {
            std::vector<std::pair<pid_t, long>> now;
            char entries[8192];
            const int fd = open("/proc/self/task", O_RDONLY | O_DIRECTORY);
            const long length = fd < 0 ? 0 : syscall(SYS_getdents64, fd, entries, sizeof entries);
            if (fd >= 0)
                close(fd);
            for (long at = 0; at < length; at += reinterpret_cast<dirent64*>(entries + at)->d_reclen)
            {
                const pid_t tid = atoi(reinterpret_cast<dirent64*>(entries + at)->d_name);
                if (tid <= 0 || tid == self)
                    continue;
                if (taskState(tid) != 'S')
                    return false;
                now.emplace_back(tid, voluntarySwitches(tid));
            }
            if (length <= 0 || now.size() < atLeast)
                return false;
            if (now != seen)
            {
                seen = now;
                seenAt = std::chrono::steady_clock::now();
                return false;
            }
            return std::chrono::steady_clock::now() - seenAt >= std::chrono::milliseconds(20);
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
                  m_nTid = currentTid();
                  body();
              })
    {
    }
    ~BodyThread() { m_oThread.join(); }

    /// Waits until the thread sleeps in the kernel, as one blocked on a
    /// condition variable or a mutex does.
    bool sleeping()
    {
        return waitFor([this] { return m_nTid && taskState(m_nTid) == 'S'; });
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
/// (and the sanitizer's own thread, if any) and every self-deleted thread has
/// been joined, so that no thread of the library is at work when the process
/// ends.
inline bool settleLibraryThreads()
{
    itimerval off = {};
    setitimer(ITIMER_REAL, &off, nullptr);
    raise(SIGALRM);
    return waitFor(
        []
        {
            struct stat tasks; // the directory has two links and one per thread
            return stat("/proc/self/task", &tasks) == 0 && tasks.st_nlink <= 3 + c_nRuntimeThreads &&
                   exitListEmpty();
        });
}

/// The kernel id of killLoop's current victim and its rounds so far. A victim
/// touches nothing of its object once it is going, for the object of an
/// abandoned thread may be deleted before the thread is cancelled.
inline std::atomic<pid_t> g_nVictimTid{0};
inline std::atomic<long> g_nVictimRounds{0};

/// Runs `step` over and over until it is killed. The step is owned by the
/// kill loop, which outlives the victim: run() keeps nothing with a destructor
/// in its frame, for a cancellation that lands between the calls of a frame
/// with objects to destroy ends the process (see OrvaThread.h).
template <class Step>
struct Victim : OrvaSupport::OrvaThread
{
    explicit Victim(const Step& step) : m_pStep(&step) {}
    int run() override
    {
        const Step* step = m_pStep;
        g_nVictimTid = currentTid();
        for (;;)
        {
            (*step)();
            // Released: whoever sees a round sees the victim at work, past
            // all it did with its object.
            g_nVictimRounds.fetch_add(1, std::memory_order_release);
        }
    }
    const Step* m_pStep;
};

/// Kills up to 500 victims running `step`, by kill() and by an abandoning
/// delete in turn, for at most six seconds, each once `ready(i)` holds (by
/// default, after a few rounds). Once a victim is gone, `check(i)` must find
/// everything it used in order; it returns a failure text, empty when all is
/// well.
template <class Step, class Check, class Ready>
std::string killLoop(const Step& step, Check check, Ready ready)
{
    const auto stop = std::chrono::steady_clock::now() + std::chrono::seconds(6);
    for (int i = 0; i < 500 && std::chrono::steady_clock::now() < stop; ++i)
    {
        g_nVictimTid = 0;
        g_nVictimRounds = 0;
        auto* victim = new Victim<Step>(step);
        victim->start();
        if (!waitFor([&] { return ready(i); }, 10))
            return "kill " + std::to_string(i) + ": the victim did not get going";
        if (i % 2)
            victim->kill();
        else
            victim->setMarkForKill();
        delete victim;
        if (!threadGone(g_nVictimTid))
            return "kill " + std::to_string(i) + ": the victim survived";
        const std::string failure = check(i);
        if (!failure.empty())
            return "kill " + std::to_string(i) + ": " + failure;
    }
    return "";
}

template <class Step, class Check>
std::string killLoop(const Step& step, Check check)
{
    return killLoop(step, check, [](int i) { return g_nVictimRounds > i % 23; });
}

} // namespace ovkit_test

#endif // OVKIT_TESTS_SUPPORT_THREADTESTHELPERS_H
