// Shared pieces of the log tests: reading lines back, and
// a log on a file whose numbered name is predicted by seeding rand().
#ifndef OVKIT_TESTS_SUPPORT_LOGTESTHELPERS_H
#define OVKIT_TESTS_SUPPORT_LOGTESTHELPERS_H

#include <ovkit/OrvaLogging.h>

#include "support/ScratchDir.h"

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace ovkit_test
{

/// Seeds rand() with `seed` and returns the number that the next opened log file will draw.
inline int seedAndPeek(unsigned int seed)
{
    srand(seed);
    int next = rand();
    srand(seed);
    return next;
}

/// The lines of a file, each cut to the text behind its record prefix ("] ")
/// when `textOnly` is set.
inline std::vector<std::string> readLines(const std::string& path, bool textOnly = false)
{
    std::vector<std::string> lines;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);)
        lines.push_back(textOnly && line.find("] ") != std::string::npos ? line.substr(line.find("] ") + 2)
                                                                         : line);
    return lines;
}

/// A log at `level` writing to a file of its own scratch directory only.
struct FileLog
{
    explicit FileLog(int level)
        : fileName(dir.file("test" + std::to_string(seedAndPeek(11)) + ".log")),
          log(dir.file("test.log"), 1, level)
    {
    }
    std::vector<std::string> lines(bool textOnly = false) const { return readLines(fileName, textOnly); }

    ScratchDir dir;
    std::string fileName;
    OrvaSupport::OrvaLogging log;
};

} // namespace ovkit_test

#endif // OVKIT_TESTS_SUPPORT_LOGTESTHELPERS_H
