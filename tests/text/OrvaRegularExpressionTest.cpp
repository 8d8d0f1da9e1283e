// The pattern dialect's tokens and errors, the matcher's offsets and lengths,
// match and replace, the trace records, and searches racing a new pattern;
// tables run for both string widths.
#include <ovkit/OrvaRegularExpression.h>

#include <ovkit/OrvaException.h>

#include "support/LogTestHelpers.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstring>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace OrvaSupport;

namespace
{

const unsigned int N = 0xFFFFFFFFu; // no match

template <class S>
S str(const char* text)
{
    return S(text, text + std::strlen(text));
}

/// The records written since the last call, without their prefixes.
struct TraceLog
{
    explicit TraceLog(int level) : file(level) { OrvaLogging::setInstance(file.log); }
    std::vector<std::string> take()
    {
        std::vector<std::string> lines = file.lines(true);
        lines.erase(lines.begin(), lines.begin() + seen);
        seen += lines.size();
        return lines;
    }
    ovkit_test::FileLog file;
    std::size_t seen = 0;
};

/// The token records of print() after the pattern record, cut to "<type> <factor>".
template <class S>
std::string tokensOf(OrvaRegularExpression<S>& re, TraceLog& log)
{
    re.print();
    std::string joined;
    for (const std::string& line : log.take())
        if (line.compare(0, 22, "ExpressionToken: type=") == 0)
            joined += (joined.empty() ? "" : " | ") + line.substr(22);
    return joined;
}

template <class S>
void checkTokens()
{
    const char* const cases[][2] = {
        {"", ""},
        {"abc*", "literal segment=ab factor=one | literal segment=c factor=zero or more"},
        {"a\\n+", "literal segment=a factor=one | literal segment=n factor=one or more"},
        {"[a.b]", "in set factor=one | any factor=one | literal segment=b] factor=one"},
        {"[ab*]", "in set factor=one | literal segment=b factor=zero or more | literal segment=] factor=one"},
        {"[a-c*]x",
         "in set factor=one | literal segment=c factor=zero or more | literal segment=]x factor=one"},
        {"[^ab]+$", "not in set factor=one or more | end factor=one"},
        {"^^", "begin factor=one | literal segment=^ factor=one"},
        {"a^", "literal segment=a^ factor=one"},
        {"^*", "begin factor=zero or more"},
        {"a**", "literal segment=a factor=zero or more | literal segment=* factor=one"},
        {"*+", "literal segment=* factor=one or more"},
        {".?(a)|b", "any factor=zero or one | literal segment=(a)|b factor=one"},
        {"\\^", "literal segment= factor=one"},
        {"\\d\\x41", "literal segment=d41 factor=one"},
        {"[abc", "in set factor=one"},
    };
    TraceLog log(9);
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c[0]);
        OrvaRegularExpression<S> re;
        re.setPattern(str<S>(c[0]));
        EXPECT_EQ(c[1], tokensOf(re, log));
    }
}

template <class S>
void checkErrors()
{
    const char* const cases[][2] = {
        {"[", "empty set in pattern"},
        {"[]", "empty set in pattern"},
        {"[^", "empty set in pattern"},
        {"x[^]", "empty set in pattern"},
        {"[]a]", "empty set in pattern"},
        {"\\", "bad escape expression"},
        {"a\\", "bad regular expression"},
        {"[\\", "bad regular expression"},
        {"a$b", "end token found inside expression"},
        {"[a$]", "end token found inside expression"},
        {"[a-", "end of expression found in pattern"},
        {"[a-]", "invalid endpoint in range"},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c[0]);
        OrvaRegularExpression<S> re;
        std::string error;
        EXPECT_FALSE(re.setPatternImpl(str<S>(c[0]), error));
        EXPECT_EQ(c[1], error);
        try
        {
            re.setPattern(str<S>(c[0]));
            ADD_FAILURE() << "no exception";
        }
        catch (const OrvaException& e)
        {
            EXPECT_EQ(c[1], e.getText());
            EXPECT_EQ(0, e.getCode());
        }
    }
    // A failed compile keeps the tokens made up to the fault, under the old text.
    TraceLog log(9);
    OrvaRegularExpression<S> re;
    std::string error = "untouched";
    ASSERT_TRUE(re.setPatternImpl(str<S>("xy"), error));
    EXPECT_EQ("untouched", error);
    EXPECT_FALSE(re.setPatternImpl(str<S>("ab[]"), error));
    EXPECT_EQ("literal segment=ab factor=one", tokensOf(re, log));
    EXPECT_EQ(1u, re.find(str<S>("zab")));
}

