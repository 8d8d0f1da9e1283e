#include <ovkit/OrvaObjectStream.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <vector>

using namespace OrvaSupport;
using Bytes = std::vector<unsigned char>;

namespace
{

// The first `length` bytes of the stream's image; by default the whole image.
Bytes imageOf(const OrvaBufferStream& stream, std::size_t length = 0)
{
    const unsigned char* image = reinterpret_cast<const unsigned char*>(stream.buffer());
    return Bytes(image, image + (length ? length : 4 + stream.size()));
}

// A stream on an image whose payload is `payload`; the stored count is ignored.
OrvaBufferStream streamOf(Bytes payload)
{
    payload.insert(payload.begin(), 4, 0xEE);
    return OrvaBufferStream(payload.data(), static_cast<unsigned int>(payload.size()));
}

// The stream as a plain block that moves the rest down on every read: what
// OrvaBufferStream must be indistinguishable from.
struct CompactingStream
{
    Bytes block;
    unsigned int writeOffset;

    unsigned int write(const Bytes& data)
    {
        block.resize(std::max<std::size_t>(block.size(), writeOffset + data.size()));
        std::copy(data.begin(), data.end(), block.begin() + writeOffset);
        writeOffset += static_cast<unsigned int>(data.size());
        return static_cast<unsigned int>(data.size());
    }
    Bytes read(unsigned int total, bool consume)
    {
        total = std::min(total, writeOffset >= 4 ? writeOffset - 4 : 0);
        Bytes data(block.begin() + 4, block.begin() + 4 + total);
        if (consume)
        {
            block.erase(block.begin() + 4, block.begin() + 4 + total);
            writeOffset -= total;
        }
        return data;
    }
    Bytes image()
    {
        const unsigned int count = writeOffset - 4;
        std::memcpy(block.data(), &count, 4);
        return Bytes(block.begin(), block.begin() + std::max(4u, writeOffset));
    }
};

} // namespace

TEST(OrvaBufferStream, OperatorsWriteTheImageBytes)
{
    OrvaBufferStream out;
    out << 'A' << static_cast<unsigned char>(0xFE) << static_cast<short>(-2)
        << static_cast<unsigned short>(0x1234) << -1 << 0x01020304u << 0x1122334455667788L << -2L
        << 0xFFFFFFFF00000001UL << 1.0f << 1.0;
    out << "ab" << static_cast<const char*>(nullptr) << std::string("a\0b", 3) << std::wstring(L"a\0", 2)
        << std::wstring();
    // clang-format off
    const Bytes expected = {
        69, 0, 0, 0,                                    // payload count
        'A', 0xFE, 0xFE, 0xFF, 0x34, 0x12,              // char, unsigned char, short, unsigned short
        0xFF, 0xFF, 0xFF, 0xFF, 4, 3, 2, 1,             // int, unsigned int
        0x88, 0x77, 0x66, 0x55, 0xFE, 0xFF, 0xFF, 0xFF, // longs: the low 4 bytes only
        1, 0, 0, 0, 0, 0, 0x80, 0x3F,                   // unsigned long, float
        0, 0, 0, 0, 0, 0, 0xF0, 0x3F,                   // double
        2, 0, 0, 0, 'a', 'b', 0, 0, 0, 0,               // "ab", null
        1, 0, 0, 0, 'a',                                // a string ends at its first zero
        2, 0, 0, 0, 'a', 0, 0, 0, 0, 0, 0, 0,           // a wstring is written whole
        0, 0, 0, 0};
    // clang-format on
    EXPECT_EQ(expected, imageOf(out));
}

TEST(OrvaBufferStream, FixedWidthReadsExtendLongsAndKeepOldBytesOnShortReads)
{
    OrvaBufferStream in = streamOf({0xFE, 0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0xFF, 0xFF, 0xAA, 0xBB});
    long signedValue = 0, wide = 0x1122334455667788L;
    unsigned long unsignedValue = 0;
    int untouched = 0x11223344;
    in >> signedValue >> unsignedValue >> wide >> untouched;
    EXPECT_EQ(-2L, signedValue);
    EXPECT_EQ(0xFFFFFFFEUL, unsignedValue);
    EXPECT_EQ(0x5566BBAAL, wide); // two bytes delivered, two kept from the low half
    EXPECT_EQ(0x11223344, untouched);
}

TEST(OrvaBufferStream, TextReadersExpectTwoBytePrefixes)
{
    OrvaBufferStream mismatch;
    mismatch << "abc";
    std::string text = "old";
    mismatch >> text; // length 3 from "03 00", then "00 00 a": empty up to its zero
    EXPECT_EQ("", text);
    EXPECT_EQ(2u, mismatch.size());

    // A prefix 0 leaves each target as it was; a prefix beyond the data gives
    // what is there, zero-filled; a wide text ends at its zero character.
    OrvaBufferStream in =
        streamOf({0, 0, 0, 0, 0, 0, 3, 0, 'a', 'b', 'c', 2, 0, 'h', 0, 0, 0, 0, 0, 0, 0, 5, 0, 'x'});
    char* array = nullptr;
    std::wstring wide = L"kept";
    in >> text >> array >> wide >> array;
    EXPECT_EQ("", text);
    EXPECT_EQ(L"kept", wide);
    ASSERT_NE(nullptr, array);
    EXPECT_STREQ("abc", array);
    delete[] array;
    in >> wide >> array;
    EXPECT_EQ(L"h", wide);
    EXPECT_EQ(0, std::memcmp("x\0\0\0\0", array, 6));
    delete[] array;

    OrvaBufferStream negative = streamOf({0x00, 0x80, 0xFF, 0xFF, 0xFC, 0xFF}); // no array sizes
    EXPECT_THROW(negative >> array, std::bad_array_new_length);
    EXPECT_THROW(negative >> text, std::bad_array_new_length);
    EXPECT_THROW(negative >> wide, std::bad_array_new_length);
    EXPECT_EQ(0u, negative.size());
}

