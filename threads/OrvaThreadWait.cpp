// Waiting for one or several threads with a time limit: every awaited thread
// reports its ThreadDone to one dependent, and a timer ends the wait when the
// time runs out.
#include <ovkit/OrvaThread.h>

#include <ovkit/OrvaTimer.h>

#include "log/LogMessage.h"
#include "sync/KillShield.h"
#include "sync/OrvaEventBlock.h"
#include "threads/DeliveryWatch.h"
#include "threads/ObjectAddresses.h"

#include <atomic>
#include <cstddef>
#include <pthread.h>

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
        passEventMutex();
        OrvaEvent::set();
        OVKIT_LOG(9, "ThreadWaitTimer::set: timer expired");
    }

    /// Wakes the waiter without marking a timeout.
    void setJustEvent()
    {
        passEventMutex();
        OrvaEvent::set();
        OVKIT_LOG(9, "ThreadWaitTimer::setJustEvent: delay has not expired, just setting event");
    }

private:
    // The event's set() does not take the mutex of its block, so a set() that
    // falls between the waiter's look at the count and its wait would be
    // lost, and the last report of a wait without limit with it, for good.
    // The waiter looks while it holds that mutex (see sleepUntilNews), and
    // whoever has just changed the count or the flag passes through the mutex
    // before setting: the set() then comes after the waiter has either seen
    // the change or begun to wait.
    void passEventMutex()
    {
        if (void* handle = getHandle())
        {
            pthread_mutex_lock(&internal::eventBlock(handle)->m_mutex);
            pthread_mutex_unlock(&internal::eventBlock(handle)->m_mutex);
        }
    }

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

void unlockBlockMutex(void* mutex)
{
    pthread_mutex_unlock(static_cast<pthread_mutex_t*>(mutex));
}

// The condition wait behind the timer's event, entered only if no report and
// no firing has been counted since the last look; the look is made under the
// event's mutex, which the reporters pass through before they set the event.
__attribute__((noinline)) void sleepUnlessNews(GroupWait& wait, internal::OrvaEventBlock* block)
{
    pthread_mutex_lock(&block->m_mutex);
    pthread_cleanup_push(unlockBlockMutex, &block->m_mutex);
    if (wait.m_nRemaining.load(std::memory_order_seq_cst) > 0 &&
        !wait.m_bTimedOut.load(std::memory_order_seq_cst))
        pthread_cond_wait(&block->m_cond, &block->m_mutex);
    pthread_cleanup_pop(1);
}

// Waits for the next report or firing. As in OrvaEvent::wait(), a kill can
// only act inside the condition wait, whose clean-up gives the mutex back.
void sleepUntilNews(GroupWait& wait)
{
    internal::enterKillShield();
    sleepUnlessNews(wait, internal::eventBlock(wait.m_oTimer.getHandle()));
    internal::leaveKillShield();
}

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
    // the loop wakes nobody, but the count has moved, and the next look sees
    // it. Only the index is then that of a later report.
    while (wait->m_nRemaining.load(std::memory_order_seq_cst) > 0)
    {
        sleepUntilNews(*wait);
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
