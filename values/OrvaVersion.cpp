#include <ovkit/OrvaVersion.h>

#include <ovkit/OrvaException.h>

#include <cctype>
#include <climits>
#include <cstdlib>

namespace OrvaSupport
{

namespace
{

const char* const c_szInvalidVersion = "OrvaVersion::parse: invalid version string: ";
const char* const c_szInvalidRange = "OrvaVersion::createRangeVector: Invalid range specification: ";

/// Cuts a text at every occurrence of a delimiter string. Unlike the
/// library's OrvaTokenizer it keeps empty tokens, also the one behind a
/// delimiter at the very end of the text, which is what makes "1..2" and
/// "1.2." mean what they do.
class DelimitedTokens
{
public:
    DelimitedTokens(const std::string& text, const std::string& delimiter)
        : m_sText(text), m_sDelimiter(delimiter), m_nPosition(0)
    {
    }

    bool hasMoreTokens() const
    {
        return !m_sText.empty() && !m_sDelimiter.empty() && m_nPosition != std::string::npos;
    }

    std::string next()
    {
        std::string::size_type found = m_sText.find(m_sDelimiter, m_nPosition);
        std::string token =
            m_sText.substr(m_nPosition, found == std::string::npos ? found : found - m_nPosition);
        m_nPosition = found == std::string::npos ? found : found + m_sDelimiter.size();
        return token;
    }

private:
    const std::string& m_sText;
    const std::string m_sDelimiter;
    std::string::size_type m_nPosition;
};

/// The value of the leading digits of `token`, held to INT_MAX: strtol is
/// 64 bits wide here, and the value must not wrap when it is narrowed.
int componentValue(const std::string& token)
{
    long value = std::strtol(token.c_str(), nullptr, 10);
    return value > INT_MAX ? INT_MAX : static_cast<int>(value);
}

/// True if any number of `components` from `first` on is not 0.
bool anyNonZeroFrom(const std::vector<int>& components, std::vector<int>::size_type first)
{
    for (std::vector<int>::size_type i = first; i < components.size(); ++i)
        if (components[i] != 0)
            return true;
    return false;
}

/// Splits a "{low-high}" entry into its two bound texts; throws for a range
/// without room for either bound.
std::pair<std::string, std::string> rangeBounds(const std::string& token, const std::string& rangeList)
{
    std::string::size_type dash = token.find('-');
    if (dash == std::string::npos || dash < 2 || dash >= token.size() - 2)
        throw OrvaException(c_szInvalidRange + rangeList, 0);
    return std::make_pair(token.substr(1, dash - 1), token.substr(dash + 1, token.size() - dash - 2));
}

} // namespace

OrvaVersion::OrvaVersion() {}

OrvaVersion::OrvaVersion(int*) {}

OrvaVersion::OrvaVersion(const std::string& text)
{
    parse(text);
}

OrvaVersion::OrvaVersion(const OrvaVersion& other) = default;

OrvaVersion& OrvaVersion::operator=(const OrvaVersion& other) = default;

OrvaVersion& OrvaVersion::operator=(const std::string& text)
{
    m_vComponents.clear();
    m_sSuffix.clear();
    parse(text);
    return *this;
}

OrvaVersion::~OrvaVersion() {}

void OrvaVersion::parse(const std::string& text)
{
    DelimitedTokens tokens(text, ".");
    while (tokens.hasMoreTokens())
    {
        std::string token = tokens.next();
        if (!token.empty() && std::isdigit(static_cast<unsigned char>(token[0])))
        {
            m_vComponents.push_back(componentValue(token));
            continue;
        }
        // A word may only stand last.
        if (tokens.hasMoreTokens())
            throw OrvaException(c_szInvalidVersion + text, 0);
        m_sSuffix = token;
    }
}

bool OrvaVersion::isInit() const
{
    return !m_vComponents.empty() || !m_sSuffix.empty();
}

std::string OrvaVersion::toString() const
{
    std::string text;
    for (std::vector<int>::size_type i = 0; i < m_vComponents.size(); ++i)
    {
        if (i != 0)
            text += '.';
        text += std::to_string(m_vComponents[i]);
    }
    if (!m_sSuffix.empty())
        text += "." + m_sSuffix;
    return text;
}

OrvaVersion::tComparison OrvaVersion::compare(const OrvaVersion& a, const OrvaVersion& b)
{
    const std::vector<int>& left = a.m_vComponents;
    const std::vector<int>& right = b.m_vComponents;
    std::vector<int>::size_type common = left.size() < right.size() ? left.size() : right.size();
    for (std::vector<int>::size_type i = 0; i < common; ++i)
    {
        if (left[i] != right[i])
            return left[i] < right[i] ? VersionLess : VersionGreater;
    }
    if (anyNonZeroFrom(left, common))
        return VersionGreater;
    if (anyNonZeroFrom(right, common))
        return VersionLess;
    // std::string compares through char_traits<char>, which orders bytes as
    // unsigned char.
    int words = a.m_sSuffix.compare(b.m_sSuffix);
    if (words < 0)
        return VersionLess;
    return words > 0 ? VersionGreater : VersionEqual;
}

std::vector<std::pair<OrvaVersion, OrvaVersion>> OrvaVersion::createRangeVector(const std::string& rangeList)
{
    // Every entry is checked before the first version is read, so that a
    // malformed range is reported even behind a malformed version.
    std::vector<std::pair<std::string, std::string>> texts;
    DelimitedTokens tokens(rangeList, ",");
    while (tokens.hasMoreTokens())
    {
        std::string token = tokens.next();
        if (token.empty() || token[0] != '{')
            texts.push_back(std::make_pair(token, std::string()));
        else
            texts.push_back(rangeBounds(token, rangeList));
    }

    std::vector<std::pair<OrvaVersion, OrvaVersion>> ranges;
    ranges.reserve(texts.size());
    for (const std::pair<std::string, std::string>& entry : texts)
        ranges.push_back(std::make_pair(OrvaVersion(entry.first), OrvaVersion(entry.second)));
    return ranges;
}

bool OrvaVersionRange::operator()(const std::pair<OrvaVersion, OrvaVersion>& range,
                                  const OrvaVersion& version) const
{
    if (!range.second.isInit())
        return OrvaVersion::compare(range.first, version) == OrvaVersion::VersionEqual;
    return OrvaVersion::compare(range.first, version) != OrvaVersion::VersionGreater &&
           OrvaVersion::compare(version, range.second) == OrvaVersion::VersionLess;
}

} // namespace OrvaSupport
