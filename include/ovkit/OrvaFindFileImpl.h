/// \file
/// The implementation classes behind OrvaFindFile, and the pattern test.
///
///     if (FindFileImplementation::IsPatternMatch("*.log", name)) ...
///
///     FindFileImplementation search("/tmp/*.log");   // as OrvaFindFile does
///     while (search.hasMore()) use(search.next());
///
/// FindFileBase splits the path and keeps the state common to every platform;
/// FindFileImplementation reads the directory with opendir and readdir.
/// The rules of the search are those of <ovkit/OrvaFindFile.h>.
#ifndef OVKIT_ORVAFINDFILEIMPL_H
#define OVKIT_ORVAFINDFILEIMPL_H

#include <ovkit/OrvaExport.h>

#include <dirent.h>
#include <string>

namespace OrvaSupport
{

/// The platform-independent half of a search: the path and its two parts,
/// and whether a match is waiting.
class OVKIT_API FindFileBase
{
public:
    virtual ~FindFileBase();

    FindFileBase(const FindFileBase&) = delete;
    FindFileBase& operator=(const FindFileBase&) = delete;

    /// True while a match is waiting: the negation of m_bDone.
    virtual bool hasMore();
    /// The waiting match, and fetches the next one; empty once done.
    virtual std::string next() = 0;

protected:
    /// Splits `path` at its last `/` or `\`. m_bDone starts true.
    explicit FindFileBase(const std::string& path);

    /// The path as given.
    std::string m_sPath;
    /// The part before the last separator; empty when there is none, or when
    /// the separator is the first character.
    std::string m_sDirectory;
    /// The part behind the last separator, or "*" when that part is empty.
    std::string m_sPattern;
    /// No further match is waiting.
    bool m_bDone;
};

/// A search over readdir.
class OVKIT_API FindFileImplementation : public FindFileBase
{
public:
    /// Opens m_sDirectory, or the current working directory when it is empty
    /// (".", should the working directory have no name), and fetches the
    /// first match. A directory that cannot be opened gives no match.
    explicit FindFileImplementation(const std::string& path);
    /// Closes the directory stream, if one is open.
    ~FindFileImplementation() override;

    std::string next() override;

    /// True when `name` matches `pattern` as a whole: `*` stands for any run
    /// of bytes (also none), `?` for exactly one byte, and every other byte
    /// for itself, case included. A null pointer counts as an empty string.
    /// Takes time proportional to the product of the two lengths at worst,
    /// whatever the number of `*`, and no stack beyond a fixed frame.
    static bool IsPatternMatch(const char* pattern, const char* name);

private:
    /// Reads entries until one matches, or the directory is exhausted.
    void advance();

    DIR* m_pDir;
    /// The entry that the next call of next() reports; it lives in the
    /// directory stream's own buffer until the next readdir.
    struct dirent* m_pEntry;
};

} // namespace OrvaSupport

#endif // OVKIT_ORVAFINDFILEIMPL_H
