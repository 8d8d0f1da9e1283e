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

} // namespace internal
} // namespace OrvaSupport

#endif // OVKIT_SYNC_LOCKINTERNALS_H
