// The wildcard match of the file search, measured against the C library's
// fnmatch(3) in the same run. Patterns hold only `*`, `?` and plain bytes, on
// which the two agree (fnmatch is called without flags).
//
// Every benchmark is named "<Family>_<Measure>/<implementation>": "ovkit" is
// ours, "fnmatch" the peer.
#include <ovkit/OrvaFindFileImpl.h>

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <fnmatch.h>

#include <string>

using OrvaSupport::FindFileImplementation;

namespace
{

struct Case
{
    const char* measure;
    std::string pattern;
    std::string name;
};

// A directory listing's usual questions, and the many-star pattern on a long
// run of one byte on which a plain recursion takes exponential time.
const Case c_aCases[] = {
    {"FindFile_MatchSuffix", "*.log", "agent-20261115-064125.log"},
    {"FindFile_MatchMiss", "*.log", "agent-20261115-064125.txt"},
    {"FindFile_MatchQuestionMarks", "agent-???????\?-??????.*", "agent-20261115-064125.log"},
    {"FindFile_MatchLiteral", "agent.properties", "agent.properties"},
    {"FindFile_ManyStars", "*a*a*a*a*a*b", std::string(255, 'a')},
};

void matchOvkit(benchmark::State& state, const Case* c)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(FindFileImplementation::IsPatternMatch(c->pattern.c_str(), c->name.c_str()));
}

void matchFnmatch(benchmark::State& state, const Case* c)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(fnmatch(c->pattern.c_str(), c->name.c_str(), 0) == 0);
}

const bool s_registered = []
{
    for (const Case& c : c_aCases)
    {
        // Both must agree, or the comparison means nothing.
        if (FindFileImplementation::IsPatternMatch(c.pattern.c_str(), c.name.c_str()) !=
            (fnmatch(c.pattern.c_str(), c.name.c_str(), 0) == 0))
            std::abort();
        benchmark::RegisterBenchmark((std::string(c.measure) + "/ovkit").c_str(), matchOvkit, &c);
        benchmark::RegisterBenchmark((std::string(c.measure) + "/fnmatch").c_str(), matchFnmatch, &c);
    }
    return true;
}();

} // namespace