struct FindCase
{
    const char* pattern;
    const char* text;
    unsigned int pos, offset, length;
};

template <class S>
void checkFind()
{
    const FindCase cases[] = {
        {"", "abc", 0, N, 77},          {"^", "", 0, N, 77},
        {"^$", "abc", 0, N, 77},        {".*", "", 0, N, 77},
        {".*", "abc", 0, 0, 3},         {"a*", "bbb", 0, N, 77},
        {"a*b", "xb", 0, N, 77},        {"a?b", "b", 0, N, 77},
        {"a?b", "xab", 0, 1, 2},        {"[ab]c", "xac", 0, N, 77},
        {"[ab]*c", "xac", 0, 1, 2},     {"a.c", "abdabc", 0, 3, 3},
        {"a.c", "acx", 0, 0, 2},        {"a*ab", "aaab", 0, 0, 4},
        {"x.+y", "xy", 0, N, 77},       {"x.+y", "xaay", 0, 0, 4},
        {"a[0-9]+z", "a123z", 0, 0, 5}, {"a[0-9]+z", "a12xz", 0, N, 77},
        {"ab*c", "ac", 0, 0, 2},        {"ab*c", "abbbc", 0, 0, 5},
        {"^ab", "xab", 0, N, 2},        {"^ab", "xab", 1, 1, 2},
        {"ab$", "xab", 0, 1, 2},        {"ab$", "abxab", 0, N, 2},
        {"[a.b]", "azb]", 0, 0, 4},     {"[-ab]", "a", 0, N, 77},
        {"[^-ab]", "a", 0, 0, 1},       {"[a-c-e]", "d", 0, 0, 1},
        {"[\\]]", "]", 0, 0, 1},        {"[\\-a]", "-", 0, 0, 1},
        {"[\\-a]", "b", 0, N, 77},      {"[A-]", "Z", 0, 0, 1},
        {"[A-]", "^", 0, N, 77},        {"\\d", "d", 0, 0, 1},
        {"\\x41", "41", 0, 0, 2},       {"a\\n+", "annn", 0, 0, 4},
        {"\\t", "a\tb", 0, 1, 1},       {"a|b", "a|b", 0, 0, 3},
        {"a", "abc", 10, N, 77},        {"\\e", "ab", 2, 2, 0},
        {"\\e", "ab", 3, N, 77},        {"b", "xyz", 0, N, 77},
    };
    // 77: `length` is left alone when nothing matched at all; after a failed
    // anchor check it holds the length reached.
    for (const FindCase& c : cases)
    {
        SCOPED_TRACE(std::string(c.pattern) + " on " + c.text);
        OrvaRegularExpression<S> re;
        re.setPattern(str<S>(c.pattern));
        unsigned int length = 77;
        EXPECT_EQ(c.offset, re.find(str<S>(c.text), length, c.pos));
        EXPECT_EQ(c.length, length);
    }
}

template <class S>
void checkMatchAndReplace()
{
    typedef OrvaRegularExpression<S> Re;
    Re re;
    re.setPattern(str<S>("a.c"));
    EXPECT_EQ(str<S>("abc"), re.match(str<S>("xxabcd")));
    EXPECT_EQ(S(), re.match(str<S>("xxabcd"), 3));
    re.setPattern(str<S>("a"));
    EXPECT_EQ(str<S>("aaXaaXaa"), re.replace(str<S>("aXaXa"), str<S>("aa"), Re::All));
    EXPECT_EQ(str<S>("aaXaXa"), re.replace(str<S>("aXaXa"), str<S>("aa"), Re::First));
    EXPECT_EQ(str<S>("aXaaXa"),
              re.replace(str<S>("aXaXa"), str<S>("aa"), static_cast<typename Re::Occurrence>(7), 1));
    EXPECT_EQ(str<S>("bcd"), re.replace(str<S>("bcd"), str<S>("-"), Re::All));
    re.setPattern(str<S>("\\e"));
    EXPECT_EQ(str<S>("-a-b-"), re.replace(str<S>("ab"), str<S>("-"), Re::All));
}

} // namespace

TEST(OrvaRegularExpressionTest, TokensOfPatterns)
{
    checkTokens<std::string>();
    checkTokens<std::wstring>();
}

TEST(OrvaRegularExpressionTest, CompileErrors)
{
    checkErrors<std::string>();
    checkErrors<std::wstring>();
}

