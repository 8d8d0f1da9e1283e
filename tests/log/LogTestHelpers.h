// Shared pieces of the log tests: a scratch directory, file reading, and the
// number that the next opening of a log file will draw.
#ifndef OVKIT_TESTS_LOG_LOGTESTHELPERS_H
#define OVKIT_TESTS_LOG_LOGTESTHELPERS_H

#include <ftw.h>
#include <pthread.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace LogTest
{

/// A fresh directory under /tmp, removed with its contents at the end of the scope.
class ScratchDir
{
public:
    ScratchDir()
    {
        char pattern[] = "/tmp/ovkitlogXXXXXX";
        if (mkdtemp(pattern) == nullptr)
            abort();
        m_sPath = pattern;
    }
    ~ScratchDir()
    {
        nftw(
            m_sPath.c_str(),
            [](const char* path, const struct stat*, int, struct FTW*) { return remove(path), 0; }, 16,
            FTW_DEPTH | FTW_PHYS);
    }
    const std::string& path() const { return m_sPath; }
    std::string file(const std::string& name) const { return m_sPath + "/" + name; }

private:
    std::string m_sPath;
};

/// Seeds rand() with `seed` and returns the number that it will give next.
inline int seedAndPeek(unsigned int seed)
{
    srand(seed);
    int next = rand();
    srand(seed);
    return next;
}

inline std::vector<std::string> readLines(const std::string& path)
{
    std::vector<std::string> lines;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

/// The thread id as the log prints it.
inline int printedThreadId()
{
    return static_cast<int>(static_cast<unsigned int>(pthread_self()));
}

/// The text behind a record's prefix, or the whole line when it has none.
inline std::string textOf(const std::string& line)
{
    std::string::size_type close = line.find("] ");
    return close == std::string::npos ? line : line.substr(close + 2);
}

} // namespace LogTest

#endif // OVKIT_TESTS_LOG_LOGTESTHELPERS_H
