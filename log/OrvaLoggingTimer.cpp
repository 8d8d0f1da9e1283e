#include <ovkit/OrvaLoggingTimer.h>

#include <ovkit/OrvaLogging.h>
#include <ovkit/OrvaModule.h>

#include "threads/LibraryRuntime.h"

namespace OrvaSupport
{

// A watchdog thread is one of the library's own: the stop sequence waits for
// it to end before it takes the process-wide locks down.
OrvaLoggingEventTimerThread::OrvaLoggingEventTimerThread(OrvaLogging* logging)
    : OrvaThread("OrvaLoggingEventTimerThread"), m_pLogging(logging)
{
    internal::libraryThreadCreated();
}

OrvaLoggingEventTimerThread::~OrvaLoggingEventTimerThread()
{
    if (!getHandle())
        internal::libraryThreadDiscarded(); // never started
}

int OrvaLoggingEventTimerThread::run()
{
    internal::markLibraryThread();
    m_pLogging->timerElapsed();
    return 0;
}

// Module entry points: the watchdog needs no start-up or clean-up of its own.

void OVKITInitOrvaLoggingTimer() {}

void OVKITFinitOrvaLoggingTimer() {}

} // namespace OrvaSupport
