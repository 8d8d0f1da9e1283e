// Log records of a forked child before it runs another program. Not
// installed.
//
//     internal::ForkedChildLog childLog;     // in the parent, before fork()
//     if (fork() == 0)
//         childLog.write(9, "Foo: child process id: 0");
//
// The child of a fork has only the forking thread, but every lock that
// another thread held at the fork stays held, and a record logged the usual
// way would start the log's watchdog timer, whose system timer outlives
// execv and ends the new program with SIGALRM. A record written here takes
// the log lock only if it is free (and is dropped otherwise), never touches
// the watchdog, the record under way or the C library's stream buffers (it
// goes out with write(2), so that output the parent had buffered is not
// written twice), and carries the time taken in the parent, so that the
// child needs neither the time zone lock nor the locale.
#ifndef OVKIT_LOG_FORKEDCHILDLOG_H
#define OVKIT_LOG_FORKEDCHILDLOG_H

#include <string>

namespace OrvaSupport
{
namespace internal
{

class ForkedChildLog
{
public:
    /// In the parent, just before fork(): notes whether a log is on and, if
    /// it is, the local time for the child's record prefixes.
    ForkedChildLog();

    /// In the child: writes a record of `level` (1 to 9, no name) if a log was
    /// on at the fork, is registered now, its global level lets `level`
    /// through, and its lock was free at the fork or belongs to this thread.
    void write(int level, const std::string& text) const;

private:
    bool m_bLogOn;
    /// Year, month (1 to 12), day, hour, minute, second.
    int m_anDate[6];
};

} // namespace internal
} // namespace OrvaSupport

#endif // OVKIT_LOG_FORKEDCHILDLOG_H
