// Regular expressions, measured against std::regex and PCRE2 (interpreter,
// no JIT) in the same run, on 1 MiB of generated log lines in both widths.
//
// Each measure searches the whole text for every match (Whole) or each line
// once (Lines), counting the matches. Before anything is measured, every
// engine's count and sum of match offsets is computed and compared: the
// patterns and data are chosen so that all three agree, and the program
// stops if they do not.
//
// Benchmarks are named "Regex_<Pattern><Width><Scope>/<engine>", the engine
// "ovkit" being ours.
#include <ovkit/OrvaRegularExpression.h>

#include <benchmark/benchmark.h>

#define PCRE2_CODE_UNIT_WIDTH 0
#include <pcre2.h>

#include <cstdio>
#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

using OrvaSupport::OrvaRegularExpression;

namespace
{

template <class S>
S widen(const std::string& text)
{
    return S(text.begin(), text.end());
}

// ---------------------------------------------------------------------------
// The data: log lines of a made-up service, 1 MiB of them. Every `=` follows
// a lower-case word, so that "[a-z]*=..." means the same to all engines.

std::string makeLogText()
{
    static const char* const c_szPaths[] = {"items", "orders", "users", "health"};
    static const int c_nStatus[] = {200, 200, 200, 404, 503};
    std::string text;
    char line[256];
    unsigned int seed = 12345;
    for (int i = 0; text.size() < (1u << 20); ++i)
    {
        seed = seed * 1103515245u + 12345u;
        const unsigned int r = seed >> 8;
        if (i % 4 == 3)
            std::snprintf(line, sizeof(line),
                          "2026-11-24T12:%02u:%02u host%02u agent[%u]: event=restart reason=%s\n", r % 60,
                          (r >> 6) % 60, r % 16, 1000 + r % 9000, c_szPaths[r % 4]);
        else
            std::snprintf(line, sizeof(line),
                          "2026-11-24T12:%02u:%02u host%02u api[%u]: request id=%u path=/v1/%s latency=%ums "
                          "status=%d\n",
                          r % 60, (r >> 6) % 60, r % 16, 1000 + r % 9000, r % 100000, c_szPaths[(r >> 3) % 4],
                          (r >> 4) % 2000, c_nStatus[(r >> 5) % 5]);
        text += line;
    }
    text.resize(1u << 20);
    return text;
}

template <class S>
struct Corpus
{
    S text;
    std::vector<S> lines;
};

template <class S>
const Corpus<S>& corpus()
{
    static const Corpus<S> s_corpus = []
    {
        Corpus<S> c;
        c.text = widen<S>(makeLogText());
        for (std::size_t start = 0; start < c.text.size();)
        {
            std::size_t end = c.text.find(typename S::value_type('\n'), start);
            end = end == S::npos ? c.text.size() : end;
            c.lines.push_back(c.text.substr(start, end - start));
            start = end + 1;
        }
        return c;
    }();
    return s_corpus;
}

// ---------------------------------------------------------------------------
// Engines, each with find(text, pos, at, length).

template <class S>
class OvkitEngine
{
public:
    explicit OvkitEngine(const char* pattern) { m_oRe.setPattern(widen<S>(pattern)); }
    bool find(const S& text, std::size_t pos, std::size_t& at, std::size_t& length) const
    {
        unsigned int n = 0;
        const unsigned int found = m_oRe.find(text, n, static_cast<unsigned int>(pos));
        at = found;
        length = n;
        return found != OrvaRegularExpression<S>::npos;
    }

private:
    OrvaRegularExpression<S> m_oRe;
};

template <class S>
class StdRegexEngine
{
public:
    explicit StdRegexEngine(const char* pattern) : m_oRe(widen<S>(pattern)) {}
    bool find(const S& text, std::size_t pos, std::size_t& at, std::size_t& length) const
    {
        std::match_results<typename S::const_iterator> m;
        const auto flags =
            pos > 0 ? std::regex_constants::match_prev_avail : std::regex_constants::match_default;
        if (!std::regex_search(text.begin() + pos, text.end(), m, m_oRe, flags))
            return false;
        at = pos + m.position(0);
        length = m.length(0);
        return true;
    }

private:
    std::basic_regex<typename S::value_type> m_oRe;
};

template <class C>
struct PcreApi;

template <>
struct PcreApi<char>
{
    typedef pcre2_code_8 Code;
    typedef pcre2_match_data_8 Data;
    typedef PCRE2_SPTR8 Text;
    static constexpr auto compile = &pcre2_compile_8;
    static constexpr auto createData = &pcre2_match_data_create_from_pattern_8;
    static constexpr auto match = &pcre2_match_8;
    static constexpr auto ovector = &pcre2_get_ovector_pointer_8;
    static constexpr auto freeData = &pcre2_match_data_free_8;
    static constexpr auto freeCode = &pcre2_code_free_8;
};

template <>
struct PcreApi<wchar_t>
{
    typedef pcre2_code_32 Code;
    typedef pcre2_match_data_32 Data;
    typedef PCRE2_SPTR32 Text;
    static constexpr auto compile = &pcre2_compile_32;
    static constexpr auto createData = &pcre2_match_data_create_from_pattern_32;
    static constexpr auto match = &pcre2_match_32;
    static constexpr auto ovector = &pcre2_get_ovector_pointer_32;
    static constexpr auto freeData = &pcre2_match_data_free_32;
    static constexpr auto freeCode = &pcre2_code_free_32;
};

template <class S>
class PcreEngine
{
    typedef PcreApi<typename S::value_type> Api;

public:
    explicit PcreEngine(const char* pattern)
    {
        const S text = widen<S>(pattern);
        int error = 0;
        PCRE2_SIZE offset = 0;
        m_pCode = Api::compile(reinterpret_cast<typename Api::Text>(text.data()), text.size(), 0, &error,
                               &offset, nullptr);
        if (m_pCode == nullptr)
        {
            std::fprintf(stderr, "PCRE2 rejects %s (error %d)\n", pattern, error);
            std::exit(1);
        }
        m_pData = Api::createData(m_pCode, nullptr);
    }
    ~PcreEngine()
    {
        Api::freeData(m_pData);
        Api::freeCode(m_pCode);
    }
    PcreEngine(const PcreEngine&) = delete;
    PcreEngine& operator=(const PcreEngine&) = delete;

