// Member definitions of the property table that read and write files.
// Included only by the source that instantiates the table for its four
// string types.
#ifndef OVKIT_CONFIG_ORVAPROPERTIESFILEIMPL_H
#define OVKIT_CONFIG_ORVAPROPERTIESFILEIMPL_H

#include <ovkit/OrvaProperties.h>

#include "config/OrvaPropertiesImpl.h"
#include "config/PlainTextDecoding.h"
#include "log/LogMessage.h"
#include "sync/KillShield.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <istream>
#include <locale>
#include <ostream>
#include <string>
#include <type_traits>

namespace OrvaSupport
{

namespace PropertyFile
{

/// The file streams of a table's character type: byte streams for the narrow
/// tables, wide streams under their default conversion for the wide ones.
template <class Char>
struct Streams;

template <>
struct Streams<char>
{
    typedef std::ifstream In;
    typedef std::ofstream Out;
};

template <>
struct Streams<wchar_t>
{
    typedef std::wifstream In;
    typedef std::wofstream Out;
};

/// The plain reader takes at most this many bytes from the stream at a time.
const std::size_t c_nPlainBlockSize = 65536;
/// A 16-bit line collects this many units before its buffer first grows.
const std::size_t c_nUnicodeLineStart = 8192;
/// The 16-bit reader takes the file in blocks of this many bytes.
const std::size_t c_nUnicodeBlockSize = 65536;

/// Consumes the byte order mark 0xFF 0xFE and returns true if the stream
/// starts with it; otherwise leaves the stream as it was. Looks ahead without
/// seeking, so that pipes and FIFOs read like files.
inline bool skipByteOrderMark(std::istream& bytes)
{
    if (bytes.peek() != 0xFF)
    {
        bytes.clear(); // an empty stream is no failure here
        return false;
    }
    bytes.get();
    if (bytes.peek() == 0xFE)
    {
        bytes.get();
        return true;
    }
    bytes.clear();
    bytes.unget();
    return false;
}

/// Opens `stream` on `path`, and again when a signal interrupted the open:
/// opening a FIFO waits for its other end, and a handler installed without
/// SA_RESTART ends that wait with EINTR, which is no failure to open the file.
template <class Stream>
inline void openRestarting(Stream& stream, const std::string& path, std::ios::openmode mode)
{
    for (;;)
    {
        errno = 0;
        stream.open(path.c_str(), mode);
        if (stream.is_open() || errno != EINTR)
            return;
        stream.clear();
    }
}

/// The character that a table keeps of one 16-bit unit: wide tables the
/// whole unit, narrow tables its low byte.
template <class Char>
inline Char fromUnit(unsigned int unit)
{
    if constexpr (sizeof(Char) == 1)
        return static_cast<Char>(unit & 0xFF);
    else
        return static_cast<Char>(unit);
}

} // namespace PropertyFile

template <class StringType>
bool OrvaProperties<StringType>::loadProperties(const std::string& path, Char separator)
{
    if (!loadPropertiesImpl(path, separator))
        throw OrvaException("OrvaProperties<StringType>::loadProperties: couldn't open file " + path, 0);
    return true;
}

template <class StringType>
bool OrvaProperties<StringType>::loadPropertiesImpl(const std::string& path, Char separator)
{
    OVKIT_LOG(5, "OrvaProperties<StringType>::loadProperties: from file " << path);

    // The byte order mark is looked for in the bytes themselves, whatever the
    // table's character type: a wide stream would first pass them through
    // its conversion.
    std::ifstream bytes;
    PropertyFile::openRestarting(bytes, path, std::ios::in | std::ios::binary);
    if (!bytes.is_open())
    {
        OVKIT_LOG(5, "OrvaProperties<StringType>::loadProperties: couldn't open file " << path);
        return false;
    }

    if (PropertyFile::skipByteOrderMark(bytes))
        readUnicodeLines(bytes, separator);
    else
        readPlainLines(bytes, path, separator);

    debugPrintProperties();
    return true;
}

template <class StringType>
void OrvaProperties<StringType>::readPlainLines(std::istream& bytes, const std::string& path, Char separator)
{
    if constexpr (std::is_same<Char, char>::value)
    {
        static_cast<void>(path);
        // Lines are cut out of the stream's own buffer, one fill at a time,
        // as a line-by-line read would see them: a fill is one read of the
        // file, so lines from a pipe are stored as soon as they arrive. A line
        // that runs on into the next fill is collected in `pending`.
        //
        // The whole read runs in one shield: a kill waits for the end of the
        // load or takes effect at the next read of the file, between two
        // lines, with the table's lock free. Each stored line still takes the
        // lock on its own.
        internal::runShielded(
            [&]
            {
                std::streambuf& source = *bytes.rdbuf();
                std::string block(PropertyFile::c_nPlainBlockSize, '\0');
                std::string pending;
                const auto storeLine = [&](const char* text, std::size_t length)
                {
                    PropertyLine::Parts parts;
                    if (!PropertyLine::split<typename StringType::traits_type>(text, length, separator,
                                                                               parts))
                        return;
                    try
                    {
                        StringType name(text, parts.nameLength);
                        StringType value(text + parts.valueStart, parts.valueLength);
                        OrvaCriticalSection guard(m_oPropertyLock, true);
                        PropertyStore::store(m_mapProperties, m_bMultiValued, std::move(name),
                                             std::move(value));
                    }
                    catch (OrvaException&)
                    {
                        // A line that fails is dropped; the load goes on.
                    }
                };

                while (source.sgetc() != std::char_traits<char>::eof())
                {
                    const std::streamsize wanted =
                        std::min(source.in_avail(), static_cast<std::streamsize>(block.size()));
                    const std::streamsize count = source.sgetn(&block[0], wanted);
                    const char* next = block.data();
                    const char* const end = next + (count > 0 ? count : 0);
                    while (const char* lineEnd = static_cast<const char*>(
                               std::memchr(next, '\n', static_cast<std::size_t>(end - next))))
                    {
                        if (pending.empty())
                            storeLine(next, static_cast<std::size_t>(lineEnd - next));
                        else
                        {
                            pending.append(next, lineEnd);
                            storeLine(pending.data(), pending.size());
                            pending.clear();
                        }
                        next = lineEnd + 1;
                    }
                    pending.append(next, end);
                }
                // A last line without line feed is read like any other.
                if (!pending.empty())
                    storeLine(pending.data(), pending.size());
            });
    }
    else
    {
        // Each line of bytes is decoded with the conversion of the global
        // locale at the time of the load. A line with a byte that cannot be
        // decoded ends the load there, as the end of the file would.
        static_cast<void>(path);
        std::basic_string<Char> line;
        const std::locale global;
        const auto& convert = std::use_facet<std::codecvt<wchar_t, char, std::mbstate_t>>(global);
        std::mbstate_t state = std::mbstate_t();
        std::string bytesOfLine;
        while (std::getline(bytes, bytesOfLine) &&
               PropertyFile::decodeLine(convert, state, bytesOfLine, line))
            addProperty(StringType(line.data(), line.size()), separator);
    }
}

template <class StringType>
void OrvaProperties<StringType>::readUnicodeLines(std::istream& bytes, Char separator)
{
    StringType line;
    line.reserve(PropertyFile::c_nUnicodeLineStart);
    std::string block(PropertyFile::c_nUnicodeBlockSize, '\0');
    int lowByte = -1; // first byte of a unit whose second byte is still to come
    bool afterCarriageReturn = false;

    while (bytes.read(&block[0], block.size()) || bytes.gcount() > 0)
    {
        const std::streamsize count = bytes.gcount();
        for (std::streamsize i = 0; i < count; ++i)
        {
            const unsigned int byte = static_cast<unsigned char>(block[i]);
            if (lowByte < 0)
            {
                lowByte = static_cast<int>(byte);
                continue;
            }
            const unsigned int unit = static_cast<unsigned int>(lowByte) | (byte << 8);
            lowByte = -1;

            if (unit == 0x000A)
            {
                if (afterCarriageReturn)
                    line.erase(line.size() - 1);
                addProperty(line, separator);
                line.clear();
                afterCarriageReturn = false;
            }
            else
            {
                line.push_back(PropertyFile::fromUnit<Char>(unit));
                afterCarriageReturn = unit == 0x000D;
            }
        }
    }
    // The end of the file ends the last line; a lone last byte is dropped.
    if (!line.empty())
        addProperty(line, separator);
}

template <class StringType>
void OrvaProperties<StringType>::debugPrintProperties() const
{
    if (!OrvaLogging::isAccessAllowed() || OrvaLogging::getInstance()->getGlobalLogLevel() != 9)
        return;
    for (typename PropertyMap::const_iterator entry = m_mapProperties.begin(); entry != m_mapProperties.end();
         ++entry)
    {
        if (entry->second.empty())
            continue;
        const StringType& value = entry->second.front();
        OVKIT_LOG(9, "DebugPrintProperty: " << entry->first << "=" << value << " ("
                                            << static_cast<unsigned long>(value.length()) << ")");
    }
}

template <class StringType>
bool OrvaProperties<StringType>::saveProperties(const std::string& path)
{
    if (!savePropertiesImpl(path))
        throw OrvaException("OrvaProperties<StringType>::saveProperties: couldn't open file " + path, 0);
    return true;
}

template <class StringType>
bool OrvaProperties<StringType>::savePropertiesImpl(const std::string& path)
{
    OVKIT_LOG(5, "OrvaProperties<StringType>::saveProperties: to file " << path);

    typename PropertyFile::Streams<Char>::Out out;
    PropertyFile::openRestarting(out, path, std::ios::out | std::ios::trunc);
    if (!out.is_open())
    {
        OVKIT_LOG(5, "OrvaProperties<StringType>::saveProperties: couldn't open file " << path);
        return false;
    }

    // Written as C strings, so a zero character ends a name or a value.
    for (typename PropertyMap::const_iterator entry = m_mapProperties.begin(); entry != m_mapProperties.end();
         ++entry)
    {
        if (entry->second.empty())
            continue;
        out << entry->first.c_str() << Char('=') << entry->second.front().c_str() << std::endl;
    }
    return true;
}

} // namespace OrvaSupport

#endif // OVKIT_CONFIG_ORVAPROPERTIESFILEIMPL_H
