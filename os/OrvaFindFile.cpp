#include <ovkit/OrvaFindFile.h>

#include <ovkit/OrvaFindFileImpl.h>

#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace OrvaSupport
{

// ---------------------------------------------------------------------------
// The handle

OrvaFindFile::OrvaFindFile(const std::string& path) : m_pImpl(new FindFileImplementation(path)) {}

OrvaFindFile::~OrvaFindFile()
{
    delete m_pImpl;
}

bool OrvaFindFile::hasMore()
{
    return m_pImpl != nullptr && m_pImpl->hasMore();
}

std::string OrvaFindFile::next()
{
    return m_pImpl != nullptr ? m_pImpl->next() : std::string();
}

// ---------------------------------------------------------------------------
// The common part

FindFileBase::FindFileBase(const std::string& path) : m_sPath(path), m_bDone(true)
{
    const std::string::size_type separator = path.find_last_of("/\\");
    if (separator == std::string::npos)
    {
        m_sPattern = path;
        return;
    }
    m_sDirectory = path.substr(0, separator);
    m_sPattern = path.substr(separator + 1);
    if (m_sPattern.empty())
        m_sPattern = "*";
}

FindFileBase::~FindFileBase() {}

bool FindFileBase::hasMore()
{
    return !m_bDone;
}

// ---------------------------------------------------------------------------
// The search over readdir

namespace
{

// The current working directory, or "." when it has no name that getcwd can
// give (it was removed, say). getcwd sizes its own buffer, so a working
// directory of any depth is found.
std::string workingDirectory()
{
    char* name = getcwd(nullptr, 0);
    if (name == nullptr)
        return ".";
    std::string result(name);
    free(name);
    return result;
}

} // namespace

FindFileImplementation::FindFileImplementation(const std::string& path)
    : FindFileBase(path), m_pDir(nullptr), m_pEntry(nullptr)
{
    m_pDir = opendir(m_sDirectory.empty() ? workingDirectory().c_str() : m_sDirectory.c_str());
    advance();
}

FindFileImplementation::~FindFileImplementation()
{
    if (m_pDir != nullptr)
        closedir(m_pDir);
}

void FindFileImplementation::advance()
{
    // A directory that could not be opened has nothing to give.
    if (m_pDir == nullptr)
    {
        m_bDone = true;
        return;
    }
    const bool everything = m_sPattern == "*";
    for (;;)
    {
        m_pEntry = readdir(m_pDir);
        if (m_pEntry == nullptr)
        {
            m_bDone = true;
            return;
        }
        if (everything || IsPatternMatch(m_sPattern.c_str(), m_pEntry->d_name))
        {
            m_bDone = false;
            return;
        }
    }
}

std::string FindFileImplementation::next()
{
    if (m_bDone)
        return std::string();
    std::string result = m_sDirectory.empty() ? std::string() : m_sDirectory + "/";
    result += m_pEntry->d_name;
    advance();
    return result;
}

// Matching with backtracking to the most recent `*` only. When a later part
// of the pattern fails, an earlier `*` never needs to take more of the name:
// any extra it took could equally be taken by the later `*`, which is tried
// with every length already. So the results are those of the plain recursion
// (a `*` tries the rest of the pattern at every position of the name), in
// time proportional to the product of the lengths, without its exponential
// worst case or its stack depth.
bool FindFileImplementation::IsPatternMatch(const char* pattern, const char* name)
{
    const char* p = pattern != nullptr ? pattern : "";
    const char* n = name != nullptr ? name : "";
    const char* afterStar = nullptr;     // the pattern behind the latest `*`
    const char* starTakesUpTo = nullptr; // the end of the part of the name that `*` takes
    for (;;)
    {
        if (*p == '*')
        {
            while (*p == '*')
                ++p;
            if (*p == '\0')
                return true;
            afterStar = p;
            starTakesUpTo = n;
        }
        else if (*n == '\0')
        {
            // A part of the pattern that is left needs bytes: taking more
            // for a `*` would only leave fewer.
            return *p == '\0';
        }
        else if (*p == '?' || *p == *n)
        {
            ++p;
            ++n;
            continue;
        }
        else if (afterStar == nullptr)
        {
            return false;
        }
        else
        {
            ++starTakesUpTo;
        }
        // The rest of the pattern is tried behind what the `*` takes. A plain
        // byte there can only match where that byte stands in the name.
        if (*afterStar != '?')
        {
            starTakesUpTo = std::strchr(starTakesUpTo, *afterStar);
            if (starTakesUpTo == nullptr)
                return false;
        }
        p = afterStar;
        n = starTakesUpTo;
    }
}

} // namespace OrvaSupport
