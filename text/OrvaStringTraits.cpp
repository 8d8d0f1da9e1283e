#include <ovkit/OrvaStringTraits.h>

#include <cctype>
#include <cwctype>

namespace
{

// Narrow folding works on the signed value of the char, as the C library's
// tables of this platform accept it.
inline int fold(char c)
{
    return std::tolower(c);
}

inline std::wint_t fold(wchar_t c)
{
    return std::towlower(static_cast<std::wint_t>(c));
}

} // namespace

template <class C>
bool char_traits_ci<C>::eq(C a, C b)
{
    return fold(a) == fold(b);
}

template <class C>
bool char_traits_ci<C>::lt(C a, C b)
{
    return fold(a) < fold(b);
}

template <class C>
int char_traits_ci<C>::compare(const C* a, const C* b, std::size_t n)
{
    for (std::size_t i = 0; i < n; ++i)
    {
        const auto left = fold(a[i]);
        const auto right = fold(b[i]);
        if (left != right)
            return left < right ? -1 : 1;
    }
    return 0;
}

template <class C>
const C* char_traits_ci<C>::find(const C* s, std::size_t n, const C& c)
{
    const auto wanted = fold(c);
    for (std::size_t i = 0; i < n; ++i)
    {
        if (fold(s[i]) == wanted)
            return s + i;
    }
    return nullptr;
}

template struct char_traits_ci<char>;
template struct char_traits_ci<wchar_t>;
