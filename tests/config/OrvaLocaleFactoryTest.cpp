#include <ovkit/OrvaException.h>
#include <ovkit/OrvaLocaleFactory.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <utility>

#include <sys/wait.h>
#include <unistd.h>

using namespace OrvaSupport;

// When LOCPATH is set, the C library keeps its copy of the path for good each
// time it makes a locale. These tests set it, so leak checkers are told.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions()
{
    return "leak:argz_add_sep\n";
}

namespace
{

// A child process started by the tests below finds its checks named in this
// variable. It runs them as soon as it is loaded, while its statics are built,
// and leaves with kChildPassed when they all hold.
const char s_szChildVariable[] = "OVKIT_LOCALE_TEST_CHILD";
const int kChildPassed = 42;

bool childChecksHold(const std::string& mode)
{
    const std::string defaultName = OrvaLocaleFactory::getDefaultLocale(true).name();
    if (mode == "bad")
    {
        bool environmentMissing = false;
        try
        {
            std::locale environment("");
        }
        catch (const std::exception&)
        {
            environmentMissing = true;
        }
        return environmentMissing && defaultName == std::locale().name() &&
               OrvaException("still works", 0).getText() == "still works";
    }
    // A later change of the environment leaves the default as it was.
    setenv("LC_ALL", "C", 1);
    return mode == "fixed" && defaultName == "en_US" && std::locale().name() == "C" &&
           std::locale("").name() == "C" && OrvaLocaleFactory::getDefaultLocale(false).name() == "en_US";
}

[[maybe_unused]] const bool s_bChild = []
{
    const char* mode = std::getenv(s_szChildVariable);
    if (mode)
        std::exit(childChecksHold(mode) ? kChildPassed : 1);
    return false;
}();

// Runs this program again in a child process with the environment variables
// `settings` (LC_ALL always among them), and returns its exit status, or -1.
int runChild(const char* mode, std::initializer_list<std::pair<const char*, std::string>> settings)
{
    const pid_t child = fork();
    if (child == 0)
    {
        unsetenv("LOCPATH");
        for (const auto& setting : settings)
            setenv(setting.first, setting.second.c_str(), 1);
        setenv(s_szChildVariable, mode, 1);
        execl("/proc/self/exe", "/proc/self/exe", static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status))
        return -1;
    return WEXITSTATUS(status);
}

// Locales with the names these tests need, compiled into a directory of their
// own that the C library is pointed at through LOCPATH. Tests that need them
// are skipped where the locale compiler or its sources are missing.
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

    void TearDown() override
    {
        if (!m_sDirectory.empty())
            std::filesystem::remove_all(m_sDirectory);
    }

    bool buildLocales()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "ovkit-locales-XXXXXX").string();
        if (!mkdtemp(&pattern[0]))
            return false;
        m_sDirectory = pattern;
        const std::string compiled = m_sDirectory + "/German_Germany.ISO-8859-1";
        const std::string command = "localedef -i C -f ISO-8859-1 '" + compiled + "' >/dev/null 2>&1";
        if (std::system(command.c_str()) != 0)
            return false;
        for (const char* alias : {"Spanish_Mexico.ISO-8859-1", "English_United States.ISO-8859-1", "en_US",
                                  "de_DE@euro", "en.ISO-8859-1"})
            std::filesystem::create_directory_symlink(compiled, m_sDirectory + "/" + alias);
        setenv("LOCPATH", m_sDirectory.c_str(), 1);
        return true;
    }

    std::string m_sDirectory;
};

#define OVKIT_NEED_LOCALES()                                                                                 \
    if (!buildLocales())                                                                                     \
    GTEST_SKIP() << "cannot compile test locales with localedef"

} // namespace

