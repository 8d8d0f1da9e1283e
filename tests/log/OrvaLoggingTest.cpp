#include <ovkit/OrvaLogging.h>

#include "support/LogTestHelpers.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <climits>
#include <cstdio>
#include <ctime>
#include <regex>
#include <string>
#include <thread>
#include <vector>

using namespace OrvaSupport;
using namespace ovkit_test;
using namespace testing::internal; // CaptureStdout, GetCapturedStdout and the same for stderr

namespace
{

std::string localStamp()
{
    time_t now = time(nullptr);
    char text[32];
    strftime(text, sizeof(text), "%Y%m%d_%H:%M:%S", localtime(&now));
    return text;
}

std::string opening(const std::string& name)
{
    return "OrvaLogging: Opening " + name + " for logging...\n";
}

} // namespace

TEST(OrvaLoggingTest, PrefixFormatLabelPaddingAndTheRecordsOwner)
{
    FileLog f(9);
    std::string before = localStamp();
    f.log << setloglevel("scheduler", 3) << "tick, ";
    std::thread([&] { f.log.endrecord(); }).join(); // not the owner's: returns at once, changes nothing
    f.log << "tock" << endrecord;
    f.log << "OrvaService::start: exiting" << endrecord; // no manipulator: level 9, no name
    f.log << setloglevel("tenletters", 2) << "a" << endrecord;
    f.log << setloglevel("muchlongername", -1) << "b" << endrecord;
    f.log << setloglevel("empty", 4) << endrecord; // no text: no line, not even a prefix
    f.log << setloglevel(0) << "bare text" << endrecord;
    std::string after = localStamp();

    std::vector<std::string> lines = f.lines();
    ASSERT_EQ(5u, lines.size());
    // The thread id is printed as a signed int.
    std::string id = "[" + std::to_string(static_cast<int>(static_cast<unsigned int>(pthread_self()))) + "] ";
    const char* heads[] = {" 3 scheduler  ", " 9 Global     ", " 2 tenletters ", " -1 muchlongername "};
    const char* texts[] = {"tick, tock", "OrvaService::start: exiting", "a", "b"};
    for (int i = 0; i < 4; ++i)
    {
        SCOPED_TRACE(lines[i]);
        std::string when = lines[i].substr(0, 17);
        EXPECT_TRUE(std::regex_match(when, std::regex("[0-9]{8}_[0-9]{2}:[0-9]{2}:[0-9]{2}")));
        EXPECT_TRUE(before <= when && when <= after);
        EXPECT_EQ(heads[i] + id + texts[i], lines[i].substr(17));
    }
    EXPECT_EQ("bare text", lines[4]);
}

TEST(OrvaLoggingTest, LevelTestsAtInsertionAndAtEndrecord)
{
    FileLog f(3);
    f.log.setLogLevel("scheduler", 9);
    f.log << setloglevel("scheduler", 5) << "dropped " << endrecord; // a name's level cannot widen
    f.log << "level nine by default " << endrecord;
    f.log.setCurrentLevel("n", 3);
    f.log.setCurrentLevel(-2); // ignored, and the name stays
    f.log << "kept" << endrecord;
    f.log.setGlobalLogLevel(9);
    f.log.setLogLevel("scheduler", -1);
    f.log << setloglevel("scheduler", 5) << "held back " << endrecord; // collected, then refused
    f.log << setloglevel("scheduler", 0) << "zero" << endrecord;       // level 0 passes any name's level
    f.log << setloglevel("other", 7) << "no entry" << endrecord;       // the global level applies

    std::vector<std::string> lines = f.lines();
    ASSERT_EQ(3u, lines.size());
    EXPECT_NE(std::string::npos, lines[0].find(" 3 n          [")) << lines[0];
    EXPECT_NE(std::string::npos, lines[2].find(" 7 other      [")) << lines[2];
    // The refused text comes out in front of the next written record.
    EXPECT_EQ((std::vector<std::string>{"kept", "held back zero", "no entry"}), f.lines(true));
}

TEST(OrvaLoggingTest, FileNamesTargetSwitchesAndTheirAnnouncements)
{
    ScratchDir dir;
    CaptureStdout();
    CaptureStderr();
    OrvaLogging log(dir.file("x.d/agent"), 2, 9); // cut at the last dot, even in a directory
    log << "to stdout" << endrecord;
    std::string first = dir.file("x" + std::to_string(seedAndPeek(21)) + ".log");
    log.setTarget(1);
    log << "one" << endrecord;
    log.setTarget(3); // the file stays open
    log << "three" << endrecord;
    log.setTarget(2); // closed
    log << "two" << endrecord;
    std::string second = dir.file("x" + std::to_string(seedAndPeek(22)) + ".log");
    log.setTarget(1);
    log << "again" << endrecord;
    log.setTarget(0);
    log << "dropped" << endrecord;
    // A file that cannot be opened leaves standard output alone.
    std::string missing = dir.file("missing/agent" + std::to_string(seedAndPeek(3)) + ".log");
    OrvaLogging failed("\"" + dir.file("missing/agent.log\""), 3, 9); // both quotes go
    failed << "still here" << endrecord;
    failed.setTarget(3); // the same value: no second try
    std::string err = GetCapturedStderr();
    std::string out = GetCapturedStdout();

    EXPECT_EQ(opening(first) + opening(second) + opening(missing) + "OrvaLogging: Cannot open log file " +
                  missing + " (2)\n",
              err);
    EXPECT_EQ((std::vector<std::string>{"one", "three"}), readLines(first, true));
    EXPECT_EQ(std::vector<std::string>{"again"}, readLines(second, true));
    std::regex expectedOut("[^\n]*\\] to stdout\n[^\n]*\\] three\n[^\n]*\\] two\n[^\n]*\\] still here\n");
    EXPECT_TRUE(std::regex_match(out, expectedOut)) << out;
}

TEST(OrvaLoggingTest, NumbersAsPrintfAndTheLevelBackTo9AfterASilentRecord)
{
    FileLog f(5);
    f.log << setloglevel(1) << INT_MIN << " " << LONG_MIN << " " << ULONG_MAX << " " << short(-7) << " "
          << static_cast<unsigned short>(65535) << " " << 0 << endrecord;
    char expected[128];
    snprintf(expected, sizeof(expected), "%d %ld %lu %d %u %d", INT_MIN, LONG_MIN, ULONG_MAX, -7, 65535, 0);

    // A record above the global level leaves nothing behind: once the global
    // level lets 9 through, an insertion without a manipulator is level 9.
    f.log << setloglevel(7) << "hidden" << 1 << endrecord;
    f.log.setGlobalLogLevel(9);
    f.log << "bare" << endrecord;
    f.log << setloglevel(8) << "eight" << endrecord;

    std::vector<std::string> lines = f.lines();
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ(expected, lines[0].substr(lines[0].find("] ") + 2));
    EXPECT_EQ(" 9 Global     [", lines[1].substr(17, 15));
    EXPECT_EQ(" 8 Global     [", lines[2].substr(17, 15));
    EXPECT_EQ(std::string::npos, lines[1].find("hidden"));
}
