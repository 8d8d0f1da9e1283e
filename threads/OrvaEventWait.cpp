// Waiting for several events: each event becomes a thread that waits on it,
// and the threads are awaited with OrvaThread's group wait.
#include <ovkit/OrvaEvent.h>

#include <ovkit/OrvaEventThread.h>

#include "threads/ObjectAddresses.h"

#include <cstddef>
#include <memory>

namespace OrvaSupport
{

int OrvaEvent::wait(std::vector<OrvaEvent*>& events, bool waitAll, int milliseconds)
{
    // Owned through unique_ptr so that a failure half-way still releases and
    // joins the threads already started.
    std::vector<std::unique_ptr<OrvaEventWaitThread>> waiters;
    std::vector<OrvaThread*> threads;
    waiters.reserve(events.size());
    threads.reserve(events.size());
    for (OrvaEvent* event : events)
    {
        waiters.emplace_back(new OrvaEventWaitThread(*event, milliseconds));
        threads.push_back(waiters.back().get());
        waiters.back()->start();
    }

    const int result = OrvaThread::wait(threads, waitAll, milliseconds);

    // In order: each destructor sets its event and joins its thread.
    for (std::unique_ptr<OrvaEventWaitThread>& waiter : waiters)
        waiter.reset();
    return result;
}

int OrvaEvent::wait(int count, OrvaEvent* events, bool waitAll, int milliseconds)
{
    std::vector<OrvaEvent*> list = internal::objectAddresses(count, events);
    return wait(list, waitAll, milliseconds);
}

} // namespace OrvaSupport
