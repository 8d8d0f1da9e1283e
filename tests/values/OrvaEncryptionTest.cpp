#include <ovkit/OrvaEncryption.h>
#include <ovkit/OrvaException.h>

#include <gtest/gtest.h>
#include <openssl/blowfish.h>

#include <array>
#include <random>
#include <stdexcept>
#include <tuple>

using namespace OrvaSupport;
using namespace std::string_literals;

namespace
{

std::string fromHex(const std::string& hex)
{
    std::string bytes;
    for (std::string::size_type i = 0; i + 1 < hex.size(); i += 2)
        bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    return bytes;
}

std::string toHex(const std::string& bytes)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string hex;
    for (unsigned char c : bytes)
        hex += std::string{digits[c >> 4], digits[c & 15]};
    return hex;
}

// Exposes the building blocks.
class Probe : public OrvaEncryption
{
public:
    using OrvaEncryption::blockToBytes;
    using OrvaEncryption::bytesToBlock;
    using OrvaEncryption::encryptInternal;
    using OrvaEncryption::initialize;
    using OrvaEncryption::OrvaEncryption;
    using OrvaEncryption::padInputBuf;
};

std::string encrypted(OrvaEncryption& cipher, const std::string& key, const std::string& input,
                      std::string output = "")
{
    std::string error;
    EXPECT_TRUE(cipher.encryptDataImpl(key, input, output, error)) << error;
    return output;
}

