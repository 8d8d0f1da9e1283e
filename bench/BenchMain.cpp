// The entry point shared by every benchmark program.
#include <benchmark/benchmark.h>

#include <thread>

int main(int argc, char** argv)
{
    // The C library and libstdc++ leave out their atomic instructions while a
    // process has never had a second thread (a shared_ptr count, for one, is
    // then a plain increment). The daemons this library serves always run
    // several, and the threaded benchmarks would turn the process threaded
    // part of the way through a run: one thread started and joined here makes
    // every measure pay what it pays in a threaded process.
    std::thread([] {}).join();

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
