// The runtime state that the module's start and stop sequences own: the
// library's own short-lived threads, and the semaphore by which a timer
// signal releases the parked expiry thread. Not installed.
//
// Everything here lives in static storage with no destructor, so that a
// thread that ends while the process exits, or a signal that arrives then,
// never meets a destroyed object. The stop sequence waits, on a condition,
// for the library's threads to end before it takes the rest down.
#ifndef OVKIT_THREADS_LIBRARYRUNTIME_H
#define OVKIT_THREADS_LIBRARYRUNTIME_H

namespace OrvaSupport
{
namespace internal
{

/// Sets up the semaphore and the fork handlers; part of the start sequence.
void startLibraryRuntime();

/// A library thread object was created and will be started.
void libraryThreadCreated();
/// Called on a library thread as its work begins: the thread function then
/// reports its end once the object is gone.
void markLibraryThread();
/// A library thread object that never ran is being destroyed.
void libraryThreadDiscarded();
/// Records, for the calling thread, that its last OrvaThread::start() could
/// not create a thread; takeStartFailure() reads and clears the record. The
/// creator of a self-deleting thread learns the outcome without touching the
/// object, which a started thread may already have deleted.
void noteStartFailure();
bool takeStartFailure();
/// Called by the thread function as its last step.
void endOfThreadFunction();
/// Starts a self-deleting library thread object; if no thread could be
/// created, deletes the object instead (its destructor reports it discarded).
/// Waits until no library thread is left, at most `milliseconds`.
void waitForLibraryThreads(int milliseconds);

/// Async-signal-safe: releases one parked expiry thread (now or when one is
/// parked next).
void releaseExpiryThread();
/// Blocks until releaseExpiryThread(); interrupted waits are resumed.
void waitForExpiryRelease();
/// Claims the single parking place: true if the caller is to park a new
/// expiry thread, false if one is already parked or being parked.
bool claimExpiryParking();
/// Gives the parking place back (the parked thread was released, or could
/// not be created).
void releaseExpiryParking();

/// Work the timer manager does in a child process right after fork().
void setChildForkHandler(void (*handler)());

/// Marks the calling thread's fork() calls, while set, as forks of a child
/// that only gets ready for execv and calls it. Such a child keeps the timers
/// of the parent stopped: it starts no expiry thread and does not arm the
/// system timer, which would outlive execv and end the new program.
void setForkingToExec(bool forking);
/// True in the parent while the mark is set, and in the child of such a fork.
bool isForkingToExec();

} // namespace internal
} // namespace OrvaSupport

#endif // OVKIT_THREADS_LIBRARYRUNTIME_H
