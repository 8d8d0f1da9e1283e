// Conversions that need no locale, for the library's own failure paths.
//
// The texts that the conversion failures carry are made of ASCII, so they can
// be moved between narrow and wide form character by character. Building the
// failure with these instead of the locale-based conversions keeps a failing
// conversion from failing again, and recursing, while it reports itself.
#ifndef OVKIT_TEXT_ASCIICONVERSION_H
#define OVKIT_TEXT_ASCIICONVERSION_H

#include <string>

namespace OrvaSupport
{

/// Each byte becomes the wide character of the same value (0 to 255).
inline std::wstring asciiWiden(const std::string& text)
{
    std::wstring result;
    result.reserve(text.size());
    for (char c : text)
        result += static_cast<wchar_t>(static_cast<unsigned char>(c));
    return result;
}

/// ASCII characters are kept; every other character becomes a blank, as the
/// locale-based narrowing does with characters that have no narrow form.
inline std::string asciiNarrow(const std::wstring& text)
{
    std::string result;
    result.reserve(text.size());
    for (wchar_t c : text)
        result += (c >= 0 && c < 0x80) ? static_cast<char>(c) : ' ';
    return result;
}

} // namespace OrvaSupport

#endif // OVKIT_TEXT_ASCIICONVERSION_H
