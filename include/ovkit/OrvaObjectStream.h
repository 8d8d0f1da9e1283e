/// \file
/// Value streams: simple values turned into a byte sequence in memory, and back.
///
///     OrvaBufferStream out;
///     out << 7 << 2.5 << 'x';
///     OrvaBufferStream in(out.buffer(), out.size() + 4);   // a copy of the image
///     int n; double d; char c;
///     in >> n >> d >> c;                                   // 7, 2.5, 'x'
///
/// The stream carries no type information: the order of the values is the
/// whole schema, and writer and reader must agree on it. OrvaInputObjectStream
/// and OrvaOutputObjectStream define the value operators over a pure read()
/// and write(); OrvaBufferStream is a growable block that is both.
///
/// The image that buffer() hands out is external, byte for byte and
/// little-endian: a 4-byte payload count, then the values back to back with no
/// padding. char takes 1 byte, short 2, int 4, float 4, double 8; long and
/// unsigned long take 4 bytes whatever the width of the type (so do int64_t
/// and size_t, which are long on this platform), and a wchar_t takes 4.
///
/// Text is not symmetric, on purpose: the writers put a 4-byte length before
/// text, the readers expect a 2-byte one. Text written with operator<< comes
/// back through operator>> empty, and leaves the reader two bytes out of step:
/// of the prefix 03 00 00 00 the reader takes 03 00 as the length and the two
/// zero bytes as the start of the text. Text that operator>> is to read whole
/// must reach the stream with a 2-byte prefix, for instance by two calls of
/// write().
///
/// No operator reports failure. A value read from a stream that holds too few
/// bytes keeps its old bytes behind those delivered; a value whose write
/// cannot be stored is lost.
#ifndef OVKIT_ORVAOBJECTSTREAM_H
#define OVKIT_ORVAOBJECTSTREAM_H

#include <ovkit/OrvaCriticalSection.h>
#include <ovkit/OrvaExport.h>

#include <string>

namespace OrvaSupport
{

/// The root of the stream classes: something that can be emptied.
class OVKIT_API OrvaObjectStream
{
public:
    virtual ~OrvaObjectStream();
    /// Drops the data that the stream holds.
    virtual void reset() = 0;
};

/// Reads values through read(). Every operator returns the stream; the
/// fixed-width ones ignore how many bytes read() delivered.
class OVKIT_API OrvaInputObjectStream : public OrvaObjectStream
{
public:
    ~OrvaInputObjectStream() override;

    /// Delivers up to size × count bytes (the product wraps in 32 bits) into
    /// `data`, consumes them, and returns how many were delivered.
    virtual unsigned int read(void* data, unsigned int size, unsigned int count) = 0;

    ///@{
    /// One byte.
    OrvaInputObjectStream& operator>>(char& value);
    OrvaInputObjectStream& operator>>(unsigned char& value);
    ///@}
    ///@{
    /// Two bytes, low byte first.
    OrvaInputObjectStream& operator>>(short& value);
    OrvaInputObjectStream& operator>>(unsigned short& value);
    ///@}
    ///@{
    /// Four bytes, low byte first.
    OrvaInputObjectStream& operator>>(int& value);
    OrvaInputObjectStream& operator>>(unsigned int& value);
    ///@}
    /// Reads 4 bytes and sign-extends them. When no byte is delivered the
    /// target keeps its value; when fewer than 4 are, the 4-byte value is
    /// completed from the target's own low 4 bytes before it is extended.
    OrvaInputObjectStream& operator>>(long& value);
    /// Reads 4 bytes and zero-extends them; short reads as for long.
    OrvaInputObjectStream& operator>>(unsigned long& value);
    ///@{
    /// The IEEE 754 single (4 bytes) and double (8 bytes) as they lie in memory.
    OrvaInputObjectStream& operator>>(float& value);
    OrvaInputObjectStream& operator>>(double& value);
    ///@}

    /// Reads a 2-byte length, then that many bytes. A length of 0 leaves
    /// `target` as it was, so a caller must have set it. Otherwise `target`
    /// receives a new array of length + 1 chars, ended by a zero, which the
    /// caller frees with delete[]; bytes that the stream lacks are zeros.
    /// Lengths from 0x8000 up are negative and throw std::bad_array_new_length
    /// (a std::bad_alloc), with the prefix consumed; so at most 32,767 bytes
    /// can be read this way.
    OrvaInputObjectStream& operator>>(char*& target);
    /// As operator>>(char*&), cut at the first zero byte. A length of 0
    /// leaves `target` unchanged.
    OrvaInputObjectStream& operator>>(std::string& target);
    /// Reads a 2-byte count, then that many 4-byte wchar_t; the text is cut at
    /// its first zero character. A count of 0 leaves `target` unchanged;
    /// negative counts (0x8000 up) throw std::bad_array_new_length.
    OrvaInputObjectStream& operator>>(std::wstring& target);
};

/// Writes values through write(). Every operator returns the stream and
/// ignores whether the bytes could be stored.
class OVKIT_API OrvaOutputObjectStream : public OrvaObjectStream
{
public:
    ~OrvaOutputObjectStream() override;

    /// Stores size × count bytes (the product wraps in 32 bits) from `data`;
    /// returns how many were stored, 0 when they could not be.
    virtual unsigned int write(const void* data, unsigned int size, unsigned int count) = 0;

