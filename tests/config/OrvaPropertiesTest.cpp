// The property table (repeated names, lookups, case-insensitive names, the
// grammar of one line) and its files (the two encodings, pipes, merging,
// saving, failures and large files).
#include <ovkit/OrvaProperties.h>

#include <ovkit/OrvaLogging.h>

#include "support/Processes.h"
#include "support/ScratchDir.h"
#include "support/Thrown.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <string>
#include <thread>
#include <typeinfo>
#include <vector>

using namespace OrvaSupport;
using ovkit_test::readFile;
using ovkit_test::ScratchDir;
using ovkit_test::writeFile;

namespace
{

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

/// True when a table loaded from `path` equals one loaded from `reference`, and is not empty.
template <class S>
bool sameTables(const std::string& path, const std::string& reference)
{
    const auto table = loaded<S>(path, typename S::value_type('=')).getProperties();
    return !table.empty() && table == loaded<S>(reference, typename S::value_type('=')).getProperties();
}

typedef std::vector<std::string> Values;

template <class S>
S text(const char* ascii)
{
    std::string narrow(ascii);
    return S(narrow.begin(), narrow.end());
}

template <class S>
void expectLinesSplitAsTheGrammarSays()
{
    SCOPED_TRACE(typeid(S).name());
    struct Case
    {
        const char* line;
        const char* name; // null: nothing stored
        const char* value;
    };
    // clang-format off
    const Case cases[] = {
        {"a=1", "a", "1"},          {"a = 1", "a ", "1"},      {"  a=1", "  a", "1"},
        {"a=  1  ", "a", "1  "},    {"a=1=2", "a", "1=2"},     {"a=", "a", ""},
        {"a", "a", ""},             {"=1", nullptr, nullptr},  {"", nullptr, nullptr},
        {"#a=1", nullptr, nullptr}, {" #a=1", " #a", "1"},     {"a=#1", "a", "#1"},
        {"a=1\tb", "a", "1\tb"},    {"a=\t1", "a", "\t1"},     {"a=1\r", "a", "1"},
        {"a=1\nb\r", "a", "1\nb"},  {"a\r=1\n", "a\r", "1\n"}, {"a=   ", "a", ""},
        {"\r", "\r", ""},
    };
    // clang-format on
    for (const Case& c : cases)
    {
        OrvaProperties<S> props;
        props.addProperty(text<S>(c.line), typename S::value_type('='));
        ASSERT_EQ(c.name ? 1 : 0, props.size()) << c.line;
        EXPECT_TRUE(!c.name || (props.getProperties().begin()->first == text<S>(c.name) &&
                                props.getProperty(text<S>(c.name)) == text<S>(c.value)))
            << c.line;
    }
}

} // namespace

TEST(OrvaPropertiesTest, DuplicatesInBothKindsOfTable)
{
    OrvaProperties<std::string> multi;
    multi.addProperty("a", "1");
    multi.addProperty("a", "2");
    multi.addProperty("", "ignored");
    EXPECT_EQ(1, multi.size());
    EXPECT_EQ("1", multi.getProperty("a"));
    EXPECT_EQ((Values{"1", "2"}), multi.getPropertyValues("a"));
    multi.setProperty("a", "3"); // replaces the first value only
    EXPECT_EQ((Values{"3", "2"}), multi.getPropertyValues("a"));

    OrvaProperties<std::string> single(false);
    single.addProperty("a", "1");
    single.addProperty("a", "2");
    EXPECT_EQ((Values{"2"}), single.getPropertyValues("a"));

    // Copies and assignment keep the flag; assignment leaves the count alone.
    OrvaSmartPointer<OrvaProperties<std::string>> shared(new OrvaProperties<std::string>(single));
    OrvaSmartPointer<OrvaProperties<std::string>> second(shared);
    multi = single;
    multi.addProperty("a", "4");
    shared->addProperty("a", "5");
    EXPECT_EQ((Values{"4"}), multi.getPropertyValues("a"));
    EXPECT_EQ((Values{"5"}), shared->getPropertyValues("a"));
    EXPECT_EQ(2, shared->refCount());

    // A miss with a default answers with the caller's own object.
    const std::string fallback("fallback");
    EXPECT_EQ(&fallback, &multi.getProperty("zz", fallback));
}

TEST(OrvaPropertiesTest, CaseInsensitiveLookups)
{
    OrvaProperties<ci_string> narrow;
    narrow.addProperty("Key", "1");
    narrow.addProperty("KEY", "2");
    EXPECT_EQ(1, narrow.size());
    EXPECT_STREQ("1", narrow.getProperty("kEy").c_str());
    EXPECT_STREQ("Key", narrow.getProperties().begin()->first.c_str()); // first spelling stays
    narrow.addProperty(ci_string("nameXvalue"), 'x'); // a letter separator matches both cases
    EXPECT_STREQ("value", narrow.getProperty("NAME").c_str());

    OrvaProperties<ci_wstring> wide;
    wide.addProperty(L"Path", L"/bin");
    EXPECT_STREQ(L"/bin", wide.getProperty(L"PATH").c_str());
    EXPECT_THROW(wide.getProperty(L"PATHS"), OrvaPropertyNotFound);

    OrvaProperties<std::wstring> exact;
    exact.addProperty(L"Path", L"1");
    exact.addProperty(L"PATH", L"2");
    EXPECT_EQ(2, exact.size());
}

