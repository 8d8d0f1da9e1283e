#include <ovkit/OrvaException.h>
#include <ovkit/OrvaLocaleFactory.h>

#include "support/ScratchDir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include <sys/wait.h>

using namespace OrvaSupport;

// When LOCPATH is set, the C library keeps its copy of the path for good each
// time it makes a locale. These tests set it, so leak checkers are told.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions()
{
    return "leak:argz_add_sep\n";
}

namespace
{

// Started again with this variable set, the program leaves while its statics
// are built, with 42 if the library came up, its default locale being the
// global one: the environment names a locale that the system lacks.
const char kChildVariable[] = "OVKIT_LOCALE_TEST_CHILD";

[[maybe_unused]] const bool s_bChild = []
{
    if (std::getenv(kChildVariable))
        std::exit(OrvaLocaleFactory::getDefaultLocale(true) == std::locale() &&
                          OrvaException("still works", 0).getText() == "still works"
                      ? 42
                      : 1);
    return false;
}();

class OrvaLocaleFactoryTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        g_oLocaleData.clear();
        g_oCountryData.clear();
        g_oLanguageData.clear();
        g_oLanguageCodeData.clear();
    }

    // Compiles one locale into the scratch directory, links the names the
    // test needs to it, and points the C library there through LOCPATH.
    bool buildLocales()
    {
        const std::string compiled = m_oDir.file("German_Germany.ISO-8859-1");
        if (std::system(("localedef -i C -f ISO-8859-1 '" + compiled + "' >/dev/null 2>&1").c_str()) != 0)
            return false;
        for (const char* alias : {"Spanish_Mexico.ISO-8859-1", "en_US", "de_DE@euro", "en.ISO-8859-1"})
            std::filesystem::create_directory_symlink(compiled, m_oDir.file(alias));
        setenv("LOCPATH", m_oDir.path().c_str(), 1);
        return true;
    }

    ovkit_test::ScratchDir m_oDir;
};

} // namespace

TEST_F(OrvaLocaleFactoryTest, NamesAreCutAndThenLookedUp)
{
    if (!buildLocales())
        GTEST_SKIP() << "cannot compile test locales with localedef";
    // Locale name; language and country before the maps are filled, and after.
    const char* const cases[][5] = {
        {"German_Germany.ISO-8859-1", "German", "Germany", "de", "DE"},
        {"Spanish_Mexico.ISO-8859-1", "Spanish", "Mexico", "es", "ES"}, // Mexico's code is Spain's
        {"en_US", "en", "US", "en", "US"},
        {"de_DE@euro", "de", "DE@euro", "de", "DE@euro"},
        {"en.ISO-8859-1", "en.ISO-8859-1", "en", "en.ISO-8859-1", "en"},
    };
    for (int filled = 0; filled < 2; ++filled)
    {
        for (const auto& c : cases)
        {
            EXPECT_EQ(c[1 + 2 * filled], OrvaLocaleFactory::getLanguage(std::locale(c[0]))) << c[0];
            EXPECT_EQ(c[2 + 2 * filled], OrvaLocaleFactory::getCountry(std::locale(c[0]))) << c[0];
        }
        OrvaLocaleFactory::initializeLanguageCountryCode();
    }
    EXPECT_EQ(7u, g_oLocaleData.size()); // the second call added nothing
    EXPECT_EQ(7u, g_oCountryData.size());
    EXPECT_EQ(6u, g_oLanguageData.size());
    EXPECT_EQ(OrvaLocaleFactory::Chinese, g_oLanguageCodeData.at("Chinese"));
    EXPECT_EQ("en_US", OrvaLocaleFactory::getLocale(OrvaLocaleFactory::English).name());
}

TEST_F(OrvaLocaleFactoryTest, GetLocaleFallsBackToC)
{
    // Before the maps are filled and after, for Chinese, the seventh value and values out of range.
    for (int filled = 0; filled < 2; ++filled, OrvaLocaleFactory::initializeLanguageCountryCode())
        for (int language : {5, 6, 7, -1})
            EXPECT_EQ("C", OrvaLocaleFactory::getLocale(OrvaLocaleFactory::Language(language)).name())
                << language;
    EXPECT_EQ("C", g_oLocaleData.at(OrvaLocaleFactory::Other));
    EXPECT_EQ("spanish", g_oLocaleData.at(OrvaLocaleFactory::Spanish));
    g_oLocaleData[OrvaLocaleFactory::Spanish] = "xx_NO.SUCH-LOCALE"; // one the system lacks
    EXPECT_EQ("C", OrvaLocaleFactory::getLocale(OrvaLocaleFactory::Spanish).name());
}

TEST_F(OrvaLocaleFactoryTest, LibraryLoadsUnderAMissingEnvironmentLocale)
{
    const std::string command = "env LANG=xx_NO.SUCH-LOCALE LC_ALL=xx_NO.SUCH-LOCALE " +
                                std::string(kChildVariable) + "=1 '" +
                                std::filesystem::read_symlink("/proc/self/exe").string() + "'";
    const int status = std::system(command.c_str());
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 42) << "child status " << status;
}
