#include <ovkit/OrvaLocaleFactory.h>

#include <exception>

// The tables and the default locale are built right after the module record
// (which has priority 101), ahead of the library's other statics, so that any
// of those may already raise exceptions and convert text while it is built.
#define OVKIT_LOCALE_INIT __attribute__((init_priority(102)))

namespace OrvaSupport
{

// clang-format off
const OrvaCountryTableEntry g_CountryTable[7] = {
    {"United States", "US"},
    {"Germany", "DE"},
    {"Mexico", "ES"},
    {"France", "FR"},
    {"Japan", "JP"},
    {"People's Republic of China", "CN"},
    {"Taiwan", "TW"},
};

const OrvaLocaleTableEntry g_LocaleTable[7] = {
    {OrvaLocaleFactory::German, "german"},
    {OrvaLocaleFactory::English, "en_US"},
    {OrvaLocaleFactory::Spanish, "spanish"},
    {OrvaLocaleFactory::French, "french"},
    {OrvaLocaleFactory::Japanese, "japanese"},
    {OrvaLocaleFactory::Chinese, "C"},
    {OrvaLocaleFactory::Other, "C"},
};

const OrvaLanguageTableEntry g_LanguageTable[6] = {
    {"English", "en", OrvaLocaleFactory::English},
    {"German", "de", OrvaLocaleFactory::German},
    {"Spanish", "es", OrvaLocaleFactory::Spanish},
    {"French", "fr", OrvaLocaleFactory::French},
    {"Japanese", "ja", OrvaLocaleFactory::Japanese},
    {"Chinese", "zh", OrvaLocaleFactory::Chinese},
};
// clang-format on

std::map<OrvaLocaleFactory::Language, std::string> g_oLocaleData OVKIT_LOCALE_INIT;
std::map<std::string, std::string> g_oCountryData OVKIT_LOCALE_INIT;
std::map<std::string, std::string> g_oLanguageData OVKIT_LOCALE_INIT;
std::map<std::string, OrvaLocaleFactory::Language> g_oLanguageCodeData OVKIT_LOCALE_INIT;

std::locale GetAppropriateLocaleObject()
{
    try
    {
        return std::locale("");
    }
    catch (...)
    {
        // The environment names a locale that the system lacks.
        return std::locale();
    }
}

std::locale OrvaLocaleFactory::m_oDefaultLocale OVKIT_LOCALE_INIT(GetAppropriateLocaleObject());

std::locale OrvaLocaleFactory::getDefaultLocale(bool)
{
    return m_oDefaultLocale;
}

std::locale OrvaLocaleFactory::getLocale(Language language)
{
    const auto entry = g_oLocaleData.find(language);
    if (entry != g_oLocaleData.end())
    {
        try
        {
            return std::locale(entry->second.c_str());
        }
        catch (const std::exception&)
        {
            // The system lacks that locale: fall back to "C" below.
        }
    }
    return std::locale("C");
}

namespace
{

// The code that `table` gives for `piece`, or the piece itself.
std::string lookUpCode(const std::map<std::string, std::string>& table, const std::string& piece)
{
    const auto entry = table.find(piece);
    return entry == table.end() ? piece : entry->second;
}

} // namespace

std::string OrvaLocaleFactory::getLanguage(const std::locale& locale)
{
    const std::string name = locale.name();
    return lookUpCode(g_oLanguageData, name.substr(0, name.find('_')));
}

std::string OrvaLocaleFactory::getCountry(const std::locale& locale)
{
    const std::string name = locale.name();
    const std::string::size_type underscore = name.find('_');
    const std::string country = underscore == std::string::npos ? name : name.substr(underscore + 1);
    return lookUpCode(g_oCountryData, country.substr(0, country.find('.')));
}

void OrvaLocaleFactory::initializeLanguageCountryCode()
{
    // emplace keeps an existing entry, so the first row for a key wins and a
    // second call adds nothing.
    for (const OrvaLocaleTableEntry& row : g_LocaleTable)
        g_oLocaleData.emplace(row.m_eLanguage, row.m_szLocaleName);
    for (const OrvaCountryTableEntry& row : g_CountryTable)
        g_oCountryData.emplace(row.m_szName, row.m_szCode);
    for (const OrvaLanguageTableEntry& row : g_LanguageTable)
    {
        g_oLanguageData.emplace(row.m_szName, row.m_szCode);
        g_oLanguageCodeData.emplace(row.m_szName, row.m_eLanguage);
    }
}

} // namespace OrvaSupport