TEST(OrvaPropertiesTest, LinesSplitAsTheGrammarSaysForEachStringType)
{
    expectLinesSplitAsTheGrammarSays<std::string>();
    expectLinesSplitAsTheGrammarSays<std::wstring>();
    expectLinesSplitAsTheGrammarSays<ci_string>();
    expectLinesSplitAsTheGrammarSays<ci_wstring>();
}

TEST(OrvaPropertiesTest, ByteOrderMarks)
{
    ScratchDir dir;
    // Euro sign U+20AC and a lone CR inside the value; the odd last byte is dropped.
    writeFile(dir.file("units"), utf16(u"k=\u20AC\rx\n\u00E9=e") + "z");
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
        writeFile(dir.file("mark"), c[0]);
        const auto props = loaded<std::string>(dir.file("mark"), '=');
        ASSERT_EQ(c[1] ? 1 : 0, props.size()) << c[0];
        EXPECT_TRUE(!c[1] || props.getProperties().begin()->first == c[1]) << c[0];
    }
}

TEST(OrvaPropertiesTest, LineEndsOfLargeFilesReadTheSameFromFilesPipesAndFifos)
{
    // Plain files are cut at LF only, so that the line grammar sees the CR: a
    // line without separator keeps it, and an empty line is a name of one CR.
    // Marked files are cut at CR LF.
    ScratchDir dir;
    const int lineCount = 40000;
    const std::string longValue(100000, 'v');
    std::string plain = "b = 2\r\nflag\r\n\r\n";
    for (int i = 0; i < lineCount; ++i)
        plain += "key" + std::to_string(i) + "=value" + std::to_string(i) + "\r\n";
    plain += "long=" + longValue; // the last line has no line end
    const std::string plainFile = dir.file("plain"), markedFile = dir.file("marked"), fifo = dir.file("fifo");
    writeFile(plainFile, plain);
    writeFile(markedFile, utf16(std::u16string(plain.begin(), plain.end())));
    const auto fromPlain = loaded<std::string>(plainFile, '=');
    EXPECT_EQ(lineCount + 4, fromPlain.size());
    EXPECT_TRUE(fromPlain.getProperty("b ") == "2" && fromPlain.getProperty("flag\r").empty() &&
                fromPlain.getProperty("\r").empty());
    EXPECT_EQ("value39999", fromPlain.getProperty("key39999"));
    EXPECT_EQ(longValue, fromPlain.getProperty("long"));
    EXPECT_EQ(L"", loaded<std::wstring>(plainFile, L'=').getProperty(L"flag\r"));
    const auto fromMarked = loaded<std::wstring>(markedFile, L'=');
    EXPECT_EQ(lineCount + 3, fromMarked.size());
    EXPECT_TRUE(fromMarked.getProperty(L"b ") == L"2" && fromMarked.getProperty(L"flag").empty());
    EXPECT_EQ(L"value12345", fromMarked.getProperty(L"key12345"));
    EXPECT_EQ(std::wstring(longValue.begin(), longValue.end()), fromMarked.getProperty(L"long"));
    EXPECT_EQ("", loaded<std::string>(markedFile, '=').getProperty("flag"));

    // Neither a pipe nor a FIFO can seek: the mark is looked for without going
    // back, and a wide table decodes from the one stream it opened. The
    // writer feeds the bytes once the reader has opened its end.
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    for (const std::string& regular : {plainFile, markedFile})
    {
        const std::string bytes = readFile(regular);
        for (bool wide : {false, true})
        {
            int ends[2];
            ASSERT_EQ(0, pipe(ends));
            std::thread writer(
                [&]
                {
                    EXPECT_EQ(static_cast<ssize_t>(bytes.size()), write(ends[1], bytes.data(), bytes.size()));
                    close(ends[1]);
                    writeFile(fifo, bytes);
                });
            for (const std::string& path : {"/proc/self/fd/" + std::to_string(ends[0]), fifo})
                EXPECT_TRUE(wide ? sameTables<std::wstring>(path, regular)
                                 : sameTables<std::string>(path, regular))
                    << path << (wide ? " wide " : " narrow ") << bytes.size() << " bytes";
            writer.join();
            close(ends[0]);
        }
    }
}