TEST_F(OrvaLocaleFactoryTest, NamesAreCutAndThenLookedUp)
{
    OVKIT_NEED_LOCALES();
    struct Case
    {
        const char* name;
        const char* language;
        const char* country;
        const char* languageCode; // once the maps are filled
        const char* countryCode;
    };
    const Case cases[] = {
        {"German_Germany.ISO-8859-1", "German", "Germany", "de", "DE"},
        {"Spanish_Mexico.ISO-8859-1", "Spanish", "Mexico", "es", "ES"}, // Mexico's code is Spain's
        {"English_United States.ISO-8859-1", "English", "United States", "en", "US"},
        {"en_US", "en", "US", "en", "US"},
        {"de_DE@euro", "de", "DE@euro", "de", "DE@euro"},
        {"en.ISO-8859-1", "en.ISO-8859-1", "en", "en.ISO-8859-1", "en"},
        {"C", "C", "C", "C", "C"},
    };
    for (const Case& c : cases)
    {
        EXPECT_EQ(c.language, OrvaLocaleFactory::getLanguage(std::locale(c.name))) << c.name;
        EXPECT_EQ(c.country, OrvaLocaleFactory::getCountry(std::locale(c.name))) << c.name;
    }

    OrvaLocaleFactory::initializeLanguageCountryCode();
    const auto locales = g_oLocaleData;
    const auto countries = g_oCountryData;
    const auto languages = g_oLanguageData;
    const auto codes = g_oLanguageCodeData;
    OrvaLocaleFactory::initializeLanguageCountryCode();
    EXPECT_EQ(locales, g_oLocaleData);
    EXPECT_EQ(countries, g_oCountryData);
    EXPECT_EQ(languages, g_oLanguageData);
    EXPECT_EQ(codes, g_oLanguageCodeData);
    EXPECT_EQ(7u, g_oLocaleData.size());
    EXPECT_EQ(OrvaLocaleFactory::Chinese, g_oLanguageCodeData.at("Chinese"));
    for (const Case& c : cases)
    {
        EXPECT_EQ(c.languageCode, OrvaLocaleFactory::getLanguage(std::locale(c.name))) << c.name;
        EXPECT_EQ(c.countryCode, OrvaLocaleFactory::getCountry(std::locale(c.name))) << c.name;
    }
    // Once the table names it, a language's locale is made when it exists.
    EXPECT_EQ("en_US", OrvaLocaleFactory::getLocale(OrvaLocaleFactory::English).name());
}

TEST_F(OrvaLocaleFactoryTest, GetLocaleFallsBackToC)
{
    for (int language = -1; language <= 7; ++language)
        EXPECT_EQ("C",
                  OrvaLocaleFactory::getLocale(static_cast<OrvaLocaleFactory::Language>(language)).name())
            << "before the maps are filled: " << language;
    OrvaLocaleFactory::initializeLanguageCountryCode();
    for (int language : {5, 6, 7, 42, -1})
        EXPECT_EQ("C",
                  OrvaLocaleFactory::getLocale(static_cast<OrvaLocaleFactory::Language>(language)).name())
            << language;
    // A named locale that the system lacks gives "C" too.
    bool germanExists = true;
    try
    {
        std::locale german("german");
    }
    catch (const std::exception&)
    {
        germanExists = false;
    }
    EXPECT_EQ(germanExists ? "german" : "C", OrvaLocaleFactory::getLocale(OrvaLocaleFactory::German).name());
}

TEST_F(OrvaLocaleFactoryTest, DefaultLocaleIsTheEnvironmentsAndStaysFixed)
{
    OVKIT_NEED_LOCALES();
    EXPECT_EQ(kChildPassed, runChild("fixed", {{"LOCPATH", m_sDirectory}, {"LC_ALL", "en_US"}}));
}

TEST_F(OrvaLocaleFactoryTest, LibraryLoadsUnderAMissingEnvironmentLocale)
{
    EXPECT_EQ(kChildPassed,
              runChild("bad", {{"LANG", "xx_NO.SUCH-LOCALE"}, {"LC_ALL", "xx_NO.SUCH-LOCALE"}}));
}
