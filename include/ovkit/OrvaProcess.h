/// \file
/// Child programs, directories, and operating-system error texts.
///
///     int status = -1;
///     OrvaExecuteProgram("/bin/gzip -9 /var/tmp/agent.dump", true, nullptr, &status);
///     OrvaCreateDirectory("/var/tmp/agent/spool");            // parents too
///     std::string why; int code = 0;
///     if (!OrvaRemoveDirectoryImpl("/var/tmp/agent", true, why, code)) report(why, code);
///
/// Free functions over process and file-system calls. They hold no state,
/// take no locks of their own and report by their results and out-parameters:
/// nothing is thrown of their own, only what string handling and the command
/// line parser may raise. Log lines go to the process's log (OrvaLogging): the
/// start of a program at level 5, failures to start one at level 1, tracing at
/// level 9.
///
/// Running a program. The command line is split as OrvaParseCommandLine does
/// (at blanks; double quotes protect blanks and are removed; "" makes no
/// word), after one final byte that is not a letter or digit (isalnum) has
/// been dropped: a trailing line feed goes, but so does a closing quote or a
/// final `/` or `.` ("/bin/echo a." prints "a"), and only one byte (a line
/// that ends in two line feeds keeps one). The first word is the program's
/// path: there is no search along PATH. The environment is inherited, and so
/// are all descriptors. The program runs in a forked child, which does the
/// splitting and its log lines itself, after its record "child process id: 0";
/// the parent's own record gives the child's id (or -1).
///
/// A child that cannot run its program (no such file, no permission, a
/// standard handle that cannot be duplicated, an empty command line, a failure
/// of the splitting) ends with exit status 0, which a waiting caller cannot
/// tell from success; only the log, at level 1 where there is a message, says
/// what went wrong. A child killed by a signal also reads as status 0.
///
/// Before the program starts, the child unblocks every signal, and puts
/// signals that the library handles back to their defaults, dropping any of
/// them that arrived in between: the library's own SIGALRM, SIGUSR1 and
/// SIGUSR2 always, and SIGINT, SIGTERM, SIGPIPE and SIGCHLD where the service
/// frame's ControlHandler handles them. Signals that the caller ignores stay
/// ignored, as execv keeps them. No interval timer is left armed in the child,
/// and the parent's timers keep running.
///
/// Things a caller must see to:
/// - A child that is not waited for (wait false) stays a zombie until the
///   caller reaps it, e.g. with waitpid on the id given back.
/// - With SIGCHLD ignored the system reaps children itself: a wait then finds
///   no child and reads as exit status 0, that is, as success.
/// - A child that writes into a pipe which the caller reads only after the
///   wait blocks once the pipe is full, and the wait never ends: drain the
///   pipe on another thread, or do not wait.
/// - The wait has no time limit, and the functions send no signals.
///
/// OrvaKeyDataNotSupportedException, of <ovkit/OrvaException.h>, comes with
/// this header; nothing here throws it.
///
/// Removing a directory recursively runs "/bin/rm" with the arguments "rm",
/// "-rf" and the path exactly as written: a directory whose name starts with
/// `-` is read by rm as options. Prefix such a path with "./".
#ifndef OVKIT_ORVAPROCESS_H
#define OVKIT_ORVAPROCESS_H

#include <ovkit/OrvaException.h>
#include <ovkit/OrvaExport.h>

#include <string>

namespace OrvaSupport
{

/// OrvaExecuteProgramEx with the standard handles inherited. Logs
/// "OrvaExecuteProgram: Execution Started." at level 5 first.
OVKIT_API bool OrvaExecuteProgram(const std::string& commandLine, bool wait, int* processId, int* exitStatus);

/// Runs `commandLine` in a child process (see above), with `standardInput`
/// as its standard input unless it is 0 or -1, and `standardOutput` as its
/// standard output unless it is 1 or -1. Logs "OrvaExecuteProgramEx:
/// Execution Started." at level 5.
///
/// - The child cannot be created: -1 in *exitStatus, false.
/// - wait false: the child's id in *processId, true; *exitStatus untouched.
/// - wait true: waits for the child to end (a wait interrupted by a signal
///   goes on), then stores its exit code (0 to 255) in *exitStatus, or 0 if
///   a signal killed it, and returns true; *processId untouched. If the wait
///   itself fails (no such child), the exit status reads 0.
/// `processId` and `exitStatus` may be null.
OVKIT_API bool OrvaExecuteProgramEx(const std::string& commandLine, int standardInput, int standardOutput,
                                    bool wait, int* processId, int* exitStatus);

/// Creates the directory `path`, mode 0755 less the umask, and its missing
/// parents. True when the directory was made or the name exists already, as
/// anything: an existing file of that name also gives true. Both `/` and `\`
/// separate names; the walk over the parents turns each `\` into `/`. A
/// leading separator opens no empty name, and a closing one ends the walk on
/// the whole path. False, with a level 9 log line "OrvaCreateDirectory:
/// couldn't create <name> (<errno>)" from the walk, when a name can neither
/// be made nor be found; an empty path, or one too long for the system,
/// gives false.
OVKIT_API bool OrvaCreateDirectory(const std::string& path);

/// Removes the directory `path`.
/// - An empty directory is removed: true, errorText and errorCode untouched.
/// - A directory that is not empty, with `recursive`: "/bin/rm -rf path" is
///   run and waited for. Its exit code goes into errorCode; 0 gives true,
///   anything else false with errorText "OrvaRemoveDirectory: Could not
///   remove the directory " + path. An rm that could not be run exits with
///   the number of its failure. If rm was killed, could not be waited for, or
///   no process could be created for it, the result is true and errorCode is
///   untouched.
/// - Otherwise false, with that errorText and the errno of rmdir in
///   errorCode (ENOTEMPTY, 39, for a full directory without `recursive`).
OVKIT_API bool OrvaRemoveDirectoryImpl(const std::string& path, bool recursive, std::string& errorText,
                                       int& errorCode);

/// The C library's text for the error number, trimmed of blanks, tabs,
/// carriage returns and line feeds at both ends. A number the C library does
/// not know gives its own text ("Unknown error 4711"); only where it gives no
/// text at all does the text read "Unrecognized error code: <n> (0x<n as 8
/// hex digits>)". Safe on any thread.
OVKIT_API void OrvaGetOSErrorMessage(int error, std::string& text);
/// The same text, widened with the library's default locale. The fall-back
/// text is formatted with a limit of 1,024 characters.
OVKIT_API void OrvaGetOSErrorMessage(int error, std::wstring& text);

} // namespace OrvaSupport

#endif // OVKIT_ORVAPROCESS_H
