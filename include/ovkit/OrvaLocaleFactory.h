/// \file
/// The library's default locale, locales for a few known languages, and the
/// language and country codes of a locale's name.
///
///     std::locale loc = OrvaLocaleFactory::getDefaultLocale(true);  // fixed at load
///     OrvaLocaleFactory::initializeLanguageCountryCode();          // once, at program start
///     std::string lang = OrvaLocaleFactory::getLanguage(loc);      // "en" for en_US.UTF-8
///
/// Two forms of locale name are understood: the POSIX form "en_US.UTF-8",
/// whose pieces already are the codes, and the long form
/// "English_United States.1252", whose pieces the tables below turn into codes
/// once initializeLanguageCountryCode() has filled the maps. Before that, or
/// for a name the tables do not know, the pieces are returned as they stand.
///
/// The default locale is the locale of the environment ("" in the C library's
/// sense), taken once while the library loads; when the environment names a
/// locale the system lacks, it is the global locale of that moment instead,
/// and the library loads all the same. Nothing here throws to the caller.
///
/// The maps are plain data without a lock: fill them at the start of the
/// program, before other threads use the lookups.
#ifndef OVKIT_ORVALOCALEFACTORY_H
#define OVKIT_ORVALOCALEFACTORY_H

#include <ovkit/OrvaExport.h>

#include <locale>
#include <map>
#include <string>

namespace OrvaSupport
{

/// Static locale services; the class has no instances.
class OVKIT_API OrvaLocaleFactory
{
public:
    /// The languages that getLocale() knows. Other keeps a row of the locale
    /// table (the "C" locale) but has no language name.
    enum Language : int
    {
        German = 0,
        English = 1,
        Spanish = 2,
        French = 3,
        Japanese = 4,
        Chinese = 5,
        Other = 6
    };

    /// A copy of the default locale fixed at load. The flag is ignored: either
    /// value gives the same locale. Safe from any thread, from the library's
    /// load until its statics are destroyed at exit.
    static std::locale getDefaultLocale(bool useDefault);

    /// The locale named for the language in g_oLocaleData. The "C" locale
    /// when the language has no entry (so for every language before
    /// initializeLanguageCountryCode(), and for values outside the
    /// enumeration) or when the system lacks the named locale.
    static std::locale getLocale(Language language);

    /// The part of the locale's name in front of the first '_' (the whole
    /// name when there is none), turned into its code when g_oLanguageData
    /// knows it. No cut at a '.': "en.UTF-8" stays whole.
    static std::string getLanguage(const std::locale& locale);

    /// The part of the locale's name behind the first '_' (the whole name
    /// when there is none), cut at its first '.', turned into its code when
    /// g_oCountryData knows it. A modifier behind '@' stays in the piece.
    static std::string getCountry(const std::locale& locale);

    /// Fills the four maps from the three tables, row by row, keeping the
    /// first row for a key. A second call adds nothing. The library never
    /// calls it itself.
    static void initializeLanguageCountryCode();

private:
    static std::locale m_oDefaultLocale;
};

/// The locale of the environment, std::locale(""); when that cannot be made
/// (the environment names a locale the system lacks), the current global
/// locale, std::locale(). Never throws.
OVKIT_API std::locale GetAppropriateLocaleObject();

/// A row of g_CountryTable: a country's long name and its code.
struct OrvaCountryTableEntry
{
    const char* m_szName; ///< The long name, for instance "United States".
    const char* m_szCode; ///< The two-letter code, for instance "US".
};

/// A row of g_LocaleTable: a language and the name of the locale to make for it.
struct OrvaLocaleTableEntry
{
    OrvaLocaleFactory::Language m_eLanguage; ///< The language.
    const char* m_szLocaleName;              ///< The locale name to make for it.
};

/// A row of g_LanguageTable: a language's long name, its code and its value.
struct OrvaLanguageTableEntry
{
    const char* m_szName;                    ///< The long name, for instance "English".
    const char* m_szCode;                    ///< The two-letter code, for instance "en".
    OrvaLocaleFactory::Language m_eLanguage; ///< The language's value.
};

/// Long country names and their codes. Mexico's code is "ES", as Spain's
/// would be.
OVKIT_API extern const OrvaCountryTableEntry g_CountryTable[7];
/// The locale name to make for each language; Chinese and Other give "C".
OVKIT_API extern const OrvaLocaleTableEntry g_LocaleTable[7];
/// Long language names with their codes and values; Other has no row.
OVKIT_API extern const OrvaLanguageTableEntry g_LanguageTable[6];

/// Language to locale name, from g_LocaleTable. Empty until filled.
OVKIT_API extern std::map<OrvaLocaleFactory::Language, std::string> g_oLocaleData;
/// Country name to country code, from g_CountryTable. Empty until filled.
OVKIT_API extern std::map<std::string, std::string> g_oCountryData;
/// Language name to language code, from g_LanguageTable. Empty until filled.
OVKIT_API extern std::map<std::string, std::string> g_oLanguageData;
/// Language name to language value, from g_LanguageTable. Empty until filled;
/// the library does not read it.
OVKIT_API extern std::map<std::string, OrvaLocaleFactory::Language> g_oLanguageCodeData;

} // namespace OrvaSupport

#endif // OVKIT_ORVALOCALEFACTORY_H
