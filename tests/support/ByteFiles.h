// Files written byte for byte, and the 16-bit form of a text, for the tests
// of property files and message sets.
#ifndef OVKIT_TESTS_SUPPORT_BYTEFILES_H
#define OVKIT_TESTS_SUPPORT_BYTEFILES_H

#include <fstream>
#include <string>

namespace ovkit_test
{

inline void writeBytes(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

/// The byte order mark and the units of `text`, 16-bit little-endian.
inline std::string utf16(const std::u16string& text)
{
    std::string bytes = "\xFF\xFE";
    for (char16_t unit : text)
    {
        bytes += static_cast<char>(unit & 0xFF);
        bytes += static_cast<char>(unit >> 8);
    }
    return bytes;
}

} // namespace ovkit_test

#endif // OVKIT_TESTS_SUPPORT_BYTEFILES_H
