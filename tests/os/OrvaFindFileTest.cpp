#include <ovkit/OrvaFindFile.h>
#include <ovkit/OrvaFindFileImpl.h>

#include "support/ScratchDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <random>
#include <set>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

using namespace OrvaSupport;
using ovkit_test::ScratchDir;

namespace
{

// The plain recursion that defines a match.
bool referenceMatch(const char* p, const char* n)
{
    if (*p == '\0')
        return *n == '\0';
    if (*p == '*')
        return referenceMatch(p + 1, n) || (*n != '\0' && referenceMatch(p, n + 1));
    if (*n == '\0' || (*p != '?' && *p != *n))
        return false;
    return referenceMatch(p + 1, n + 1);
}

std::multiset<std::string> collect(const std::string& path)
{
    std::multiset<std::string> found;
    OrvaFindFile search(path);
    while (search.hasMore())
        found.insert(search.next());
    EXPECT_EQ(search.next(), "");
    EXPECT_EQ(search.next(), "");
    return found;
}

// A directory holding a.txt, b.log, .hidden, noext and the subdirectory sub.
struct Tree
{
    Tree()
    {
        for (const char* name : {"a.txt", "b.log", ".hidden", "noext"})
            std::ofstream(dir.file(name)) << "x";
        mkdir(dir.file("sub").c_str(), 0755);
    }
    ScratchDir dir;
};

} // namespace

TEST(OrvaFindFileTest, PatternTable)
{
    struct Case
    {
        const char* pattern;
        const char* name;
        bool match;
    } cases[] = {
        {"", "", true},          {"", "a", false},
        {"*", "", true},         {"*", "anything", true},
        {"?", "", false},        {"?", "a", true},
        {"??", "a", false},      {"a*", "a", true},
        {"*.*", "noext", false}, {"*.*", "a.b", true},
        {"*.*", ".", true},      {"A*", "abc", false},
        {"a*c", "abbbc", true},  {"a*c", "abcb", false},
        {"*a*b", "xaxb", true},  {"a?c", "abc", true},
        {"[ab]", "a", false},    {"[ab]", "[ab]", true},
        {"\\*", "\\x", true},    {"**", "x", true},
        {"*?", "", false},       {"\xe9*", "\xe9t\xe9", true},
        {nullptr, "", true},     {"a", nullptr, false},
    };
    for (const Case& c : cases)
        EXPECT_EQ(FindFileImplementation::IsPatternMatch(c.pattern, c.name), c.match)
            << (c.pattern ? c.pattern : "(null)") << " / " << (c.name ? c.name : "(null)");
}

TEST(OrvaFindFileTest, MatchAgreesWithTheRecursionAndStaysFastOnManyStars)
{
    std::mt19937 random(20);
    auto draw = [&](const char* alphabet, int maxLength)
    {
        std::string s(random() % (maxLength + 1), ' ');
        for (char& c : s)
            c = alphabet[random() % std::char_traits<char>::length(alphabet)];
        return s;
    };
    for (int i = 0; i < 20000; ++i)
    {
        const std::string pattern = draw("abc*?", 7);
        const std::string name = draw("abc", 9);
        ASSERT_EQ(FindFileImplementation::IsPatternMatch(pattern.c_str(), name.c_str()),
                  referenceMatch(pattern.c_str(), name.c_str()))
            << pattern << " / " << name;
    }
    // Exponential for the recursion; must be immediate here.
    const std::string as(255, 'a');
    EXPECT_FALSE(FindFileImplementation::IsPatternMatch("*a*a*a*a*a*a*a*a*a*a*a*a*b", as.c_str()));
    EXPECT_TRUE(FindFileImplementation::IsPatternMatch("*a*a*a*a*a*a*a*a*a*a*a*a*", as.c_str()));
}

TEST(OrvaFindFileTest, WalksOneDirectoryWithoutFiltering)
{
    Tree tree;
    const std::string& d = tree.dir.path();
    const std::multiset<std::string> all = {d + "/.",       d + "/..",    d + "/a.txt", d + "/b.log",
                                            d + "/.hidden", d + "/noext", d + "/sub"};
    EXPECT_EQ(collect(d + "/*"), all);
    EXPECT_EQ(collect(d + "/"), all);
    EXPECT_EQ(collect(d + "/*.*"),
              (std::multiset<std::string>{d + "/.", d + "/..", d + "/a.txt", d + "/b.log", d + "/.hidden"}));
    EXPECT_EQ(collect(d + "/.*"), (std::multiset<std::string>{d + "/.", d + "/..", d + "/.hidden"}));
    // A backslash splits as well; the result is joined with '/'.
    EXPECT_EQ(collect(d + "\\b.log"), std::multiset<std::string>{d + "/b.log"});
    EXPECT_TRUE(collect(d + "/B.LOG").empty());
    EXPECT_TRUE(collect(d + "/missing/*").empty());
}

TEST(OrvaFindFileTest, WorkingDirectoryGivesBareNamesAlsoForALeadingSlash)
{
    Tree tree;
    char* const before = getcwd(nullptr, 0);
    ASSERT_EQ(chdir(tree.dir.path().c_str()), 0);
    EXPECT_EQ(collect("noext"), std::multiset<std::string>{"noext"});
    EXPECT_EQ(collect("/noext"), std::multiset<std::string>{"noext"});
    EXPECT_EQ(collect("?.*"), (std::multiset<std::string>{"..", "a.txt", "b.log"}));
    EXPECT_EQ(chdir(before), 0);
    free(before);
}

TEST(OrvaFindFileTest, UnreadableDirectoryMatchesNothing)
{
    if (geteuid() == 0)
        GTEST_SKIP() << "root reads every directory";
    Tree tree;
    ASSERT_EQ(chmod(tree.dir.path().c_str(), 0), 0);
    EXPECT_TRUE(collect(tree.dir.path() + "/*").empty());
    chmod(tree.dir.path().c_str(), 0700);
}
