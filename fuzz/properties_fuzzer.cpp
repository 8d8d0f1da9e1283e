// Property tables: lines and whole files, in all four table types, through a
// regular file, a pipe, a FIFO, or as lines in memory.
//
// Input: a selector byte, a separator byte, then the file's bytes.
//   selector bits 0-1  table: string, wstring, ci_string, ci_wstring
//            bit 2     single-valued table (else multi-valued)
//            bits 3-4  source: regular file, pipe, FIFO, lines in memory
//            bit 5     the bytes are 16-bit text: a file gets the byte order
//                      mark 0xFF 0xFE in front, in-memory lines are cut into
//                      16-bit units
//            bit 6     global C++ locale C.UTF-8 (else classic) during the
//                      load, which decodes plain files for the wide tables
//            bit 7     a wide separator takes one more byte as its high byte
// After the load the table is read back through every getter, checked
// against its invariants, saved, and loaded again from the saved file.
#include <ovkit/OrvaException.h>
#include <ovkit/OrvaProperties.h>
#include <ovkit/OrvaStringTraits.h>

#include "FuzzSupport.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <locale>
#include <string>
#include <thread>
#include <vector>

using namespace OrvaSupport;
using ovkit_fuzz::Input;

namespace
{

enum Source
{
    RegularFile = 0,
    Pipe = 1,
    Fifo = 2,
    Lines = 3
};

struct Options
{
    bool multiValued;
    Source source;
    bool sixteenBit;
    unsigned int separator;
};

void writeAll(int fd, const std::string& bytes)
{
    std::size_t done = 0;
    while (done < bytes.size())
    {
        const ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
        if (n <= 0)
            abort();
        done += static_cast<std::size_t>(n);
    }
}

const std::string& fifoPath()
{
    static const std::string path = []
    {
        const std::string fifo = ovkit_fuzz::scratchDir() + "/fifo";
        if (mkfifo(fifo.c_str(), 0600) != 0)
            abort();
        return fifo;
    }();
    return path;
}

/// Loads `bytes` into `table` from the chosen kind of file.
template <class S>
void loadFile(OrvaProperties<S>& table, const std::string& bytes, Source source, typename S::value_type sep)
{
    if (source == RegularFile)
    {
        const std::string path = ovkit_fuzz::scratchDir() + "/table";
        const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        writeAll(fd, bytes);
        close(fd);
        OVKIT_FUZZ_CHECK(table.loadProperties(path, sep));
    }
    else if (source == Pipe)
    {
        // The input cap keeps the bytes within a pipe's default capacity, so
        // they are all written before the load starts.
        int ends[2];
        if (pipe(ends) != 0)
            abort();
        writeAll(ends[1], bytes);
        close(ends[1]);
        OVKIT_FUZZ_CHECK(table.loadPropertiesImpl("/proc/self/fd/" + std::to_string(ends[0]), sep));
        close(ends[0]);
    }
    else
    {
        // The writer's open waits for the loader's, and its close ends the
        // file. Signals (libFuzzer's alarm) go to the loader's thread.
        std::thread writer(
            [&]
            {
                sigset_t all;
                sigfillset(&all);
                pthread_sigmask(SIG_BLOCK, &all, nullptr);
                const int fd = open(fifoPath().c_str(), O_WRONLY);
                if (fd < 0)
                    abort();
                writeAll(fd, bytes);
                close(fd);
            });
        OVKIT_FUZZ_CHECK(table.loadPropertiesImpl(fifoPath(), sep));
        writer.join();
    }
}

/// The text of in-memory lines: bytes, or 16-bit little-endian units.
template <class S>
S textOf(const std::string& bytes, bool sixteenBit)
{
    typedef typename S::value_type Char;
    S text;
    if (!sixteenBit)
    {
        for (char c : bytes)
            text += static_cast<Char>(static_cast<unsigned char>(c));
        return text;
    }
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2)
        text += static_cast<Char>(static_cast<unsigned char>(bytes[i]) |
                                  static_cast<unsigned char>(bytes[i + 1]) << 8);
    return text;
}

