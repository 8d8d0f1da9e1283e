#include <ovkit/OrvaTokenizer.h>

#include <ovkit/OrvaProperties.h>

#include "log/LogMessage.h"
#include "text/CommandLine.h"

#include <cstdlib>
#include <cstring>

namespace OrvaSupport
{

namespace
{

/// A private, zero-terminated copy of `text` up to its first NUL, with room
/// for `extraZeros` further zeros behind the terminator.
std::vector<char> makeCBuffer(const std::string& text, std::size_t extraZeros = 0)
{
    const char* begin = text.c_str();
    std::vector<char> buffer(begin, begin + std::strlen(begin));
    buffer.resize(buffer.size() + 1 + extraZeros, '\0');
    return buffer;
}

/// Removes the character at `p` by moving the rest of the string one place
/// down, terminator included.
void deleteChar(char* p)
{
    std::memmove(p, p + 1, std::strlen(p + 1) + 1);
}

/// The seek of the command line parser: from `p`, the first `target` (a blank
/// or a double quote). While looking for a blank, a quoted part is passed
/// over and both its quotes are deleted. Null when the text ends first.
char* seekCommandLine(char* p, char target)
{
    for (;;)
    {
        if (*p == '\0')
            return nullptr;
        if (*p == target)
            return p;
        if (*p == '"' && target == ' ')
        {
            deleteChar(p);
            char* closing = seekCommandLine(p, '"');
            if (closing == nullptr)
                return nullptr;
            deleteChar(closing);
            p = closing;
            continue;
        }
        ++p;
    }
}

void appendIfNotEmpty(const char* word, std::vector<std::string>& arguments)
{
    if (*word != '\0')
        arguments.push_back(word);
}

/// Splits the zero-terminated, quote-holding line in `buffer` in place.
/// `start` is the start of the current word, `p` the cursor.
void parseQuotedLine(char* buffer, std::vector<std::string>& arguments)
{
    char* start = buffer;
    char* p = buffer;
    for (;;)
    {
        if (*p == ' ')
        {
            *p++ = '\0';
            appendIfNotEmpty(start, arguments);
            start = p;
        }
        else if (*p == '\0')
        {
            appendIfNotEmpty(start, arguments);
            return;
        }
        else if (*p == '"')
        {
            // The quote is taken to stand at the front of the word.
            ++start;
            char* closing = seekCommandLine(p + 1, '"');
            if (closing == nullptr)
            {
                appendIfNotEmpty(start, arguments);
                return;
            }
            deleteChar(closing);
            p = closing;
        }
        else
        {
            char* blank = seekCommandLine(p, ' ');
            if (blank == nullptr)
            {
                arguments.push_back(start);
                return;
            }
            *blank = '\0';
            p = blank + 1;
            arguments.push_back(start);
            start = p;
        }
    }
}

/// Where a name in `<NAME>` gets its value from.
class NameSource
{
public:
    virtual ~NameSource() = default;
    virtual std::string lookup(const std::string& name) const = 0;
};

class EnvironmentSource : public NameSource
{
public:
    std::string lookup(const std::string& name) const override { return OrvaGetEnvironmentVariable(name); }
};

class PropertySource : public NameSource
{
public:
    explicit PropertySource(OrvaProperties<std::string>& properties) : m_rProperties(properties) {}

