/// \file
/// Threads as objects.
///
///     class Worker : public OrvaThread
///     {
///         int run() override { ...; return 7; }
///     };
///     Worker w;  w.start();  w.wait(-1);  int code = w.getExitCode();   // 7
///
/// An OrvaThread runs its own run(), or the run() of an OrvaRunnable given to
/// the constructor, with the work information given by setWorkInfo(), if any.
/// When the work ends, its dependents receive a ThreadDone with the result, on
/// the ending thread.
///
/// The threads can be cancelled at any instruction. Each runs with the
/// critical-section recovery as its cancellation clean-up, so a killed thread
/// gives back every OrvaCriticalSectionObject it held. Read/write locks, heap
/// memory and other resources are not given back; a killed thread should
/// spend its time where it holds none of them, and away from the heap. The
/// cancellation unwinds the stack: landing between two calls in a function
/// that has objects to destroy, it ends the process, so work that is meant to
/// be killed waits or loops in code without such objects.
///
/// There is no stop request: each subclass brings its own way of telling run()
/// to return. An owner picks one of three ways of ending:
///   - owned and waited for: it stops the work by its own protocol, and the
///     destructor (or wait(-1)) joins the thread;
///   - self-deleting: setMarkForDeath() on a heap object, which nobody may
///     touch afterwards; the object deletes itself when the work ends, the
///     operating-system thread detaches itself, and its id passes through
///     g_vExitThreads, which the library's SIGUSR2 handler empties;
///   - abandoned: setMarkForKill() detaches the thread, and the destructor
///     cancels it without waiting.
///
/// A thread that nobody joins (its work returned before anybody waited, or it
/// was killed) is detached when its object lets go of the handle, so no
/// thread's resources are kept after its object is gone.
///
/// The library owns SIGUSR2; clients leave it alone.
#ifndef OVKIT_ORVATHREAD_H
#define OVKIT_ORVATHREAD_H

#include <ovkit/OrvaCriticalSection.h>
#include <ovkit/OrvaExport.h>
#include <ovkit/OrvaNotification.h>
#include <ovkit/OrvaObjectBase.h>

#include <string>
#include <vector>

namespace OrvaSupport
{

/// The function handed to pthread_create for every OrvaThread: runs the work
/// with asynchronous cancellation and the critical-section recovery as
/// clean-up, records the exit code, and deletes an object marked for death.
OVKIT_API void* OrvaThreadFn(void* thread);

/// Data for a thread's work; clients derive from it. Assignment copies
/// nothing, so the reference count of the target survives.
class OVKIT_API OrvaWorkInformation : public OrvaObjectBase
{
public:
    OrvaWorkInformation() {}
    /// A copy starts with a count of its own.
    OrvaWorkInformation(const OrvaWorkInformation&) : OrvaObjectBase() {}
    /// Copies nothing: the target keeps its count.
    OrvaWorkInformation& operator=(const OrvaWorkInformation&) { return *this; }
    ~OrvaWorkInformation() override;
};

extern template class OVKIT_API OrvaSmartPointer<OrvaWorkInformation>;

/// One operating-system thread.
///
/// Any thread may call kill(), wait() or the accessors. The flags and the exit
/// code are plain fields.
class OVKIT_API OrvaThread : public OrvaCollaborator, public OrvaObjectBase
{
public:
    /// Work done on an OrvaThread instead of the thread object's own run().
    class OVKIT_API OrvaRunnable : public OrvaObjectBase
    {
    public:
        ~OrvaRunnable() override;
        /// The work without work information; returns 0 in the base class.
        virtual int run();
        /// The work with work information; returns 0 in the base class.
        virtual int run(OrvaWorkInformation& work);
    };

    /// Sent to the dependents when the work has returned (not when the thread
    /// is killed). Its id is left unset; it carries the exit code.
    class OVKIT_API ThreadDone : public OrvaNotification
    {
    public:
        /// Exit code 0.
        ThreadDone();
        /// Carries `exitCode`.
        explicit ThreadDone(int exitCode);
        /// Copies the id and the exit code.
        ThreadDone(const ThreadDone& other);
        /// Copies the id and the exit code.
        ThreadDone& operator=(const ThreadDone& other);
        ~ThreadDone() override;

        /// The value the work returned.
        int getExitCode() const;
        /// Replaces the carried exit code.
        void setExitCode(int exitCode);

    private:
        int m_nExitCode;
    };

    /// Scheduling priorities. The library never reads them: setPriority()
    /// ignores its argument.
    enum t_Priority
    {
        Lowest,
        Low,
        Normal,
        High,
        Highest
    };

    /// No thread is started by any constructor. The default name is "class "
    /// followed by the normalised run-time class name of OrvaThread itself,
    /// "class OrvaSupport10OrvaThreadE", in subclasses as well.
    OrvaThread();
    /// A thread object with the given name, running its own run().
    explicit OrvaThread(const std::string& name);
    /// A thread object that runs `runnable`'s run() and keeps a reference to
    /// it; a null pointer means this object's own run().
    explicit OrvaThread(OrvaSmartPointer<OrvaRunnable> runnable);
    /// The same, with a name.
    OrvaThread(OrvaSmartPointer<OrvaRunnable> runnable, const std::string& name);

    /// Marked for kill: kill(), which does not wait. Marked for death (only
    /// reached when the thread deletes its own object): lets go of the handle.
    /// Otherwise: waitForThreadExit(), with no time limit; a subclass that
    /// needs to tell run() to stop does so in its own destructor, before this
    /// one waits.
    ~OrvaThread() override;

