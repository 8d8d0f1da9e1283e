// Message sets under the "C" locale, whose language and country codes are
// both "C": the overlays are <base>_C.pro and <base>_C_C.pro.
#include <ovkit/OrvaMessageSet.h>

#include <ovkit/OrvaException.h>
#include <ovkit/OrvaLogging.h>

#include "support/ByteFiles.h"
#include "support/LogTestHelpers.h"
#include "support/ScratchDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <locale>
#include <string>

using namespace OrvaSupport;
using ovkit_test::ScratchDir;
using ovkit_test::utf16;
using ovkit_test::writeBytes;

namespace
{

bool isMissing(const OrvaMessageSet& set, const std::string& key)
{
    try
    {
        set.getMessage(key);
        return false;
    }
    catch (OrvaMissingMessageException&)
    {
        return true;
    }
}

} // namespace

TEST(OrvaMessageSetTest, OverlaysReplaceTheBase)
{
    struct Case
    {
        const char* language; // file contents; null: no such file
        const char* country;
        const wchar_t* all;
        const wchar_t* lang;
    };
    const Case cases[] = {
        {nullptr, nullptr, L"base", L"base"},
        {"all=lang\nlang=lang\n", "all=country\n", L"country", L"lang"},
        {nullptr, "all=country\n", L"country", L"base"}, // the country file without a language file
    };
    for (const Case& c : cases)
    {
        ScratchDir dir;
        const std::string base = dir.file("msg");
        writeBytes(base + ".pro", "all=base\nlang=base\nkey = v\nempty=\ndup=1\ndup=2\npercent=%s {0}\n");
        if (c.language)
            writeBytes(base + "_C.pro", c.language);
        if (c.country)
            writeBytes(base + "_C_C.pro", c.country);

        const OrvaMessageSet set(base, std::locale::classic());
        SCOPED_TRACE(c.language ? c.language : "no language file");
        EXPECT_EQ(c.all, set.getMessage("all"));
        EXPECT_EQ(c.lang, set.getMessage("lang"));
        EXPECT_EQ(L"v", set.getMessage("key ")); // names are not trimmed
        EXPECT_TRUE(isMissing(set, "key"));
        EXPECT_EQ(L"", set.getMessage("empty"));
        EXPECT_EQ(L"2", set.getMessage("dup"));
        EXPECT_EQ(L"%s {0}", set.getMessage("percent"));
    }
}

TEST(OrvaMessageSetTest, MissingBaseThrowsBeforeReadingOverlays)
{
    ScratchDir dir;
    const std::string base = dir.file("msg");
    writeBytes(base + "_C.pro", "a=1\n");
    writeBytes(base + "_C_C.pro", "a=1\n");
    LogTest::FileLog f(5);
    OrvaLogging::setInstance(f.log);
    try
    {
        OrvaMessageSet set(base, std::locale::classic());
        ADD_FAILURE() << "no exception";
    }
    catch (OrvaException& e)
    {
        EXPECT_EQ("OrvaProperties<StringType>::loadProperties: couldn't open file " + base + ".pro",
                  e.getText());
        EXPECT_EQ(0, e.getCode());
    }
    const auto lines = f.lines(true);
    EXPECT_EQ(1,
              std::count_if(lines.begin(), lines.end(),
                            [](const std::string& line) { return line.find(": from file ") != line.npos; }));
}

TEST(OrvaMessageSetTest, CharactersAndMissingKeys)
{
    ScratchDir dir;
    const std::string wide = dir.file("wide");
    writeBytes(wide + ".pro", utf16(u"zh=\u4E2D\nsmile=\U0001F600\n"));
    const OrvaMessageSet wideSet(wide, std::locale::classic());
    EXPECT_EQ(L"\u4E2D", wideSet.getMessage("zh"));
    EXPECT_EQ((std::wstring{0xD83D, 0xDE00}), wideSet.getMessage("smile")); // two surrogates
    try
    {
        wideSet.getMessage("nokey");
        ADD_FAILURE() << "no exception";
    }
    catch (OrvaMissingMessageException& e)
    {
        EXPECT_EQ("OrvaMissingMessageException - Missing nokey", e.getText());
        EXPECT_EQ(0, e.getCode());
    }

    // A plain file under the classic global locale: the load stops silently
    // at the first byte above 0x7F, and such a key cannot be looked up.
    const std::string plain = dir.file("plain");
    writeBytes(plain + ".pro", "a=1\n\xC3\xA9=2\nc=3\n");
    const OrvaMessageSet plainSet(plain, std::locale::classic());
    EXPECT_EQ(L"1", plainSet.getMessage("a"));
    EXPECT_TRUE(isMissing(plainSet, "c"));
    EXPECT_TRUE(isMissing(plainSet, "\xC3\xA9"));
}
