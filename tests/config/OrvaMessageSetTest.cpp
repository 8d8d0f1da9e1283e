// Under the "C" locale both codes are "C": the overlays are <base>_C.pro and
// <base>_C_C.pro.
#include <ovkit/OrvaMessageSet.h>

#include <ovkit/OrvaException.h>

#include "support/ScratchDir.h"

#include <gtest/gtest.h>

#include <fstream>
#include <locale>
#include <string>

using namespace OrvaSupport;
using ovkit_test::ScratchDir;

namespace
{

void writeBytes(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
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
        writeBytes(base + ".pro", "all=base\nlang=base\nkey = v\nempty=\ndup=1\ndup=2\n");
        if (c.language)
            writeBytes(base + "_C.pro", c.language);
        if (c.country)
            writeBytes(base + "_C_C.pro", c.country);

        const OrvaMessageSet set(base, std::locale::classic());
        SCOPED_TRACE(c.language ? c.language : "no language file");
        EXPECT_EQ(c.all, set.getMessage("all"));
        EXPECT_EQ(c.lang, set.getMessage("lang"));
        EXPECT_EQ(L"v", set.getMessage("key ")); // names are not trimmed
        EXPECT_THROW(set.getMessage("key"), OrvaMissingMessageException);
        EXPECT_EQ(L"", set.getMessage("empty"));
        EXPECT_EQ(L"2", set.getMessage("dup"));
    }
}

TEST(OrvaMessageSetTest, SixteenBitTextsAndAMissingBase)
{
    ScratchDir dir;
    // 16-bit: "zh=" U+4E2D and "s=" U+1F600, each line ended by a line feed.
    const char wideBytes[] = "\xFF\xFEz\0h\0=\0\x2D\x4E\n\0s\0=\0\x3D\xD8\x00\xDE\n\0";
    writeBytes(dir.file("wide.pro"), std::string(wideBytes, sizeof wideBytes - 1));
    const OrvaMessageSet wide(dir.file("wide"), std::locale::classic());
    EXPECT_EQ(L"\u4E2D", wide.getMessage("zh"));
    EXPECT_EQ((std::wstring{0xD83D, 0xDE00}), wide.getMessage("s")); // two surrogates

    writeBytes(dir.file("none_C.pro"), "a=1\n"); // an overlay does not stand in for the base
    try
    {
        OrvaMessageSet set(dir.file("none"), std::locale::classic());
        ADD_FAILURE() << "no exception";
    }
    catch (OrvaException& e)
    {
        EXPECT_EQ("OrvaProperties<StringType>::loadProperties: couldn't open file " + dir.file("none.pro"),
                  e.getText());
        EXPECT_EQ(0, e.getCode());
    }
}
