#include <ovkit/OrvaFindFile.h>
#include <ovkit/OrvaFindFileImpl.h>

#include "support/ScratchDir.h"

#include <gtest/gtest.h>

#include <fstream>
#include <random>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

using namespace OrvaSupport;
using Names = std::multiset<std::string>;

namespace
{

// The plain recursion that defines a match.
bool referenceMatch(const char* p, const char* n)
{
    if (*p == '*')
        return referenceMatch(p + 1, n) || (*n != '\0' && referenceMatch(p, n + 1));
    if (*p == '\0' || *n == '\0')
        return *p == *n;
    return (*p == '?' || *p == *n) && referenceMatch(p + 1, n + 1);
}

Names collect(const std::string& path)
{
    Names found;
    OrvaFindFile search(path);
    while (search.hasMore())
        found.insert(search.next());
    EXPECT_EQ(search.next() + search.next(), "");
    return found;
}

} // namespace

TEST(OrvaFindFileTest, PatternMatchAgreesWithTheRecursionWithoutItsCost)
{
    // No classes, no escapes, bytes compared as they are.
    const char* cases[][2] = {{"[ab]", "a"}, {"\\*", "\\x"}, {"\xe9?", "\xe9t"}, {"A*", "abc"}};
    for (const auto& c : cases)
        EXPECT_EQ(FindFileImplementation::IsPatternMatch(c[0], c[1]), referenceMatch(c[0], c[1])) << c[0];
    std::mt19937 random(20);
    auto draw = [&](const std::string& alphabet, unsigned maxLength)
    {
        std::string s(random() % (maxLength + 1), ' ');
        for (char& c : s)
            c = alphabet[random() % alphabet.size()];
        return s;
    };
    for (int i = 0; i < 20000; ++i)
    {
        const std::string pattern = draw("abc*?", 7), name = draw("abc", 9);
        ASSERT_EQ(FindFileImplementation::IsPatternMatch(pattern.c_str(), name.c_str()),
                  referenceMatch(pattern.c_str(), name.c_str()))
            << pattern << " / " << name;
    }
    EXPECT_TRUE(FindFileImplementation::IsPatternMatch(nullptr, ""));
    // Exponential for the recursion; immediate here.
    EXPECT_FALSE(
        FindFileImplementation::IsPatternMatch("*a*a*a*a*a*a*a*a*a*a*a*a*b", std::string(255, 'a').c_str()));
}

TEST(OrvaFindFileTest, WalksOneDirectoryWithoutFiltering)
{
    ovkit_test::ScratchDir dir;
    for (const char* name : {"a.txt", "b.log", ".hidden", "noext"})
        std::ofstream(dir.file(name)) << "x";
    mkdir(dir.file("sub").c_str(), 0755);
    const std::string d = dir.path() + "/";
    const Names dotted = {d + ".", d + "..", d + "a.txt", d + "b.log", d + ".hidden"};
    Names all = dotted;
    all.insert({d + "noext", d + "sub"});
    EXPECT_EQ(collect(d + "*"), all);
    EXPECT_EQ(collect(d), all);
    EXPECT_EQ(collect(d + "*.*"), dotted);
    EXPECT_EQ(collect(dir.path() + "\\b.log"), Names{d + "b.log"}); // split at '\', joined with '/'
    EXPECT_EQ(collect(d + "B.LOG"), Names{});
    EXPECT_EQ(collect(d + "missing/*"), Names{});

    // The working directory, also for a path whose one separator is its first byte.
    char* const before = getcwd(nullptr, 0);
    ASSERT_EQ(chdir(dir.path().c_str()), 0);
    EXPECT_EQ(collect("?.*"), (Names{"..", "a.txt", "b.log"}));
    EXPECT_EQ(collect("/noext"), Names{"noext"});
    ASSERT_EQ(chdir(before), 0);
    free(before);

    if (geteuid() != 0) // root reads every directory
    {
        chmod(dir.path().c_str(), 0);
        EXPECT_EQ(collect(d + "*"), Names{});
        chmod(dir.path().c_str(), 0700);
    }
}
