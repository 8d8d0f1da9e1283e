// Lock operations that only the library itself needs. Not installed.
#ifndef OVKIT_SYNC_LOCKINTERNALS_H
#define OVKIT_SYNC_LOCKINTERNALS_H

#include <ovkit/OrvaCriticalSection.h>

namespace OrvaSupport
{
namespace internal
{

/// In a child process right after fork(): frees the lock if a thread other
/// than the calling one held it, for that thread does not exist here.
void reclaimLockAfterFork(OrvaCriticalSectionObject& lock);

/// Adds `delta` to `count` while the calling thread holds `lock`, and returns
/// the new value. For a few instructions that cannot fail: the lock is held
/// just around the addition, without entering the thread's held list, and a
/// thread killed meanwhile still gives it back.
int adjustUnderLock(OrvaCriticalSectionObject& lock, int& count, int delta);

/// A hold of a lock around a short stretch of library code that takes no
/// other lock of the library and cannot throw (it may allocate under a kill
/// shield). Cheaper than lock()/unlock(): the lock does not enter the
/// thread's held list, and a thread killed meanwhile still gives it back.
/// A thread that holds the lock already just goes on (`m_pLock` is null).
struct BriefHold
{
    LockImplementation* m_pLock;
    LockImplementation* m_pPreviousPending;
};
BriefHold beginBriefHold(OrvaCriticalSectionObject& lock);
void endBriefHold(const BriefHold& hold);

} // namespace internal
} // namespace OrvaSupport

#endif // OVKIT_SYNC_LOCKINTERNALS_H