    bool find(const S& text, std::size_t pos, std::size_t& at, std::size_t& length) const
    {
        if (Api::match(m_pCode, reinterpret_cast<typename Api::Text>(text.data()), text.size(), pos, 0,
                       m_pData, nullptr) < 0)
            return false;
        const PCRE2_SIZE* ovector = Api::ovector(m_pData);
        at = ovector[0];
        length = ovector[1] - ovector[0];
        return true;
    }

private:
    typename Api::Code* m_pCode;
    typename Api::Data* m_pData;
};

// ---------------------------------------------------------------------------
// What is measured, and the agreement check.

struct Tally
{
    std::size_t matches;
    std::size_t offsetSum;
    bool operator!=(const Tally& other) const
    {
        return matches != other.matches || offsetSum != other.offsetSum;
    }
};

template <class Engine, class S>
Tally searchWhole(const Engine& engine, const Corpus<S>& data)
{
    Tally tally{0, 0};
    std::size_t at = 0, length = 0;
    for (std::size_t pos = 0; pos <= data.text.size() && engine.find(data.text, pos, at, length);
         pos = at + (length ? length : 1))
    {
        ++tally.matches;
        tally.offsetSum += at;
    }
    return tally;
}

template <class Engine, class S>
Tally searchLines(const Engine& engine, const Corpus<S>& data)
{
    Tally tally{0, 0};
    std::size_t at = 0, length = 0;
    for (const S& line : data.lines)
        if (engine.find(line, 0, at, length))
        {
            ++tally.matches;
            tally.offsetSum += at;
        }
    return tally;
}

template <class Engine, class S>
Tally search(const Engine& engine, bool whole)
{
    return whole ? searchWhole(engine, corpus<S>()) : searchLines(engine, corpus<S>());
}

template <class Engine, class S>
void registerOne(const std::string& measure, const char* engineName, const char* pattern, bool whole)
{
    benchmark::RegisterBenchmark((measure + "/" + engineName).c_str(),
                                 [pattern, whole](benchmark::State& state)
                                 {
                                     const Engine engine(pattern);
                                     for (auto _ : state)
                                         benchmark::DoNotOptimize(search<Engine, S>(engine, whole));
                                     state.SetBytesProcessed(state.iterations() * (1 << 20));
                                 });
}

template <class S>
void registerPattern(const char* name, const char* pattern, const char* width)
{
    for (bool whole : {true, false})
    {
        const Tally ours = search<OvkitEngine<S>, S>(OvkitEngine<S>(pattern), whole);
        if (ours != search<StdRegexEngine<S>, S>(StdRegexEngine<S>(pattern), whole) ||
            ours != search<PcreEngine<S>, S>(PcreEngine<S>(pattern), whole) || ours.matches == 0)
        {
            std::fprintf(stderr, "engines disagree on %s (%s, %s): the data must be changed\n", pattern,
                         width, whole ? "whole" : "lines");
            std::exit(1);
        }
        const std::string measure = std::string("Regex_") + name + width + (whole ? "Whole" : "Lines");
        registerOne<OvkitEngine<S>, S>(measure, "ovkit", pattern, whole);
        registerOne<StdRegexEngine<S>, S>(measure, "std::regex", pattern, whole);
        registerOne<PcreEngine<S>, S>(measure, "pcre2", pattern, whole);
    }
}

const bool s_registered = []
{
    const char* const patterns[][2] = {
        {"Literal", "status=503"}, {"LiteralLed", "latency=[0-9]+ms"}, {"Set", "[a-z]*=[0-9]+ms"}};
    for (const auto& p : patterns)
    {
        registerPattern<std::string>(p[0], p[1], "Narrow");
        registerPattern<std::wstring>(p[0], p[1], "Wide");
    }
    return true;
}();

} // namespace
