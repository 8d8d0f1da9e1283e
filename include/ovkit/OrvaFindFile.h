/// \file
/// Listing the entries of one directory whose names match a wildcard pattern.
///
///     OrvaFindFile search("/var/spool/agent/*.job");
///     while (search.hasMore())
///         process(search.next());            // "/var/spool/agent/a.job", ...
///
/// The path is split at its last separator, `/` or `\`: what stands before it
/// is the directory, what stands behind it the pattern. A path that ends in a
/// separator has the pattern "*"; a path without a separator searches the
/// current working directory. So does a path whose only separator is its
/// first character: "/x" looks for x in the working directory, not in the
/// root. Results carry the directory and a `/` in front of the name (also when
/// the path was split at a `\`); a search of the working directory gives bare
/// names.
///
/// The pattern knows two wildcards, `*` (any run of bytes, also none) and `?`
/// (one byte); every other byte stands for itself, compared exactly, so case
/// counts and there is no escape or character class. `.` is an ordinary byte:
/// "*.*" matches only names that hold a point, and "*" and ".*" also report
/// the entries "." and "..". Nothing is filtered: hidden files, directories
/// and "." and ".." are entries like any other. The search is flat (it does
/// not go down into subdirectories), and names come in the order in which the
/// directory gives them, unsorted.
///
/// A directory that cannot be opened matches nothing. The platform part of the
/// search lives in <ovkit/OrvaFindFileImpl.h>.
#ifndef OVKIT_ORVAFINDFILE_H
#define OVKIT_ORVAFINDFILE_H

#include <ovkit/OrvaExport.h>

#include <string>

namespace OrvaSupport
{

class FindFileBase;

/// One search, consumed front to back. Not copyable. An object belongs to one
/// thread at a time.
class OVKIT_API OrvaFindFile
{
public:
    /// Opens the directory of `path` and fetches the first match ahead.
    explicit OrvaFindFile(const std::string& path);
    ~OrvaFindFile();

    OrvaFindFile(const OrvaFindFile&) = delete;
    OrvaFindFile& operator=(const OrvaFindFile&) = delete;

    /// True while a match is waiting for next().
    bool hasMore();
    /// The waiting match, and fetches the one after it. An empty string once
    /// the search is finished, as often as it is called.
    std::string next();

private:
    FindFileBase* m_pImpl;
};

} // namespace OrvaSupport

#endif // OVKIT_ORVAFINDFILE_H