std::string decrypted(OrvaEncryption& cipher, const std::string& key, std::string input,
                      std::string output = "")
{
    std::string error;
    EXPECT_TRUE(cipher.decryptDataImpl(key, input, output, error)) << error;
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

std::string errorOf(bool encrypt, OrvaEncryption& cipher, const std::string& key, std::string input,
                    std::string& output)
{
    std::string error;
    bool done = encrypt ? cipher.encryptDataImpl(key, input, output, error)
                        : cipher.decryptDataImpl(key, input, output, error);
    return done ? "ok" : error;
}

TEST(OrvaEncryptionTest, PublishedEcbAndVariableKeyVectorsThroughStrengthLow)
{
    // Key, plain text, cipher text.
    const char* const vectors[] = {
        "0000000000000000 0000000000000000 4EF997456198DD78",
        "FFFFFFFFFFFFFFFF FFFFFFFFFFFFFFFF 51866FD5B85ECB8A",
        "3000000000000000 1000000000000001 7D856F9A613063F2",
        "1111111111111111 1111111111111111 2466DD878B963C9D",
        "0123456789ABCDEF 1111111111111111 61F9C3802281B096",
        "1111111111111111 0123456789ABCDEF 7D0CC630AFDA1EC7",
        "FEDCBA9876543210 0123456789ABCDEF 0ACEAB0FC6A0A28D",
        "7CA110454A1A6E57 01A1D6D039776742 59C68245EB05282B",
        "0131D9619DC1376E 5CD54CA83DEF57DA B1B8CC0B250F09A0",
        "07A1133E4A0B2686 0248D43806F67172 1730E5778BEA1DA4",
        "3849674C2602319E 51454B582DDF440A A25E7856CF2651EB",
        "04B915BA43FEB5B6 42FD443059577FA2 353882B109CE8F1A",
        "0113B970FD34F2CE 059B5E0851CF143A 48F4D0884C379918",
        "0170F175468FB5E6 0756D8E0774761D2 432193B78951FC98",
        "43297FAD38E373FE 762514B829BF486A 13F04154D69D1AE5",
        "07A7137045DA2A16 3BDD119049372802 2EEDDA93FFD39C79",
        "04689104C2FD3B2F 26955F6835AF609A D887E0393C2DA6E3",
        "37D06BB516CB7546 164D5E404F275232 5F99D04F5B163969",
        "1F08260D1AC2465E 6B056E18759F5CCA 4A057A3B24D3977B",
        "584023641ABA6176 004BD6EF09176062 452031C1E4FADA8E",
        "025816164629B007 480D39006EE762F2 7555AE39F59B87BD",
        "49793EBC79B3258F 437540C8698F3CFA 53C55F9CB49FC019",
        "4FB05E1515AB73A7 072D43A077075292 7A8E7BFA937E89A3",
        "49E95D6D4CA229BF 02FE55778117F12A CF9C5D7A4986ADB5",
        "018310DC409B26D6 1D9D5C5018F728C2 D1ABB290658BC778",
        "1C587F1C13924FEF 305532286D6F295A 55CB3774D13EF201",
        "0101010101010101 0123456789ABCDEF FA34EC4847B268B2",
        "1F1F1F1F0E0E0E0E 0123456789ABCDEF A790795108EA3CAE",
        "E0FEE0FEF1FEF1FE 0123456789ABCDEF C39E072D9FAC631D",
        "0000000000000000 FFFFFFFFFFFFFFFF 014933E0CDAFF6E4",
        "FFFFFFFFFFFFFFFF 0000000000000000 F21E9A77B71C49BC",
        "0123456789ABCDEF 0000000000000000 245946885754369A",
        "FEDCBA9876543210 FFFFFFFFFFFFFFFF 6B5C5A9C5D9E0A5A",
    };
    // The cipher text of FEDCBA9876543210 under the first 1, 2, ... 24 bytes of one key.
    const std::string variableKey = fromHex("F0E1D2C3B4A5968778695A4B3C2D1E0F0011223344556677");
    const char* const variableOut[] = {
        "F9AD597C49DB005E", "E91D21C1D961A6D6", "E9C2B70A1BC65CF3", "BE1E639408640F05", "B39E44481BDB1E6E",
        "9457AA83B1928C0D", "8BB77032F960629D", "E87A244E2CC85E82", "15750E7A4F4EC577", "122BA70B3AB64AE0",
        "3A833C9AFFC537F6", "9409DA87A90F6BF2", "884F80625060B8B4", "1F85031C19E11968", "79D9373A714CA34F",
        "93142887EE3BE15C", "03429E838CE2D14B", "A4299E27469FF67B", "AFD5AED1C1BC96A8", "10851C0E3858DA9F",
        "E6F51ED79B9DB21F", "64A6E14AFD36B46F", "80C7D7D45A5479AD", "05044B62FA52D080",
    };
    std::vector<std::array<std::string, 3>> cases;
    for (std::string v : vectors)
        cases.push_back({fromHex(v.substr(0, 16)), fromHex(v.substr(17, 16)), v.substr(34)});
    for (std::size_t n = 1; n <= 24; ++n)
        cases.push_back({variableKey.substr(0, n), fromHex("FEDCBA9876543210"), variableOut[n - 1]});

    OrvaEncryption cipher(OrvaEncryption::StrengthLow);
    for (const auto& c : cases)
    {
        EXPECT_EQ(toHex(encrypted(cipher, c[0], c[1])), c[2]) << toHex(c[0]);
        EXPECT_EQ(decrypted(cipher, c[0], fromHex(c[2])), c[1]) << toHex(c[0]);
    }
}

TEST(OrvaEncryptionTest, PublishedCbcVectorWithItsInitialValueFoldedIntoTheFirstBlock)
{
    std::string key = fromHex("0123456789ABCDEFF0E1D2C3B4A59687");
    std::string plain("7654321 Now is the time for \0\0\0\0", 32);
    std::string iv = fromHex("FEDCBA9876543210");
    for (int i = 0; i < 8; ++i)
        plain[i] ^= iv[i];
    OrvaEncryption cipher;
    std::string secret = encrypted(cipher, key, plain);
    EXPECT_EQ(toHex(secret), "6B77B4D63006DEE605B156E27403979358DEB9E7154616D959F1652BD5FF92CC");
    EXPECT_EQ(decrypted(cipher, key, secret), plain);
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
            std::string secret = encrypted(*cipher, key, plain);
            ASSERT_EQ(toHex(secret), toHex(peer(chained, BF_ENCRYPT, key, plain))) << toHex(key);
            ASSERT_EQ(decrypted(*cipher, key, secret), plain);
            ASSERT_EQ(decrypted(*cipher, key, plain), peer(chained, BF_DECRYPT, key, plain));
            std::string inPlace = secret, error;
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
        EXPECT_EQ(encrypted(cipher, key, plain), expected);
        EXPECT_EQ(encrypted(cipher, key, plain, std::string(20, 'x')), expected + "xxxxxxx");
        EXPECT_EQ(decrypted(cipher, key, expected).substr(0, 8), plain.substr(0, 8));
        EXPECT_EQ(decrypted(cipher, key, expected, std::string(15, 'x')).substr(13), "xx");
    }
}

TEST(OrvaEncryptionTest, EmptyStringsAndEmptyKeysAreCheckedInADifferentOrderEachWay)
{
    const std::string none = "The key passed is empty";
    // Encrypt or decrypt, key, input, output before; result, output after.
    const std::tuple<bool, std::string, std::string, std::string, std::string, std::string> cases[] = {
        {true, "", "", "", "ok", ""},       {true, "k", "", "abc", "ok", "abc"},
        {true, "", "", "abc", none, "abc"}, {true, "", "a", "", none, "\0"s},
        {false, "", "", "", none, ""},      {false, "k", "", "abc", "ok", ""},
        {false, "", "a", "", none, "\0"s},
    };
    for (const auto& c : cases)
    {
        OrvaEncryption cipher;
        std::string output = std::get<3>(c);
        EXPECT_EQ(errorOf(std::get<0>(c), cipher, std::get<1>(c), std::get<2>(c), output), std::get<4>(c));
        EXPECT_EQ(output, std::get<5>(c));
    }
    OrvaEncryption cipher;
    std::string input, output;
    try
    {
        cipher.decryptData("", input, output);
        ADD_FAILURE();
    }
    catch (OrvaInvalidEncryptionException& e)
    {
        EXPECT_EQ(e.getText(), "OrvaInvalidEncryptionException - " + none);
    }
}

