#include <ovkit/OrvaEncryption.h>
#include <ovkit/OrvaException.h>

#include <gtest/gtest.h>
#include <openssl/blowfish.h>

#include <array>
#include <random>
#include <sstream>
#include <stdexcept>
#include <tuple>

using namespace OrvaSupport;
using namespace std::string_literals;

namespace
{

const bool kEncrypt = true, kDecrypt = false;

std::string fromHex(const std::string& hex)
{
    std::string bytes;
    for (std::string::size_type i = 0; i + 1 < hex.size(); i += 2)
        bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    return bytes;
}

// Exposes the building blocks.
class Probe : public OrvaEncryption
{
public:
    using OrvaEncryption::blockToBytes;
    using OrvaEncryption::bytesToBlock;
    using OrvaEncryption::decryptInternal;
    using OrvaEncryption::encryptInternal;
    using OrvaEncryption::initialize;
    using OrvaEncryption::OrvaEncryption;
};

// One call of an ...Impl form: "ok", the error text, or the text thrown.
std::string outcome(bool encrypt, OrvaEncryption& cipher, const std::string& key, std::string input,
                    std::string& output)
try
{
    std::string error;
    bool done = encrypt ? cipher.encryptDataImpl(key, input, output, error)
                        : cipher.decryptDataImpl(key, input, output, error);
    return done ? "ok" : error;
}
catch (OrvaException& e)
{
    return e.getText();
}

std::string crypt(bool encrypt, OrvaEncryption& cipher, const std::string& key, const std::string& input,
                  std::string output = "")
{
    EXPECT_EQ(outcome(encrypt, cipher, key, input, output), "ok");
    return output;
}

// OpenSSL's Blowfish over whole blocks, CBC with an initial value of zero.
std::string peer(bool chained, int direction, const std::string& key, const std::string& input)
{
    BF_KEY schedule;
    BF_set_key(&schedule, static_cast<int>(key.size()), reinterpret_cast<const unsigned char*>(key.data()));
    std::string output(input.size(), '\0');
    auto in = reinterpret_cast<const unsigned char*>(input.data());
    auto out = reinterpret_cast<unsigned char*>(&output[0]);
    unsigned char iv[8] = {};
    if (chained)
        BF_cbc_encrypt(in, out, static_cast<long>(input.size()), &schedule, iv, direction);
    for (std::size_t i = 0; !chained && i < input.size(); i += 8)
        BF_ecb_encrypt(in + i, out + i, &schedule, direction);
    return output;
}

TEST(OrvaEncryptionTest, PublishedVectorsEcbThroughStrengthLowAndCbcWithTheInitialValueFoldedIn)
{
    // Key, plain text, cipher text (the published list has 34, one of which
    // repeats the first); then the cipher text of FEDCBA9876543210 under the
    // first 1, 2, ... 24 bytes of one key.
    // clang-format off
    std::istringstream vectors(
        "0000000000000000 0000000000000000 4EF997456198DD78 FFFFFFFFFFFFFFFF FFFFFFFFFFFFFFFF 51866FD5B85ECB8A "
        "3000000000000000 1000000000000001 7D856F9A613063F2 1111111111111111 1111111111111111 2466DD878B963C9D "
        "0123456789ABCDEF 1111111111111111 61F9C3802281B096 1111111111111111 0123456789ABCDEF 7D0CC630AFDA1EC7 "
        "FEDCBA9876543210 0123456789ABCDEF 0ACEAB0FC6A0A28D 7CA110454A1A6E57 01A1D6D039776742 59C68245EB05282B "
        "0131D9619DC1376E 5CD54CA83DEF57DA B1B8CC0B250F09A0 07A1133E4A0B2686 0248D43806F67172 1730E5778BEA1DA4 "
        "3849674C2602319E 51454B582DDF440A A25E7856CF2651EB 04B915BA43FEB5B6 42FD443059577FA2 353882B109CE8F1A "
        "0113B970FD34F2CE 059B5E0851CF143A 48F4D0884C379918 0170F175468FB5E6 0756D8E0774761D2 432193B78951FC98 "
        "43297FAD38E373FE 762514B829BF486A 13F04154D69D1AE5 07A7137045DA2A16 3BDD119049372802 2EEDDA93FFD39C79 "
        "04689104C2FD3B2F 26955F6835AF609A D887E0393C2DA6E3 37D06BB516CB7546 164D5E404F275232 5F99D04F5B163969 "
        "1F08260D1AC2465E 6B056E18759F5CCA 4A057A3B24D3977B 584023641ABA6176 004BD6EF09176062 452031C1E4FADA8E "
        "025816164629B007 480D39006EE762F2 7555AE39F59B87BD 49793EBC79B3258F 437540C8698F3CFA 53C55F9CB49FC019 "
        "4FB05E1515AB73A7 072D43A077075292 7A8E7BFA937E89A3 49E95D6D4CA229BF 02FE55778117F12A CF9C5D7A4986ADB5 "
        "018310DC409B26D6 1D9D5C5018F728C2 D1ABB290658BC778 1C587F1C13924FEF 305532286D6F295A 55CB3774D13EF201 "
        "0101010101010101 0123456789ABCDEF FA34EC4847B268B2 1F1F1F1F0E0E0E0E 0123456789ABCDEF A790795108EA3CAE "
        "E0FEE0FEF1FEF1FE 0123456789ABCDEF C39E072D9FAC631D 0000000000000000 FFFFFFFFFFFFFFFF 014933E0CDAFF6E4 "
        "FFFFFFFFFFFFFFFF 0000000000000000 F21E9A77B71C49BC 0123456789ABCDEF 0000000000000000 245946885754369A "
        "FEDCBA9876543210 FFFFFFFFFFFFFFFF 6B5C5A9C5D9E0A5A");
    std::istringstream variableOut(
        "F9AD597C49DB005E E91D21C1D961A6D6 E9C2B70A1BC65CF3 BE1E639408640F05 B39E44481BDB1E6E 9457AA83B1928C0D "
        "8BB77032F960629D E87A244E2CC85E82 15750E7A4F4EC577 122BA70B3AB64AE0 3A833C9AFFC537F6 9409DA87A90F6BF2 "
        "884F80625060B8B4 1F85031C19E11968 79D9373A714CA34F 93142887EE3BE15C 03429E838CE2D14B A4299E27469FF67B "
        "AFD5AED1C1BC96A8 10851C0E3858DA9F E6F51ED79B9DB21F 64A6E14AFD36B46F 80C7D7D45A5479AD 05044B62FA52D080");
    // clang-format on
    const std::string variableKey = fromHex("F0E1D2C3B4A5968778695A4B3C2D1E0F0011223344556677");
    std::vector<std::array<std::string, 3>> cases;
    for (std::string key, plain, cipher; vectors >> key >> plain >> cipher;)
        cases.push_back({fromHex(key), fromHex(plain), cipher});
    for (std::string cipher; variableOut >> cipher;)
        cases.push_back({variableKey.substr(0, cases.size() - 32), fromHex("FEDCBA9876543210"), cipher});
    ASSERT_EQ(cases.size(), 33u + 24u);
    OrvaEncryption low(OrvaEncryption::StrengthLow);
    for (const auto& c : cases)
    {
        EXPECT_EQ(crypt(kEncrypt, low, c[0], c[1]), fromHex(c[2])) << c[2];
        EXPECT_EQ(crypt(kDecrypt, low, c[0], fromHex(c[2])), c[1]) << c[2];
    }

    std::string key = fromHex("0123456789ABCDEFF0E1D2C3B4A59687"), iv = fromHex("FEDCBA9876543210");
    std::string plain("7654321 Now is the time for \0\0\0\0", 32);
    for (int i = 0; i < 8; ++i)
        plain[i] ^= iv[i];
    OrvaEncryption high;
    std::string secret = crypt(kEncrypt, high, key, plain);
    EXPECT_EQ(secret, fromHex("6B77B4D63006DEE605B156E27403979358DEB9E7154616D959F1652BD5FF92CC"));
    EXPECT_EQ(crypt(kDecrypt, high, key, secret), plain);
}

TEST(OrvaEncryptionTest, MatchesOpenSslForRandomKeysAndWholeBlocks)
{
    std::mt19937 random(16);
    OrvaEncryption low(OrvaEncryption::StrengthLow), high(OrvaEncryption::StrengthHigh);
    for (int round = 0; round < 200; ++round)
    {
        std::string key(1 + random() % 100, '\0'), plain(8 * (1 + random() % 40), '\0');
        for (char& c : key)
            c = static_cast<char>(random());
        for (char& c : plain)
            c = static_cast<char>(random());
        for (OrvaEncryption* cipher : {&low, &high})
        {
            bool chained = cipher == &high;
            std::string secret = crypt(kEncrypt, *cipher, key, plain), inPlace = secret, error;
            ASSERT_EQ(secret, peer(chained, BF_ENCRYPT, key, plain)) << key.size();
            ASSERT_EQ(crypt(kDecrypt, *cipher, key, plain), peer(chained, BF_DECRYPT, key, plain));
            ASSERT_TRUE(cipher->decryptDataImpl(key, inPlace, inPlace, error));
            ASSERT_EQ(inPlace, plain);
        }
    }
}

TEST(OrvaEncryptionTest, OutputTakesTheInputLengthAndATailIsAZeroPaddedBlockCutShort)
{
    std::string key = "tail key", plain = "thirteen byte", padded = plain + std::string(3, '\0');
    for (bool chained : {false, true})
    {
        OrvaEncryption cipher(chained ? OrvaEncryption::StrengthHigh : OrvaEncryption::StrengthLow);
        std::string expected = peer(chained, BF_ENCRYPT, key, padded).substr(0, 13);
        EXPECT_EQ(crypt(kEncrypt, cipher, key, plain), expected);
        EXPECT_EQ(crypt(kEncrypt, cipher, key, plain, std::string(20, 'x')), expected + "xxxxxxx");
        EXPECT_EQ(crypt(kDecrypt, cipher, key, expected).substr(0, 8), plain.substr(0, 8));
        EXPECT_EQ(crypt(kDecrypt, cipher, key, expected, std::string(15, 'x')).substr(13), "xx");
    }
}

TEST(OrvaEncryptionTest, EmptyStringsKeysAndModesAreCheckedInADifferentOrderEachWay)
{
    const std::string none = "The key passed is empty",
                      badMode = "OrvaInvalidEncryptionException - The mode is not initialized properly";
    const OrvaEncryption::Strength odd = static_cast<OrvaEncryption::Strength>(7),
                                   high = OrvaEncryption::StrengthHigh;
    // Encrypt or decrypt, strength, key, input, output before; result, output after.
    // clang-format off
    const std::tuple<bool, OrvaEncryption::Strength, std::string, std::string, std::string, std::string,
                     std::string> cases[] = {
        {kEncrypt, odd, "", "", "", "ok", ""}, {kEncrypt, high, "k", "", "abc", "ok", "abc"},
        {kEncrypt, odd, "k", "", "abc", badMode, "abc"}, {kEncrypt, odd, "", "", "abc", none, "abc"},
        {kEncrypt, odd, "", "a", "", none, "\0"s}, {kEncrypt, odd, "k", "a", "", badMode, "\0"s},
        {kDecrypt, odd, "", "", "", none, ""}, {kDecrypt, odd, "k", "", "abc", "ok", ""},
        {kDecrypt, odd, "", "a", "", none, "\0"s}, {kDecrypt, odd, "k", "a", "", badMode, "\0"s}};
    // clang-format on
    for (const auto& c : cases)
    {
        OrvaEncryption cipher(std::get<1>(c));
        std::string output = std::get<4>(c);
        EXPECT_EQ(outcome(std::get<0>(c), cipher, std::get<2>(c), std::get<3>(c), output), std::get<5>(c));
        EXPECT_EQ(output, std::get<6>(c));
    }
    OrvaEncryption cipher;
    std::string input, output;
    EXPECT_THROW(cipher.decryptData("", input, output), OrvaInvalidEncryptionException);

    // Another strength keeps the mode it found.
    OrvaEncryption low(OrvaEncryption::StrengthLow), reference(OrvaEncryption::StrengthLow);
    low.setStrength(odd);
    EXPECT_EQ(low.getStrength(), odd);
    EXPECT_EQ(crypt(kEncrypt, low, "key", "12345678"), crypt(kEncrypt, reference, "key", "12345678"));
}

TEST(OrvaEncryptionTest, DecryptionKeepsItsScheduleUntilTheKeyTheStrengthOrACopyChanges)
{
    const std::string key = "a longer key", secret = "8 bytes!";
    OrvaEncryption fresh(OrvaEncryption::StrengthLow);
    const std::string full = crypt(kDecrypt, fresh, key, secret), first = crypt(kDecrypt, fresh, "a", secret);
    ASSERT_NE(full, first);

    // A schedule made from the key's first byte alone, stored under the whole key.
    Probe probe(OrvaEncryption::StrengthLow);
    probe.initialize(key, 1, OrvaEncryption::ModeECB, SBlock(0, 0));
    EXPECT_EQ(crypt(kDecrypt, probe, key, secret), first);
    Probe copy(probe);
    EXPECT_EQ(crypt(kDecrypt, copy, key, secret), full);
    probe.setStrength(OrvaEncryption::StrengthLow);
    EXPECT_EQ(crypt(kDecrypt, probe, key, secret), full);

    probe.initialize(key, 1, OrvaEncryption::ModeECB, SBlock(0, 0)); // encryption never keeps it
    EXPECT_EQ(crypt(kEncrypt, probe, key, full), secret);
}

TEST(OrvaEncryptionTest, BuildingBlocksReadAndWriteBigEndianAndTheWriterEndsAtItsPointer)
{
    Probe probe;
    SBlock block(0, 0);
    probe.bytesToBlock(reinterpret_cast<const unsigned char*>("BLOWFISH"), block);
    probe.initialize("abcdefghijklmnopqrstuvwxyz", 26, OrvaEncryption::ModeECB, SBlock(0, 0));
    probe.encryptInternal(block);
    unsigned char bytes[10] = {};
    probe.blockToBytes(block, bytes + 9);
    EXPECT_EQ(std::string(bytes, bytes + 10), fromHex("00324ED0FEF413A20300"));
    probe.decryptInternal(block);
    EXPECT_TRUE(block.m_wLeft == 0x424C4F57 && block.m_wRight == 0x46495348);
    EXPECT_THROW(probe.initialize("ab", 0, OrvaEncryption::ModeECB, SBlock(0, 0)), std::out_of_range);
    EXPECT_THROW(probe.initialize("ab", 3, OrvaEncryption::ModeECB, SBlock(0, 0)), std::out_of_range);
}

} // namespace
