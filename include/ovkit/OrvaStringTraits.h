/// \file
/// Case-insensitive character traits and the two string types built on them.
///
///     OrvaSupport::ci_string name("Path");
///     name == "PATH";                       // true: compared without regard to case
///     name.c_str();                         // "Path": the case given is kept
///
/// char_traits_ci<C> behaves like std::char_traits<C>, except that eq, lt,
/// compare and find fold both sides to lower case first: narrow characters with
/// the C library's tolower on the signed value of the char, wide ones with
/// towlower. The folding therefore follows the C locale of the process (the
/// "C" locale unless the program calls setlocale), so outside ASCII it depends
/// on that locale. Comparison orders by the folded values; with equal folded
/// prefixes the shorter string is the lower, as in any std::basic_string.
///
/// The types are meant as keys of ordered containers (the case-insensitive
/// property tables) and for searching; they have no std::hash and no stream
/// operators of their own (use c_str()).
#ifndef OVKIT_ORVASTRINGTRAITS_H
#define OVKIT_ORVASTRINGTRAITS_H

#include <ovkit/OrvaExport.h>

#include <cstddef>
#include <string>

/// Case-insensitive character traits, instantiated for char and wchar_t only.
template <class C>
struct char_traits_ci : public std::char_traits<C>
{
    /// True when both characters fold to the same value.
    static bool eq(C a, C b);
    /// Orders by the folded values.
    static bool lt(C a, C b);
    /// At the first of the n positions where the folded values differ: -1 if
    /// the folded character of a is the lower, otherwise 1. 0 if none differs.
    static int compare(const C* a, const C* b, std::size_t n);
    /// The first of the n characters at s that folds to the folded value of c,
    /// or null.
    static const C* find(const C* s, std::size_t n, const C& c);
};

extern template struct OVKIT_API char_traits_ci<char>;
extern template struct OVKIT_API char_traits_ci<wchar_t>;

namespace OrvaSupport
{

/// Narrow string that compares and searches without regard to case.
typedef std::basic_string<char, char_traits_ci<char>> ci_string;
/// Wide string that compares and searches without regard to case.
typedef std::basic_string<wchar_t, char_traits_ci<wchar_t>> ci_wstring;

} // namespace OrvaSupport

#endif // OVKIT_ORVASTRINGTRAITS_H
