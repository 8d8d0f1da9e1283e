#include <ovkit/OrvaLoggingTimer.h>

#include <ovkit/OrvaLogging.h>
#include <ovkit/OrvaModule.h>

namespace OrvaSupport
{

OrvaLoggingEventTimerThread::OrvaLoggingEventTimerThread(OrvaLogging* logging)
    : OrvaThread("OrvaLoggingEventTimerThread"), m_pLogging(logging)
{
}

OrvaLoggingEventTimerThread::~OrvaLoggingEventTimerThread() {}

int OrvaLoggingEventTimerThread::run()
{
    m_pLogging->timerElapsed();
    return 0;
}

// Module entry points: the watchdog needs no start-up or clean-up of its own.

void OVKITInitOrvaLoggingTimer() {}

void OVKITFinitOrvaLoggingTimer() {}

} // namespace OrvaSupport
