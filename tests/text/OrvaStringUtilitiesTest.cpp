#include <ovkit/OrvaException.h>
#include <ovkit/OrvaLocaleFactory.h>
#include <ovkit/OrvaStringTraits.h>
#include <ovkit/OrvaStringUtilities.h>

#include <gtest/gtest.h>

#include <map>
#include <stdexcept>

using namespace OrvaSupport;

namespace
{

typedef OrvaStringUtilities Su;

// A ctype facet whose range conversions fail, to drive the failure paths.
class FailingCtype : public std::ctype<wchar_t>
{
protected:
    const char* do_widen(const char*, const char*, wchar_t*) const override
    {
        throw std::runtime_error("widen broke");
    }
    const wchar_t* do_narrow(const wchar_t*, const wchar_t*, char, char*) const override
    {
        throw std::runtime_error("narrow broke");
    }
};

} // namespace

TEST(OrvaStringUtilities, ConversionsRoundTripAndStopAtNul)
{
    const std::locale locale = OrvaLocaleFactory::getDefaultLocale(true);
    std::string ascii;
    for (int c = 1; c < 128; ++c)
        ascii += static_cast<char>(c);
    const std::wstring wide = Su::widen(ascii, locale);
    ASSERT_EQ(ascii.size(), wide.size());
    EXPECT_EQ(L'A', wide[64]);
    EXPECT_EQ(ascii, Su::narrow(wide, locale));

    EXPECT_EQ(L"", Su::widen("", locale));
    EXPECT_EQ("", Su::narrow(L"", locale));
    EXPECT_EQ(L"ab", Su::widen(std::string("ab\0cd", 5), locale));
    EXPECT_EQ("ab", Su::narrow(std::wstring(L"ab\0cd", 5), locale));
    // A character without a narrow form becomes a blank.
    EXPECT_EQ("a b", Su::narrow(L"a\x4E2D"
                                L"b",
                                std::locale::classic()));
}

TEST(OrvaStringUtilities, ConversionFailuresBecomeOrvaExceptions)
{
    const std::locale broken(std::locale::classic(), new FailingCtype);
    const std::string prefix = "ctype facet cannot be created for the locale - ";
    try
    {
        Su::widen("abc", broken);
        FAIL() << "widen did not throw";
    }
    catch (const OrvaException& e)
    {
        EXPECT_EQ("OrvaStringUtilities::widen: " + prefix + "widen broke", e.getText());
        EXPECT_EQ(0, e.getCode());
        EXPECT_EQ(e.getUText(), e.getFormattedMessages()); // the text is the one stack entry
    }
    try
    {
        Su::narrow(L"abc", broken);
        FAIL() << "narrow did not throw";
    }
    catch (const OrvaException& e)
    {
        EXPECT_EQ("OrvaStringUtilities::narrow: " + prefix + "narrow broke", e.getText());
    }
}

TEST(OrvaStringUtilities, TrimOnEveryOption)
{
    struct Case
    {
        std::string text;
        std::string set;
        int option;
        std::string expected;
    };
    const Case cases[] = {
        {"  a ", " ", Su::TrimLeft, "a "}, {"  a ", " ", Su::TrimRight, "  a"},
        {"  a ", " ", Su::TrimBoth, "a"},  {"   ", " ", Su::TrimLeft, ""},
        {"   ", " ", Su::TrimRight, ""},   {"   ", " ", Su::TrimBoth, ""},
        {"", " ", Su::TrimBoth, ""},       {"\t\r\n x y\n", " \t\r\n", Su::TrimBoth, "x y"},
        {"abc", " ", Su::TrimBoth, "abc"}, {"xxaxx", "x", Su::TrimRight, "xxa"},
        {" a ", "", Su::TrimBoth, " a "},  {"  a ", " ", 3, "  a "},
        {"  a ", " ", -1, "  a "},
    };
    for (const Case& c : cases)
    {
        const auto option = static_cast<Su::tTrimOption>(c.option);
        EXPECT_EQ(c.expected, Su::trim(c.text, c.set, option)) << '"' << c.text << "\" " << c.option;
        const std::wstring wideText(c.text.begin(), c.text.end());
        const std::wstring wideSet(c.set.begin(), c.set.end());
        const std::wstring wideExpected(c.expected.begin(), c.expected.end());
        EXPECT_EQ(wideExpected, Su::trim(wideText, wideSet, option)) << '"' << c.text << "\" " << c.option;
    }
}

