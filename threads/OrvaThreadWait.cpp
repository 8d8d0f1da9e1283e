// Waiting for one or several threads with a time limit: every awaited thread
// reports its ThreadDone to one dependent, and a timer ends the wait when the
// time runs out.
#include <ovkit/OrvaThread.h>

#include <ovkit/OrvaTimer.h>

#include "log/LogMessage.h"
#include "sync/OrvaEventBlock.h"
#include "threads/DeliveryWatch.h"
#include "threads/ObjectAddresses.h"

#include <atomic>
#include <cstddef>

namespace OrvaSupport
{

/// The wait's event and clock: its firing marks the wait as timed out.
class ThreadWaitTimer : public OrvaTimer
{
public:
    explicit ThreadWaitTimer(std::atomic<bool>* timedOut) : m_pTimedOut(timedOut) {}
    ~ThreadWaitTimer() override
    {
        // A firing that the manager has decided on still calls this class's
        // set(): wait until it is inside the event's own delivery.
        stop();
        if (void* handle = getHandle())
            internal::waitForAnnouncedSets(internal::eventBlock(handle));
    }

    void set() override
    {
        m_pTimedOut->store(true, std::memory_order_seq_cst);
        OrvaEvent::set();
        OVKIT_LOG(9, "ThreadWaitTimer::set: timer expired");
    }

    /// Wakes the waiter without marking a timeout.
    void setJustEvent()
    {
        OrvaEvent::set();
        OVKIT_LOG(9, "ThreadWaitTimer::setJustEvent: delay has not expired, just setting event");
    }

private:
    std::atomic<bool>* m_pTimedOut;
};

/// Receives the ThreadDone of every awaited thread.
class ThreadWaitDependent : public OrvaDependent
{
public:
    ThreadWaitDependent(ThreadWaitTimer& timer, OrvaCriticalSectionObject* lock, std::atomic<int>* remaining)
        : m_rEvent(timer), m_pLock(lock), m_pLastThread(nullptr), m_pRemaining(remaining)
    {
    }

    void handleNotification(OrvaCollaborator& collaborator, const OrvaNotification&) override
    {
        OrvaCriticalSection guard(*m_pLock, true);
        m_pLastThread = &dynamic_cast<OrvaThread&>(collaborator);
        OVKIT_LOG(9, "ThreadWaitDependent::handleNotification: thread " << m_pLastThread->getName()
                                                                        << " departed");
        const int remaining = m_pRemaining->load(std::memory_order_seq_cst);
        if (remaining > 0)
            m_pRemaining->store(remaining - 1, std::memory_order_seq_cst);
        m_rEvent.setJustEvent();
        OVKIT_LOG(9, "ThreadWaitDependent::handleNotification: returning");
    }

    OrvaThread* lastThread() const { return m_pLastThread; }

private:
    ThreadWaitTimer& m_rEvent;
    OrvaCriticalSectionObject* m_pLock;
    OrvaThread* m_pLastThread;
    std::atomic<int>* m_pRemaining;
};

namespace
{

// The result until the wait has looked at who reported.
constexpr int c_nNotLooked = -4;

// What one group wait shares with the reports and the timer. It lives on the
// heap and goes only when no report and no firing can reach it any more.
struct GroupWait
{
    explicit GroupWait(int awaited)
        : m_bTimedOut(false), m_nRemaining(awaited), m_oTimer(&m_bTimedOut),
          m_oDependent(m_oTimer, &m_oLock, &m_nRemaining)
    {
    }

    std::atomic<bool> m_bTimedOut;
    std::atomic<int> m_nRemaining;
    OrvaCriticalSectionObject m_oLock;
    ThreadWaitTimer m_oTimer;
    ThreadWaitDependent m_oDependent;
    internal::DeliveryWatch m_oWatch;
};

// The index of the last thread that reported, or `result` if it is not listed.
int lastReported(GroupWait& wait, const std::vector<OrvaThread*>& threads, int result)
{
    OrvaCriticalSection guard(wait.m_oLock, true);
    for (std::size_t i = 0; i < threads.size(); ++i)
    {
        if (threads[i] == wait.m_oDependent.lastThread())
            return static_cast<int>(i);
    }
    return result;
}

} // namespace

int OrvaThread::wait(std::vector<OrvaThread*>& threads, bool waitAll, int milliseconds)
{
    int result = c_nNotLooked;
    GroupWait* wait = new GroupWait(waitAll ? static_cast<int>(threads.size()) : 1);
    internal::beginWatch(wait->m_oWatch, wait->m_oDependent);

    for (OrvaThread* thread : threads)
        thread->addDependent(wait->m_oDependent);
    if (milliseconds != c_nWaitForever)
        wait->m_oTimer.start(milliseconds, false);

    // The event keeps no memory: a report that comes between two passes of
    // the loop does not wake it, but the count has moved, and the next report
    // or the timer releases the loop.
    while (wait->m_nRemaining.load(std::memory_order_seq_cst) > 0)
    {
        wait->m_oTimer.wait(-1);
        if (wait->m_bTimedOut.load(std::memory_order_seq_cst))
        {
            result = c_nWaitTimedOut;
            break;
        }
        result = lastReported(*wait, threads, result);
    }
    // All that was awaited may have reported before the loop first looked:
    // the result is then read once here, so that it is always an index.
    if (result == c_nNotLooked)
        result = lastReported(*wait, threads, result);

    // A thread that has read the dependent from its list before the removal
    // may not have called it yet: the watch waits for exactly those reports.
    // The timer's own destructor waits for a firing already decided on.
    for (OrvaThread* thread : threads)
        thread->removeDependent(wait->m_oDependent);
    wait->m_oTimer.stop();
    internal::endWatch(wait->m_oWatch);
    delete wait;

    if (result != c_nWaitTimedOut && waitAll)
        result = c_nWaitDone;
    return result;
}

int OrvaThread::wait(int count, OrvaThread* threads, bool waitAll, int milliseconds)
{
    std::vector<OrvaThread*> list = internal::objectAddresses(count, threads);
    return wait(list, waitAll, milliseconds);
}

} // namespace OrvaSupport
