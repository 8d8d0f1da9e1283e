#include <ovkit/OrvaEncryption.h>

#include <ovkit/OrvaException.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>

namespace OrvaSupport
{

namespace
{

typedef std::uint32_t Word;

const char* const c_szKeyEmpty = "The key passed is empty";
const char* const c_szNotInitialized = "Not properly initialized";
const char* const c_szBadMode = "The mode is not initialized properly";

const unsigned int c_nBlockSize = 8;
const unsigned int c_nLowKeyBufferSize = 400;
const unsigned int c_nHighKeyBufferSize = 448;
// The P-array takes 18 words of key: the key buffer bytes behind these are
// never used.
const unsigned int c_nKeyBytesUsed = 72;
const int c_nRounds = 16;
// Blocks that do not depend on each other go through the rounds this many
// at a time.
const int c_nGroup = 4;

// A mode value that no setStrength has chosen: what a new object with a
// strength other than low or high has. initialize() refuses it.
const OrvaEncryption::tMode c_eNoMode = static_cast<OrvaEncryption::tMode>(-1);

// Blocks are big-endian: one byte swap per word on this little-endian
// target, done on whole words so that the compiler need not merge byte stores.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "the block byte order assumes a little-endian target");

inline Word loadBigEndian(const unsigned char* bytes)
{
    Word word;
    std::memcpy(&word, bytes, sizeof word);
    return __builtin_bswap32(word);
}

inline void storeBigEndian(Word word, unsigned char* bytes)
{
    word = __builtin_bswap32(word);
    std::memcpy(bytes, &word, sizeof word);
}

/// Blowfish's round function over the four S-boxes, which lie one behind the
/// other in `s`.
inline Word feistel(const Word* s, Word x)
{
    // The indexes are widened before the box offsets are added, so that the
    // offsets become displacements of the loads.
    typedef std::size_t Index;
    return ((s[Index(x >> 24)] + s[256 + Index((x >> 16) & 0xFF)]) ^ s[512 + Index((x >> 8) & 0xFF)]) +
           s[768 + Index(x & 0xFF)];
}

/// The 16 rounds on `N` independent blocks at once, their halves in `l` and
/// `r`. Decryption is the same network with the P-array taken backwards.
/// Working on several blocks side by side lets the processor overlap their
/// table loads, which the chain of rounds of a single block does not allow.
template <bool Backwards, int N>
inline __attribute__((always_inline)) void cipherBlocks(const Word* p, const Word* s, Word (&l)[N],
                                                        Word (&r)[N])
{
    auto pEntry = [p](int k) { return p[Backwards ? 17 - k : k]; };
#pragma GCC unroll 4
    for (int j = 0; j < N; ++j)
        l[j] ^= pEntry(0);
#pragma GCC unroll 16
    for (int i = 1; i < c_nRounds; i += 2)
    {
#pragma GCC unroll 4
        for (int j = 0; j < N; ++j)
            r[j] ^= feistel(s, l[j]) ^ pEntry(i);
#pragma GCC unroll 4
        for (int j = 0; j < N; ++j)
            l[j] ^= feistel(s, r[j]) ^ pEntry(i + 1);
    }
#pragma GCC unroll 4
    for (int j = 0; j < N; ++j)
    {
        Word left = r[j] ^ pEntry(17);
        r[j] = l[j];
        l[j] = left;
    }
}

/// One mode of operation over whole blocks. A runner keeps its chaining
/// value from one call to the next, so a tail block continues the chain.
class BlockRunner
{
public:
    BlockRunner(const Word* p, const Word* s, OrvaEncryption::tMode mode, bool decrypt, Word chainLeft,
                Word chainRight)
        : m_pP(p), m_pS(s), m_bChained(mode == OrvaEncryption::ModeCBC), m_bDecrypt(decrypt),
          m_wChainLeft(chainLeft), m_wChainRight(chainRight)
    {
    }

