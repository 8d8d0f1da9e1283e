// Shared helpers of the fuzz harnesses: the input cap, a reader that takes
// selector bytes and text fields off the front of an input, a check that
// aborts with a message, and a scratch directory for the harnesses that go
// through files.
#ifndef OVKIT_FUZZ_FUZZSUPPORT_H
#define OVKIT_FUZZ_FUZZSUPPORT_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace ovkit_fuzz
{

/// Inputs above this size are passed over, so that one run stays fast.
constexpr std::size_t c_nMaxInput = 64 * 1024;

/// Separates the text fields of an input (the ASCII record separator, which
/// means nothing to any of the grammars under test).
constexpr char c_cFieldSeparator = '\x1e';

/// An input, read from the front.
class Input
{
public:
    Input(const std::uint8_t* data, std::size_t size) : m_pData(data), m_nSize(size), m_nPos(0) {}

    bool empty() const { return m_nPos >= m_nSize; }

    /// The next byte; 0 once the input is used up.
    std::uint8_t byte() { return empty() ? 0 : m_pData[m_nPos++]; }

    /// The bytes up to the next field separator, which is consumed, or all
    /// that is left.
    std::string field()
    {
        std::size_t end = m_nPos;
        while (end < m_nSize && m_pData[end] != static_cast<std::uint8_t>(c_cFieldSeparator))
            ++end;
        std::string text(reinterpret_cast<const char*>(m_pData) + m_nPos, end - m_nPos);
        m_nPos = end < m_nSize ? end + 1 : end;
        return text;
    }

    /// All that is left.
    std::string rest()
    {
        std::string text(reinterpret_cast<const char*>(m_pData) + m_nPos, m_nSize - m_nPos);
        m_nPos = m_nSize;
        return text;
    }

private:
    const std::uint8_t* m_pData;
    std::size_t m_nSize;
    std::size_t m_nPos;
};

/// The text split at every occurrence of `separator`; an empty text gives one
/// empty piece.
inline std::vector<std::string> split(const std::string& text, char separator)
{
    std::vector<std::string> pieces(1);
    for (char c : text)
    {
        if (c == separator)
            pieces.emplace_back();
        else
            pieces.back() += c;
    }
    return pieces;
}

/// A directory of this process's own, created at first use and removed at
/// exit (a crash leaves it behind in the temporary directory).
inline const std::string& scratchDir()
{
    static const std::string path = []
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "ovkit-fuzz-XXXXXX").string();
        if (!mkdtemp(&pattern[0]))
            abort();
        static std::string removed;
        removed = pattern;
        std::atexit(
            []
            {
                std::error_code ignored;
                std::filesystem::remove_all(removed, ignored);
            });
        return pattern;
    }();
    return path;
}

} // namespace ovkit_fuzz

/// Aborts with the condition's text when it does not hold: the harnesses
/// check what the contract promises, beyond the absence of crashes.
#define OVKIT_FUZZ_CHECK(condition)                                                                          \
    do                                                                                                       \
    {                                                                                                        \
        if (!(condition))                                                                                    \
        {                                                                                                    \
            std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition);               \
            std::abort();                                                                                    \
        }                                                                                                    \
    } while (false)

#endif // OVKIT_FUZZ_FUZZSUPPORT_H