TEST(OrvaPropertiesTest, LoadMergesIsLoggedAndFailsWithoutChangeAndSaveWritesFirstValues)
{
    ScratchDir dir;
    writeFile(dir.file("dup"), "# settings\na=1\na=2\nb=file\n");
    OrvaLogging log("unused", 2, 5);
    OrvaLogging::setInstance(log);

    OrvaProperties<std::string> multi;
    multi.addProperty("b", "mine");
    multi.addProperty("c", "kept");
    testing::internal::CaptureStdout();
    ASSERT_TRUE(multi.loadProperties(dir.file("dup"), '='));
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(std::string::npos,
              out.find(" 5 Global     [" + std::to_string(static_cast<int>(pthread_self())) +
                       "] OrvaProperties<StringType>::loadProperties: from file " + dir.file("dup") + "\n"))
        << out;
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
    EXPECT_EQ("a=1\nb=mine\nc=kept\n", readFile(dir.file("saved")));
    writeFile(dir.file("colon"), "zeta: last\nx=y:1\n");
    ASSERT_TRUE(loaded<ci_wstring>(dir.file("colon"), L':').saveProperties(dir.file("wide")));
    EXPECT_EQ("x=y=1\nzeta=last\n", readFile(dir.file("wide")));

    // A file that cannot be opened leaves the table as it was.
    const std::string missing = dir.file("missing");
    EXPECT_EQ("OrvaProperties<StringType>::loadProperties: couldn't open file " + missing + " (0)",
              ovkit_test::thrownText([&] { single.loadProperties(missing, '='); }));
    EXPECT_EQ(2, single.size());
    EXPECT_FALSE(single.savePropertiesImpl(dir.file("none/out")));
    EXPECT_THROW(single.saveProperties(dir.file("none/out")), OrvaException);
}

TEST(OrvaPropertiesTest, PlainFileLoadsAsItsLinesOneByOne)
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
    ovkit_test::writeFile(dir.file("lines"), text);

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

TEST(OrvaPropertiesTest, LinesFromAPipeAreStoredAsTheyArrive)
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
            firstSeenEarly = ovkit_test::waitFor([&] { return props.getPropertyValue("first", value); });
            EXPECT_EQ(9, write(ends[1], "second=2\n", 9));
            close(ends[1]);
        });
    EXPECT_TRUE(props.loadProperties("/proc/self/fd/" + std::to_string(ends[0]), '='));
    writer.join();
    close(ends[0]);
    EXPECT_TRUE(firstSeenEarly);
    EXPECT_EQ("2", props.getProperty("second"));
}

namespace
{

std::atomic<bool> g_bOpenInterrupted{false};

/// Whether thread `tid` of this process waits in openat (/proc's syscall file
/// starts with the number of the call a thread is blocked in).
bool blockedInOpen(pid_t tid)
{
    const std::string line = readFile("/proc/self/task/" + std::to_string(tid) + "/syscall");
    return line.compare(0, std::to_string(SYS_openat).size() + 1, std::to_string(SYS_openat) + " ") == 0;
}

} // namespace

TEST(OrvaPropertiesTest, AFifoOpenThatASignalInterruptsIsMadeAgain)
{
    // Opening a FIFO waits for its writer. A handler installed without
    // SA_RESTART ends that wait with EINTR, which is no failure to open the
    // file: the load opens it again and reads what the writer then sends.
    ScratchDir dir;
    const std::string fifo = dir.file("fifo");
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    struct sigaction action = {}, previous = {};
    action.sa_handler = [](int) { g_bOpenInterrupted.store(true, std::memory_order_release); };
    ASSERT_EQ(0, sigaction(SIGWINCH, &action, &previous));
    const pid_t loader = ovkit_test::currentTid();
    std::atomic<bool> loadDone{false};
    std::thread writer(
        [&]
        {
            ASSERT_TRUE(ovkit_test::waitFor([&] { return blockedInOpen(loader); }));
            syscall(SYS_tgkill, getpid(), loader, SIGWINCH);
            ASSERT_TRUE(
                ovkit_test::waitFor([&] { return g_bOpenInterrupted.load(std::memory_order_acquire); }));
            ASSERT_TRUE(ovkit_test::waitFor([&] { return blockedInOpen(loader) || loadDone.load(); }));
            const int fd = open(fifo.c_str(), O_WRONLY | O_NONBLOCK); // fails when no reader waits
            if (fd >= 0)
            {
                EXPECT_EQ(4, write(fd, "a=1\n", 4));
                close(fd);
            }
        });
    OrvaProperties<std::string> table;
    const bool loaded = table.loadPropertiesImpl(fifo, '=');
    loadDone.store(true);
    writer.join();
    sigaction(SIGWINCH, &previous, nullptr);
    EXPECT_TRUE(g_bOpenInterrupted.load());
    EXPECT_TRUE(loaded);
    EXPECT_EQ("1", table.getProperty("a", std::string()));
}
