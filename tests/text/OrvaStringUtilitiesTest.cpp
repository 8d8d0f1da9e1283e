#include <ovkit/OrvaException.h>
#include <ovkit/OrvaLocaleFactory.h>
#include <ovkit/OrvaStringTraits.h>
#include <ovkit/OrvaStringUtilities.h>

#include "support/Thrown.h"

#include <gtest/gtest.h>

#include <new>
#include <numeric>
#include <stdexcept>
#include <string>

using namespace OrvaSupport;

namespace
{

typedef OrvaStringUtilities Su;

// A ctype facet whose range conversions fail, to drive the failure paths.
struct FailingCtype : std::ctype<wchar_t>
{
    const char* do_widen(const char*, const char*, wchar_t*) const override { throw std::runtime_error("w"); }
    const wchar_t* do_narrow(const wchar_t*, const wchar_t*, char, char*) const override
    {
        throw std::bad_alloc();
    }
};

} // namespace

TEST(OrvaStringUtilitiesTest, ConversionsRoundTripAndStopAtNul)
{
    const std::locale locale = OrvaLocaleFactory::getDefaultLocale(true);
    std::string ascii;
    for (int c = 1; c < 128; ++c)
        ascii += static_cast<char>(c);
    const std::wstring wide = Su::widen(ascii, locale);
    EXPECT_EQ(std::wstring(ascii.begin(), ascii.end()), wide);
    EXPECT_EQ(ascii, Su::narrow(wide, locale));
    EXPECT_EQ(L"ab", Su::widen(std::string("ab\0cd", 5), locale));
    EXPECT_EQ("ab", Su::narrow(std::wstring(L"ab\0cd", 5), locale));
    EXPECT_EQ("a b", Su::narrow(std::wstring(L"a\x4E2D") + L"b", std::locale::classic())); // no narrow form

    const std::locale broken(std::locale::classic(), new FailingCtype);
    const std::string reason = ": ctype facet cannot be created for the locale - ";
    EXPECT_EQ("OrvaStringUtilities::widen" + reason + "w (0)",
              ovkit_test::thrownText([&] { Su::widen("abc", broken); }));
    EXPECT_EQ("OrvaStringUtilities::narrow" + reason + "std::bad_alloc (0)",
              ovkit_test::thrownText([&] { Su::narrow(L"abc", broken); }));
}

TEST(OrvaStringUtilitiesTest, TrimOnEveryOption)
{
    // Text, characters to take away, and what TrimLeft, TrimRight and TrimBoth leave.
    const char* const cases[][5] = {
        {"  a ", " ", "a ", "  a", "a"},
        {"   ", " ", "", "", ""},
        {"", " ", "", "", ""},
        {"\t\r\n x y\n", " \t\r\n", "x y\n", "\t\r\n x y", "x y"},
        {"xxaxx", "x", "axx", "xxa", "a"},
        {" a ", "", " a ", " a ", " a "},
    };
    auto w = [](const std::string& narrow) { return std::wstring(narrow.begin(), narrow.end()); };
    for (const auto& c : cases)
        for (int option : {0, 1, 2, 3, -1}) // an unknown option leaves the text as it is
        {
            const std::string expected = option >= 0 && option <= 2 ? c[2 + option] : c[0];
            const auto trimOption = static_cast<Su::tTrimOption>(option);
            EXPECT_EQ(expected, Su::trim(std::string(c[0]), c[1], trimOption)) << c[0] << option;
            EXPECT_EQ(w(expected), Su::trim(w(c[0]), w(c[1]), trimOption)) << c[0] << option;
        }
}

TEST(OrvaStringUtilitiesTest, CStringsAndHex)
{
    char buffer[8] = "zzzzzzz";
    EXPECT_EQ(nullptr, OrvaStringToChar("abcd", buffer, 4)); // no room for the terminator
    EXPECT_STREQ("abcd", OrvaStringToChar("abcd", buffer, 5));

    EXPECT_EQ("000AFF7F80", OrvaBytesToHex("\x00\x0a\xff\x7f\x80", 5));
    EXPECT_EQ("", OrvaBytesToHex("ab", 0));
    char bytes[4] = {'q', 'q', 'q', 'q'};
    EXPECT_EQ(2, OrvaHexToBytes(bytes, "0aFF1")); // the odd last digit is ignored
    EXPECT_EQ(std::string("\x0a\xffqq", 4), std::string(bytes, 4));
    EXPECT_EQ(0, OrvaHexToBytes(bytes, "7"));
    EXPECT_EQ(2, OrvaHexToBytes(bytes, "aBcD"));
    EXPECT_EQ(std::string("\xab\xcdqq", 4), std::string(bytes, 4));

    std::string all(256, '\0');
    std::iota(all.begin(), all.end(), '\0'); // every byte value once
    std::string back(256, '\0');
    EXPECT_EQ(256, OrvaHexToBytes(&back[0], OrvaBytesToHex(all.data(), 256)));
    EXPECT_EQ(all, back);
}

TEST(OrvaStringUtilitiesTest, CaseInsensitiveTraitsCompareAndSearch)
{
    EXPECT_EQ(ci_string("ABC"), ci_string("abc"));
    EXPECT_LT(ci_string("home"), ci_string("PATH")); // ordered without regard to case

    const ci_string text("Hello World");
    EXPECT_STREQ("Hello World", text.c_str()); // the case given is kept
    EXPECT_EQ(6u, text.find("WORLD"));
    EXPECT_EQ(2u, ci_wstring(L"abCd").find(L"cD"));

    EXPECT_LT(ci_wstring(L"alpha"), ci_wstring(L"BETA"));
}
