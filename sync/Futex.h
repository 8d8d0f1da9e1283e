// Sleeping on a 32-bit word of this process, for the library's own locks and
// counters. Not installed.
#ifndef OVKIT_SYNC_FUTEX_H
#define OVKIT_SYNC_FUTEX_H

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace OrvaSupport
{
namespace internal
{

/// Sleeps while *word still holds `value`; returns on a wake-up, a signal or
/// a changed word. Callers test their condition again.
inline void futexWait(void* word, int value)
{
    syscall(SYS_futex, word, FUTEX_WAIT_PRIVATE, value, nullptr, nullptr, 0);
}

/// Wakes up to `count` sleepers on the word.
inline void futexWake(void* word, int count)
{
    syscall(SYS_futex, word, FUTEX_WAKE_PRIVATE, count, nullptr, nullptr, 0);
}

} // namespace internal
} // namespace OrvaSupport

#endif // OVKIT_SYNC_FUTEX_H