    ///@{
    /// One byte.
    OrvaOutputObjectStream& operator<<(char value);
    OrvaOutputObjectStream& operator<<(unsigned char value);
    ///@}
    ///@{
    /// Two bytes, low byte first.
    OrvaOutputObjectStream& operator<<(short value);
    OrvaOutputObjectStream& operator<<(unsigned short value);
    ///@}
    ///@{
    /// Four bytes, low byte first.
    OrvaOutputObjectStream& operator<<(int value);
    OrvaOutputObjectStream& operator<<(unsigned int value);
    ///@}
    /// Writes the low 4 bytes: values outside 32 bits lose their high part.
    OrvaOutputObjectStream& operator<<(long value);
    /// Writes the low 4 bytes.
    OrvaOutputObjectStream& operator<<(unsigned long value);
    ///@{
    /// The IEEE 754 single (4 bytes) and double (8 bytes) as they lie in memory.
    OrvaOutputObjectStream& operator<<(float value);
    OrvaOutputObjectStream& operator<<(double value);
    ///@}

    /// Writes strlen(text) as 4 bytes, then the text without its terminator.
    /// A null pointer is written as length 0; after a length 0 nothing follows.
    OrvaOutputObjectStream& operator<<(const char* text);
    /// As operator<<(const char*) on c_str(): the text ends at its first zero
    /// byte, whatever its length.
    OrvaOutputObjectStream& operator<<(const std::string& text);
    /// Writes the length as 4 bytes, then every character as a 4-byte
    /// wchar_t, zero characters included.
    OrvaOutputObjectStream& operator<<(const std::wstring& text);
};

/// A growable block that is both an input and an output stream.
///
/// Growth: a write that does not fit the counted capacity grows it by
/// (bytes / unit + 1) × unit, once, whatever the fit afterwards; the unit is
/// 512 unless a constructor says otherwise. The first four bytes of the block
/// are a header and never data, so a fresh stream's first write of n bytes
/// needs n + 4: with n modulo the unit at unit − 3 to unit − 1 the data ends
/// one to three bytes past the counted capacity. The block always has room
/// for that; capacity and growth count as described.
///
/// A write that cannot be stored (no memory, or the data would carry the
/// stream past 4 GiB) returns 0 and leaves the stream as it was.
///
/// Reading consumes from the front and costs time linear in the bytes read.
///
/// Threads: read(), write() and peek() each hold the stream's lock, so each
/// call is atomic; a value operator that makes two calls is not. reset(),
/// size(), the copy constructor and operator= take no lock, and buffer() takes
/// it only while it readies the image: none of them is safe against a
/// concurrent read or write on another thread.
class OVKIT_API OrvaBufferStream : public OrvaInputObjectStream, public OrvaOutputObjectStream
{
public:
    /// No block until the first write; growth unit 512.
    OrvaBufferStream();
    /// As the default constructor with growth unit `growBy`, taken as 32 bits;
    /// 512 when that is 0 (so also for multiples of 2^32).
    explicit OrvaBufferStream(unsigned long growBy);
    /// A stream on a copy of an image as buffer() hands it out. The stored
    /// count is ignored: `size` is trusted, and the data is everything behind
    /// the first four bytes. The growth unit is `size`, or 512 when it is 0.
    /// An image under four bytes holds no data and leaves the stream in an odd
    /// state: size() wraps to a huge number, while read() and peek() deliver
    /// nothing until reset() or a write carries it past the header. A null
    /// `image` is read as `size` zero bytes. Throws std::bad_alloc when the
    /// block cannot be allocated.
    OrvaBufferStream(void* image, unsigned int size);
    /// A stream with its own lock and its own block holding the same unread
    /// data, capacity and growth unit. Throws std::bad_alloc when the block
    /// cannot be allocated.
    OrvaBufferStream(const OrvaBufferStream& other);
    /// Takes the source's data, capacity and growth unit as the copy
    /// constructor does; nothing on self-assignment. The block held so far is
    /// deliberately left allocated and no longer owned by anyone: a caller
    /// that still needs to free it takes its address from buffer() before
    /// assigning, and frees it with free(). The lock is not shared.
    OrvaBufferStream& operator=(const OrvaBufferStream& other);
    /// Frees the block.
    ~OrvaBufferStream() override;

    /// Consumes up to size × count bytes into `data`; returns how many were
    /// delivered, fewer when the stream holds fewer. Bytes of `data` behind
    /// those delivered keep their values.
    unsigned int read(void* data, unsigned int size, unsigned int count) override;
    /// Appends size × count bytes; returns that count, or 0 when nothing
    /// could be stored.
    unsigned int write(const void* data, unsigned int size, unsigned int count) override;
    /// As read(), but consumes nothing.
    virtual unsigned int peek(void* data, unsigned int size, unsigned int count);
    /// Drops all data; the block and its capacity stay.
    void reset() override;

    /// The number of unread bytes.
    unsigned int size() const;
    /// Stores size() in the first four bytes of the block and returns the
    /// block: the stream image, size() + 4 bytes long. The block stays the
    /// stream's and is valid until the next write(), reset(), assignment to
    /// the stream or its destruction; reads in between move the unread data
    /// to its front, as they would in the image. A stream that has no block
    /// yet gets one holding only the count 0; null if that cannot be allocated.
    char* buffer() const;

private:
    // The layout of these six fields is part of the interface.
    mutable char* m_pBuffer;
    unsigned int m_nReadOffset;
    mutable unsigned int m_nWriteOffset;
    unsigned int m_nGrowBy;
    unsigned int m_nCapacity;
    mutable OrvaCriticalSectionObject m_oLock;

    unsigned int headerWord() const;
    unsigned int consumedBytes() const;
    void compact(unsigned int consumed) const;
    bool prepareWrite(unsigned int total, unsigned int& consumed);
    unsigned int deliver(void* data, unsigned int size, unsigned int count, bool consume);
    void takeCopyOf(const OrvaBufferStream& other);
};

} // namespace OrvaSupport

#endif // OVKIT_ORVAOBJECTSTREAM_H
