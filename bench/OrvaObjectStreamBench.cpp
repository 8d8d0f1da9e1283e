// Value streams, measured against std::stringstream's binary I/O in the same
// run: N ints written one by one, then read back one by one.
//
// Names follow "<Family>_<Measure>/<implementation>" (see OrvaCriticalSectionBench.cpp);
// the argument N follows as a further part. Each pair also reports its
// complexity over N, which must come out linear: reading a stream value by
// value must not move the rest of the data each time.
#include <ovkit/OrvaObjectStream.h>

#include <benchmark/benchmark.h>

#include <sstream>

using OrvaSupport::OrvaBufferStream;

namespace
{

void writeReadIntsOvkit(benchmark::State& state)
{
    const int count = static_cast<int>(state.range(0));
    for (auto _ : state)
    {
        OrvaBufferStream stream;
        for (int i = 0; i < count; ++i)
            stream << i;
        int value = 0;
        for (int i = 0; i < count; ++i)
        {
            stream >> value;
            benchmark::DoNotOptimize(value);
        }
    }
    state.SetComplexityN(state.range(0));
    state.SetBytesProcessed(state.iterations() * state.range(0) * sizeof(int));
}

void writeReadIntsStringstream(benchmark::State& state)
{
    const int count = static_cast<int>(state.range(0));
    for (auto _ : state)
    {
        std::stringstream stream(std::ios::in | std::ios::out | std::ios::binary);
        for (int i = 0; i < count; ++i)
            stream.write(reinterpret_cast<const char*>(&i), sizeof i);
        int value = 0;
        for (int i = 0; i < count; ++i)
        {
            stream.read(reinterpret_cast<char*>(&value), sizeof value);
            benchmark::DoNotOptimize(value);
        }
    }
    state.SetComplexityN(state.range(0));
    state.SetBytesProcessed(state.iterations() * state.range(0) * sizeof(int));
}

} // namespace

BENCHMARK(writeReadIntsOvkit)
    ->Name("ObjectStream_WriteReadInts/ovkit")
    ->RangeMultiplier(4)
    ->Range(1 << 10, 1 << 20)
    ->Complexity(benchmark::oN);
BENCHMARK(writeReadIntsStringstream)
    ->Name("ObjectStream_WriteReadInts/std::stringstream")
    ->RangeMultiplier(4)
    ->Range(1 << 10, 1 << 20)
    ->Complexity(benchmark::oN);