TEST(OrvaRegularExpressionTest, RangeEndsAndWideMembers)
{
    OrvaRegularExpression<std::string> narrow;
    std::string error;
    EXPECT_THROW(narrow.setPatternImpl(std::string("[a-\x7f]"), error), std::length_error);
    EXPECT_TRUE(narrow.setPatternImpl(std::string("[\x80-a]"), error)); // signed: 0x80 lies below 'a'
    EXPECT_EQ(0u, narrow.find(std::string("\xff")));
    OrvaRegularExpression<std::wstring> wide;
    EXPECT_THROW(wide.setPattern(std::wstring(L"[a-") + wchar_t(WCHAR_MAX)), std::length_error);
    // Members beyond code 255, in a range and alone.
    wide.setPattern(L"x[\u0100-\u0102\u4e00]+[^\u0103]");
    unsigned int length = 0;
    EXPECT_EQ(1u, wide.find(L"ax\u0101\u4e00\u0102\u0103xy", length, 0));
    EXPECT_EQ(4u, length);
    EXPECT_EQ(N, wide.find(L"x\u0101\u0103", length, 0));
}

TEST(OrvaRegularExpressionTest, FindOffsetsAndLengths)
{
    checkFind<std::string>();
    checkFind<std::wstring>();
}

TEST(OrvaRegularExpressionTest, MatchAndReplace)
{
    checkMatchAndReplace<std::string>();
    checkMatchAndReplace<std::wstring>();
}

TEST(OrvaRegularExpressionTest, TraceRecordsByLevel)
{
    const std::string impl = "OrvaRegularExpressionImplementation::",
                      literal = "ExpressionToken: type=literal "
                                "segment=a factor=one",
                      set = "ExpressionToken: type=in set factor=one",
                      tab = "\tmatch token:", hit = "a5.find (a, 0) = 0",
                      found = impl + "find: match found at 0:2", miss = "xyz.find (a, 4) = -1",
                      missed = impl + "find: match found at -1:0";
    const std::vector<std::string> at9 = {"regular expression: a[0-9]",
                                          literal,
                                          set,
                                          hit,
                                          impl + "addMatch: begin",
                                          literal,
                                          tab,
                                          "\t\tsegment: a:0:1:-1",
                                          impl + "addMatch: end",
                                          impl + "addMatch: begin",
                                          set,
                                          tab,
                                          "\t\tsegment: 5:1:1:0",
                                          impl + "addMatch: end",
                                          impl + "find: match stack begin",
                                          literal,
                                          tab,
                                          "\t\tsegment: a:0:1:-1",
                                          set,
                                          tab,
                                          "\t\tsegment: 5:1:1:0",
                                          impl + "find: match stack end",
                                          found,
                                          miss,
                                          impl + "find: match stack begin",
                                          impl + "find: match stack end",
                                          missed};
    const std::vector<std::string> above8 = {hit, found, miss, missed};
    for (int level : {9, 12, 8})
    {
        SCOPED_TRACE(level);
        TraceLog log(level);
        OrvaRegularExpression<std::wstring> re;
        re.setPattern(L"a[0-9]");
        re.print();
        EXPECT_EQ(0u, re.find(L"a5", 0));
        EXPECT_EQ(N, re.find(L"xyz", 4));
        EXPECT_EQ(level == 9 ? at9 : level == 12 ? above8 : std::vector<std::string>(), log.take());
        if (level == 9)
        {
            EXPECT_NE(std::string::npos, log.file.lines().at(0).find(" 9 Global     ["));
        }
    }
}

TEST(OrvaRegularExpressionTest, CopiesAreIndependent)
{
    OrvaRegularExpression<std::string> source;
    source.setPattern("b+");
    OrvaRegularExpression<std::string> copy(source);
    OrvaRegularExpression<std::string> assigned;
    assigned = source;
    source.setPattern("c");
    EXPECT_EQ(1u, copy.find("abbc"));
    EXPECT_EQ("bb", assigned.match("abbc"));
    EXPECT_EQ(3u, source.find("abbc"));
}

