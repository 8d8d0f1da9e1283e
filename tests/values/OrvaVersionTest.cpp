#include <ovkit/OrvaException.h>
#include <ovkit/OrvaVersion.h>

#include <gtest/gtest.h>

#include <functional>
#include <tuple>

using namespace OrvaSupport;

namespace
{

// What `call` gives back, or the text of the OrvaException it throws.
std::string resultOrError(const std::function<std::string()>& call)
{
    try
    {
        return call();
    }
    catch (OrvaException& e)
    {
        EXPECT_EQ(e.getCode(), 0);
        return e.getText();
    }
}

TEST(OrvaVersionTest, GrammarKeepsEmptyPartsAndReadsLeadingDigits)
{
    const std::string bad = "OrvaVersion::parse: invalid version string: ";
    // clang-format off
    const std::pair<std::string, std::string> cases[] = {
        {"", ""}, {"1.2.3", "1.2.3"}, {"1.2.", "1.2"}, {"1.2.3a", "1.2.3"}, {"007", "7"},
        {"1.2.beta", "1.2.beta"}, {"beta", ".beta"}, {"-1", ".-1"}, {" 1", ". 1"},
        {"99999999999", "2147483647"}, {"1.\xE9", "1.\xE9"}, {"1..2", bad + "1..2"}, {".", bad + "."},
        {"1.beta.2", bad + "1.beta.2"}, {".beta", bad + ".beta"}, {"1. 2.3", bad + "1. 2.3"}};
    // clang-format on
    for (const auto& c : cases)
        EXPECT_EQ(resultOrError([&] { return OrvaVersion(c.first).toString(); }), c.second) << c.first;
    EXPECT_FALSE(OrvaVersion("").isInit());
    EXPECT_FALSE(OrvaVersion(nullptr).isInit());
    EXPECT_TRUE(OrvaVersion("x").isInit());
}

TEST(OrvaVersionTest, ParseAppendsAndKeepsWhatItReadBeforeAThrow)
{
    OrvaVersion version("1.a");
    version.parse("2.b");
    EXPECT_EQ(version.toString(), "1.2.b");
    EXPECT_THROW(version.parse("3.x.4"), OrvaException);
    EXPECT_EQ(version.toString(), "1.2.3.b");
    version = std::string("5");
    EXPECT_EQ(version.toString(), "5");
    EXPECT_THROW(version = std::string("6.y.7"), OrvaException);
    EXPECT_EQ(version.toString(), "6");
}

TEST(OrvaVersionTest, CompareIgnoresTrailingZerosThenOrdersWordsAsUnsignedBytes)
{
    const auto E = OrvaVersion::VersionEqual, L = OrvaVersion::VersionLess, G = OrvaVersion::VersionGreater;
    // clang-format off
    const std::tuple<const char*, const char*, OrvaVersion::tComparison> cases[] = {
        {"1.2", "1.2.0.0", E}, {"", "0.0", E}, {"", "0.beta", L}, {"1.10", "1.9", G}, {"1.2", "1.2.0.1", L},
        {"2", "1.9.9", G}, {"1.2", "1.2.beta", L}, {"1.2.beta", "1.2.rc", L}, {"1.beta", "1.beta2", L},
        {"1.\xE9", "1.z", G}, {"1.2.0.beta", "1.2.beta", E}};
    // clang-format on
    for (const auto& c : cases)
    {
        OrvaVersion a(std::get<0>(c)), b(std::get<1>(c));
        OrvaVersion::tComparison mirrored = std::get<2>(c) == E ? E : std::get<2>(c) == L ? G : L;
        EXPECT_EQ(OrvaVersion::compare(a, b), std::get<2>(c)) << std::get<0>(c) << " " << std::get<1>(c);
        EXPECT_EQ(OrvaVersion::compare(b, a), mirrored) << std::get<1>(c) << " " << std::get<0>(c);
    }
}

TEST(OrvaVersionTest, RangesHoldTheLowerBoundButNotTheUpperOne)
{
    auto ranges = OrvaVersion::createRangeVector("1.5,{1.0-2.0},{3-4],{5-66,");
    ASSERT_EQ(ranges.size(), 5u);
    // Which entries hold the version, one character per entry.
    // clang-format off
    const std::pair<const char*, const char*> cases[] = {
        {"1.5", "xx..."}, {"1.5.0", "xx..."}, {"1.5.1", ".x..."}, {"1.0", ".x..."}, {"1.9.9", ".x..."},
        {"2.0", "....."}, {"0.9", "....."}, {"3.9", "..x.."}, {"5.9", "...x."}, {"6", "....."},
        {"", "....x"}, {"0", "....x"}, {"0.a", "....."}};
    // clang-format on
    for (const auto& c : cases)
    {
        std::string held;
        for (const auto& range : ranges)
            held += OrvaVersionRange()(range, OrvaVersion(c.first)) ? 'x' : '.';
        EXPECT_EQ(held, c.second) << c.first;
    }
    EXPECT_TRUE(OrvaVersion::createRangeVector("").empty());
}

TEST(OrvaVersionTest, MalformedRangesAreFoundBeforeAnyVersionIsRead)
{
    auto rangeError = [](const std::string& rangeList) {
        return resultOrError([&]
                             { return std::to_string(OrvaVersion::createRangeVector(rangeList).size()); });
    };
    const std::string prefix = "OrvaVersion::createRangeVector: Invalid range specification: ";
    for (const char* rangeList : {"{-2.0}", "{1-}", "{1-2", "{12}", "{", "1..2,{12}"})
        EXPECT_EQ(rangeError(rangeList), prefix + rangeList);
    EXPECT_EQ(rangeError("1,{1.x.2-3}"), "OrvaVersion::parse: invalid version string: 1.x.2");
    EXPECT_EQ(rangeError("{1-2x"), "1");
}

} // namespace
