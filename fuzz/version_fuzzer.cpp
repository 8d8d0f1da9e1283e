// Versions and range lists: OrvaVersion::parse, compare, toString,
// createRangeVector and OrvaVersionRange.
//
// Input: three fields: two version texts and a range list.
#include <ovkit/OrvaException.h>
#include <ovkit/OrvaVersion.h>

#include "FuzzSupport.h"

#include <string>

using namespace OrvaSupport;
using ovkit_fuzz::Input;

namespace
{

/// The version of `text`, or false when the text is no version.
bool parsed(const std::string& text, OrvaVersion& version)
{
    try
    {
        version = text;
        return true;
    }
    catch (const OrvaException&)
    {
        return false;
    }
}

OrvaVersion::tComparison mirrored(OrvaVersion::tComparison result)
{
    return result == OrvaVersion::VersionLess      ? OrvaVersion::VersionGreater
           : result == OrvaVersion::VersionGreater ? OrvaVersion::VersionLess
                                                   : OrvaVersion::VersionEqual;
}

/// A version with numbers prints as text that reads back as an equal
/// version, and prints the same again.
void checkText(const OrvaVersion& version)
{
    const std::string text = version.toString();
    if (text.empty() || text[0] == '.')
        return; // no numbers: a lone word prints with a leading dot
    OrvaVersion again;
    OVKIT_FUZZ_CHECK(parsed(text, again));
    OVKIT_FUZZ_CHECK(OrvaVersion::compare(again, version) == OrvaVersion::VersionEqual);
    OVKIT_FUZZ_CHECK(again.toString() == text);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > ovkit_fuzz::c_nMaxInput)
        return 0;
    Input input(data, size);
    const std::string first = input.field(), second = input.field(), list = input.rest();
    OrvaVersion a, b;
    const bool haveA = parsed(first, a), haveB = parsed(second, b);
    if (haveA)
        checkText(a);
    if (haveA && haveB)
    {
        const OrvaVersion::tComparison result = OrvaVersion::compare(a, b);
        OVKIT_FUZZ_CHECK(OrvaVersion::compare(b, a) == mirrored(result));
        OVKIT_FUZZ_CHECK(OrvaVersion::compare(a, a) == OrvaVersion::VersionEqual);
    }
    // parse adds to what a version holds, and a failed parse keeps what it
    // read up to the fault.
    OrvaVersion added(a);
    try
    {
        added.parse(second);
    }
    catch (const OrvaException&)
    {
    }
    added.isInit();

    try
    {
        const auto ranges = OrvaVersion::createRangeVector(list);
        for (const auto& range : ranges)
        {
            const bool inRange = OrvaVersionRange()(range, a);
            if (!range.second.isInit())
                OVKIT_FUZZ_CHECK(inRange ==
                                 (OrvaVersion::compare(range.first, a) == OrvaVersion::VersionEqual));
        }
    }
    catch (const OrvaException&)
    {
    }
    return 0;
}
