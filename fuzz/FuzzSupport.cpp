// libFuzzer's start-up hook, shared by every harness.
#include "FuzzSupport.h"

#include <csignal>

/// The library takes SIGALRM for its timers when it is loaded, and libFuzzer
/// leaves a handler that it finds in place, so that its own timeout alarm
/// (-timeout) would never reach it and a hang would run on for ever. No
/// harness starts a timer: the signal goes back to its default here, before
/// libFuzzer installs its handlers.
extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    std::signal(SIGALRM, SIG_DFL);
    return 0;
}
