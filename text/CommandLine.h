// The command line split of OrvaParseCommandLine without strtok's shared
// state. Not installed.
#ifndef OVKIT_TEXT_COMMANDLINE_H
#define OVKIT_TEXT_COMMANDLINE_H

#include <string>
#include <vector>

namespace OrvaSupport
{
namespace internal
{

/// Gives the words that OrvaParseCommandLine gives, but keeps its place in a
/// line without quotes in a cursor of its own, so that it neither uses nor
/// disturbs the process's strtok sequence. Safe on any thread, and in the
/// child of a fork whatever another thread of the parent was doing.
void parseCommandLineWithPrivateCursor(const std::string& line, std::vector<std::string>& arguments);

} // namespace internal
} // namespace OrvaSupport

#endif // OVKIT_TEXT_COMMANDLINE_H