TEST(OrvaEncryptionTest, OtherStrengthsHaveNoModeUntilSetStrengthGivesOne)
{
    const std::string badMode = "OrvaInvalidEncryptionException - The mode is not initialized properly";
    OrvaEncryption odd(static_cast<OrvaEncryption::Strength>(7));
    std::string input = "12345678", output, error;
    EXPECT_TRUE(odd.encryptDataImpl("key", "", output, error)); // nothing to do: no schedule
    for (bool encrypt : {true, false})
    {
        try
        {
            errorOf(encrypt, odd, "key", input, output);
            ADD_FAILURE();
        }
        catch (OrvaInvalidEncryptionException& e)
        {
            EXPECT_EQ(e.getText(), badMode);
        }
    }
    OrvaEncryption low(OrvaEncryption::StrengthLow), reference(OrvaEncryption::StrengthLow);
    low.setStrength(static_cast<OrvaEncryption::Strength>(7));
    EXPECT_EQ(low.getStrength(), 7);
    EXPECT_EQ(encrypted(low, "key", input), encrypted(reference, "key", input)); // still ECB
}

TEST(OrvaEncryptionTest, DecryptionKeepsItsScheduleUntilTheKeyTheStrengthOrACopyChanges)
{
    const std::string key = "a longer key", secret = "8 bytes!";
    OrvaEncryption fresh(OrvaEncryption::StrengthLow);
    const std::string full = decrypted(fresh, key, secret), first = decrypted(fresh, "a", secret);
    ASSERT_NE(full, first);

    // A schedule made from the key's first byte alone, stored under the whole key.
    Probe probe(OrvaEncryption::StrengthLow);
    probe.initialize(key, 1, OrvaEncryption::ModeECB, SBlock(0, 0));
    EXPECT_EQ(decrypted(probe, key, secret), first);
    Probe copy(probe);
    EXPECT_EQ(decrypted(copy, key, secret), full);
    probe.setStrength(OrvaEncryption::StrengthLow);
    EXPECT_EQ(decrypted(probe, key, secret), full);

    probe.initialize(key, 1, OrvaEncryption::ModeECB, SBlock(0, 0));
    EXPECT_EQ(encrypted(probe, key, decrypted(fresh, key, secret)), secret); // encryption never keeps it
}

TEST(OrvaEncryptionTest, ModesKeysAndBuildingBlocks)
{
    OrvaEncryption low(OrvaEncryption::StrengthLow), high;
    std::string twice = "samesamesamesame";
    std::string ecb = encrypted(low, "k", twice), cbc = encrypted(high, "k", twice);
    EXPECT_EQ(ecb.substr(0, 8), ecb.substr(8));
    EXPECT_NE(cbc.substr(0, 8), cbc.substr(8));
    EXPECT_EQ(cbc.substr(0, 8), ecb.substr(0, 8)); // the chain starts at zero on every call
    EXPECT_EQ(encrypted(high, "k", twice), cbc);

    std::string longKey(72, 'k');
    EXPECT_EQ(encrypted(high, longKey + "A", twice), encrypted(high, longKey + "B", twice));

    Probe probe;
    SBlock block(0, 0);
    probe.bytesToBlock(reinterpret_cast<const unsigned char*>("BLOWFISH"), block);
    probe.initialize("abcdefghijklmnopqrstuvwxyz", 26, OrvaEncryption::ModeECB, SBlock(0, 0));
    probe.encryptInternal(block);
    unsigned char bytes[10] = {};
    probe.blockToBytes(block, bytes + 9);
    EXPECT_EQ(toHex(std::string(bytes, bytes + 10)), "00324ED0FEF413A20300");

    EXPECT_THROW(probe.initialize("ab", 0, OrvaEncryption::ModeECB, SBlock(0, 0)), std::out_of_range);
    EXPECT_THROW(probe.initialize("ab", 3, OrvaEncryption::ModeECB, SBlock(0, 0)), std::out_of_range);
    probe.initialize(std::string(448, 'k'), 1000, OrvaEncryption::ModeCBC,
                     SBlock(0, 0)); // never reaches past
    const std::pair<int, int> padded[] = {{0, 0}, {1, 8}, {8, 8}, {9, 16}};
    for (const auto& c : padded)
        EXPECT_EQ(probe.padInputBuf(std::string(c.first, 'x')), c.second);
}

} // namespace
