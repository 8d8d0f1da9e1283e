// The buffer stream: a stream built from an image, then a row of operations
// on it, every operator>> among them, each checked against a plain model of
// the bytes the stream holds.
//
// Input: a 16-bit little-endian image size, that many image bytes (or what
// is left), then operations, one byte each, with their operands behind them:
//   0-12  operator>> for char, unsigned char, short, unsigned short, int,
//         unsigned int, long, unsigned long, float, double, char*, string,
//         wstring
//   13    read() of n bytes, n the next byte     14  peek() of n bytes
//   15    write() of n bytes, n the next byte, the bytes behind it
//   16    operator<< of the value type chosen by the next byte (0-12), its
//         bytes behind it (text: a length byte, then the text)
//   17    buffer(), checked as an image         18  reset()
//   19    a copy, checked and read out whole
//   20    an assignment from a copy, the replaced block freed as the
//         contract asks
#include <ovkit/OrvaObjectStream.h>

#include "FuzzSupport.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

using namespace OrvaSupport;
using ovkit_fuzz::Input;

namespace
{

/// The stream's contents as the contract tells them: the unread bytes, and
/// for an image under four bytes, where its writes stand in the header.
struct Model
{
    std::string data;
    /// An image under four bytes: the end of the written bytes, below 4
    /// until a write carries it past the header.
    unsigned int tinyEnd = 4;

    bool tiny() const { return tinyEnd < 4; }

    unsigned int size() const { return tiny() ? tinyEnd - 4u : static_cast<unsigned int>(data.size()); }

    /// Takes up to `count` bytes off the front.
    std::string take(std::size_t count, bool consume = true)
    {
        if (tiny())
            return std::string();
        std::string bytes = data.substr(0, count);
        if (consume)
            data.erase(0, bytes.size());
        return bytes;
    }

