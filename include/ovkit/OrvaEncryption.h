/// \file
/// Blowfish encryption of byte strings, under a key handed in with every call.
///
///     OrvaEncryption cipher;                          // StrengthHigh: chained blocks
///     std::string secret, plain;
///     cipher.encryptData(key, std::string("8 bytes!16 bytes"), secret);
///     cipher.decryptData(key, secret, plain);         // "8 bytes!16 bytes"
///
/// Input and output are std::string objects used as plain byte containers. The
/// result is raw cipher text: no header, no length field, no text encoding
/// (OrvaBytesToHex makes text of it). Nothing is stored in the library: the
/// caller keeps the key. A wrong key is not detected, since there is no
/// integrity check: decryption then gives other bytes and reports success.
///
/// Strength picks the mode of operation:
///
///     StrengthLow   each 8-byte block on its own (ECB)
///     StrengthHigh  cipher block chaining (CBC) with an initial value of zero,
///                   anew on every call
///
/// Either way the cipher is Blowfish with a key of up to 72 bytes; further key
/// bytes are ignored, and a key shorter than 72 bytes is repeated to that
/// length, as in Blowfish's own key schedule.
///
/// There is no padding. Output has the length of the input (an output string
/// that is longer keeps its tail), so a caller hands in whole 8-byte blocks
/// and keeps the plain length itself. The bytes of a last, partial block are
/// worked on as the start of a block filled up with zeros, and only as many
/// bytes of the result are kept: that tail cannot be decrypted.
///
/// encryptDataImpl runs the key schedule (521 block encryptions) on every
/// call; decryptDataImpl keeps it while the key stays the same, until a
/// setStrength(StrengthLow or StrengthHigh) or a copy.
///
/// Thread safety: an object holds its key schedule and takes no lock; each of
/// encryptDataImpl, decryptDataImpl and setStrength writes it, so an object
/// belongs to one thread at a time. Different objects may work in parallel.
#ifndef OVKIT_ORVAENCRYPTION_H
#define OVKIT_ORVAENCRYPTION_H

#include <ovkit/OrvaExport.h>

#include <string>

namespace OrvaSupport
{

/// One 64-bit cipher block as two 32-bit halves; the left half holds the
/// first four bytes of the block, most significant byte first.
class OVKIT_API SBlock
{
public:
    /// A block of the two halves given.
    SBlock(unsigned int left, unsigned int right);
    ///@{
    /// Copies both halves.
    SBlock(const SBlock& other);
    SBlock& operator=(const SBlock& other);
    ///@}
    virtual ~SBlock();

    /// XORs both halves with those of `other`.
    SBlock& operator^=(const SBlock& other);

    unsigned int m_wLeft;  ///< Bytes 0 to 3 of the block, big-endian.
    unsigned int m_wRight; ///< Bytes 4 to 7 of the block, big-endian.
};

/// Blowfish in ECB or CBC mode over std::string buffers.
class OVKIT_API OrvaEncryption
{
public:
    /// What setStrength selects. Nested here, with a fixed int underlying
    /// type: setStrength takes any value, though only these two choose a mode.
    enum Strength : int
    {
        StrengthLow = 0, ///< ECB, key buffer of 400 bytes
        StrengthHigh = 1 ///< CBC, key buffer of 448 bytes
    };

    /// The mode of operation, nested as Strength is.
    enum tMode : int
    {
        ModeECB = 0, ///< each block on its own
        ModeCBC = 1  ///< cipher block chaining
    };

    /// StrengthHigh.
    OrvaEncryption();
    /// Block size 8, then setStrength(strength). An object made with a
    /// strength other than StrengthLow or StrengthHigh has no mode: every
    /// encryption or decryption with a key throws "The mode is not
    /// initialized properly" until setStrength gives it one.
    OrvaEncryption(const Strength& strength);
    /// copyValues(other): everything, key schedule included, but the copy
    /// counts as not initialised, so its first decryption runs the schedule
    /// again.
    OrvaEncryption(OrvaEncryption& other);
    /// As the copy constructor; assigning to itself does nothing.
    OrvaEncryption& operator=(OrvaEncryption& other);
    virtual ~OrvaEncryption();

