// Helpers for the tests of threads, events and timers.
#ifndef OVKIT_TESTS_SUPPORT_THREADTESTHELPERS_H
#define OVKIT_TESTS_SUPPORT_THREADTESTHELPERS_H

#include <ovkit/OrvaThread.h>

#include "support/Polling.h"

#include <atomic>
#include <functional>
#include <sys/stat.h>
#include <sys/time.h>
#include <thread>

namespace ovkit_test
{

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

/// Disarms the system timer and waits until the process is down to its main
/// thread and every self-deleted thread has been joined, so that no thread of
/// the library is at work when the process ends.
inline bool settleLibraryThreads()
{
    itimerval off = {};
    setitimer(ITIMER_REAL, &off, nullptr);
    return waitFor(
        []
        {
            struct stat tasks; // the directory has two links and one per thread
            return stat("/proc/self/task", &tasks) == 0 && tasks.st_nlink <= 3 && exitListEmpty();
        });
}

} // namespace ovkit_test

#endif // OVKIT_TESTS_SUPPORT_THREADTESTHELPERS_H