    void append(const std::string& bytes)
    {
        if (!tiny())
        {
            data += bytes;
            return;
        }
        // The bytes that land in the header are not data.
        const std::size_t lost = 4 - tinyEnd;
        if (bytes.size() < lost)
            tinyEnd += static_cast<unsigned int>(bytes.size());
        else
        {
            tinyEnd = 4;
            data = bytes.substr(lost);
        }
    }
};

const unsigned char c_nFill = 0xA5;

/// A fixed-width value as operator>> reads it: `Wire` bytes from the
/// stream over the value's own; where the value is wider, a read that
/// delivers anything extends the wire value.
template <class Wire, class Value>
void checkFixed(OrvaBufferStream& stream, Model& model)
{
    Value value;
    std::memset(&value, c_nFill, sizeof value);
    Value expected = value;
    const std::string bytes = model.take(sizeof(Wire));
    if (sizeof(Wire) == sizeof(Value))
        std::memcpy(&expected, bytes.data(), bytes.size());
    else
    {
        Wire wire = static_cast<Wire>(expected);
        std::memcpy(&wire, bytes.data(), bytes.size());
        if (!bytes.empty())
            expected = static_cast<Value>(wire);
    }
    stream >> value;
    OVKIT_FUZZ_CHECK(std::memcmp(&value, &expected, sizeof value) == 0);
}

/// The 2-byte length in front of text, as far as the stream has it.
short takeLength(Model& model)
{
    const std::string bytes = model.take(2);
    std::int16_t length = 0;
    std::memcpy(&length, bytes.data(), bytes.size());
    return length;
}

template <class Char>
void checkText(OrvaBufferStream& stream, Model& model)
{
    std::basic_string<Char> target(1, Char('k'));
    const short length = takeLength(model);
    if (length < 0)
    {
        // A length from 0x8000 up is a negative array size, and the
        // allocation fails as the language makes it fail.
        try
        {
            stream >> target;
            abort();
        }
        catch (const std::bad_array_new_length&)
        {
        }
        return;
    }
    std::basic_string<Char> expected = target;
    if (length != 0)
    {
        const std::string bytes = model.take(length * sizeof(Char));
        std::basic_string<Char> text(length, Char());
        std::memcpy(&text[0], bytes.data(), bytes.size());
        expected = text.c_str();
    }
    stream >> target;
    OVKIT_FUZZ_CHECK(target == expected);
}

void checkCharArray(OrvaBufferStream& stream, Model& model)
{
    char kept = 'k';
    char* target = &kept;
    const short length = takeLength(model);
    if (length < 0)
    {
        try
        {
            stream >> target;
            abort();
        }
        catch (const std::bad_array_new_length&)
        {
        }
        return;
    }
    stream >> target;
    if (length == 0)
    {
        OVKIT_FUZZ_CHECK(target == &kept);
        return;
    }
    std::string expected(length, '\0');
    const std::string bytes = model.take(length);
    std::memcpy(&expected[0], bytes.data(), bytes.size());
    OVKIT_FUZZ_CHECK(target != &kept && std::memcmp(target, expected.data(), length) == 0 &&
                     target[length] == '\0');
    delete[] target;
}

void checkRead(OrvaBufferStream& stream, Model& model, std::size_t count, bool consume)
{
    char bytes[256];
    std::memset(bytes, c_nFill, sizeof bytes);
    const std::string expected = model.take(count, consume);
    const unsigned int got = consume ? stream.read(bytes, 1, static_cast<unsigned int>(count))
                                     : stream.peek(bytes, 1, static_cast<unsigned int>(count));
    OVKIT_FUZZ_CHECK(got == expected.size() && std::memcmp(bytes, expected.data(), got) == 0);
}

/// Writes one value of the chosen type with operator<<, and what it writes
/// into the model.
void writeValue(OrvaBufferStream& stream, Model& model, Input& input)
{
    const unsigned int type = input.byte() % 13;
    static const unsigned int widths[] = {1, 1, 2, 2, 4, 4, 8, 8, 4, 8};
    if (type < 10)
    {
        unsigned char bytes[8] = {};
        for (unsigned int i = 0; i < widths[type]; ++i)
            bytes[i] = input.byte();
        std::uint32_t wire = 0;
        switch (type)
        {
        case 0:
            stream << static_cast<char>(bytes[0]);
            break;
        case 1:
            stream << bytes[0];
            break;
        case 2:
            stream << static_cast<short>(bytes[0] | bytes[1] << 8);
            break;
        case 3:
            stream << static_cast<unsigned short>(bytes[0] | bytes[1] << 8);
            break;
        case 4:
        case 5:
            std::memcpy(&wire, bytes, 4);
            if (type == 4)
                stream << static_cast<int>(wire);
            else
                stream << wire;
            break;
        case 6:
        case 7:
        {
            // long and unsigned long travel as their low 4 bytes.
            std::uint64_t value;
            std::memcpy(&value, bytes, 8);
            if (type == 6)
                stream << static_cast<long>(value);
            else
                stream << static_cast<unsigned long>(value);
            model.append(std::string(reinterpret_cast<const char*>(bytes), 4));
            return;
        }
        case 8:
        {
            float value;
            std::memcpy(&value, bytes, 4);
            stream << value;
            break;
        }
        default:
        {
            double value;
            std::memcpy(&value, bytes, 8);
            stream << value;
        }
        }
        model.append(std::string(reinterpret_cast<const char*>(bytes), widths[type]));
        return;
    }
    std::string text(input.byte(), '\0');
    for (char& c : text)
        c = static_cast<char>(input.byte());
    if (type == 12)
    {
        // A wide text: one character per byte, a 4-byte count in front.
        std::wstring wide(text.begin(), text.end());
        stream << wide;
        const std::uint32_t count = static_cast<std::uint32_t>(wide.size());
        model.append(std::string(reinterpret_cast<const char*>(&count), 4) +
                     std::string(reinterpret_cast<const char*>(wide.data()), wide.size() * sizeof(wchar_t)));
        return;
    }
    // Narrow text goes out up to its first zero, behind a 4-byte length.
    if (type == 10)
        stream << text.c_str();
    else
        stream << text;
    const std::string cut = text.c_str();
    const std::uint32_t length = static_cast<std::uint32_t>(cut.size());
    model.append(std::string(reinterpret_cast<const char*>(&length), 4) + cut);
}

void checkImage(const OrvaBufferStream& stream, const Model& model)
{
    const char* image = stream.buffer();
    OVKIT_FUZZ_CHECK(image != nullptr);
    std::uint32_t count;
    std::memcpy(&count, image, 4);
    OVKIT_FUZZ_CHECK(count == model.size());
    if (!model.tiny())
        OVKIT_FUZZ_CHECK(model.data.compare(0, std::string::npos, image + 4, model.data.size()) == 0);
}

/// A copy holds the same unread bytes; reading it out leaves the source as
/// it was.
void checkCopy(const OrvaBufferStream& stream, const Model& model)
{
    OrvaBufferStream copy(stream);
    OVKIT_FUZZ_CHECK(copy.size() == model.size());
    Model copied = model;
    while (copy.size() != 0 && !copied.tiny())
        checkRead(copy, copied, 256, true);
    OVKIT_FUZZ_CHECK(stream.size() == model.size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > ovkit_fuzz::c_nMaxInput)
        return 0;
    Input input(data, size);
    std::size_t imageSize = input.byte();
    imageSize |= static_cast<std::size_t>(input.byte()) << 8;
    std::string image;
    for (std::size_t i = 0; i < imageSize && !input.empty(); ++i)
        image += static_cast<char>(input.byte());

    OrvaBufferStream stream(image.empty() ? nullptr : &image[0], static_cast<unsigned int>(image.size()));
    Model model;
    if (image.size() < 4)
        model.tinyEnd = static_cast<unsigned int>(image.size());
    else
        model.data = image.substr(4);

    while (!input.empty())
    {
        OVKIT_FUZZ_CHECK(stream.size() == model.size());
        switch (input.byte() % 21)
        {
        case 0:
            checkFixed<char, char>(stream, model);
            break;
        case 1:
            checkFixed<unsigned char, unsigned char>(stream, model);
            break;
        case 2:
            checkFixed<std::int16_t, short>(stream, model);
            break;
        case 3:
            checkFixed<std::uint16_t, unsigned short>(stream, model);
            break;
        case 4:
            checkFixed<std::int32_t, int>(stream, model);
            break;
        case 5:
            checkFixed<std::uint32_t, unsigned int>(stream, model);
            break;
        case 6:
            checkFixed<std::int32_t, long>(stream, model);
            break;
        case 7:
            checkFixed<std::uint32_t, unsigned long>(stream, model);
            break;
        case 8:
            checkFixed<float, float>(stream, model);
            break;
        case 9:
            checkFixed<double, double>(stream, model);
            break;
        case 10:
            checkCharArray(stream, model);
            break;
        case 11:
            checkText<char>(stream, model);
            break;
        case 12:
            checkText<wchar_t>(stream, model);
            break;
        case 13:
            checkRead(stream, model, input.byte(), true);
            break;
        case 14:
            checkRead(stream, model, input.byte(), false);
            break;
        case 15:
        {
            std::string bytes(input.byte(), '\0');
            for (char& c : bytes)
                c = static_cast<char>(input.byte());
            OVKIT_FUZZ_CHECK(stream.write(bytes.data(), 1, static_cast<unsigned int>(bytes.size())) ==
                             bytes.size());
            model.append(bytes);
            break;
        }
        case 16:
            writeValue(stream, model, input);
            break;
        case 17:
            checkImage(stream, model);
            break;
        case 18:
            stream.reset();
            model = Model();
            break;
        case 19:
            checkCopy(stream, model);
            break;
        default:
        {
            OrvaBufferStream source(stream);
            char* replaced = stream.buffer();
            stream = source;
            std::free(replaced);
        }
        }
    }
    OVKIT_FUZZ_CHECK(stream.size() == model.size());
    return 0;
}
