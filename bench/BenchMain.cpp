// The entry point shared by every benchmark program.
#include <benchmark/benchmark.h>

#include <thread>

namespace
{

// The C library and libstdc++ leave out their atomic instructions while a
// process has never had a second thread (a shared_ptr count, for one, is then
// a plain increment). The daemons this library serves always run several, and
// the threaded benchmarks would turn the process threaded part of the way
// through a run: one thread started and joined before main makes every
// measure pay what it pays in a threaded process.
const bool s_processThreaded = []
{
    std::thread([] {}).join();
    return true;
}();

} // namespace

BENCHMARK_MAIN();