    void run(const unsigned char* in, unsigned char* out, std::size_t blocks)
    {
        if (m_bChained && !m_bDecrypt)
            runChainedEncrypt(in, out, blocks);
        else if (m_bChained)
            runIndependent<true, true>(in, out, blocks);
        else if (m_bDecrypt)
            runIndependent<true, false>(in, out, blocks);
        else
            runIndependent<false, false>(in, out, blocks);
    }

private:
    // ECB both ways and CBC decryption: every block goes through the cipher
    // on its own, so c_nGroup blocks are worked on side by side.
    template <bool Decrypt, bool Chained>
    void runIndependent(const unsigned char* in, unsigned char* out, std::size_t blocks)
    {
        std::size_t groups = blocks / c_nGroup;
        runGroups<Decrypt, Chained, c_nGroup>(in, out, groups);
        std::size_t done = groups * c_nGroup * c_nBlockSize;
        runGroups<Decrypt, Chained, 1>(in + done, out + done, blocks % c_nGroup);
    }

    // Each group is read before it is written, so `in` and `out` may be the
    // same buffer. Chained decryption XORs each block with the cipher block
    // before it.
    template <bool Decrypt, bool Chained, int N>
    void runGroups(const unsigned char* in, unsigned char* out, std::size_t groups)
    {
        const Word* p = m_pP;
        const Word* s = m_pS;
        Word chainLeft = m_wChainLeft, chainRight = m_wChainRight;
        for (; groups > 0; --groups, in += N * c_nBlockSize, out += N * c_nBlockSize)
        {
            Word cipherLeft[N], cipherRight[N], l[N], r[N];
#pragma GCC unroll 4
            for (int j = 0; j < N; ++j)
            {
                l[j] = cipherLeft[j] = loadBigEndian(in + j * c_nBlockSize);
                r[j] = cipherRight[j] = loadBigEndian(in + j * c_nBlockSize + 4);
            }
            cipherBlocks<Decrypt, N>(p, s, l, r);
#pragma GCC unroll 4
            for (int j = 0; j < N && Chained; ++j)
            {
                l[j] ^= j == 0 ? chainLeft : cipherLeft[j - 1];
                r[j] ^= j == 0 ? chainRight : cipherRight[j - 1];
            }
            chainLeft = cipherLeft[N - 1];
            chainRight = cipherRight[N - 1];
#pragma GCC unroll 4
            for (int j = 0; j < N; ++j)
                storeHalves(l[j], r[j], out + j * c_nBlockSize);
        }
        m_wChainLeft = chainLeft;
        m_wChainRight = chainRight;
    }

    // CBC encryption: each block needs the one before, so there is one chain
    // of rounds, whose latency bounds the speed.
    void runChainedEncrypt(const unsigned char* in, unsigned char* out, std::size_t blocks)
    {
        const Word* p = m_pP;
        const Word* s = m_pS;
        Word l[1] = {m_wChainLeft};
        Word r[1] = {m_wChainRight};
        for (; blocks > 0; --blocks, in += c_nBlockSize, out += c_nBlockSize)
        {
            l[0] ^= loadBigEndian(in);
            r[0] ^= loadBigEndian(in + 4);
            cipherBlocks<false, 1>(p, s, l, r);
            storeHalves(l[0], r[0], out);
        }
        m_wChainLeft = l[0];
        m_wChainRight = r[0];
    }

    static void storeHalves(Word left, Word right, unsigned char* out)
    {
        storeBigEndian(left, out);
        storeBigEndian(right, out + 4);
    }

