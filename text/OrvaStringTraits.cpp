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

template <class C>
int compareFolded(const C* a, const C* b, std::size_t n)
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
const C* findFolded(const C* s, std::size_t n, C c)
{
    const auto wanted = fold(c);
    for (std::size_t i = 0; i < n; ++i)
    {
        if (fold(s[i]) == wanted)
            return s + i;
    }
    return nullptr;
}

} // namespace

bool char_traits_ci<char>::eq(char a, char b)
{
    return fold(a) == fold(b);
}

bool char_traits_ci<char>::lt(char a, char b)
{
    return fold(a) < fold(b);
}

int char_traits_ci<char>::compare(const char* a, const char* b, std::size_t n)
{
    return compareFolded(a, b, n);
}

const char* char_traits_ci<char>::find(const char* s, std::size_t n, const char& c)
{
    return findFolded(s, n, c);
}

bool char_traits_ci<wchar_t>::eq(wchar_t a, wchar_t b)
{
    return fold(a) == fold(b);
}

bool char_traits_ci<wchar_t>::lt(wchar_t a, wchar_t b)
{
    return fold(a) < fold(b);
}

int char_traits_ci<wchar_t>::compare(const wchar_t* a, const wchar_t* b, std::size_t n)
{
    return compareFolded(a, b, n);
}

const wchar_t* char_traits_ci<wchar_t>::find(const wchar_t* s, std::size_t n, const wchar_t& c)
{
    return findFolded(s, n, c);
}
