// The three signals that the library owns, and how their handlers are
// installed. Not installed.
#ifndef OVKIT_THREADS_LIBRARYSIGNALS_H
#define OVKIT_THREADS_LIBRARYSIGNALS_H

#include <csignal>

namespace OrvaSupport
{

/// SIGALRM (timer expiry), SIGUSR1 (arming the timer) and SIGUSR2 (joining
/// self-deleted threads).
void librarySignalSet(sigset_t* signals);

/// Installs `handler` as signal() would (restarting interrupted calls, the
/// signal itself held back while its handler runs), and also holds back the
/// library's other two signals while it runs. The handlers only post a
/// semaphore or empty the exit list without blocking: none allocates, creates
/// a thread or runs a client's code.
void installLibrarySignalHandler(int signalNumber, void (*handler)(int));

} // namespace OrvaSupport

#endif // OVKIT_THREADS_LIBRARYSIGNALS_H