    /// Creates the thread; a thread object starts once, and later calls do
    /// nothing. A failure to create the thread is silent: isAlive() stays
    /// false.
    virtual void start();
    /// Does nothing; for subclasses.
    virtual void stop();
    /// Replaces the work information. With work information, run(work) is
    /// called instead of run().
    virtual void setWorkInfo(OrvaSmartPointer<OrvaWorkInformation> work);
    /// Waits for the end of the thread. Returns 0 at once when no thread
    /// exists or the work has already returned. With -1, joins the thread and
    /// returns 0. A thread whose work returned before anybody waited is not
    /// joined here; it is detached when the object lets go of its handle
    /// (destruction, kill()). With a limit, it is the group wait on this one thread: 0 when
    /// the thread ended, -2 when the time ran out. Timers count in whole
    /// seconds, so a limit below one second as a rule runs out at once.
    virtual int wait(int milliseconds);
    /// Does nothing and returns 0.
    virtual int setPriority(t_Priority priority);
    /// The work of a thread without a runnable; returns 0 in the base class.
    virtual int run();
    /// The same with work information; returns 0 in the base class.
    virtual int run(OrvaWorkInformation& work);

    /// Waits for the end of several threads: all of them (`waitAll`, result
    /// 0) or one of them (result: its index in `threads`); -2 when
    /// `milliseconds` (-1: no limit) ran out first. The index is that of a
    /// thread that ended: the last one to report before the wait looked, not
    /// necessarily the first. A thread that has already ended does not report
    /// again, so waiting on it without limit never returns. Each departure and
    /// a timeout are traced at log level 9. When the wait returns, no thread's
    /// report to it is still under way (a report that has begun is waited
    /// for), so the threads may be destroyed at once.
    static int wait(std::vector<OrvaThread*>& threads, bool waitAll, int milliseconds);
    /// The same on `count` consecutive thread objects.
    static int wait(int count, OrvaThread* threads, bool waitAll, int milliseconds);

    /// Virtual wait(-1).
    int waitForThreadExit();
    /// The object deletes itself when the work ends. It must be on the heap,
    /// and nobody may touch it after start(). A thread that never started does
    /// not delete itself.
    void setMarkForDeath();
    /// The destructor cancels the thread instead of waiting for it. Detaches
    /// the thread, if one exists, so it is never joined.
    void setMarkForKill();
    /// Cancels the thread, if one exists, and lets go of the handle at once,
    /// without waiting. The thread gives back its critical sections as it is
    /// cancelled; it sends no ThreadDone and its exit code stays unknown (-1).
    /// A thread whose work has already returned is not cancelled (its id may
    /// by then name another thread); the handle is let go all the same.
    void kill();
    /// Deletes the handle, clears the pointer and marks the thread as not running.
    void cleanup(void*& handle);
    /// True from a successful start() until the object lets go of the handle,
    /// also after the work has returned.
    bool isAlive();
    /// Points to the pthread_t of the thread; null when there is none.
    void* getHandle();
    /// The value returned by the work, once it has returned; -1 before, after
    /// a kill, and whenever no handle is held. Any thread may poll it: one
    /// that sees the result also sees all that the work did, its ThreadDone
    /// included.
    int getExitCode() const;
    /// The name given at construction or by setName(). It is the library's
    /// own: the operating system's name of the thread is not touched.
    std::string getName() const;
    /// Replaces the name, without a lock: set it before other threads read it.
    void setName(const std::string& name);
    /// The calling thread's pthread_self().
    static unsigned long getCurrentThreadId();

    /// The body run by the thread: the runnable's run, or this object's; an
    /// exception from the work is dropped and counts as 0. The unwinding of a
    /// cancellation (abi::__forced_unwind) is not an exception of the work: it
    /// passes on, and no ThreadDone is sent. Otherwise the dependents receive
    /// a ThreadDone with the result, on this thread.
    int _run();

    OrvaThread(const OrvaThread&) = delete;
    OrvaThread& operator=(const OrvaThread&) = delete;

private:
    friend void* OrvaThreadFn(void* thread);

    void* m_pHandle;
    OrvaSmartPointer<OrvaWorkInformation> m_pWorkInfo;
    std::string m_sName;
    int m_nExitCode;
    bool m_bMarkForDeath;
    bool m_bMarkForKill;
    bool m_bRunning;
    // The runnable, held through its base class so that the smart pointer on
    // OrvaRunnable is only instantiated, and exported, after this class.
    OrvaSmartPointer<OrvaObjectBase> m_pRunnable;

protected:
    /// For subclasses; OrvaThread itself never takes it.
    OrvaCriticalSectionObject m_oLock;
};

/// Guards g_vExitThreads.
OVKIT_API extern OrvaCriticalSectionObject g_exitThreadLock;
/// Ids of self-deleted threads, each left by its thread as its last act,
/// followed by a SIGUSR2. The threads have detached themselves, so nothing is
/// left to join: the SIGUSR2 handler empties the list (without blocking; if
/// the lock is busy, the thread that holds it sends its own signal next).
OVKIT_API extern std::vector<unsigned long> g_vExitThreads;

extern template class OVKIT_API OrvaSmartPointer<OrvaThread>;
extern template class OVKIT_API OrvaSmartPointer<OrvaThread::OrvaRunnable>;

} // namespace OrvaSupport

#endif // OVKIT_ORVATHREAD_H
