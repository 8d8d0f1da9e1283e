/// \file
/// Narrow/wide conversion, trimming, C-string hand-over and hexadecimal text.
///
///     std::wstring w = OrvaStringUtilities::widen("abc", OrvaLocaleFactory::getDefaultLocale(true));
///     std::string s = OrvaStringUtilities::trim(std::string("  a "), std::string(" "),
///                                               OrvaStringUtilities::TrimBoth);   // "a"
///     std::string hex = OrvaBytesToHex("\x0a\xff", 2);                            // "0AFF"
///
/// None of these operations keeps state; they may be called from any thread.
/// The case-insensitive string types live in <ovkit/OrvaStringTraits.h>.
#ifndef OVKIT_ORVASTRINGUTILITIES_H
#define OVKIT_ORVASTRINGUTILITIES_H

#include <ovkit/OrvaExport.h>

#include <locale>
#include <string>

namespace OrvaSupport
{

/// A scope of static text operations.
class OVKIT_API OrvaStringUtilities
{
    // Keeps a parameter out of template argument deduction.
    template <class T>
    struct SameType
    {
        typedef T type;
    };

public:
    /// Which side trim() takes characters from.
    enum tTrimOption : int
    {
        TrimLeft = 0,
        TrimRight = 1,
        TrimBoth = 2
    };

    /// Converts each character with the std::ctype<wchar_t> facet of the
    /// locale, byte by byte: multibyte sequences (UTF-8) are not decoded, and
    /// a byte without a wide form of its own (every byte above 0x7F in the
    /// "C" and UTF-8 locales) becomes WEOF. ASCII round-trips through
    /// narrow() in every locale. A NUL in the text ends the result. Throws OrvaException (code 0,
    /// "OrvaStringUtilities::widen: ctype facet cannot be created for the
    /// locale - " followed by the cause) when the facet is missing or memory
    /// runs out; no partial result is given.
    static std::wstring widen(const std::string& text, std::locale locale);

    /// Converts each character with the std::ctype<wchar_t> facet of the
    /// locale; a character without a narrow form becomes a blank. A NUL in the
    /// text ends the result. Throws OrvaException as widen() does, with
    /// "OrvaStringUtilities::narrow: ..." as the text.
    static std::string narrow(const std::wstring& text, std::locale locale);

    /// Takes the characters of the set `characters` away from one or both
    /// ends of the text. A text made only of such characters gives an empty
    /// result; an option outside the enumeration gives the text unchanged.
    /// Defined for std::string and std::wstring. The string type is taken
    /// from `text` alone, so the set may be given as a literal.
    template <class S>
    static S trim(const S& text, const typename SameType<S>::type& characters, tTrimOption option);
};

///@{
/// The two instances of trim() that the library holds.
extern template OVKIT_API std::string OrvaStringUtilities::trim<std::string>(const std::string&,
                                                                             const std::string&, tTrimOption);
extern template OVKIT_API std::wstring
OrvaStringUtilities::trim<std::wstring>(const std::wstring&, const std::wstring&, tTrimOption);
///@}

/// Copies the text with its terminating zero into `buffer` and returns
/// `buffer`. Returns null, copying nothing, when `buffer` is null or the text
/// has `size` characters or more. The size is compared as an unsigned value,
/// so a negative `size` never refuses.
OVKIT_API char* OrvaStringToChar(const std::string& text, char* buffer, int size);

/// The string made from a zero-terminated text. A null pointer is refused
/// with std::logic_error (from the string constructor).
OVKIT_API std::string OrvaStringFromChar(const char* text);

/// Two upper-case hexadecimal digits per byte, high nibble first, with no
/// separators. A `count` of 0 or below gives an empty string.
OVKIT_API std::string OrvaBytesToHex(const char* bytes, int count);

/// Reads the digits of `hex` in pairs, high nibble first, writes one byte per
/// pair to `bytes` and returns the number of pairs (size / 2); a last odd
/// digit is ignored. `bytes` must have room for them. There is no validation:
/// both cases of the letters work, and any other character gives some value
/// without complaint.
OVKIT_API int OrvaHexToBytes(char* bytes, const std::string& hex);

} // namespace OrvaSupport

#endif // OVKIT_ORVASTRINGUTILITIES_H
