#include <ovkit/OrvaEventThread.h>

#include "log/LogMessage.h"
#include "sync/AtomicField.h"

#include <unistd.h>

namespace OrvaSupport
{

namespace
{

// The pause between two looks at a thread's started flag.
constexpr useconds_t c_nStartPollMicroseconds = 100000;

// Returns once the thread has set `started`: the one moment from which a
// set() of its event can reach its wait. Only called while a thread exists,
// which sets the flag as the first step of its run().
void awaitStarted(const bool& started)
{
    while (!internal::loadAcquire(started))
        usleep(c_nStartPollMicroseconds);
}

} // namespace

OrvaEventWaitThread::OrvaEventWaitThread(OrvaEvent& event, int milliseconds)
    : OrvaEventWaitThread("EventWaitThread", event, milliseconds)
{
}

OrvaEventWaitThread::OrvaEventWaitThread(const std::string& name, OrvaEvent& event, int milliseconds)
    : OrvaThread(name), m_pEvent(&event), m_nTimeout(milliseconds), m_bStarted(false)
{
}

// Without a thread (never started, or its creation failed) nobody would ever
// set the started flag: the look is skipped, the set() is not.
OrvaEventWaitThread::~OrvaEventWaitThread()
{
    const bool threadExists = getHandle() != nullptr;
    if (threadExists)
        awaitStarted(m_bStarted);
    m_pEvent->set();
    if (threadExists)
        wait(c_nWaitForever);
}

int OrvaEventWaitThread::run()
{
    internal::storeRelease(m_bStarted, true);
    m_pEvent->wait(m_nTimeout);
    return 0;
}

OrvaEventTimerThread::OrvaEventTimerThread(const std::string& name, OrvaTimer& timer)
    : OrvaThread(name), m_pTimer(&timer), m_bStarted(false), m_bActive(false)
{
}

OrvaEventTimerThread::~OrvaEventTimerThread()
{
    OVKIT_LOG(9, "OrvaEventTimerThread::~OrvaEventTimerThread: entering");
    if (getHandle() && internal::loadAcquire(m_bActive))
    {
        OVKIT_LOG(9, "OrvaEventTimerThread::~OrvaEventTimerThread: setting exit event");
        awaitStarted(m_bStarted);
        // The flag is cleared before the set(), so the woken loop finds it so.
        internal::storeSequenced(m_bActive, false);
        m_pTimer->set();
        OVKIT_LOG(9, "OrvaEventTimerThread::~OrvaEventTimerThread: waiting for thread to exit");
        waitForThreadExit();
    }
    OVKIT_LOG(9, "OrvaEventTimerThread::~OrvaEventTimerThread: exiting");
}

// Active goes first: set after the thread's creation, it would let a firing
// in between find the loop inactive and end it without a word. A failed
// creation leaves no handle, and the destructor then ignores the flag.
void OrvaEventTimerThread::start()
{
    internal::storeRelease(m_bActive, true);
    OrvaThread::start();
}

int OrvaEventTimerThread::run()
{
    for (;;)
    {
        internal::storeRelease(m_bStarted, true);
        m_pTimer->wait(c_nWaitForever);
        if (!internal::loadSequenced(m_bActive))
            return 0;
        onTimer();
    }
}

} // namespace OrvaSupport
