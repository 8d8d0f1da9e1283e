// The log, measured against spdlog in the same run.
//
// Every benchmark is named "<Family>_<Measure>/<implementation>": "ovkit" is
// ours, "spdlog" the peer that bench/report.py sets beside it.
#include <ovkit/OrvaLogging.h>

#include "BenchSupport.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>

using OrvaSupport::OrvaLogging;
using OrvaSupport::setloglevel;

namespace
{

// Both logs write to a file and to standard output. Standard output is where
// the program hands its results to bench/report.py, so while a benchmark
// runs, file descriptor 1 points to /dev/null: the records still go through
// the C library's stdout and a write() each, and the report stays readable.
class StandardOutputSilenced
{
public:
    StandardOutputSilenced()
    {
        std::cout.flush();
        std::fflush(stdout);
        m_nSaved = dup(STDOUT_FILENO);
        const int null = open("/dev/null", O_WRONLY);
        if (m_nSaved < 0 || null < 0 || dup2(null, STDOUT_FILENO) < 0)
            std::abort();
        close(null);
    }
    ~StandardOutputSilenced()
    {
        std::cout.flush();
        std::fflush(stdout);
        dup2(m_nSaved, STDOUT_FILENO);
        close(m_nSaved);
    }

    StandardOutputSilenced(const StandardOutputSilenced&) = delete;
    StandardOutputSilenced& operator=(const StandardOutputSilenced&) = delete;

private:
    int m_nSaved;
};

// Ours: target 3 (file and standard output), global level 5. The file is
// "<dir>/bench<n>.log", n drawn by the log; it goes with the directory.
// Every written line is flushed on both targets.
struct OvkitLog
{
    ovkit_bench::ScratchDir dir;
    OrvaLogging log{dir.file("bench.log"), 3, 5};
    OvkitLog() { OrvaLogging::setInstance(log); }
};

// The peer: one logger with a file sink and a standard output sink, a prefix
// of the same parts and about the same length as ours (date_time, level,
// name in 10 columns, thread id), each record flushed, written from level
// info on.
struct SpdLog
{
    ovkit_bench::ScratchDir dir;
    std::shared_ptr<spdlog::logger> logger;
    SpdLog()
    {
        auto file = std::make_shared<spdlog::sinks::basic_file_sink_mt>(dir.file("bench.log"), true);
        auto out = std::make_shared<spdlog::sinks::stdout_sink_mt>();
        logger = std::make_shared<spdlog::logger>("Global", spdlog::sinks_init_list{file, out});
        logger->set_pattern("%Y%m%d_%H:%M:%S %L %-10n [%t] %v");
        logger->set_level(spdlog::level::info);
        logger->flush_on(spdlog::level::trace);
    }
};

// A record that is written: level 5 under global level 5, info under info.

void recordWrittenOvkit(benchmark::State& state)
{
    OvkitLog ovkit;
    StandardOutputSilenced silenced;
    int i = 0;
    for (auto _ : state)
    {
        ovkit.log << setloglevel(5) << "text " << i++ << OrvaSupport::endrecord;
    }
    state.SetItemsProcessed(state.iterations());
}

void recordWrittenSpdlog(benchmark::State& state)
{
    SpdLog spd;
    StandardOutputSilenced silenced;
    int i = 0;
    for (auto _ : state)
    {
        spd.logger->info("text {}", i++);
    }
    state.SetItemsProcessed(state.iterations());
}

// A record below the level, written out in full: level 7 under global level
// 5, debug under info. Nothing reaches a target.

void silentRecordOvkit(benchmark::State& state)
{
    OvkitLog ovkit;
    StandardOutputSilenced silenced;
    for (auto _ : state)
    {
        ovkit.log << setloglevel(7) << "text " << 42 << OrvaSupport::endrecord;
        benchmark::ClobberMemory();
    }
}

void silentRecordSpdlog(benchmark::State& state)
{
    SpdLog spd;
    StandardOutputSilenced silenced;
    for (auto _ : state)
    {
        spd.logger->debug("text {}", 42);
        benchmark::ClobberMemory();
    }
}

// The same record behind the caller's own level test, as a daemon writes it
// on a hot path. The clobber makes every iteration read the levels again.

void guardedSilentOvkit(benchmark::State& state)
{
    OvkitLog ovkit;
    StandardOutputSilenced silenced;
    for (auto _ : state)
    {
        if (OrvaLogging::isAccessAllowed() && OrvaLogging::getInstance()->getGlobalLogLevel() >= 7)
            *OrvaLogging::getInstance() << setloglevel(7) << "text " << 42 << OrvaSupport::endrecord;
        benchmark::ClobberMemory();
    }
}

void guardedSilentSpdlog(benchmark::State& state)
{
    SpdLog spd;
    StandardOutputSilenced silenced;
    for (auto _ : state)
    {
        if (spd.logger->should_log(spdlog::level::debug))
            spd.logger->debug("text {}", 42);
        benchmark::ClobberMemory();
    }
}

} // namespace

BENCHMARK(recordWrittenOvkit)->Name("Log_RecordWritten/ovkit");
BENCHMARK(recordWrittenSpdlog)->Name("Log_RecordWritten/spdlog");

BENCHMARK(silentRecordOvkit)->Name("Log_SilentRecord/ovkit");
BENCHMARK(silentRecordSpdlog)->Name("Log_SilentRecord/spdlog");

BENCHMARK(guardedSilentOvkit)->Name("Log_GuardedSilent/ovkit");
BENCHMARK(guardedSilentSpdlog)->Name("Log_GuardedSilent/spdlog");
