// Waiting for one or several threads with a time limit: every awaited thread
// reports its ThreadDone to one dependent, and a timer ends the wait when the
// time runs out.
#include <ovkit/OrvaThread.h>

#include <ovkit/OrvaTimer.h>

#include "log/LogMessage.h"
#include "sync/OrvaEventBlock.h"

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

int OrvaThread::wait(std::vector<OrvaThread*>& threads, bool waitAll, int milliseconds)
{
    int result = -4;
    std::atomic<bool> timedOut{false};
    std::atomic<int> remaining{waitAll ? static_cast<int>(threads.size()) : 1};
    OrvaCriticalSectionObject lock;
    ThreadWaitTimer timer(&timedOut);
    ThreadWaitDependent dependent(timer, &lock, &remaining);

    for (OrvaThread* thread : threads)
        thread->addDependent(dependent);
    if (milliseconds != c_nWaitForever)
        timer.start(milliseconds, false);

    // The event keeps no memory: a report that comes between two passes of
    // the loop does not wake it, but the count has moved, and the next report
    // or the timer releases the loop.
    while (remaining.load(std::memory_order_seq_cst) > 0)
    {
        timer.wait(-1);
        if (timedOut.load(std::memory_order_seq_cst))
        {
            result = c_nWaitTimedOut;
            break;
        }
        OrvaCriticalSection guard(lock, true);
        for (std::size_t i = 0; i < threads.size(); ++i)
        {
            if (threads[i] == dependent.lastThread())
            {
                result = static_cast<int>(i);
                break;
            }
        }
    }

    for (OrvaThread* thread : threads)
        thread->removeDependent(dependent);
    timer.stop();
    // A report that is inside the dependent holds the lock until it is done.
    lock.lock();
    lock.unlock();

    if (result != c_nWaitTimedOut && waitAll)
        result = c_nWaitDone;
    return result;
}

int OrvaThread::wait(int count, OrvaThread* threads, bool waitAll, int milliseconds)
{
    std::vector<OrvaThread*> list;
    for (int i = 0; i < count; ++i)
        list.push_back(&threads[i]);
    return wait(list, waitAll, milliseconds);
}

} // namespace OrvaSupport
