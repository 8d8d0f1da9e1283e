// How bytes of plain text become wide characters: with a conversion facet,
// in practice the global C++ locale's at the time of reading. Wide property
// tables read their plain files this way, and message sets turn their narrow
// keys into wide ones by the same rule. Not installed.
#ifndef OVKIT_CONFIG_PLAINTEXTDECODING_H
#define OVKIT_CONFIG_PLAINTEXTDECODING_H

#include <cstddef>
#include <cwchar>
#include <locale>
#include <string>

namespace OrvaSupport
{
namespace PropertyFile
{

/// Decodes one line of bytes into wide characters with `convert`, carrying
/// its shift state from line to line. False if a byte cannot be decoded.
inline bool decodeLine(const std::codecvt<wchar_t, char, std::mbstate_t>& convert, std::mbstate_t& state,
                       const std::string& bytes, std::wstring& line)
{
    line.assign(bytes.size(), L'\0');
    const char* fromNext = bytes.data();
    wchar_t* toNext = &line[0];
    const std::codecvt_base::result result = convert.in(state, bytes.data(), bytes.data() + bytes.size(),
                                                        fromNext, &line[0], &line[0] + line.size(), toNext);
    if (result == std::codecvt_base::noconv)
    {
        line.assign(bytes.begin(), bytes.end());
        return true;
    }
    line.resize(static_cast<std::size_t>(toNext - &line[0]));
    return result == std::codecvt_base::ok && fromNext == bytes.data() + bytes.size();
}

} // namespace PropertyFile
} // namespace OrvaSupport

#endif // OVKIT_CONFIG_PLAINTEXTDECODING_H