    /// encryptDataImpl; its failure text is thrown as
    /// OrvaInvalidEncryptionException.
    virtual void encryptData(const std::string& key, const std::string& input, std::string& output);
    /// Encrypts `input` into the first input.size() bytes of `output`,
    /// which is first grown to the input's length if it is shorter.
    /// - Nothing to write (input and output both empty): true, whatever the
    ///   key, even an empty one.
    /// - An empty key: false, `error` = "The key passed is empty".
    /// - Otherwise runs the key schedule on `key` and encrypts: true. An empty
    ///   input with a longer output leaves the output as it is.
    /// A mode that was never set throws OrvaInvalidEncryptionException ("The
    /// mode is not initialized properly") out of this function too.
    virtual bool encryptDataImpl(const std::string& key, const std::string& input, std::string& output,
                                 std::string& error);
    /// decryptDataImpl; its failure text is thrown as
    /// OrvaInvalidEncryptionException.
    virtual void decryptData(const std::string& key, std::string& input, std::string& output);
    /// Decrypts `input` into the first input.size() bytes of `output`, which
    /// is first grown to the input's length if it is shorter.
    /// - An empty key: false, `error` = "The key passed is empty" (checked
    ///   before anything else, unlike encryption).
    /// - An empty input: `output` becomes empty, true.
    /// - Otherwise decrypts, running the key schedule only if `key` differs
    ///   from the key of the schedule in the object: true.
    /// A mode that was never set throws as in encryptDataImpl. `input` is not
    /// changed.
    virtual bool decryptDataImpl(const std::string& key, std::string& input, std::string& output,
                                 std::string& error);
    /// The strength of the constructor (StrengthHigh by default) or of the
    /// last setStrength, copied along with the object.
    virtual Strength getStrength() const;
    /// Stores `strength` and sets the chaining value to 0, 0. StrengthLow and
    /// StrengthHigh also set the mode and key buffer size of their own and
    /// drop the key schedule; any other value changes nothing more.
    virtual void setStrength(const Strength& strength);

protected:
    // The building blocks, for classes that drive the cipher themselves.

    /// The key schedule. Stores `key`; throws OrvaInvalidEncryptionException
    /// ("The mode is not initialized properly") for a mode other than ModeECB
    /// and ModeCBC; stores the mode and `chain`; then takes the key buffer
    /// from the first `keyLength` bytes of `key`, repeated (only its first 72
    /// bytes reach the cipher), and runs Blowfish's schedule on it. A
    /// `keyLength` of 0, or one beyond the key's length that the buffer
    /// reaches, throws std::out_of_range.
    void initialize(const std::string& key, const unsigned int& keyLength, const tMode& mode,
                    const SBlock& chain);
    /// Sets the flag that says the schedule belongs to the stored key.
    void setInit(const bool& init);
    ///@{
    /// One block through the cipher, in place, with the current schedule.
    void encryptInternal(SBlock& block);
    void decryptInternal(SBlock& block);
    ///@}
    /// Reads 8 bytes, big-endian, into the two halves.
    static void bytesToBlock(const unsigned char* bytes, SBlock& block);
    /// Writes the block as 8 bytes, big-endian, ending just before `end`.
    static void blockToBytes(const SBlock& block, unsigned char* end);
    /// The length of `buffer` rounded up to whole blocks. The padding is done
    /// on the private copy that the argument is; the engine does not use this
    /// (the result wraps for buffers of 2 GiB and more).
    int padInputBuf(std::string buffer);

private:
    void copyValues(OrvaEncryption& other);

    Strength m_eStrength;
    bool m_bInit;
    unsigned int m_nBlockSize;
    unsigned int m_nKeyBufferSize;
    std::string m_sKey;
    tMode m_eMode;
    SBlock m_oChain;
    unsigned int m_arrwPBox[18];
    /// The four S-boxes of 256 words, one behind the other.
    unsigned int m_arrwSBox[1024];

    // Blowfish's initial P-array and S-boxes, the fraction of pi.
    OVKIT_LOCAL static const unsigned int arrwPBoxInit[18];
    OVKIT_LOCAL static const unsigned int arrwSBoxInit[1024];
};

} // namespace OrvaSupport

#endif // OVKIT_ORVAENCRYPTION_H
