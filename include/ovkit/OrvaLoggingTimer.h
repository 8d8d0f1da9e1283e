/// \file
/// The short-lived thread through which the log's record watchdog acts.
///
///     OrvaLoggingEventTimerThread* t = new OrvaLoggingEventTimerThread(&log);
///     t->setMarkForDeath();   // deletes itself when done
///     t->start();             // runs log.timerElapsed()
///
/// The log starts one of these each minute that a record stays open (see
/// OrvaLogging.h); clients have no need to create one themselves.
#ifndef OVKIT_ORVALOGGINGTIMER_H
#define OVKIT_ORVALOGGINGTIMER_H

#include <ovkit/OrvaExport.h>
#include <ovkit/OrvaThread.h>

namespace OrvaSupport
{

class OrvaLogging;

/// A thread named "OrvaLoggingEventTimerThread" whose run() calls
/// timerElapsed() on its log and returns 0. It holds a plain pointer to the
/// log, which must outlive it.
class OVKIT_API OrvaLoggingEventTimerThread : public OrvaThread
{
public:
    /// A thread, not yet started, that will act on `logging`.
    explicit OrvaLoggingEventTimerThread(OrvaLogging* logging);
    ~OrvaLoggingEventTimerThread() override;

    using OrvaThread::run;
    /// Calls timerElapsed() on the log; returns 0.
    int run() override;

private:
    OrvaLogging* m_pLogging;
};

/// Module entry points; both do nothing (see OrvaModule.h).
OVKIT_API void OVKITInitOrvaLoggingTimer();
OVKIT_API void OVKITFinitOrvaLoggingTimer();

} // namespace OrvaSupport

#endif // OVKIT_ORVALOGGINGTIMER_H