    const Word* m_pP;
    const Word* m_pS;
    bool m_bChained;
    bool m_bDecrypt;
    Word m_wChainLeft;
    Word m_wChainRight;
};

/// Runs `runner` over `length` bytes of `in` into `out`: the whole blocks in
/// place, then the last partial block, if any, as the start of a block of
/// zeros, of which only `length` bytes are written back. No byte outside
/// either buffer is touched.
void runBlocks(BlockRunner& runner, const unsigned char* in, unsigned char* out, std::size_t length)
{
    std::size_t whole = length / c_nBlockSize;
    runner.run(in, out, whole);
    std::size_t tail = length % c_nBlockSize;
    if (tail == 0)
        return;
    unsigned char block[c_nBlockSize] = {};
    std::size_t done = whole * c_nBlockSize;
    std::memcpy(block, in + done, tail);
    runner.run(block, block, 1);
    std::memcpy(out + done, block, tail);
}

const unsigned char* bytesOf(const std::string& text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

unsigned char* bytesOf(std::string& text)
{
    return reinterpret_cast<unsigned char*>(&text[0]);
}

/// Grows `output` to the length of `input` if it is shorter.
void fitOutput(const std::string& input, std::string& output)
{
    if (output.size() < input.size())
        output.resize(input.size());
}

} // namespace

// ---------------------------------------------------------------------------
// SBlock

SBlock::SBlock(unsigned int left, unsigned int right) : m_wLeft(left), m_wRight(right) {}

SBlock::SBlock(const SBlock& other) : m_wLeft(other.m_wLeft), m_wRight(other.m_wRight) {}

SBlock& SBlock::operator=(const SBlock& other)
{
    m_wLeft = other.m_wLeft;
    m_wRight = other.m_wRight;
    return *this;
}

SBlock::~SBlock() {}

SBlock& SBlock::operator^=(const SBlock& other)
{
    m_wLeft ^= other.m_wLeft;
    m_wRight ^= other.m_wRight;
    return *this;
}

// ---------------------------------------------------------------------------
// OrvaEncryption

OrvaEncryption::OrvaEncryption() : OrvaEncryption(StrengthHigh) {}

// Every field is defined before setStrength: a strength other than low or
// high leaves the mode unset and the key buffer empty, and initialize()
// refuses that mode before the buffer is used.
OrvaEncryption::OrvaEncryption(const Strength& strength)
    : m_eStrength(strength), m_bInit(false), m_nBlockSize(c_nBlockSize), m_nKeyBufferSize(0),
      m_eMode(c_eNoMode), m_oChain(0, 0), m_arrwPBox(), m_arrwSBox()
{
    setStrength(strength);
}

OrvaEncryption::OrvaEncryption(OrvaEncryption& other) : OrvaEncryption(other.getStrength())
{
    copyValues(other);
}

OrvaEncryption& OrvaEncryption::operator=(OrvaEncryption& other)
{
    copyValues(other);
    return *this;
}

OrvaEncryption::~OrvaEncryption() {}

void OrvaEncryption::copyValues(OrvaEncryption& other)
{
    if (this == &other)
        return;
    m_eStrength = other.getStrength();
    m_nBlockSize = other.m_nBlockSize;
    m_nKeyBufferSize = other.m_nKeyBufferSize;
    m_sKey = other.m_sKey;
    m_eMode = other.m_eMode;
    m_oChain = other.m_oChain;
    std::copy(std::begin(other.m_arrwPBox), std::end(other.m_arrwPBox), m_arrwPBox);
    std::copy(std::begin(other.m_arrwSBox), std::end(other.m_arrwSBox), m_arrwSBox);
    m_bInit = false;
}

OrvaEncryption::Strength OrvaEncryption::getStrength() const
{
    return m_eStrength;
}

void OrvaEncryption::setStrength(const Strength& strength)
{
    m_eStrength = strength;
    m_oChain = SBlock(0, 0);
    if (strength != StrengthLow && strength != StrengthHigh)
        return;
    m_nKeyBufferSize = strength == StrengthLow ? c_nLowKeyBufferSize : c_nHighKeyBufferSize;
    m_eMode = strength == StrengthLow ? ModeECB : ModeCBC;
    m_bInit = false;
}

void OrvaEncryption::encryptData(const std::string& key, const std::string& input, std::string& output)
{
    std::string error;
    if (!encryptDataImpl(key, input, output, error))
        throw OrvaInvalidEncryptionException(error);
}

void OrvaEncryption::decryptData(const std::string& key, std::string& input, std::string& output)
{
    std::string error;
    if (!decryptDataImpl(key, input, output, error))
        throw OrvaInvalidEncryptionException(error);
}

bool OrvaEncryption::encryptDataImpl(const std::string& key, const std::string& input, std::string& output,
                                     std::string& error)
{
    fitOutput(input, output);
    if (output.empty())
        return true;
    if (key.empty())
    {
        error = c_szKeyEmpty;
        return false;
    }
    // No schedule is kept from an earlier call: every encryption pays for its own.
    initialize(key, static_cast<unsigned int>(key.length()), m_eMode, m_oChain);
    if (!m_bInit)
    {
        error = c_szNotInitialized;
        return false;
    }
    BlockRunner runner(m_arrwPBox, m_arrwSBox, m_eMode, false, m_oChain.m_wLeft, m_oChain.m_wRight);
    runBlocks(runner, bytesOf(input), bytesOf(output), input.size());
    return true;
}

bool OrvaEncryption::decryptDataImpl(const std::string& key, std::string& input, std::string& output,
                                     std::string& error)
{
    fitOutput(input, output);
    if (key.empty())
    {
        error = c_szKeyEmpty;
        return false;
    }
    if (input.empty())
    {
        output.clear();
        return true;
    }
    if (m_sKey != key)
        m_bInit = false;
    if (!m_bInit)
        initialize(key, static_cast<unsigned int>(key.length()), m_eMode, m_oChain);
    if (!m_bInit)
    {
        error = c_szNotInitialized;
        return false;
    }
    BlockRunner runner(m_arrwPBox, m_arrwSBox, m_eMode, true, m_oChain.m_wLeft, m_oChain.m_wRight);
    runBlocks(runner, bytesOf(input), bytesOf(output), input.size());
    return true;
}

void OrvaEncryption::initialize(const std::string& key, const unsigned int& keyLength, const tMode& mode,
                                const SBlock& chain)
{
    m_sKey = key;
    if (mode != ModeECB && mode != ModeCBC)
        throw OrvaInvalidEncryptionException(c_szBadMode);
    m_eMode = mode;
    m_oChain = chain;

    // The key buffer is the key repeated to its size. Each of its bytes is
    // read with a checked access, as the buffer would be filled, but only the
    // bytes that reach the P-array are kept.
    if (keyLength == 0)
        throw std::out_of_range("OrvaEncryption::initialize: the key length is 0");
    unsigned char keyBytes[c_nKeyBytesUsed] = {};
    for (unsigned int i = 0; i < m_nKeyBufferSize; ++i)
    {
        unsigned char byte = static_cast<unsigned char>(m_sKey.at(i % keyLength));
        if (i < c_nKeyBytesUsed)
            keyBytes[i] = byte;
    }

    std::copy(std::begin(arrwPBoxInit), std::end(arrwPBoxInit), m_arrwPBox);
    std::copy(std::begin(arrwSBoxInit), std::end(arrwSBoxInit), m_arrwSBox);
    for (unsigned int i = 0; i < 18; ++i)
        m_arrwPBox[i] ^= loadBigEndian(keyBytes + 4 * i);

    // Each encryption goes on from the block before, through the P-array and
    // then the S-boxes, two words at a time.
    Word l[1] = {0};
    Word r[1] = {0};
    for (Word* table : {m_arrwPBox, m_arrwSBox})
    {
        std::size_t size = table == m_arrwPBox ? 18 : 1024;
        for (std::size_t i = 0; i < size; i += 2)
        {
            cipherBlocks<false, 1>(m_arrwPBox, m_arrwSBox, l, r);
            table[i] = l[0];
            table[i + 1] = r[0];
        }
    }
    m_bInit = true;
}

void OrvaEncryption::setInit(const bool& init)
{
    m_bInit = init;
}

void OrvaEncryption::encryptInternal(SBlock& block)
{
    Word l[1] = {block.m_wLeft};
    Word r[1] = {block.m_wRight};
    cipherBlocks<false, 1>(m_arrwPBox, m_arrwSBox, l, r);
    block = SBlock(l[0], r[0]);
}

void OrvaEncryption::decryptInternal(SBlock& block)
{
    Word l[1] = {block.m_wLeft};
    Word r[1] = {block.m_wRight};
    cipherBlocks<true, 1>(m_arrwPBox, m_arrwSBox, l, r);
    block = SBlock(l[0], r[0]);
}

void OrvaEncryption::bytesToBlock(const unsigned char* bytes, SBlock& block)
{
    block.m_wLeft = loadBigEndian(bytes);
    block.m_wRight = loadBigEndian(bytes + 4);
}

void OrvaEncryption::blockToBytes(const SBlock& block, unsigned char* end)
{
    // From the last byte backwards: the right half's low byte first.
    Word halves[2] = {block.m_wRight, block.m_wLeft};
    for (Word half : halves)
    {
        for (int i = 0; i < 4; ++i, half >>= 8)
            *--end = static_cast<unsigned char>(half);
    }
}

int OrvaEncryption::padInputBuf(std::string buffer)
{
    std::string::size_type length = buffer.size();
    if (length % m_nBlockSize != 0)
        length = length - length % m_nBlockSize + m_nBlockSize;
    buffer.resize(length, '\0');
    return static_cast<int>(length);
}

} // namespace OrvaSupport
