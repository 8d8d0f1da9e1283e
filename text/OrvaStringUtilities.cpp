#include <ovkit/OrvaStringUtilities.h>

#include <ovkit/OrvaException.h>

#include "text/AsciiConversion.h"

#include <cstring>
#include <exception>
#include <vector>

namespace OrvaSupport
{

namespace
{

// The failure of a conversion, built without the locale so that reporting it
// cannot fail the same way again.
OrvaException conversionFailure(const char* prefix, const std::exception& cause)
{
    return OrvaException(asciiWiden(std::string(prefix) + cause.what()), 0);
}

// The value of one hexadecimal digit, computed on the signed character with no
// validation: lower-case letters are first moved to upper case.
int hexDigitValue(char digit)
{
    int value = digit;
    if (value > 96)
        value -= 32;
    if (value < 65)
        value -= 48;
    else
        value -= 55;
    return value;
}

} // namespace

std::wstring OrvaStringUtilities::widen(const std::string& text, std::locale locale)
{
    try
    {
        const std::ctype<wchar_t>& facet = std::use_facet<std::ctype<wchar_t>>(locale);
        std::vector<wchar_t> buffer(4 * (text.size() + 1), 0);
        facet.widen(text.data(), text.data() + text.size(), buffer.data());
        return std::wstring(buffer.data());
    }
    catch (const std::exception& cause)
    {
        throw conversionFailure("OrvaStringUtilities::widen: ctype facet cannot be created for the locale - ",
                                cause);
    }
}

std::string OrvaStringUtilities::narrow(const std::wstring& text, std::locale locale)
{
    try
    {
        const std::ctype<wchar_t>& facet = std::use_facet<std::ctype<wchar_t>>(locale);
        std::vector<char> buffer(4 * text.size() + 4, 0);
        facet.narrow(text.data(), text.data() + text.size(), ' ', buffer.data());
        return std::string(buffer.data());
    }
    catch (const std::exception& cause)
    {
        throw conversionFailure(
            "OrvaStringUtilities::narrow: ctype facet cannot be created for the locale - ", cause);
    }
}

template <class S>
S OrvaStringUtilities::trim(const S& text, const typename SameType<S>::type& characters, tTrimOption option)
{
    if (text.empty())
        return text;
    switch (option)
    {
    case TrimLeft:
    {
        const typename S::size_type first = text.find_first_not_of(characters);
        return first == S::npos ? S() : text.substr(first);
    }
    case TrimRight:
    {
        const S reversed(text.rbegin(), text.rend());
        const typename S::size_type kept = reversed.find_first_not_of(characters);
        return kept == S::npos ? S() : text.substr(0, text.size() - kept);
    }
    case TrimBoth:
        return trim(trim(text, characters, TrimLeft), characters, TrimRight);
    default:
        return text;
    }
}

template std::string OrvaStringUtilities::trim<std::string>(const std::string&, const std::string&,
                                                            tTrimOption);
template std::wstring OrvaStringUtilities::trim<std::wstring>(const std::wstring&, const std::wstring&,
                                                              tTrimOption);

char* OrvaStringToChar(const std::string& text, char* buffer, int size)
{
    // Unsigned on purpose: a negative size reads as a huge one and never refuses.
    if (buffer == nullptr || text.size() >= static_cast<unsigned int>(size))
        return nullptr;
    std::memcpy(buffer, text.c_str(), text.size() + 1);
    return buffer;
}

std::string OrvaStringFromChar(const char* text)
{
    return std::string(text);
}

std::string OrvaBytesToHex(const char* bytes, int count)
{
    static const char s_digits[] = "0123456789ABCDEF";
    std::string hex;
    if (count <= 0)
        return hex;
    hex.reserve(2 * static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i)
    {
        const unsigned char byte = static_cast<unsigned char>(bytes[i]);
        hex += s_digits[byte >> 4];
        hex += s_digits[byte & 0x0F];
    }
    return hex;
}

int OrvaHexToBytes(char* bytes, const std::string& hex)
{
    const std::string::size_type pairs = hex.size() / 2;
    for (std::string::size_type i = 0; i < pairs; ++i)
    {
        const int value = (hexDigitValue(hex[2 * i]) * 16) | hexDigitValue(hex[2 * i + 1]);
        bytes[i] = static_cast<char>(static_cast<unsigned char>(value & 0xFF));
    }
    return static_cast<int>(pairs);
}

} // namespace OrvaSupport