TEST(OrvaStringUtilities, CStringHandOver)
{
    char buffer[8] = "zzzzzzz";
    EXPECT_EQ(nullptr, OrvaStringToChar("abcd", buffer, 4)); // no room for the terminator
    EXPECT_EQ('z', buffer[0]);
    EXPECT_EQ(buffer, OrvaStringToChar("abcd", buffer, 5));
    EXPECT_STREQ("abcd", buffer);
    EXPECT_EQ(buffer, OrvaStringToChar("xy", buffer, -1)); // unsigned: never refuses
    EXPECT_EQ(nullptr, OrvaStringToChar("a", nullptr, 8));

    EXPECT_EQ("text", OrvaStringFromChar("text"));
    EXPECT_THROW(OrvaStringFromChar(nullptr), std::logic_error);
}

TEST(OrvaStringUtilities, HexInBothDirections)
{
    EXPECT_EQ("000AFF7F80", OrvaBytesToHex("\x00\x0a\xff\x7f\x80", 5));
    EXPECT_EQ("", OrvaBytesToHex("ab", 0));
    EXPECT_EQ("", OrvaBytesToHex("ab", -3));

    char bytes[4] = {'q', 'q', 'q', 'q'};
    EXPECT_EQ(2, OrvaHexToBytes(bytes, "0aFF1")); // the odd last digit is ignored
    EXPECT_EQ('\x0a', bytes[0]);
    EXPECT_EQ('\xff', bytes[1]);
    EXPECT_EQ('q', bytes[2]);
    EXPECT_EQ(0, OrvaHexToBytes(bytes, "7"));
    EXPECT_EQ(2, OrvaHexToBytes(bytes, "aBcD"));
    EXPECT_EQ('\xab', bytes[0]);
    EXPECT_EQ('\xcd', bytes[1]);

    std::string all;
    for (int b = 0; b < 256; ++b)
        all += static_cast<char>(b);
    const std::string hex = OrvaBytesToHex(all.data(), 256);
    ASSERT_EQ(512u, hex.size());
    std::string back(256, '\0');
    EXPECT_EQ(256, OrvaHexToBytes(&back[0], hex));
    EXPECT_EQ(all, back);
}

TEST(OrvaStringTraits, CaseInsensitiveComparisonAndSearch)
{
    EXPECT_EQ(ci_string("ABC"), ci_string("abc"));
    EXPECT_LT(ci_string("ABC"), ci_string("abd"));
    EXPECT_LT(ci_string("abc"), ci_string("ABCD")); // equal prefix: the shorter is lower
    EXPECT_EQ(-1, char_traits_ci<char>::compare("aB", "Ac", 2));
    EXPECT_EQ(1, char_traits_ci<char>::compare("Ac", "aB", 2));
    EXPECT_EQ(ci_wstring(L"Path"), ci_wstring(L"PATH"));
    EXPECT_LT(ci_wstring(L"ABC"), ci_wstring(L"abd"));

    const ci_string text("Hello World");
    EXPECT_STREQ("Hello World", text.c_str()); // the case given is kept
    EXPECT_EQ(4u, text.find('O'));
    EXPECT_EQ(6u, text.find("WORLD"));
    EXPECT_EQ(ci_string::npos, text.find('z'));
    EXPECT_EQ(2u, ci_wstring(L"abCd").find(L"cD"));

    std::map<ci_string, int> table;
    table.emplace("Path", 1);
    EXPECT_FALSE(table.emplace("PATH", 2).second);
    table.emplace("home", 3);
    ASSERT_EQ(2u, table.size());
    EXPECT_STREQ("home", table.begin()->first.c_str());
    const auto found = table.find("pATh");
    ASSERT_NE(table.end(), found);
    EXPECT_STREQ("Path", found->first.c_str()); // the first spelling stays the key
    EXPECT_EQ(1, found->second);

    const std::map<ci_wstring, int> wideTable{{L"Alpha", 1}, {L"beta", 2}};
    EXPECT_EQ(2, wideTable.at(L"BETA"));
}
