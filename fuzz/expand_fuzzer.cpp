// <NAME> expansion, from a property table and from the environment.
//
// Input: a selector byte, then fields: the text, and pairs of a name and a
// value.
//   selector bit 0  the pairs go into the environment and the text is
//                   expanded from it alone (else they go into a property
//                   table, which the environment backs up)
//
// The expansion is followed step by step beside the library, by the rules of
// its contract: the first `<`, the first `>` behind it, the name between
// them replaced by its value, and the search again from the front. That
// tells ahead which expansions never end, which are not run, and gives the
// result the library must return.
#include <ovkit/OrvaProperties.h>
#include <ovkit/OrvaTokenizer.h>

#include "FuzzSupport.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

using namespace OrvaSupport;
using ovkit_fuzz::Input;

namespace
{

/// The work, in characters scanned and moved, beyond which an expansion is
/// not run: the contract puts no bound on the size of a result (a value that
/// names another twice, and so on, doubles it at each level), and such a
/// result is work for the library, not a fault of it.
const std::size_t c_nWorkLimit = 64u << 20;

enum Outcome
{
    Ends,
    NeverEnds,
    TooLarge
};

/// A value that a name's expansion put into the text, while the text that
/// stood behind it (`below` characters) is untouched.
struct Frame
{
    std::string name;
    std::size_t below;
};

/// Expands `text` as the library must, into `result`.
///
/// An expansion never ends exactly when a name comes up again while the text
/// of its own earlier expansion is being worked on, without anything behind
/// that text having been touched since: a run from the value on, over the
/// text behind it, then reaches the same name with the same value in front
/// and at least as much behind, and repeats for ever. Conversely a run that
/// does not end has infinitely many steps whose text behind is never touched
/// afterwards, and two of them expand the same name. So each step keeps the
/// expansions whose text behind is untouched (`frames`), and one that
/// expands a name among them never ends.
template <class Lookup>
Outcome expand(const std::string& text, const Lookup& lookup, std::string& result)
{
    result = text;
    std::vector<Frame> frames;
    std::size_t work = 0;
    for (;;)
    {
        const std::size_t open = result.find('<');
        if (open == std::string::npos)
            return Ends;
        const std::size_t close = result.find('>', open + 1);
        if (close == std::string::npos)
            return Ends;
        const std::string name = result.substr(open + 1, close - open - 1);
        const std::size_t below = result.size() - close - 1;
        while (!frames.empty() && frames.back().below > below)
            frames.pop_back();
        for (const Frame& frame : frames)
            if (frame.name == name)
                return NeverEnds;
        result.replace(open, close - open + 1, lookup(name));
        work += result.size();
        if (work > c_nWorkLimit)
            return TooLarge;
        frames.push_back(Frame{name, below});
    }
}

std::string environmentValue(const std::string& name)
{
    const char* value = std::getenv(name.c_str());
    return value ? value : "";
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > ovkit_fuzz::c_nMaxInput)
        return 0;
    Input input(data, size);
    const bool fromEnvironment = input.byte() & 1;
    const std::string text = input.field();
    std::vector<std::pair<std::string, std::string>> pairs;
    while (!input.empty())
    {
        std::string name = input.field();
        pairs.emplace_back(name, input.field());
    }

    std::string expected;
    if (fromEnvironment)
    {
        // Names that the environment cannot hold (empty, or with '=') are
        // refused by setenv and stay unknown. What the process had under a
        // name is put back afterwards.
        std::vector<std::pair<std::string, char*>> saved;
        for (const auto& pair : pairs)
        {
            const char* before = std::getenv(pair.first.c_str());
            char* kept = before ? strdup(before) : nullptr;
            if (setenv(pair.first.c_str(), pair.second.c_str(), 1) == 0)
                saved.emplace_back(pair.first, kept);
            else
                std::free(kept);
        }
        // An expansion that never ends is not run.
        if (expand(text, environmentValue, expected) == Ends)
            OVKIT_FUZZ_CHECK(OrvaExpandString(text) == expected);
        for (auto it = saved.rbegin(); it != saved.rend(); ++it)
        {
            if (it->second)
                setenv(it->first.c_str(), it->second, 1);
            else
                unsetenv(it->first.c_str());
            std::free(it->second);
        }
        return 0;
    }

    OrvaProperties<std::string> properties;
    for (const auto& pair : pairs)
        properties.addProperty(pair.first, pair.second);
    const auto lookup = [&](const std::string& name)
    {
        std::string value;
        return properties.getPropertyValue(name, value) ? value : environmentValue(name);
    };
    // An expansion that never ends is not run.
    if (expand(text, lookup, expected) == Ends)
        OVKIT_FUZZ_CHECK(OrvaExpandString(text, properties) == expected);
    return 0;
}
