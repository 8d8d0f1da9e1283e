#include <ovkit/OrvaObjectStream.h>

#include "sync/LockInternals.h"

#include "sync/KillShield.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

namespace OrvaSupport
{

static_assert(sizeof(wchar_t) == 4, "the stream image holds 4-byte wide characters");
static_assert(sizeof(float) == 4 && sizeof(double) == 8, "the stream image holds IEEE 754 values");

namespace
{

constexpr unsigned int c_nDefaultGrowBy = 512;
// The block's header: buffer() stores the payload count there, and it is
// never data. Every stream reads from this offset.
constexpr unsigned int c_nHeaderBytes = 4;
// Offsets and capacities are 32-bit: a stream never grows past this.
constexpr std::uint64_t c_nLargestOffset = 0xFFFFFFFFu;

// Block layout. The counted capacity, m_nCapacity, follows the growth rule
// exactly; the block, whenever there is one, is blockBytes(m_nCapacity) long. The
// extra quarter and the header's four bytes give room for the first write,
// which may end up to three bytes past the counted capacity, and slack for
// consumed bytes that have not been compacted away yet (see the header word
// below). Rounding up to one of four sizes per power of two makes the real
// reallocations geometric, so that writing n bytes costs O(n) whatever the
// growth unit, while the counted capacity still grows by the unit.
std::size_t blockBytes(unsigned int capacity)
{
    const std::size_t wanted = std::size_t(capacity) + capacity / 4 + c_nHeaderBytes;
    std::size_t step = 16;
    while (step * 8 <= wanted)
        step *= 2;
    return (wanted + step - 1) / step * step;
}

void copyBytes(void* to, const void* from, std::size_t count)
{
    if (count != 0) // a null pointer may stand beside a count of 0
        std::memcpy(to, from, count);
}

// Allocation with the thread's cancellation held back: a thread killed inside
// the C allocator would leave its locks taken for ever.
char* reallocShielded(char* block, std::size_t bytes)
{
    internal::enterKillShield();
    void* grown = std::realloc(block, bytes);
    internal::leaveKillShield();
    return static_cast<char*>(grown);
}

// The header word, read and written as raw bytes.
unsigned int loadWord(const char* at)
{
    unsigned int word;
    std::memcpy(&word, at, sizeof word);
    return word;
}

void storeWord(char* at, unsigned int word)
{
    std::memcpy(at, &word, sizeof word);
}

} // namespace

// The value operators.

OrvaObjectStream::~OrvaObjectStream() {}
OrvaInputObjectStream::~OrvaInputObjectStream() {}
OrvaOutputObjectStream::~OrvaOutputObjectStream() {}

namespace
{

// One value as `Wire`, its width on the stream. Where the value's own type is
// wider (long on this platform), the bytes that a short read leaves out come
// from the value's low bytes, and the result is extended from `Wire`; a read
// that delivers nothing leaves the value alone.
template <class Wire, class Value>
OrvaInputObjectStream& readFixed(OrvaInputObjectStream& stream, Value& value)
{
    if constexpr (sizeof(Wire) == sizeof(Value))
        stream.read(&value, sizeof value, 1);
    else
    {
        Wire wire = static_cast<Wire>(value);
        if (stream.read(&wire, sizeof wire, 1) != 0)
            value = wire;
    }
    return stream;
}

template <class Wire, class Value>
OrvaOutputObjectStream& writeFixed(OrvaOutputObjectStream& stream, Value value)
{
    const Wire wire = static_cast<Wire>(value);
    stream.write(&wire, sizeof wire, 1);
    return stream;
}

// The 2-byte length that the text readers expect, sign-extended. 0 when the
// stream has no bytes left; a negative length is no array size.
short readTextLength(OrvaInputObjectStream& stream)
{
    std::int16_t length = 0;
    stream.read(&length, sizeof length, 1);
    if (length < 0)
        throw std::bad_array_new_length();
    return length;
}

// Text behind a 2-byte length, cut at its first zero character; characters
// that the stream lacks read as zeros. A length of 0 leaves `target` alone.
template <class Char>
void readText(OrvaInputObjectStream& stream, std::basic_string<Char>& target)
{
    const short length = readTextLength(stream);
    if (length == 0)
        return;
    std::basic_string<Char> text(length, Char());
    stream.read(&text[0], sizeof(Char), length);
    target.assign(text.c_str());
}

} // namespace

OrvaInputObjectStream& OrvaInputObjectStream::operator>>(char& value)
{
    return readFixed<char>(*this, value);
}

OrvaInputObjectStream& OrvaInputObjectStream::operator>>(unsigned char& value)
{
    return readFixed<unsigned char>(*this, value);
}

OrvaInputObjectStream& OrvaInputObjectStream::operator>>(short& value)
{
    return readFixed<std::int16_t>(*this, value);
}

OrvaInputObjectStream& OrvaInputObjectStream::operator>>(unsigned short& value)
{
    return readFixed<std::uint16_t>(*this, value);
}

OrvaInputObjectStream& OrvaInputObjectStream::operator>>(int& value)
{
    return readFixed<std::int32_t>(*this, value);
}

OrvaInputObjectStream& OrvaInputObjectStream::operator>>(unsigned int& value)
{
    return readFixed<std::uint32_t>(*this, value);
}

OrvaInputObjectStream& OrvaInputObjectStream::operator>>(long& value)
{
    return readFixed<std::int32_t>(*this, value);
}

OrvaInputObjectStream& OrvaInputObjectStream::operator>>(unsigned long& value)
{
    return readFixed<std::uint32_t>(*this, value);
}

OrvaInputObjectStream& OrvaInputObjectStream::operator>>(float& value)
{
    return readFixed<float>(*this, value);
}

OrvaInputObjectStream& OrvaInputObjectStream::operator>>(double& value)
{
    return readFixed<double>(*this, value);
}

// The text readers allocate, so they run with cancellation held back.
OrvaInputObjectStream& OrvaInputObjectStream::operator>>(char*& target)
{
    internal::runShielded(
        [&]
        {
            const short length = readTextLength(*this);
            if (length == 0)
                return;
            std::unique_ptr<char[]> text(new char[length + 1]()); // zeros where the stream falls short
            read(text.get(), 1, length);
            target = text.release();
        });
    return *this;
}

OrvaInputObjectStream& OrvaInputObjectStream::operator>>(std::string& target)
{
    internal::runShielded([&] { readText(*this, target); });
    return *this;
}

OrvaInputObjectStream& OrvaInputObjectStream::operator>>(std::wstring& target)
{
    internal::runShielded([&] { readText(*this, target); });
    return *this;
}

OrvaOutputObjectStream& OrvaOutputObjectStream::operator<<(char value)
{
    return writeFixed<char>(*this, value);
}

OrvaOutputObjectStream& OrvaOutputObjectStream::operator<<(unsigned char value)
{
    return writeFixed<unsigned char>(*this, value);
}

OrvaOutputObjectStream& OrvaOutputObjectStream::operator<<(short value)
{
    return writeFixed<std::int16_t>(*this, value);
}

OrvaOutputObjectStream& OrvaOutputObjectStream::operator<<(unsigned short value)
{
    return writeFixed<std::uint16_t>(*this, value);
}

OrvaOutputObjectStream& OrvaOutputObjectStream::operator<<(int value)
{
    return writeFixed<std::int32_t>(*this, value);
}

OrvaOutputObjectStream& OrvaOutputObjectStream::operator<<(unsigned int value)
{
    return writeFixed<std::uint32_t>(*this, value);
}

OrvaOutputObjectStream& OrvaOutputObjectStream::operator<<(long value)
{
    return writeFixed<std::int32_t>(*this, value);
}

OrvaOutputObjectStream& OrvaOutputObjectStream::operator<<(unsigned long value)
{
    return writeFixed<std::uint32_t>(*this, value);
}

OrvaOutputObjectStream& OrvaOutputObjectStream::operator<<(float value)
{
    return writeFixed<float>(*this, value);
}

OrvaOutputObjectStream& OrvaOutputObjectStream::operator<<(double value)
{
    return writeFixed<double>(*this, value);
}

// The writers' prefix is 4 bytes wide; text follows only a length above 0.
OrvaOutputObjectStream& OrvaOutputObjectStream::operator<<(const char* text)
{
    const std::uint32_t length = text ? static_cast<std::uint32_t>(std::strlen(text)) : 0;
    write(&length, sizeof length, 1);
    if (length != 0)
        write(text, 1, length);
    return *this;
}

OrvaOutputObjectStream& OrvaOutputObjectStream::operator<<(const std::string& text)
{
    return *this << text.c_str();
}

OrvaOutputObjectStream& OrvaOutputObjectStream::operator<<(const std::wstring& text)
{
    const std::uint32_t length = static_cast<std::uint32_t>(text.size());
    write(&length, sizeof length, 1);
    if (length != 0)
        write(text.data(), sizeof(wchar_t), length);
    return *this;
}

// Reading, and the header word.
//
// Taking bytes from the front by moving the rest down, once per read, costs
// time quadratic in the size of the stream. Instead the unread data starts
// c_nHeaderBytes + consumed bytes into the block, and the consumed count
// lives in the block's header, which is never data and which buffer()
// overwrites with the payload count anyway. m_nReadOffset stays at the
// header's end and m_nWriteOffset marks the physical end of the data, so the
// unread bytes are [m_nReadOffset + consumed, m_nWriteOffset). The consumed
// bytes are compacted away when they reach the unread ones in number (each
// byte is then moved at most once per byte consumed), before the block is
// reallocated, when a write finds the slack used up, in buffer() and in
// copies.
//
// A client may keep the block that buffer() handed out and read from the
// stream before its next write or reset, and then look at the block: the data
// must have moved to the front and the header still hold the count that
// buffer() stored. So after buffer() the stream compacts on every read, until
// the next write or reset. The two states are told apart by the header word
// alone: a consumed count is always below the bytes stored behind the header
// (it is compacted away at half of them), while buffer()'s count is at least
// that many, since reads only shrink the data behind it. A zero word means
// nothing consumed either way.
//
// An image of fewer than four bytes leaves m_nWriteOffset below
// m_nReadOffset; its header bytes are image bytes, and mean nothing.

// The header word; 0 while there is no block or the header holds image bytes.
unsigned int OrvaBufferStream::headerWord() const
{
    return m_pBuffer && m_nWriteOffset >= m_nReadOffset ? loadWord(m_pBuffer) : 0;
}

unsigned int OrvaBufferStream::consumedBytes() const
{
    const unsigned int word = headerWord();
    return word < m_nWriteOffset - m_nReadOffset ? word : 0;
}

// Moves the unread data behind `consumed` bytes down to the header's end.
void OrvaBufferStream::compact(unsigned int consumed) const
{
    if (consumed == 0)
        return;
    const unsigned int start = m_nReadOffset + consumed;
    std::memmove(m_pBuffer + m_nReadOffset, m_pBuffer + start, m_nWriteOffset - start);
    m_nWriteOffset -= consumed;
    storeWord(m_pBuffer, 0);
}

// Copies out the bytes that can be delivered; with `consume` they are then
// taken off the front.
unsigned int OrvaBufferStream::deliver(void* data, unsigned int size, unsigned int count, bool consume)
{
    unsigned int total = size * count;
    if (!m_pBuffer) // no block: no data either
        return 0;
    const unsigned int consumed = consumedBytes();
    const unsigned int start = m_nReadOffset + consumed;
    const unsigned int available = m_nWriteOffset >= start ? m_nWriteOffset - start : 0;
    if (total > available)
        total = available;
    copyBytes(data, m_pBuffer + start, total);
    if (!consume || total == 0)
        return total;

    const unsigned int remaining = available - total;
    if (consumed == 0 && headerWord() != 0) // buffer()'s count: an image is handed out
    {
        // As the image's holder expects: the rest moves down now.
        std::memmove(m_pBuffer + m_nReadOffset, m_pBuffer + m_nReadOffset + total, remaining);
        m_nWriteOffset -= total;
    }
    else
    {
        storeWord(m_pBuffer, consumed + total);
        if (consumed + total >= remaining)
            compact(consumed + total);
    }
    return total;
}

// The lock is taken and given back by hand, with no object of this frame to
// destroy: nothing in between throws, and the frame then needs no exception
// tables, so a thread killed at any instruction here unwinds cleanly (its
// clean-up gives the lock back).
unsigned int OrvaBufferStream::read(void* data, unsigned int size, unsigned int count)
{
    const internal::BriefHold hold = internal::beginBriefHold(m_oLock);
    const unsigned int total = deliver(data, size, count, true);
    internal::endBriefHold(hold);
    return total;
}

unsigned int OrvaBufferStream::peek(void* data, unsigned int size, unsigned int count)
{
    const internal::BriefHold hold = internal::beginBriefHold(m_oLock);
    const unsigned int total = deliver(data, size, count, false);
    internal::endBriefHold(hold);
    return total;
}

// Writing.
//
// The growth rule is one step: when the data would pass the counted capacity
// it grows by (total / unit + 1) × unit, and the fit is not looked at again.
// Counted from the logical end of the data (the physical end less the
// consumed bytes), as if every read had compacted. Sums that would pass
// 32 bits fail instead of wrapping around. prepareWrite() makes room for
// `total` bytes behind the data and hands back the consumed count that
// stands afterwards; it returns false, with the stream as it was as far as
// anyone can see, when the write cannot be stored.
bool OrvaBufferStream::prepareWrite(unsigned int total, unsigned int& consumed)
{
    consumed = consumedBytes();
    if (std::uint64_t(m_nWriteOffset) + total <= m_nCapacity)
        return true; // fits as it is, so it fits the logical end as well
    const std::uint64_t logicalEnd = std::uint64_t(m_nWriteOffset) - consumed;
    if (logicalEnd + total > c_nLargestOffset)
        return false;
    std::uint64_t capacity = m_nCapacity;
    if (logicalEnd + total > capacity)
    {
        capacity += (std::uint64_t(total / m_nGrowBy) + 1) * m_nGrowBy;
        if (capacity > c_nLargestOffset)
            return false;
    }
    const unsigned int newCapacity = static_cast<unsigned int>(capacity);
    const bool reallocate = !m_pBuffer || blockBytes(newCapacity) != blockBytes(m_nCapacity);
    if (consumed != 0 && (reallocate || std::uint64_t(m_nWriteOffset) + total > blockBytes(m_nCapacity)))
    {
        compact(consumed);
        consumed = 0;
    }
    if (reallocate)
    {
        char* block = reallocShielded(m_pBuffer, blockBytes(newCapacity));
        if (!block)
            return false;
        m_pBuffer = block;
    }
    m_nCapacity = newCapacity;
    return true;
}

unsigned int OrvaBufferStream::write(const void* data, unsigned int size, unsigned int count)
{
    const unsigned int total = size * count;
    unsigned int consumed = 0;
    const internal::BriefHold hold = internal::beginBriefHold(m_oLock);
    const bool stored = prepareWrite(total, consumed);
    if (stored)
    {
        copyBytes(m_pBuffer + m_nWriteOffset, data, total);
        m_nWriteOffset += total;
        // The header gets the consumed count back: a write ends the time in
        // which a handed-out image is kept up to date, a new block's header
        // holds nothing yet, and a tiny image's first writes may have covered
        // header bytes.
        storeWord(m_pBuffer, consumed);
    }
    internal::endBriefHold(hold);
    return stored ? total : 0;
}

// Construction, copies, and the image.

OrvaBufferStream::OrvaBufferStream()
    : m_pBuffer(nullptr), m_nReadOffset(c_nHeaderBytes), m_nWriteOffset(c_nHeaderBytes),
      m_nGrowBy(c_nDefaultGrowBy), m_nCapacity(0), m_oLock()
{
}

OrvaBufferStream::OrvaBufferStream(unsigned long growBy)
    : m_pBuffer(nullptr), m_nReadOffset(c_nHeaderBytes), m_nWriteOffset(c_nHeaderBytes),
      m_nGrowBy(static_cast<unsigned int>(growBy) != 0 ? static_cast<unsigned int>(growBy)
                                                       : c_nDefaultGrowBy),
      m_nCapacity(0), m_oLock()
{
}

OrvaBufferStream::OrvaBufferStream(void* image, unsigned int size)
    : m_pBuffer(reallocShielded(nullptr, blockBytes(size))), m_nReadOffset(c_nHeaderBytes),
      m_nWriteOffset(size), m_nGrowBy(size != 0 ? size : c_nDefaultGrowBy), m_nCapacity(size), m_oLock()
{
    if (!m_pBuffer)
        throw std::bad_alloc();
    if (image)
        copyBytes(m_pBuffer, image, size);
    else
        std::memset(m_pBuffer, 0, size);
    storeWord(m_pBuffer, 0); // the stored count is not a consumed count
}

OrvaBufferStream::OrvaBufferStream(const OrvaBufferStream& other)
    : OrvaInputObjectStream(), OrvaOutputObjectStream(), m_pBuffer(nullptr), m_nReadOffset(c_nHeaderBytes),
      m_nWriteOffset(c_nHeaderBytes), m_nGrowBy(c_nDefaultGrowBy), m_nCapacity(0), m_oLock()
{
    takeCopyOf(other);
}

OrvaBufferStream& OrvaBufferStream::operator=(const OrvaBufferStream& other)
{
    if (this != &other)
        takeCopyOf(other); // the block held so far is left allocated: see the header
    return *this;
}

// A new block of the source's capacity, holding the source's unread data at
// its front, with nothing consumed. The source is only read.
void OrvaBufferStream::takeCopyOf(const OrvaBufferStream& other)
{
    char* block = nullptr;
    unsigned int writeOffset = other.m_nWriteOffset;
    if (other.m_pBuffer)
    {
        block = reallocShielded(nullptr, blockBytes(other.m_nCapacity));
        if (!block)
            throw std::bad_alloc();
        const unsigned int consumed = other.consumedBytes();
        if (writeOffset < other.m_nReadOffset)
            copyBytes(block, other.m_pBuffer, writeOffset);
        else
        {
            writeOffset -= consumed;
            copyBytes(block + other.m_nReadOffset, other.m_pBuffer + other.m_nReadOffset + consumed,
                      writeOffset - other.m_nReadOffset);
            storeWord(block, 0);
        }
    }
    m_pBuffer = block;
    m_nReadOffset = other.m_nReadOffset;
    m_nWriteOffset = writeOffset;
    m_nGrowBy = other.m_nGrowBy;
    m_nCapacity = other.m_nCapacity;
}

OrvaBufferStream::~OrvaBufferStream()
{
    std::free(m_pBuffer);
}

void OrvaBufferStream::reset()
{
    m_nWriteOffset = m_nReadOffset;
    if (m_pBuffer)
        storeWord(m_pBuffer, 0);
}

unsigned int OrvaBufferStream::size() const
{
    return m_nWriteOffset - m_nReadOffset - consumedBytes();
}

char* OrvaBufferStream::buffer() const
{
    m_oLock.lock();
    if (!m_pBuffer)
    {
        // Nothing written yet: a block of the size that the capacity, 0,
        // calls for, holding the count 0.
        m_pBuffer = reallocShielded(nullptr, blockBytes(m_nCapacity));
        if (!m_pBuffer)
        {
            m_oLock.unlock();
            return nullptr;
        }
        storeWord(m_pBuffer, 0);
    }
    compact(consumedBytes());
    storeWord(m_pBuffer, size());
    m_oLock.unlock();
    return m_pBuffer;
}

} // namespace OrvaSupport