    std::string lookup(const std::string& name) const override
    {
        std::string value;
        if (m_rProperties.getPropertyValue(name, value))
            return value;
        return OrvaGetEnvironmentVariable(name);
    }

private:
    OrvaProperties<std::string>& m_rProperties;
};

std::string expand(const std::string& text, const NameSource& source)
{
    OVKIT_LOG(9, "OrvaExpandString: expand = " << text);
    std::string result(text);
    for (;;)
    {
        const std::string::size_type open = result.find('<');
        if (open == std::string::npos)
            break;
        const std::string::size_type close = result.find('>', open + 1);
        if (close == std::string::npos)
            break;
        const std::string name = result.substr(open + 1, close - open - 1);
        OVKIT_LOG(9, "OrvaExpandString: Lookup " << name);
        result.replace(open, close - open + 1, source.lookup(name));
    }
    OVKIT_LOG(9, "OrvaExpandString: result = " << result);
    return result;
}

} // namespace

void OrvaTokenizer(char* list, std::vector<std::string>& tokens)
{
    tokens.clear();
    if (list == nullptr)
        return;
    for (char* p = list; *p != '\0'; p += std::strlen(p) + 1)
        tokens.push_back(p);
}

void OrvaTokenizer(const std::string& text, std::vector<std::string>& tokens)
{
    // The block form needs a second zero to end the block.
    std::vector<char> buffer = makeCBuffer(text, 1);
    OrvaTokenizer(buffer.data(), tokens);
}

void OrvaTokenizer(char* text, const std::string& delimiters, std::vector<std::string>& tokens)
{
    tokens.clear();
    if (text == nullptr || *text == '\0')
        return;
    for (char* token = std::strtok(text, delimiters.c_str()); token != nullptr;
         token = std::strtok(nullptr, delimiters.c_str()))
        tokens.push_back(token);
}

void OrvaTokenizer(const std::string& text, const std::string& delimiters, std::vector<std::string>& tokens)
{
    std::vector<char> buffer = makeCBuffer(text);
    OrvaTokenizer(buffer.data(), delimiters, tokens);
}

std::string OrvaExtractFirstString(const std::string& text, std::string& rest)
{
    std::string word;
    std::string remainder;
    if (!text.empty() && text[0] == '"')
    {
        const std::string::size_type closing = text.find('"', 1);
        if (closing == std::string::npos)
        {
            word = text.substr(1);
            remainder = word;
        }
        else
        {
            word = text.substr(1, closing - 1);
            remainder = text.substr(closing + 1);
        }
    }
    else
    {
        const std::string::size_type blank = text.find_first_of(" \t");
        if (blank == std::string::npos)
        {
            word = text;
        }
        else
        {
            word = text.substr(0, blank);
            remainder = text.substr(blank + 1);
        }
    }
    // Assigned last, since `rest` may be `text` itself.
    rest = remainder;
    return word;
}

namespace
{

/// The blank split of a line without quotes, as the strtok form gives it,
/// with a private cursor instead of strtok's process-wide one.
void splitAtBlanksPrivately(char* text, std::vector<std::string>& arguments)
{
    char* cursor = nullptr;
    for (char* token = strtok_r(text, " ", &cursor); token != nullptr;
         token = strtok_r(nullptr, " ", &cursor))
        arguments.push_back(token);
}

void parseCommandLine(const std::string& line, std::vector<std::string>& arguments, bool privateCursor)
{
    if (line.empty())
        return;
    arguments.clear();
    std::vector<char> buffer = makeCBuffer(line);
    if (std::strchr(buffer.data(), '"') != nullptr)
        parseQuotedLine(buffer.data(), arguments);
    else if (privateCursor)
        splitAtBlanksPrivately(buffer.data(), arguments);
    else
        OrvaTokenizer(buffer.data(), " ", arguments);
}

} // namespace

void OrvaParseCommandLine(const std::string& line, std::vector<std::string>& arguments)
{
    parseCommandLine(line, arguments, false);
}

void internal::parseCommandLineWithPrivateCursor(const std::string& line, std::vector<std::string>& arguments)
{
    parseCommandLine(line, arguments, true);
}

template <class StringType>
OrvaCmdLineTokenizer<StringType>::OrvaCmdLineTokenizer(const StringType& text) : m_sText(text), m_nPosition(0)
{
}

template <class StringType>
void OrvaCmdLineTokenizer<StringType>::Init(char)
{
    typedef typename StringType::value_type Char;
    m_sDelimiters = StringType{Char(' '), Char('\t')};
    m_sQuotes = StringType{Char('"'), Char('\'')};
}

template <class StringType>
void OrvaCmdLineTokenizer<StringType>::skipDelimitersFrom(typename StringType::size_type offset)
{
    const typename StringType::size_type next =
        offset >= m_sText.size() ? StringType::npos : m_sText.find_first_not_of(m_sDelimiters, offset);
    m_nPosition = next == StringType::npos ? npos : static_cast<unsigned int>(next);
}

template <class StringType>
StringType OrvaCmdLineTokenizer<StringType>::next()
{
    if (m_nPosition == npos)
        return StringType();
    const typename StringType::size_type delimiter = m_sText.find_first_of(m_sDelimiters, m_nPosition);
    if (delimiter == StringType::npos)
    {
        StringType word = m_sText.substr(m_nPosition);
        m_nPosition = npos;
        return word;
    }
    const typename StringType::size_type quote = m_sText.find_first_of(m_sQuotes, m_nPosition);
    if (quote == StringType::npos || delimiter < quote)
    {
        StringType word = m_sText.substr(m_nPosition, delimiter - m_nPosition);
        skipDelimitersFrom(delimiter);
        return word;
    }
    return nextQuoted();
}

template <class StringType>
StringType OrvaCmdLineTokenizer<StringType>::nextQuoted()
{
    typedef typename StringType::value_type Char;
    StringType word;
    bool inside = false;
    Char opening = Char();
    typename StringType::size_type i = m_nPosition;
    for (; i < m_sText.size(); ++i)
    {
        const Char c = m_sText[i];
        if (!inside)
        {
            if (m_sQuotes.find(c) != StringType::npos)
            {
                inside = true;
                opening = c;
                continue;
            }
            if (m_sDelimiters.find(c) != StringType::npos)
                break;
        }
        else if (c == opening)
        {
            if (i + 1 < m_sText.size() && m_sText[i + 1] == opening)
            {
                word += c;
                ++i;
            }
            else
            {
                inside = false;
            }
            continue;
        }
        word += c;
    }
    skipDelimitersFrom(i + 1);
    return word;
}

template class OrvaCmdLineTokenizer<std::string>;

std::string OrvaGetEnvironmentVariable(const std::string& name)
{
    const char* value = std::getenv(name.c_str());
    return value == nullptr ? std::string() : std::string(value);
}

std::string OrvaExpandString(const std::string& text)
{
    return expand(text, EnvironmentSource());
}

std::string OrvaExpandString(const std::string& text, OrvaProperties<std::string>& properties)
{
    return expand(text, PropertySource(properties));
}

} // namespace OrvaSupport