TEST(OrvaRegularExpressionTest, SearchesRacingSetPatternSeeOnePattern)
{
    typedef OrvaRegularExpression<std::string> Re;
    Re re;
    re.setPattern("a");
    std::atomic<bool> stop(false);
    std::thread setter(
        [&]
        {
            for (int i = 0; !stop.load(std::memory_order_relaxed); ++i)
                re.setPattern(i % 2 ? "a" : "y");
        });
    // Each searcher runs until it has seen both patterns a number of times.
    std::atomic<int> wrong(0);
    std::vector<std::thread> searchers;
    for (int t = 0; t < 2; ++t)
        searchers.emplace_back(
            [&]
            {
                const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
                int seen[2] = {0, 0};
                while ((seen[0] < 200 || seen[1] < 200) && std::chrono::steady_clock::now() < deadline)
                {
                    const unsigned int at = re.find("ayaya", 0);
                    const std::string replaced = re.replace("ayaya", "-", Re::All);
                    if (at > 1 || (replaced != "-y-y-" && replaced != "a-a-a"))
                        wrong.fetch_add(1);
                    ++seen[replaced == "-y-y-"];
                }
                if (seen[0] < 200 || seen[1] < 200)
                    wrong.fetch_add(1);
            });
    for (std::thread& searcher : searchers)
        searcher.join();
    stop.store(true);
    setter.join();
    EXPECT_EQ(0, wrong.load());
}

TEST(OrvaRegularExpressionTest, UntracedSearchesAgreeWithTracedOnes)
{
    // An untraced search takes shortcuts that a traced one (here on a log
    // that formats its records and drops them) does not.
    OrvaLogging traced("unused", 0, 9);
    OrvaLogging silent;
    std::mt19937 random(7);
    const char* const atoms[] = {"a", "b", "ab", "[ab]", "[^a]", ".", "[bc]", "ba"};
    const char* const factors[] = {"", "", "?", "*", "+"};
    for (int i = 0; i < 10000; ++i)
    {
        std::string pattern = random() % 6 == 0 ? "^" : "";
        for (int n = 1 + random() % 4; n > 0; --n)
            pattern += std::string(atoms[random() % 8]) + factors[random() % 5];
        if (random() % 6 == 0)
            pattern += "$";
        std::string text;
        for (int n = random() % 14; n > 0; --n)
            text += "abc"[random() % 3];
        const unsigned int pos = random() % (text.size() + 2);
        OrvaRegularExpression<std::string> re;
        re.setPattern(pattern);
        unsigned int found[2], length[2] = {77, 77};
        for (int run = 0; run < 2; ++run)
        {
            OrvaLogging::setInstance(run ? traced : silent);
            found[run] = re.find(text, length[run], pos);
        }
        ASSERT_TRUE(found[0] == found[1] && length[0] == length[1])
            << pattern << " on " << text << " from " << pos;
    }
}

TEST(OrvaRegularExpressionTest, StepsPushEntriesOfWhatTheyMatched)
{
    // The steps called on their own, untraced: each entry holds the text it
    // stands for, its place and length, and its back link (the first
    // repetition of a one-or-more token links where the entry below links).
    typedef OrvaRegularExpressionImplementation<std::string> Impl;
    typedef Impl::ExpressionToken Token;
    OrvaLogging silent;
    OrvaLogging::setInstance(silent);
    const std::vector<Token> tokens = {{Token::Literal, Token::One, "ab"},
                                       {Token::Any, Token::One, ""},
                                       {Token::InSet, Token::OneOrMore, "xy"},
                                       {Token::NotInSet, Token::One, "q"}};
    Impl impl;
    std::vector<Impl::MatchToken> stack;
    EXPECT_EQ(3u, impl.matchLiteral("zabcyyr", 0, tokens.begin(), stack));
    EXPECT_EQ(4u, impl.matchAny("zabcyyr", 3, tokens.begin() + 1, stack));
    EXPECT_EQ(5u, impl.matchSet("zabcyyr", 4, tokens.begin() + 2, stack));
    EXPECT_EQ(6u, impl.matchSet("zabcyyr", 5, tokens.begin() + 2, stack));
    EXPECT_EQ(N, impl.matchSet("zabcyyr", 6, tokens.begin() + 2, stack));
    EXPECT_EQ(7u, impl.matchSet("zabcyyr", 6, tokens.begin() + 3, stack));
    const struct
    {
        const char* segment;
        unsigned int position, length;
        int previous;
    } expected[] = {{"ab", 1, 2, -1}, {"c", 3, 1, 0}, {"y", 4, 1, 0}, {"y", 5, 1, 2}, {"r", 6, 1, 3}};
    ASSERT_EQ(5u, stack.size());
    for (std::size_t i = 0; i < stack.size(); ++i)
    {
        SCOPED_TRACE(i);
        EXPECT_EQ(expected[i].segment, stack[i].segment);
        EXPECT_EQ(expected[i].position, stack[i].position);
        EXPECT_EQ(expected[i].length, stack[i].length);
        EXPECT_EQ(expected[i].previous, stack[i].previous);
    }
}
