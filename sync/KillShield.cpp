// Kept in a unit of its own and out of line: callers must see these as calls
// that may throw, for leaving a shield is where a deferred kill unwinds.
#include "sync/KillShield.h"

#include <pthread.h>

namespace OrvaSupport
{
namespace internal
{

namespace
{

// Depth of nested shields, and the cancellation type that the outermost one
// replaced.
__attribute__((tls_model("initial-exec"))) thread_local int t_nShieldDepth = 0;
__attribute__((tls_model("initial-exec"))) thread_local int t_nSavedCancelType = PTHREAD_CANCEL_DEFERRED;

} // namespace

void enterKillShield()
{
    if (t_nShieldDepth++ == 0)
        pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, &t_nSavedCancelType);
}

void leaveKillShield()
{
    if (--t_nShieldDepth == 0 && t_nSavedCancelType != PTHREAD_CANCEL_DEFERRED)
    {
        int ignored;
        pthread_setcanceltype(t_nSavedCancelType, &ignored);
    }
}

std::exception_ptr* lostFailureBox()
{
    static std::exception_ptr s_lost;
    return &s_lost;
}

void rethrowShieldedFailure(std::exception_ptr* failure)
{
    if (failure == lostFailureBox())
        throw std::bad_alloc();
    std::exception_ptr caught = *failure;
    delete failure;
    std::rethrow_exception(caught);
}

} // namespace internal
} // namespace OrvaSupport
