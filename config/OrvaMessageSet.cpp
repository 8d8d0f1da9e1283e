#include <ovkit/OrvaMessageSet.h>

#include <ovkit/OrvaException.h>
#include <ovkit/OrvaLocaleFactory.h>

#include "config/PlainTextDecoding.h"
#include "sync/KillShield.h"

#include <algorithm>

namespace OrvaSupport
{

namespace
{

const wchar_t c_cSeparator = L'=';
const char c_szSuffix[] = ".pro";

bool isAscii(const std::string& text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// The table's form of a key: the same conversion as a plain file's lines, so
// that a key is found when it is written as the file was. ASCII maps to itself
// in every locale and skips the facet.
bool wideKey(const std::string& key, std::wstring& wide)
{
    if (isAscii(key))
    {
        wide.assign(key.begin(), key.end());
        return true;
    }
    const std::locale global;
    std::mbstate_t state = std::mbstate_t();
    return PropertyFile::decodeLine(std::use_facet<std::codecvt<wchar_t, char, std::mbstate_t>>(global),
                                    state, key, wide);
}

} // namespace

OrvaMessageSet::OrvaMessageSet(const std::string& baseName, std::locale locale)
    : m_oLocale(locale), m_oMessages(false)
{
    loadSet(baseName);
}

OrvaMessageSet::~OrvaMessageSet() {}

// The base file goes through the throwing load; the overlays through the
// quiet one, whose failure is no error. The load runs with cancellation
// held back: it opens and reads files, and allocates throughout.
void OrvaMessageSet::loadSet(const std::string& baseName)
{
    internal::runShielded(
        [&]
        {
            m_oMessages.loadProperties(baseName + c_szSuffix, c_cSeparator);
            const std::string language = OrvaLocaleFactory::getLanguage(m_oLocale);
            if (language.empty())
                return;
            const std::string languageName = baseName + "_" + language;
            m_oMessages.loadPropertiesImpl(languageName + c_szSuffix, c_cSeparator);
            const std::string country = OrvaLocaleFactory::getCountry(m_oLocale);
            if (country.empty())
                return;
            m_oMessages.loadPropertiesImpl(languageName + "_" + country + c_szSuffix, c_cSeparator);
        });
}

std::wstring OrvaMessageSet::getMessage(const std::string& key) const
{
    std::wstring text;
    internal::runShielded(
        [&]
        {
            std::wstring wide;
            if (!wideKey(key, wide) || !m_oMessages.getPropertyValue(wide, text))
                throw OrvaMissingMessageException(key);
        });
    return text;
}

} // namespace OrvaSupport
