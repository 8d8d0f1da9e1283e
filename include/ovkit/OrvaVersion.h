/// \file
/// Dotted version numbers with an optional trailing word, and lists of
/// versions and version ranges.
///
///     OrvaVersion v("2.4.1.beta");                          // 2, 4, 1 and the word "beta"
///     OrvaVersion::compare(v, OrvaVersion("2.4.1"));       // VersionGreater
///     auto ranges = OrvaVersion::createRangeVector("1.5,{2.0-3.0}");
///     bool ok = std::any_of(ranges.begin(), ranges.end(),
///                           [&](const auto& r) { return OrvaVersionRange()(r, v); });   // true
///
/// Version grammar: numbers separated by single dots, and one optional last
/// word that does not begin with a decimal digit ("1.2.3", "1.2.beta"). A part
/// that begins with a digit counts by its leading digits only ("3a" is 3; a
/// number beyond the range of int counts as 2147483647). A minus sign is no
/// digit: "-1" is a word. Nothing is trimmed, and an empty part is kept as a
/// part: "1..2" and "." are malformed, and in "1.2." the empty last part is an
/// empty word, so that version is 1.2.
///
/// Order: numbers compare from the left; missing numbers count as 0, so "1.2"
/// equals "1.2.0.0". With equal numbers the words decide, as unsigned bytes,
/// and no word comes before any word: "1.2" is below "1.2.beta", which is below
/// "1.2.rc". The empty text is a version too: below "0.beta", equal to "0".
///
/// Range lists: entries separated by commas; an entry "{low-high}" holds the
/// versions from low up to, but not including, high; any other entry holds the
/// versions equal to it. The first "-" of an entry ends its lower bound, so a
/// bound cannot itself contain a "-". The character that closes a range is not
/// looked at: "{1.0-2.0]" reads as "{1.0-2.0}".
///
/// A version is a plain value: no locks, no shared state.
#ifndef OVKIT_ORVAVERSION_H
#define OVKIT_ORVAVERSION_H

#include <ovkit/OrvaExport.h>

#include <string>
#include <utility>
#include <vector>

namespace OrvaSupport
{

/// A version: its numbers, most significant first, and the word behind them
/// (without its dot; empty if there is none).
class OVKIT_API OrvaVersion
{
public:
    /// The result of compare(a, b). An unscoped enumeration nested here, so
    /// that the names read OrvaVersion::VersionLess and the values convert to
    /// the small integers 0, 1 and 2.
    enum tComparison : int
    {
        VersionEqual = 0,   ///< a equals b
        VersionLess = 1,    ///< a is below b
        VersionGreater = 2, ///< a is above b
    };

    /// Empty: no numbers, no word.
    OrvaVersion();
    /// The same as the default constructor; the pointer is not looked at.
    OrvaVersion(int*);
    /// parse(text) on an empty version; throws as parse() does.
    OrvaVersion(const std::string& text);
    ///@{
    /// Copies the numbers and the word.
    OrvaVersion(const OrvaVersion& other);
    OrvaVersion& operator=(const OrvaVersion& other);
    ///@}
    /// Empties the version, then parse(text). After a throw the version holds
    /// the numbers read before the malformed part.
    OrvaVersion& operator=(const std::string& text);
    virtual ~OrvaVersion();

    /// Appends the numbers of `text` to this version, and, if `text` ends in
    /// a word, makes it the word (an empty last part makes the word empty).
    /// Nothing is cleared first. A word that is not the last part throws
    /// OrvaException, code 0, "OrvaVersion::parse: invalid version string: "
    /// followed by `text`; the numbers read before it stay appended.
    void parse(const std::string& text);

    /// True if the version has at least one number or a word.
    bool isInit() const;

    /// The numbers in decimal, joined by dots, then "." and the word if there
    /// is one. A version of a word alone prints as ".beta", which parse()
    /// does not take back (its first part is empty and not the last).
    std::string toString() const;

    /// Compares the numbers from the left, missing ones counting as 0, then
    /// the words as unsigned byte strings (a word that is the start of
    /// another comes first).
    static tComparison compare(const OrvaVersion& a, const OrvaVersion& b);

    /// Reads a range list. Each entry becomes a pair: a single version is
    /// (version, empty version); a range "{low-high?" is (low, high), where
    /// "?" is any last character. The whole list is checked for malformed
    /// ranges before any version is read: a "{" entry whose first "-" is
    /// missing, or leaves no character for either bound, throws
    /// OrvaException, code 0, "OrvaVersion::createRangeVector: Invalid range
    /// specification: " followed by `rangeList`. Then each text is
    /// parsed, and a malformed version throws the text of parse(). The empty
    /// list gives no entries; an empty entry (as in "1.0,") gives a pair of
    /// empty versions.
    static std::vector<std::pair<OrvaVersion, OrvaVersion>> createRangeVector(const std::string& rangeList);

private:
    std::vector<int> m_vComponents;
    std::string m_sSuffix;
};

/// Tells whether a version lies in an entry of createRangeVector(). An entry
/// with an upper bound holds the lower bound and what is above it, up to but
/// not including the upper bound. An entry whose upper bound is empty holds
/// the versions that compare equal to its lower bound. Stateless.
struct OVKIT_API OrvaVersionRange
{
    /// True when `version` lies in `range` (lower bound, upper bound).
    bool operator()(const std::pair<OrvaVersion, OrvaVersion>& range, const OrvaVersion& version) const;
};

} // namespace OrvaSupport

#endif // OVKIT_ORVAVERSION_H
