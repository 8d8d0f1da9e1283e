/// \file
/// The frame a daemon's main program sits in.
///
///     class Agent : public OrvaSupport::OrvaService
///     {
///         bool onStart(const std::string& argument) override { m_worker.start(); return true; }
///         void onStop() override { m_worker.shutDown(); }
///         ...
///     };
///     int main() { Agent agent; return agent.start("", true) ? 0 : 1; }   // the daemon child returns
///
/// A client derives from OrvaService, brings its work up in onStart and down
/// in onStop, builds one instance in main and calls start. start blocks on the
/// object's stop event until somebody calls stop, either directly or through
/// SIGINT or SIGTERM, which ControlHandler turns into a stop of the service
/// object constructed last. With daemon true, start first forks a detached
/// child in a session of its own; once the child exists, the calling process
/// does not return from start but leaves with an exit status that reports how
/// the child's onStart went:
///
///     0    onStart returned true
///     1    onStart returned false, or the child ended without a report
///     253  (-3) no report within 60 seconds; the child goes on regardless
///     252  (-4) waiting for the report failed (a signal that interrupts
///          the wait does not count: the wait goes on to its limit)
///
/// The frame catches SIGINT, SIGTERM and SIGPIPE, and on the daemon road also
/// SIGCHLD. Only the first SIGINT or SIGTERM of a process reaches a service;
/// every later one is caught and dropped, whatever object or start it meets.
#ifndef OVKIT_ORVASERVICE_H
#define OVKIT_ORVASERVICE_H

#include <ovkit/OrvaEvent.h>
#include <ovkit/OrvaExport.h>

#include <string>

namespace OrvaSupport
{

/// Abstract base of a daemon's main object.
///
/// Threads: there are no locks. The state is a plain integer, written by the
/// thread in start and by whoever calls stop; stop may run on any thread, and
/// inside a signal handler when a signal sent it.
///
/// The stop event has no memory (see OrvaEvent): a stop that comes before
/// start has begun to wait is lost, and start then waits for the next one.
class OVKIT_API OrvaService
{
public:
    /// The value of state(). A new object is serviceStopped.
    enum t_ServiceState
    {
        /// The client's work is up and start waits on the stop event.
        serviceRunning = 0,
        /// Not running.
        serviceStopped = 1,
        /// stop was called; the client's work has not been ended yet.
        serviceStopping = 2
    };

    /// Every constructor leaves the object stopped and makes it the one that
    /// signals reach (getService), replacing any earlier object.
    OrvaService();
    /// Keeps `fourth` as the fourth name and `option`; the other names are empty.
    OrvaService(bool option, const std::string& fourth);
    /// Keeps the four names and the option. Only `serviceName` is read back
    /// by the frame (serviceName()); the others are the subclass's to use.
    OrvaService(const std::string& first, const std::string& serviceName, const std::string& third,
                const std::string& fourth, bool option);
    /// Neither stops the service nor unregisters it: getService() goes on
    /// returning this address, and a later signal would reach a dead object.
    /// Build the service so that it outlives every signal, typically in main.
    virtual ~OrvaService();

    OrvaService(const OrvaService&) = delete;
    OrvaService& operator=(const OrvaService&) = delete;

    /// Brings up the client's work and returns at once: true when it is up.
    /// Receives the argument given to start. On the daemon road it runs in
    /// the child, whose only thread is the caller, so that the service's
    /// threads must be started here or later; the state is then already
    /// serviceRunning and the signal handlers are in place. On the foreground
    /// road the state is still what it was, and no handler is installed yet.
    virtual bool onStart(const std::string& argument) = 0;
    /// Ends the client's work, on the thread in start, after the stop event
    /// woke it. The state is not consulted: whatever ended the wait ends the
    /// service.
    virtual void onStop() = 0;

    /// Runs the service and returns when it has stopped.
    ///
    /// On an object whose state is serviceRunning, returns true at once and
    /// does nothing else (serviceStopping does not count as running).
    ///
    /// Foreground (daemon false): calls onStart(argument); if that fails,
    /// returns false with state and signal handlers untouched. Otherwise sets
    /// serviceRunning, installs ControlHandler for SIGINT, SIGTERM and
    /// SIGPIPE, waits on the stop event without limit, calls onStop, sets
    /// serviceStopped and returns true.
    ///
    /// Daemon (daemon true): makes the start pipe and forks once. The calling
    /// process waits up to 60 seconds for the child's report and leaves with
    /// _exit and the status listed above, so that no destructor runs in it;
    /// it never returns. The child calls setsid, chdir("/") and umask(0),
    /// installs ControlHandler for SIGINT, SIGTERM, SIGCHLD and SIGPIPE, sets
    /// serviceRunning and calls onStart. It reports the outcome as soon as
    /// onStart is back. On success it then waits on the stop event, sleeps
    /// 10 ms, calls onStop, sets serviceStopped and returns true; on failure
    /// it sets serviceStopped and returns false, and the child has to leave
    /// by itself. The child keeps its standard streams as they were.
    /// If the pipe or the fork cannot be made, there is no child and start
    /// returns false in the calling process, without calling onStart. The
    /// pipe is watched with poll(), so a process with many open files starts
    /// a daemon like any other.
    ///
    /// Exceptions from onStart and onStop pass through.
    bool start(const std::string& argument, bool daemon);
    /// Sets serviceStopping and sets the stop event, waking start. Always
    /// true; may be called from any thread, any number of times.
    bool stop();
    /// Does nothing; true. There is nothing to register on this platform.
    bool install();
    /// Does nothing; true.
    bool remove();

    /// The second name given to the five-argument constructor; empty otherwise.
    std::string serviceName() const;
    /// The state as last set; may be read from any thread.
    t_ServiceState state() const;
    /// The stop event. Setting it directly ends start just as stop does, with
    /// the state going straight from serviceRunning to serviceStopped.
    OrvaEvent& getEventObject();

    /// The object constructed last, or null before any; never cleared, also
    /// not when that object is destroyed.
    static OrvaService* getService();

protected:
    ///@{
    /// What the constructors were given. The frame reads only the service
    /// name; the other names and the option mean whatever the subclass wants.
    std::string m_sFirstName;
    std::string m_sServiceName;
    std::string m_sThirdName;
    std::string m_sFourthName;
    ///@}
    ///@{
    /// Always empty.
    std::string m_sSpare;
    std::wstring m_wsSpare;
    ///@}

    OrvaEvent m_oStopEvent; ///< See getEventObject().
    /// Set when start takes the daemon road; nothing reads it.
    bool m_bDaemon;
    bool m_bOption; ///< See m_sFirstName.
    /// See state(). Written by the thread in start and by stop, from any
    /// thread or signal handler; the library reads and writes it as a single
    /// atomic word, with no ordering beyond that.
    t_ServiceState m_nState;

    static OrvaService* m_pThis; ///< See getService().

private:
    bool startInForeground(const std::string& argument);
    bool startAsDaemon(const std::string& argument);
    bool runDaemonChild(const std::string& argument, int reportFd);
};

/// Signal handler of the frame. SIGINT and SIGTERM call stop() on the object
/// constructed last; only the first of them in the life of the process does
/// so, and every later SIGINT or SIGTERM returns without effect, also for a
/// second start or another object. Every other signal (SIGPIPE, SIGCHLD) is
/// caught and dropped. A signal that arrives before any object exists is
/// dropped as well and does not use up the first place. errno is preserved.
OVKIT_API void ControlHandler(int signal);

} // namespace OrvaSupport

#endif // OVKIT_ORVASERVICE_H
