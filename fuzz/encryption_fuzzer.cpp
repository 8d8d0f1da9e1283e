// Encryption: encrypt, then decrypt, with fuzzed keys and strengths, and the
// cipher text compared with OpenSSL's Blowfish.
//
// Input: a strength byte, a second strength byte, then two fields: the key
// and the plain text.
//   strength bits 0-1   0 StrengthLow, 1 StrengthHigh, 2 the value of the
//                       next four bytes (little-endian), 3 the default
//   second   bits 0-1   the same for a setStrength after construction, 3
//                       meaning none
// Whole blocks come back from decryption as they went in; a last partial
// block is the start of its zero-filled block's cipher text, and is not
// decrypted.
#include <ovkit/OrvaEncryption.h>
#include <ovkit/OrvaException.h>

#include "FuzzSupport.h"

#include <openssl/blowfish.h>

#include <cstring>
#include <memory>
#include <string>

using namespace OrvaSupport;
using ovkit_fuzz::Input;

namespace
{

/// A strength as the selector gives it; false for the default.
bool strengthOf(std::uint8_t selector, Input& input, OrvaEncryption::Strength& strength)
{
    switch (selector & 3)
    {
    case 0:
        strength = OrvaEncryption::StrengthLow;
        return true;
    case 1:
        strength = OrvaEncryption::StrengthHigh;
        return true;
    case 2:
    {
        std::uint32_t value = 0;
        for (int i = 0; i < 4; ++i)
            value |= static_cast<std::uint32_t>(input.byte()) << (8 * i);
        strength = static_cast<OrvaEncryption::Strength>(static_cast<int>(value));
        return true;
    }
    default:
        return false;
    }
}

/// OpenSSL's Blowfish over the plain text filled up with zeros to whole
/// blocks, cut back to the plain length: ECB, or CBC from a zero chain.
std::string reference(const std::string& key, const std::string& plain, bool chained)
{
    BF_KEY schedule;
    // Blowfish takes at most 72 key bytes, and repeats a shorter key.
    BF_set_key(&schedule, static_cast<int>(std::min<std::size_t>(key.size(), 72)),
               reinterpret_cast<const unsigned char*>(key.data()));
    std::string padded = plain;
    padded.resize((plain.size() + 7) / 8 * 8, '\0');
    std::string cipher(padded.size(), '\0');
    unsigned char chain[8] = {};
    auto in = reinterpret_cast<const unsigned char*>(padded.data());
    auto out = reinterpret_cast<unsigned char*>(&cipher[0]);
    if (chained)
        BF_cbc_encrypt(in, out, static_cast<long>(padded.size()), &schedule, chain, BF_ENCRYPT);
    else
        for (std::size_t i = 0; i < padded.size(); i += 8)
            BF_ecb_encrypt(in + i, out + i, &schedule, BF_ENCRYPT);
    cipher.resize(plain.size());
    return cipher;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > ovkit_fuzz::c_nMaxInput)
        return 0;
    Input input(data, size);
    const std::uint8_t first = input.byte(), second = input.byte();
    // The mode is that of the last strength set that was low or high: none
    // for an object made with another value and not given one of them since.
    enum
    {
        NoMode,
        Blocks,
        Chained
    } mode = Chained;
    OrvaEncryption::Strength strength = OrvaEncryption::StrengthHigh;
    std::unique_ptr<OrvaEncryption> cipher;
    if (strengthOf(first, input, strength))
    {
        cipher.reset(new OrvaEncryption(strength));
        mode = strength == OrvaEncryption::StrengthLow    ? Blocks
               : strength == OrvaEncryption::StrengthHigh ? Chained
                                                          : NoMode;
    }
    else
        cipher.reset(new OrvaEncryption());
    if ((second & 3) != 3 && strengthOf(second, input, strength))
    {
        cipher->setStrength(strength);
        if (strength == OrvaEncryption::StrengthLow)
            mode = Blocks;
        else if (strength == OrvaEncryption::StrengthHigh)
            mode = Chained;
    }
    const std::string key = input.field();
    const std::string plain = input.rest();

    std::string encrypted, error;
    try
    {
        const bool done = cipher->encryptDataImpl(key, plain, encrypted, error);
        if (plain.empty())
        {
            // Nothing to do: the key is not even looked at.
            OVKIT_FUZZ_CHECK(done && encrypted.empty());
            return 0;
        }
        if (key.empty())
        {
            OVKIT_FUZZ_CHECK(!done && error == "The key passed is empty");
            return 0;
        }
        OVKIT_FUZZ_CHECK(done && mode != NoMode);
    }
    catch (const OrvaException& e)
    {
        OVKIT_FUZZ_CHECK(mode == NoMode && e.getText() == "OrvaInvalidEncryptionException - The mode is not "
                                                          "initialized properly");
        return 0;
    }
    OVKIT_FUZZ_CHECK(encrypted == reference(key, plain, mode == Chained));

    const std::size_t whole = plain.size() / 8 * 8;
    std::string decrypted;
    OVKIT_FUZZ_CHECK(cipher->decryptDataImpl(key, encrypted, decrypted, error));
    OVKIT_FUZZ_CHECK(decrypted.size() == plain.size() && decrypted.compare(0, whole, plain, 0, whole) == 0);
    // Again with the kept key schedule, and on a copy that makes its own.
    std::string again;
    cipher->decryptData(key, encrypted, again);
    OVKIT_FUZZ_CHECK(again == decrypted);
    OrvaEncryption copy(*cipher);
    std::string fromCopy;
    OVKIT_FUZZ_CHECK(copy.decryptDataImpl(key, encrypted, fromCopy, error) && fromCopy == decrypted);
    return 0;
}
