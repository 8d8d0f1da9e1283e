// Holding back a thread's cancellation over work that must not be cut short.
// Not installed.
//
// The library's threads run with asynchronous cancellation: OrvaThread::kill()
// may stop one at any instruction. Lock paths are written to survive that on
// their own. Work that allocates, writes through the C library's streams or
// runs a destructor chain is not: a thread stopped inside malloc or fprintf
// leaves the C library's own locks taken for ever. Such work runs inside a
// shield: cancellation is deferred on entry, and when the outermost shield is
// left the thread's former cancellation type comes back, at which point a
// kill that arrived meanwhile takes effect.
//
// While the shield is up, a kill still takes effect at the C library's
// cancellation points (a write, a wait), which clean up after themselves.
// Otherwise it takes effect by unwinding the stack from the point where the
// shield is left. So the frame that leaves a shield, and every frame above it, must be
// one through which a forced unwind may pass: no noexcept function, and no
// function with exception tables whose instructions the unwind could land
// between. runShielded() below is built for that: its own frame has no
// exception tables, and the body it calls may have any.
#ifndef OVKIT_SYNC_KILLSHIELD_H
#define OVKIT_SYNC_KILLSHIELD_H

#include <cxxabi.h>
#include <exception>
#include <new>
#include <type_traits>

namespace OrvaSupport
{
namespace internal
{

/// Defers cancellation of the calling thread; nests.
void enterKillShield();
/// Leaves one level; leaving the outermost restores the thread's cancellation
/// type, and a kill requested meanwhile unwinds the thread from here.
void leaveKillShield();
/// Rethrows the failure that a shielded body left behind, and frees its box.
[[noreturn]] void rethrowShieldedFailure(std::exception_ptr* failure);
/// The box that stands for a failure whose own box could not be allocated;
/// rethrown as std::bad_alloc.
std::exception_ptr* lostFailureBox();

/// Runs the body and keeps whatever it throws in a heap box for the caller,
/// so that the caller's frame needs no exception tables of its own.
template <class Body>
__attribute__((noinline)) std::exception_ptr* runCatching(Body& body)
{
    try
    {
        body();
        return nullptr;
    }
    catch (abi::__forced_unwind&)
    {
        // Cancelled at a cancellation point of the C library inside the body
        // (a write, a wait): the thread ends here, and the unwinding goes on.
        throw;
    }
    catch (...)
    {
        std::exception_ptr* box = new (std::nothrow) std::exception_ptr(std::current_exception());
        return box ? box : lostFailureBox();
    }
}

/// Runs `body` with cancellation deferred; a kill requested meanwhile takes
/// effect on the way out, after the body has finished. An exception from the
/// body passes on to the caller once the shield has been left. The body's
/// result, if any, goes through its captures.
template <class Body>
inline void runShielded(Body&& body)
{
    enterKillShield();
    std::exception_ptr* failure = runCatching(body);
    leaveKillShield();
    if (failure)
        rethrowShieldedFailure(failure);
}

} // namespace internal
} // namespace OrvaSupport

#endif // OVKIT_SYNC_KILLSHIELD_H
