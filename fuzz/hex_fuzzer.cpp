// Hexadecimal text both ways: OrvaBytesToHex and OrvaHexToBytes.
//
// Input: any bytes, taken once as the bytes to convert and once as hex text.
#include <ovkit/OrvaStringUtilities.h>

#include "FuzzSupport.h"

#include <cctype>
#include <string>
#include <vector>

using namespace OrvaSupport;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > ovkit_fuzz::c_nMaxInput)
        return 0;
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const int count = static_cast<int>(size);

    // Bytes to text and back: two upper-case digits per byte, and the same
    // bytes again.
    const std::string hex = OrvaBytesToHex(bytes.data(), count);
    OVKIT_FUZZ_CHECK(hex.size() == 2 * size);
    OVKIT_FUZZ_CHECK(hex.find_first_not_of("0123456789ABCDEF") == std::string::npos);
    std::vector<char> back(size + 1, '\x5a');
    OVKIT_FUZZ_CHECK(OrvaHexToBytes(back.data(), hex) == count);
    OVKIT_FUZZ_CHECK(std::string(back.data(), size) == bytes && back[size] == '\x5a');
    OVKIT_FUZZ_CHECK(OrvaBytesToHex(bytes.data(), 0).empty() && OrvaBytesToHex(bytes.data(), -count).empty());

    // The input as text: one byte per pair of characters, whatever they are,
    // and none written beyond. Text of hex digits alone comes back in upper
    // case, without a last odd digit.
    const int pairs = count / 2;
    std::vector<char> parsed(pairs + 1, '\x5a');
    OVKIT_FUZZ_CHECK(OrvaHexToBytes(parsed.data(), bytes) == pairs);
    OVKIT_FUZZ_CHECK(parsed[pairs] == '\x5a');
    const std::string even = bytes.substr(0, 2 * pairs);
    if (even.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos)
    {
        std::string upper = even;
        for (char& c : upper)
            c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        OVKIT_FUZZ_CHECK(OrvaBytesToHex(parsed.data(), pairs) == upper);
    }
    return 0;
}
