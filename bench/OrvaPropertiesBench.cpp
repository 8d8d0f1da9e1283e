// Loading a property file, measured against POCO's PropertyFileConfiguration
// in the same run.
//
// Every benchmark is named "<Family>_<Measure>/<implementation>/<lines>":
// "ovkit" is ours, "POCO" the peer that bench/report.py sets beside it.
#include <ovkit/OrvaProperties.h>

#include "BenchSupport.h"

#include <Poco/AutoPtr.h>
#include <Poco/Util/PropertyFileConfiguration.h>
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>

using OrvaSupport::OrvaProperties;

namespace
{

// One file per line count, written the first time a benchmark asks for it
// and removed at exit with its directory.
ovkit_bench::ScratchDir s_files;
std::map<long, std::string> s_written;

// `lines` lines of "key.N = value N", the first of every hundred a comment
// and one in a thousand continued on the next line with a trailing
// backslash. POCO joins such a pair into one value; ours reads two lines,
// the second a name without value. Both store about one entry per line.
const std::string& propertyFile(long lines)
{
    std::string& path = s_written[lines];
    if (!path.empty())
        return path;
    path = s_files.file("load-" + std::to_string(lines) + ".properties");
    std::ofstream out(path, std::ios::binary);
    for (long n = 0; n < lines; ++n)
    {
        if (n % 100 == 0)
            out << "# settings from " << n << '\n';
        else if (n % 1000 == 499 && n + 1 < lines)
        {
            out << "key." << n << " = value " << n << " \\\n";
            out << "    continued " << ++n << '\n';
        }
        else
            out << "key." << n << " = value " << n << '\n';
    }
    if (!out)
        abort();
    return path;
}

// The table is built and loaded inside the timed region and destroyed
// outside it, on both sides: the measure is the load. glibc does not finish a
// destruction at once: it keeps the freed small blocks aside and merges them
// at the next allocation of a larger block, which would be the stream buffer
// of the next load, charging one table's clean-up (a million blocks and more)
// to the next load. So the untimed part ends with one such allocation.

void settleHeap()
{
    void* block = std::malloc(4096);
    benchmark::DoNotOptimize(block);
    std::free(block);
}

void loadOvkit(benchmark::State& state)
{
    const std::string& path = propertyFile(state.range(0));
    for (auto _ : state)
    {
        auto* props = new OrvaProperties<std::string>();
        props->loadProperties(path, '=');
        benchmark::DoNotOptimize(props);
        state.PauseTiming();
        delete props;
        settleHeap();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void loadPoco(benchmark::State& state)
{
    const std::string& path = propertyFile(state.range(0));
    for (auto _ : state)
    {
        Poco::AutoPtr<Poco::Util::PropertyFileConfiguration> props(
            new Poco::Util::PropertyFileConfiguration(path));
        benchmark::DoNotOptimize(props.get());
        state.PauseTiming();
        props = nullptr;
        settleHeap();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

} // namespace

BENCHMARK(loadOvkit)
    ->Name("Properties_Load/ovkit")
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(loadPoco)
    ->Name("Properties_Load/POCO")
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond);
