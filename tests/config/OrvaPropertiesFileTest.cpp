// Property files: the two encodings, merging, saving, failures, large files
// and the log message of a load.
#include <ovkit/OrvaProperties.h>

#include <ovkit/OrvaLogging.h>
#include <ovkit/OrvaThread.h>

#include "support/ScratchDir.h"
#include "support/StressTestHelpers.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

using namespace OrvaSupport;

namespace
{

using ovkit_test::ScratchDir;

void writeBytes(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string readBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

/// The byte order mark and the units of `text`, 16-bit little-endian.
std::string utf16(const std::u16string& text)
{
    std::string bytes = "\xFF\xFE";
    for (char16_t unit : text)
    {
        bytes += static_cast<char>(unit & 0xFF);
        bytes += static_cast<char>(unit >> 8);
    }
    return bytes;
}

/// The table read from `path`; a load that fails is a test failure.
template <class S>
OrvaProperties<S> loaded(const std::string& path, typename S::value_type separator)
{
    OrvaProperties<S> props;
    EXPECT_TRUE(props.loadProperties(path, separator)) << path;
    return props;
}

typedef std::vector<std::string> Values;

} // namespace

TEST(OrvaPropertiesFileTest, LineEndsOfBothEncodings)
{
    ScratchDir dir;
    writeBytes(dir.file("lf"), "a=1\nb = 2\nflag\n");
    writeBytes(dir.file("crlf"), "a=1\r\nb = 2\r\nflag\r\n\r\n");
    writeBytes(dir.file("u16crlf"), utf16(u"a=1\r\nb = 2\r\nflag\r\n\r\n"));

    const auto crlf = loaded<std::string>(dir.file("crlf"), '=');
    EXPECT_EQ(loaded<std::string>(dir.file("lf"), '=').getProperties(),
              loaded<std::string>(dir.file("u16crlf"), '=').getProperties());
    // Plain CR LF: a line without separator keeps its carriage return, and
    // an empty line becomes a name of one carriage return.
    EXPECT_EQ("2", crlf.getProperty("b "));
    EXPECT_EQ("", crlf.getProperty("flag\r"));
    EXPECT_EQ("", crlf.getProperty("\r"));
    EXPECT_EQ(4, crlf.size());

    const auto widePlain = loaded<std::wstring>(dir.file("crlf"), L'=');
    EXPECT_EQ(L"", loaded<std::wstring>(dir.file("u16crlf"), L'=').getProperty(L"flag"));
    EXPECT_EQ(L"2", widePlain.getProperty(L"b "));
    EXPECT_EQ(L"", widePlain.getProperty(L"flag\r"));
}

TEST(OrvaPropertiesFileTest, ByteOrderMarkCases)
{
    ScratchDir dir;
    // Euro sign U+20AC and a lone CR inside the value; the odd last byte is dropped.
    writeBytes(dir.file("units"), utf16(u"k=\u20AC\rx\n\u00E9=e") + "z");
    const auto wide = loaded<std::wstring>(dir.file("units"), L'=');
    EXPECT_EQ(std::wstring(L"\u20AC"), wide.getProperty(L"k")); // the value ends at the CR
    EXPECT_EQ(L"e", wide.getProperty(L"\u00E9"));
    const auto narrow = loaded<ci_string>(dir.file("units"), '=');
    EXPECT_STREQ("\xAC", narrow.getProperty("k").c_str()); // the low byte only
    EXPECT_STREQ("e", narrow.getProperty("\xE9").c_str());

    // Only FF FE is a mark; other leading bytes become part of the first name.
    const char* const cases[][2] = {
        {"", nullptr},        {"\377\376", nullptr},        {"\377", "\377"},
        {"\377a=1", "\377a"}, {"\376\377a=1", "\376\377a"}, {"\357\273\277a=1", "\357\273\277a"},
    };
    for (const auto& c : cases)
    {
        writeBytes(dir.file("mark"), c[0]);
        const auto props = loaded<std::string>(dir.file("mark"), '=');
        ASSERT_EQ(c[1] ? 1 : 0, props.size()) << c[0];
        EXPECT_TRUE(!c[1] || props.getProperties().begin()->first == c[1]) << c[0];
    }
}

TEST(OrvaPropertiesFileTest, PipesAndFifosReadLikeFiles)
{
    // Neither can seek: the mark is looked for without going back, and a wide
    // table decodes from the one stream it opened. The writer feeds the bytes
    // once the reader has opened its end.
    ScratchDir dir;
    const std::string fifo = dir.file("fifo");
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    const std::string plain = "first=1\nsecond=2\nthird\n";
    const std::string marked = utf16(u"first=1\nsecond=2\nthird\n");
    for (const std::string* bytes : {&plain, &marked})
    {
        for (bool wide : {false, true})
        {
            int ends[2];
            ASSERT_EQ(0, pipe(ends));
            const std::string pipePath = "/proc/self/fd/" + std::to_string(ends[0]);
            std::thread writer(
                [&]
                {
                    const ssize_t written = write(ends[1], bytes->data(), bytes->size());
                    EXPECT_EQ(static_cast<ssize_t>(bytes->size()), written);
                    close(ends[1]);
                    std::ofstream(fifo, std::ios::binary) << *bytes;
                });
            for (const std::string& path : {pipePath, fifo})
            {
                const std::string what =
                    path + (wide ? " wide" : " narrow") + (bytes == &marked ? " marked" : "");
                if (wide)
                {
                    OrvaProperties<std::wstring> props = loaded<std::wstring>(path, L'=');
                    EXPECT_EQ(3, props.size()) << what;
                    EXPECT_EQ(L"2", props.getProperty(L"second")) << what;
                }
                else
                {
                    OrvaProperties<std::string> props = loaded<std::string>(path, '=');
                    EXPECT_EQ(3, props.size()) << what;
                    EXPECT_EQ("2", props.getProperty("second")) << what;
                }
            }
            writer.join();
            close(ends[0]);
        }
    }
}

TEST(OrvaPropertiesFileTest, MergeAndSave)
{
    ScratchDir dir;
    writeBytes(dir.file("dup"), "# settings\na=1\na=2\nb=file\n");

    OrvaProperties<std::string> multi;
    multi.addProperty("b", "mine");
    multi.addProperty("c", "kept");
    ASSERT_TRUE(multi.loadProperties(dir.file("dup"), '='));
    EXPECT_EQ((Values{"1", "2"}), multi.getPropertyValues("a"));
    EXPECT_EQ((Values{"mine", "file"}), multi.getPropertyValues("b"));
    EXPECT_EQ("kept", multi.getProperty("c"));

    OrvaProperties<std::string> single(false);
    single.addProperty("b", "mine");
    ASSERT_TRUE(single.loadProperties(dir.file("dup"), '='));
    EXPECT_EQ("2", single.getProperty("a"));
    EXPECT_EQ("file", single.getProperty("b"));

    // Saved: first values only, in the table's order, comments gone, "=" always.
    ASSERT_TRUE(multi.saveProperties(dir.file("saved")));
    EXPECT_EQ("a=1\nb=mine\nc=kept\n", readBytes(dir.file("saved")));
    writeBytes(dir.file("colon"), "zeta: last\nx=y:1\n");
    ASSERT_TRUE(loaded<ci_wstring>(dir.file("colon"), L':').saveProperties(dir.file("wide")));
    EXPECT_EQ("x=y=1\nzeta=last\n", readBytes(dir.file("wide")));
}

TEST(OrvaPropertiesFileTest, MissingFileKeepsTheTable)
{
    ScratchDir dir;
    OrvaProperties<std::wstring> props;
    props.addProperty(L"a", L"1");
    const std::string missing = dir.file("missing");
    try
    {
        props.loadProperties(missing, L'=');
        ADD_FAILURE() << "no exception";
    }
    catch (OrvaException& e)
    {
        EXPECT_EQ("OrvaProperties<StringType>::loadProperties: couldn't open file " + missing, e.getText());
        EXPECT_EQ(0, e.getCode());
    }
    EXPECT_EQ(1, props.size());
    EXPECT_FALSE(props.savePropertiesImpl(dir.file("none/out")));
    EXPECT_THROW(props.saveProperties(dir.file("none/out")), OrvaException);
}

TEST(OrvaPropertiesFileTest, LargeFilesAndLongLines)
{
    ScratchDir dir;
    const int lineCount = 40000;
    const std::string longValue(100000, 'v');
    std::string plain;
    for (int i = 0; i < lineCount; ++i)
        plain += "key" + std::to_string(i) + "=value" + std::to_string(i) + "\r\n";
    plain += "long=" + longValue; // the last line has no line end
    writeBytes(dir.file("plain"), plain);
    writeBytes(dir.file("wide"), utf16(std::u16string(plain.begin(), plain.end())));

    const auto fromPlain = loaded<std::string>(dir.file("plain"), '=');
    EXPECT_EQ(lineCount + 1, fromPlain.size());
    EXPECT_EQ("value39999", fromPlain.getProperty("key39999"));
    EXPECT_EQ(longValue, fromPlain.getProperty("long"));

    const auto fromWide = loaded<std::wstring>(dir.file("wide"), L'=');
    EXPECT_EQ(lineCount + 1, fromWide.size());
    EXPECT_EQ(L"value12345", fromWide.getProperty(L"key12345"));
    EXPECT_EQ(std::wstring(longValue.begin(), longValue.end()), fromWide.getProperty(L"long"));
}

TEST(OrvaPropertiesFileTest, PlainFileLoadsAsItsLinesOneByOne)
{
    // A file must give the table that its lines, cut at each line feed, give
    // when added one by one: for lines that straddle the reader's blocks,
    // lines longer than a block, comments, CR LF ends, empty names, tabs, a
    // zero byte, and a last line without line feed; in both kinds of table,
    // with a case-folding search for a letter as separator.
    std::string text = "# head\nname=value\n\n=orphan\n \t#x=1\r\nx\ty=  z\t\nbare\r\n\r\na=1=2\nA=3\n"
                       "NameXvalue\nnamexother\n";
    text += std::string("nul") + '\0' + "=z\n";
    for (int i = 0; i < 20000; ++i)
        text += "key" + std::to_string(i % 7000) + "=" + std::string(i % 13, 'v') + std::to_string(i) + "\n";
    text += "long=" + std::string(200000, 'w') + "\nXlast=1x2";
    std::vector<std::string> lines;
    for (std::size_t start = 0;;)
    {
        const std::size_t end = text.find('\n', start);
        lines.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
        if (end == std::string::npos)
            break;
        start = end + 1;
    }
    ScratchDir dir;
    writeBytes(dir.file("lines"), text);

    for (bool multiValued : {true, false})
    {
        OrvaProperties<std::string> fromFile(multiValued);
        OrvaProperties<std::string> fromLines(multiValued);
        ASSERT_TRUE(fromFile.loadProperties(dir.file("lines"), '='));
        fromLines.loadProperties(lines, '=');
        EXPECT_EQ(fromLines.getProperties(), fromFile.getProperties()) << multiValued;

        OrvaProperties<ci_string> foldedFile(multiValued);
        OrvaProperties<ci_string> foldedLines(multiValued);
        ASSERT_TRUE(foldedFile.loadProperties(dir.file("lines"), 'x'));
        for (const std::string& line : lines)
            foldedLines.addProperty(ci_string(line.data(), line.size()), 'x');
        EXPECT_TRUE(foldedLines.getProperties() == foldedFile.getProperties()) << multiValued;
        EXPECT_EQ(multiValued ? 2u : 1u, foldedFile.getPropertyValues("NAME").size());
    }
}

TEST(OrvaPropertiesFileTest, LinesFromAPipeAreStoredAsTheyArrive)
{
    // The writer sends the second line only once the first one is in the
    // table, and closes the pipe after it: a reader that waited for more
    // bytes before storing what it had would never see the end.
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    OrvaProperties<std::string> props;
    bool firstSeenEarly = false;
    std::thread writer(
        [&]
        {
            EXPECT_EQ(8, write(ends[1], "first=1\n", 8));
            std::string value;
            firstSeenEarly = ovkit_test::waitUntil([&] { return props.getPropertyValue("first", value); });
            EXPECT_EQ(9, write(ends[1], "second=2\n", 9));
            close(ends[1]);
        });
    EXPECT_TRUE(props.loadProperties("/proc/self/fd/" + std::to_string(ends[0]), '='));
    writer.join();
    close(ends[0]);
    EXPECT_TRUE(firstSeenEarly);
    EXPECT_EQ("2", props.getProperty("second"));
}

TEST(OrvaPropertiesFileTest, LoaderKilledInARead)
{
    // The loader stores the first line of a pipe, then waits in a read for
    // more. Killed there, it dies at once and leaves the line it stored and
    // the table's lock free. Run in a child, so that a hang fails the test.
    auto scenario = []() -> std::string
    {
        struct Loader : OrvaThread
        {
            OrvaProperties<std::string>* m_pTable = nullptr;
            std::string m_sPath;
            std::atomic<pid_t> m_nTid{0};
            int run() override
            {
                m_nTid = ovkit_test::currentTid();
                m_pTable->loadPropertiesImpl(m_sPath, '=');
                return 0;
            }
        };
        int ends[2];
        if (pipe(ends) != 0 || write(ends[1], "first=1\n", 8) != 8)
            return "no pipe";
        OrvaProperties<std::string> props;
        Loader loader;
        loader.m_pTable = &props;
        loader.m_sPath = "/proc/self/fd/" + std::to_string(ends[0]);
        loader.start();
        std::string value;
        if (!ovkit_test::waitFor(10, [&] { return props.getPropertyValue("first", value); }) ||
            !ovkit_test::waitFor(10, [&] { return ovkit_test::taskState(loader.m_nTid) == 'S'; }))
            return "the loader did not store the first line and wait";
        loader.kill();
        if (!ovkit_test::threadGone(loader.m_nTid))
            return "the killed loader lives on";
        props.setProperty("second", "2"); // takes the table's lock
        return props.getProperty("first") == "1" && props.getProperty("second") == "2" ? "" : "a lost value";
    };
    EXPECT_TRUE(ovkit_test::runInChild(30, scenario));
}

TEST(OrvaPropertiesFileTest, LoadIsLoggedAtLevelFive)
{
    ScratchDir dir;
    writeBytes(dir.file("p"), "a=1\n");
    OrvaLogging log("unused", 2, 5);
    OrvaLogging::setInstance(log);

    OrvaProperties<std::string> props;
    ::testing::internal::CaptureStdout();
    props.loadPropertiesImpl(dir.file("p"), '=');
    const std::string out = ::testing::internal::GetCapturedStdout();
    EXPECT_NE(std::string::npos,
              out.find(" 5 Global     [" + std::to_string(static_cast<int>(pthread_self())) +
                       "] OrvaProperties<StringType>::loadProperties: from file " + dir.file("p") + "\n"))
        << out;
}
