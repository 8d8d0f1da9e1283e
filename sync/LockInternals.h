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

} // namespace internal
} // namespace OrvaSupport

#endif // OVKIT_SYNC_LOCKINTERNALS_H