template <class S>
void loadLines(OrvaProperties<S>& table, const std::string& bytes, const Options& options)
{
    typedef typename S::value_type Char;
    const S text = textOf<S>(bytes, options.sixteenBit);
    std::vector<S> lines(1);
    for (Char c : text)
    {
        if (c == Char('\n'))
            lines.emplace_back();
        else
            lines.back() += c;
    }
    const Char sep = static_cast<Char>(options.separator);
    // Each line once through every form: one by one, as a vector, and as C strings.
    for (const S& line : lines)
        table.addProperty(line, sep);
    table.loadProperties(lines, sep);
    std::vector<const Char*> pointers;
    for (const S& line : lines)
        pointers.push_back(line.c_str());
    table.loadProperties(pointers.data(), static_cast<int>(pointers.size()), sep);
    table.loadProperties(pointers.data(), 0, sep);
}

template <class S>
struct CountingIterator : OrvaPropertyIterator<S>
{
    void process(const ::OrvaPropertyIteratorParameter<S>& entry) override
    {
        OVKIT_FUZZ_CHECK(!entry.m_vValues.empty());
        ++count;
    }
    int count = 0;
};

/// Every getter agrees with the table's own map, which holds no empty name
/// and no name without a value.
template <class S>
void checkTable(OrvaProperties<S>& table, bool multiValued)
{
    const auto map = table.getProperties();
    OVKIT_FUZZ_CHECK(static_cast<std::size_t>(table.size()) == map.size());
    for (const auto& entry : map)
    {
        OVKIT_FUZZ_CHECK(!entry.first.empty() && !entry.second.empty());
        OVKIT_FUZZ_CHECK(multiValued || entry.second.size() == 1);
        OVKIT_FUZZ_CHECK(table.getProperty(entry.first) == entry.second.front());
        OVKIT_FUZZ_CHECK(table.getPropertyValues(entry.first) == entry.second);
        S value;
        OVKIT_FUZZ_CHECK(table.getPropertyValue(entry.first, value) && value == entry.second.front());
    }
    CountingIterator<S> iterator;
    table.forEach(iterator);
    OVKIT_FUZZ_CHECK(static_cast<std::size_t>(iterator.count) == map.size());
    try
    {
        table.getProperty(S());
        abort(); // the empty name is never stored
    }
    catch (const OrvaPropertyNotFound&)
    {
    }
}

template <class S>
void run(Input& input, const Options& options)
{
    typedef typename S::value_type Char;
    const Char sep = static_cast<Char>(options.separator);
    std::string bytes = input.rest();
    OrvaProperties<S> table(options.multiValued);
    if (options.source == Lines)
        loadLines(table, bytes, options);
    else
    {
        if (options.sixteenBit)
            bytes.insert(0, "\xFF\xFE");
        loadFile(table, bytes, options.source, sep);
    }
    checkTable(table, options.multiValued);

    // Changes by name, and a copy that keeps the flag.
    const auto map = table.getProperties();
    if (!map.empty())
    {
        const S first = map.begin()->first;
        table.setProperty(first, S(3, Char('v')));
        OVKIT_FUZZ_CHECK(table.getProperty(first) == S(3, Char('v')));
        table.removeProperty(first);
        OVKIT_FUZZ_CHECK(table.getPropertyValues(first).empty());
    }
    OrvaProperties<S> copy(table);
    checkTable(copy, options.multiValued);

    // The writer, and the reader on what it wrote.
    const std::string saved = ovkit_fuzz::scratchDir() + "/saved";
    OVKIT_FUZZ_CHECK(table.savePropertiesImpl(saved));
    OrvaProperties<S> reloaded(options.multiValued);
    OVKIT_FUZZ_CHECK(reloaded.loadPropertiesImpl(saved, Char('=')));
    checkTable(reloaded, options.multiValued);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > ovkit_fuzz::c_nMaxInput)
        return 0;
    static const std::locale utf8("C.UTF-8");
    Input input(data, size);
    const std::uint8_t selector = input.byte();
    Options options;
    options.multiValued = (selector & 4) == 0;
    options.source = static_cast<Source>((selector >> 3) & 3);
    options.sixteenBit = (selector & 0x20) != 0;
    options.separator = input.byte();
    const int table = selector & 3;
    if ((selector & 0x80) && (table & 1))
        options.separator |= static_cast<unsigned int>(input.byte()) << 8;
    std::locale::global((selector & 0x40) ? utf8 : std::locale::classic());
    switch (table)
    {
    case 0:
        run<std::string>(input, options);
        break;
    case 1:
        run<std::wstring>(input, options);
        break;
    case 2:
        run<ci_string>(input, options);
        break;
    default:
        run<ci_wstring>(input, options);
    }
    std::locale::global(std::locale::classic());
    return 0;
}
