#include <ovkit/OrvaProcess.h>

#include <ovkit/OrvaLocaleFactory.h>
#include <ovkit/OrvaService.h>
#include <ovkit/OrvaStringUtilities.h>

#include "log/ForkedChildLog.h"
#include "log/LogMessage.h"
#include "sync/KillShield.h"
#include "text/CommandLine.h"
#include "threads/LibraryRuntime.h"
#include "threads/LibrarySignals.h"

#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace OrvaSupport
{

namespace
{

// ---------------------------------------------------------------------------
// Starting a child that runs another program

// fork() for a child that gets ready for execv and calls it. Every signal is
// blocked across the fork, so that no handler of the parent's runs in the
// child before it has put the dispositions back; the parent's mask returns at
// once, the child's stays blocked until execInChild. The fork itself runs
// with the caller's cancellation held back: a thread killed inside fork()
// would leave the C library's locks taken.
pid_t forkToExec()
{
    pid_t child = -1;
    internal::runShielded(
        [&]
        {
            sigset_t all;
            sigset_t saved;
            sigfillset(&all);
            pthread_sigmask(SIG_SETMASK, &all, &saved);
            internal::setForkingToExec(true);
            child = fork();
            if (child != 0)
            {
                internal::setForkingToExec(false);
                pthread_sigmask(SIG_SETMASK, &saved, nullptr);
            }
        });
    return child;
}

// Default disposition for a signal, dropping one that is pending: setting
// SIG_IGN discards it.
void restoreDefault(int signalNumber)
{
    struct sigaction action = {};
    sigemptyset(&action.sa_mask);
    action.sa_handler = SIG_IGN;
    sigaction(signalNumber, &action, nullptr);
    action.sa_handler = SIG_DFL;
    sigaction(signalNumber, &action, nullptr);
}

// In the child, with every signal blocked: takes back what the library set up
// for its own process, then runs the program. Returns only when execv failed,
// with its errno. Async-signal-safe throughout.
void execInChild(const char* path, char* const argv[])
{
    static const int c_anLibrarySignals[] = {SIGALRM, SIGUSR1, SIGUSR2};
    static const int c_anServiceSignals[] = {SIGINT, SIGTERM, SIGPIPE, SIGCHLD};
    for (int signalNumber : c_anLibrarySignals)
        restoreDefault(signalNumber);
    for (int signalNumber : c_anServiceSignals)
    {
        struct sigaction current;
        if (sigaction(signalNumber, nullptr, &current) == 0 && current.sa_handler == ControlHandler)
            restoreDefault(signalNumber);
    }
    // An armed interval timer would outlive execv and end the program.
    const itimerval stopped = {};
    setitimer(ITIMER_REAL, &stopped, nullptr);

    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    execv(path, argv);
}

// waitpid for one child; a wait that a signal interrupted is no result, and
// goes on.
pid_t waitForChild(pid_t child, int* status)
{
    pid_t result;
    do
        result = waitpid(child, status, 0);
    while (result < 0 && errno == EINTR);
    return result;
}

bool exitedNormally(int status)
{
    return (status & 0x7f) == 0;
}

int exitCode(int status)
{
    return (status >> 8) & 0xff;
}

// ---------------------------------------------------------------------------
// The child of OrvaExecuteProgramEx

// Makes `fd` the child's descriptor `target`, unless it is `target` itself or
// -1. On failure logs `message` and ends the child. The store into
// *exitStatus lands in the child's copy of the caller's memory and never
// reaches the caller.
void redirectOrExit(int fd, int target, int* exitStatus, const internal::ForkedChildLog& childLog,
                    const char* message)
{
    if (fd == target || fd == -1)
        return;
    if (dup2(fd, target) >= 0)
        return;
    if (exitStatus != nullptr)
        *exitStatus = -1;
    childLog.write(1, message);
    _exit(0);
}

[[noreturn]] void runProgramInChild(const std::string& commandLine, int standardInput, int standardOutput,
                                    int* exitStatus, const internal::ForkedChildLog& childLog)
{
    // Whatever fails here, nothing may leave the child but _exit: an
    // exception would unwind into the caller's copy of its own program.
    try
    {
        childLog.write(9, "OrvaExecuteProgram: child process id: 0");

        std::string line(commandLine);
        if (!line.empty() && !std::isalnum(static_cast<unsigned char>(line.back())))
            line.pop_back();
        std::vector<std::string> words;
        internal::parseCommandLineWithPrivateCursor(line, words);

        std::vector<char*> argv;
        for (std::size_t i = 0; i < words.size(); ++i)
        {
            argv.push_back(&words[i][0]);
            childLog.write(9, "OrvaExecuteProgram: argv[" + std::to_string(i) + "] = " + words[i]);
        }
        argv.push_back(nullptr);

        redirectOrExit(standardInput, STDIN_FILENO, exitStatus, childLog,
                       "OrvaExecuteProgram: could not duplicate requested standard input handle: ");
        redirectOrExit(standardOutput, STDOUT_FILENO, exitStatus, childLog,
                       "OrvaExecuteProgram: could not duplicate requested standard output handle: ");

        // A line without words has no program to run.
        if (argv[0] != nullptr)
            execInChild(argv[0], argv.data());
    }
    catch (...)
    {
    }
    _exit(0);
}

} // namespace

// ---------------------------------------------------------------------------
// Programs

bool OrvaExecuteProgram(const std::string& commandLine, bool wait, int* processId, int* exitStatus)
{
    OVKIT_LOG(5, "OrvaExecuteProgram: Execution Started.");
    return OrvaExecuteProgramEx(commandLine, -1, -1, wait, processId, exitStatus);
}

bool OrvaExecuteProgramEx(const std::string& commandLine, int standardInput, int standardOutput, bool wait,
                          int* processId, int* exitStatus)
{
    OVKIT_LOG(5, "OrvaExecuteProgramEx: Execution Started.");

    const internal::ForkedChildLog childLog;
    const pid_t child = forkToExec();
    if (child == 0)
        runProgramInChild(commandLine, standardInput, standardOutput, exitStatus, childLog);

    OVKIT_LOG(9, "OrvaExecuteProgram: child process id: " << child);
    if (child < 0)
    {
        if (exitStatus != nullptr)
            *exitStatus = -1;
        OVKIT_LOG(1, "OrvaExecuteProgram: could not fork child process. ");
        return false;
    }
    if (!wait)
    {
        if (processId != nullptr)
            *processId = child;
        return true;
    }

    OVKIT_LOG(9, "OrvaExecuteProgram: waiting for process " << child);
    int status = 0;
    waitForChild(child, &status);
    if (exitStatus == nullptr)
        return true;
    if (!exitedNormally(status))
    {
        // A child killed by a signal reads as exit status 0.
        *exitStatus = 0;
        return true;
    }
    *exitStatus = exitCode(status);
    OVKIT_LOG(9, "OrvaExecuteProgram: child process " << child << " completed with status " << *exitStatus);
    return true;
}

// ---------------------------------------------------------------------------
// Directories

namespace
{

const mode_t c_nDirectoryMode = 0755;

// Makes each parent of `path` in turn, then the path itself, with every `\`
// turned into `/` on the way.
bool createWithParents(const std::string& path)
{
    // The walk sees the path as the C string it is, up to a zero byte.
    std::string work(path.c_str());
    // Scanning from the second character keeps a leading separator from
    // opening an empty name.
    std::string::size_type scanFrom = work.empty() ? 0 : 1;
    for (;;)
    {
        const std::string::size_type separator = work.find_first_of("\\/", scanFrom);
        const std::string name = work.substr(0, separator);
        if (mkdir(name.c_str(), c_nDirectoryMode) != 0)
        {
            const int error = errno;
            if (error != EEXIST && access(name.c_str(), F_OK) != 0)
            {
                OVKIT_LOG(9, "OrvaCreateDirectory: couldn't create " << name << " (" << error << ")");
                return false;
            }
        }
        if (separator == std::string::npos)
            return true;
        work[separator] = '/';
        scanFrom = separator + 1;
    }
}

} // namespace

bool OrvaCreateDirectory(const std::string& path)
{
    OVKIT_LOG(9, "OrvaCreateDirectory: " << path);
    if (mkdir(path.c_str(), c_nDirectoryMode) == 0)
        return true;
    const int error = errno;
    if (error == ENOENT)
        return createWithParents(path);
    if (error == EEXIST)
        return true;
    return access(path.c_str(), F_OK) == 0;
}

namespace
{

// Runs "/bin/rm -rf path" and waits for it; see OrvaRemoveDirectoryImpl.
bool removeWithRm(const std::string& path, std::string& errorText, int& errorCode)
{
    // Everything the child needs is ready before the fork.
    char program[] = "rm";
    char options[] = "-rf";
    char* const argv[] = {program, options, const_cast<char*>(path.c_str()), nullptr};

    const pid_t child = forkToExec();
    if (child == 0)
    {
        execInChild("/bin/rm", argv);
        _exit(errno);
    }
    // With no child there is nothing to wait for: the answer is that of a
    // wait that finds no child.
    if (child < 0)
        return true;

    int status = 0;
    if (waitForChild(child, &status) < 0 || !exitedNormally(status))
        return true;
    errorCode = exitCode(status);
    if (errorCode == 0)
        return true;
    errorText = "OrvaRemoveDirectory: Could not remove the directory " + path;
    return false;
}

} // namespace

bool OrvaRemoveDirectoryImpl(const std::string& path, bool recursive, std::string& errorText, int& errorCode)
{
    OVKIT_LOG(9, "OrvaRemoveDirectory: Remove directoryImpl " << path);
    if (rmdir(path.c_str()) == 0)
        return true;
    const int error = errno;
    if (error == ENOTEMPTY && recursive)
        return removeWithRm(path, errorText, errorCode);
    errorText = "OrvaRemoveDirectory: Could not remove the directory " + path;
    errorCode = error;
    return false;
}

// ---------------------------------------------------------------------------
// Error texts

namespace
{

const char c_szUnrecognizedError[] = "Unrecognized error code: %d (0x%08x)";
const std::size_t c_nWideFallbackLimit = 1024;

// strerror's words, through the thread-safe form (which gives a text of its
// own for a known number, and formats unknown ones into the buffer).
std::string systemErrorText(int error)
{
    char buffer[256];
    const char* text = strerror_r(error, buffer, sizeof(buffer));
    return text != nullptr ? text : std::string();
}

} // namespace

void OrvaGetOSErrorMessage(int error, std::string& text)
{
    text = OrvaStringUtilities::trim(systemErrorText(error), " \t\r\n", OrvaStringUtilities::TrimBoth);
    if (!text.empty())
        return;
    char fallback[64];
    snprintf(fallback, sizeof(fallback), c_szUnrecognizedError, error, static_cast<unsigned int>(error));
    text = fallback;
}

void OrvaGetOSErrorMessage(int error, std::wstring& text)
{
    text = OrvaStringUtilities::widen(systemErrorText(error), OrvaLocaleFactory::getDefaultLocale(true));
    text = OrvaStringUtilities::trim(text, L" \t\r\n", OrvaStringUtilities::TrimBoth);
    if (!text.empty())
        return;
    std::vector<wchar_t> fallback(c_nWideFallbackLimit);
    swprintf(fallback.data(), fallback.size(), L"Unrecognized error code: %d (0x%08x)", error,
             static_cast<unsigned int>(error));
    text = fallback.data();
}

} // namespace OrvaSupport