TEST(OrvaBufferStream, BoundsOfReadsWritesAndTinyImages)
{
    for (unsigned int length : {509u, 510u, 511u, 1021u}) // first writes past the counted capacity
    {
        OrvaBufferStream stream;
        const std::string data(length, 'd');
        EXPECT_EQ(length, stream.write(data.data(), 1, length));
        EXPECT_EQ(0, std::memcmp(data.data(), stream.buffer() + 4, length));
    }

    OrvaBufferStream stream(0x100000000UL); // unit 0 after narrowing: 512
    char byte = 'x', out = '-';
    EXPECT_EQ(0u, stream.write(&byte, 1, 0xFFFFFFFFu));   // would pass 4 GiB
    EXPECT_EQ(0u, stream.write(&byte, 0x10000, 0x10000)); // the product wraps to 0
    EXPECT_EQ(1u, stream.write(&byte, 1, 1));
    EXPECT_EQ(1u, stream.read(&out, 1, 0xFFFFFFFFu));
    EXPECT_EQ(0u, stream.read(&out, 1, 1));

    for (unsigned int size = 0; size < 4; ++size)
    {
        unsigned char image[3] = {1, 2, 3};
        OrvaBufferStream tiny(image, size);
        EXPECT_EQ(size - 4, tiny.size());
        EXPECT_EQ(0u, tiny.peek(&out, 1, 1));
        EXPECT_EQ(0u, tiny.read(&out, 1, 1));
        EXPECT_EQ((Bytes{static_cast<unsigned char>(0xFC + size), 0xFF, 0xFF, 0xFF}),
                  imageOf(tiny, 4)); // wrapped
        // The first writes fill the header's last bytes; the data begins at 4.
        const unsigned char written[8] = {1, 2, 3, 4, 7, 0, 0, 0};
        tiny << 0x04030201 << 7;
        int value = 0, expected = 0;
        std::memcpy(&expected, written + 4 - size, 4);
        tiny >> value;
        EXPECT_EQ(expected, value) << size;
    }
}

// Random runs against a stream that moves the rest down on every read: every
// result, every delivered byte, every image, copies, and a held image kept up
// to date by reads.
TEST(OrvaBufferStream, BehavesAsAStreamThatCompactsOnEveryRead)
{
    std::mt19937 random(17);
    for (int run = 0; run < 300; ++run)
    {
        const unsigned int imageSize = random() % 12; // growth units of 1 to 11, or 512
        Bytes image(imageSize);
        std::generate(image.begin(), image.end(), std::ref(random));
        OrvaBufferStream stream(image.data(), imageSize);
        image.resize(std::max(imageSize, 4u));
        CompactingStream model{image, imageSize};
        const unsigned char* held = nullptr;
        for (int step = 0; step < 200; ++step)
        {
            const unsigned int length = random() % 24;
            Bytes data(length), out(length);
            std::generate(data.begin(), data.end(), std::ref(random));
            const unsigned int action = random() % 16;
            if (action == 0)
            {
                ASSERT_EQ(model.image(), imageOf(stream, model.image().size()));
                held = reinterpret_cast<const unsigned char*>(stream.buffer());
            }
            else if (action == 1)
            {
                stream.reset();
                model.writeOffset = 4;
                held = nullptr;
            }
            else if (action == 2)
            {
                // Copies hold the unread data. Assignment leaves the old block
                // allocated and unowned.
                const Bytes copied = CompactingStream(model).image(); // the model's header stays
                OrvaBufferStream assigned;
                char* oldBlock = assigned.buffer();
                assigned = stream;
                std::free(oldBlock);
                ASSERT_EQ(copied, imageOf(assigned, copied.size()));
                ASSERT_EQ(copied, imageOf(OrvaBufferStream(stream), copied.size()));
            }
            else if (action < 9)
            {
                ASSERT_EQ(model.write(data), stream.write(data.data(), 1, length));
                held = nullptr;
            }
            else
            {
                const bool consume = action > 10;
                const Bytes expected = model.read(length, consume);
                const unsigned int got =
                    consume ? stream.read(out.data(), 1, length) : stream.peek(out.data(), 1, length);
                ASSERT_EQ(expected, Bytes(out.begin(), out.begin() + got));
            }
            ASSERT_EQ(model.writeOffset - 4, stream.size()) << run << " " << step;
            if (held && model.writeOffset >= 4)
            {
                ASSERT_EQ(Bytes(model.block.begin(), model.block.begin() + model.writeOffset),
                          Bytes(held, held + model.writeOffset));
            }
        }
    }
}

TEST(OrvaBufferStream, ConcurrentWritersStoreWholeValuesInOrder)
{
    OrvaBufferStream stream(4UL); // growth on almost every write
    const int writers = 4, each = 5000;
    std::vector<std::thread> threads;
    for (int w = 0; w < writers; ++w)
        threads.emplace_back(
            [&stream, w]
            {
                for (int i = 0; i < each; ++i)
                    stream << (w << 24 | i);
            });
    for (std::thread& t : threads)
        t.join();
    ASSERT_EQ(4u * writers * each, stream.size());
    std::vector<int> next(writers, 0);
    for (int value = 0; stream.size() != 0;)
    {
        stream >> value;
        ASSERT_EQ(next[value >> 24]++, value & 0xFFFFFF);
    }
}
