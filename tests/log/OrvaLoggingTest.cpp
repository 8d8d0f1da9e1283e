#include <ovkit/OrvaLogging.h>

#include <ovkit/OrvaStringTraits.h>

#include "log/LogMessage.h"
#include "log/LogTestHelpers.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <ctime>
#include <regex>
#include <string>
#include <thread>
#include <vector>

using namespace OrvaSupport;
using LogTest::readLines;
using LogTest::textOf;
using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

namespace
{

// A log on a file of a scratch directory, whose numbered name is predicted.
struct FileLog
{
    explicit FileLog(int level)
        : number(LogTest::seedAndPeek(11)), fileName(dir.file("test" + std::to_string(number) + ".log")),
          log(dir.file("test.log"), 1, level)
    {
    }
    std::vector<std::string> lines() const { return readLines(fileName); }

    LogTest::ScratchDir dir;
    int number;
    std::string fileName;
    OrvaLogging log;
};

std::string localStamp()
{
    time_t now = time(nullptr);
    struct tm parts;
    localtime_r(&now, &parts);
    char text[32];
    strftime(text, sizeof(text), "%Y%m%d_%H:%M:%S", &parts);
    return text;
}

int g_nEvaluations = 0;

const char* counted(const char* text)
{
    ++g_nEvaluations;
    return text;
}

} // namespace

TEST(OrvaLogging, RecordLinesAndTheirPrefix)
{
    FileLog f(9);
    std::string before = localStamp();
    f.log << setloglevel(9) << "OrvaService::start: exiting" << endrecord;
    f.log << setloglevel("scheduler", 3) << "tick" << endrecord;
    f.log << setloglevel("tenletters", 2) << "a" << endrecord;
    f.log << setloglevel("muchlongername", 2) << "b" << endrecord;
    f.log << setloglevel(-1) << "minus" << endrecord;
    f.log << setloglevel("named", 4) << endrecord; // empty: no line, not even a prefix
    f.log << std::string("cut\0here", 8) << endrecord;
    f.log << setloglevel(0) << "bare text" << endrecord;
    std::string after = localStamp();

    std::vector<std::string> lines = f.lines();
    ASSERT_EQ(7u, lines.size());
    std::string id = "[" + std::to_string(LogTest::printedThreadId()) + "] ";
    const char* heads[] = {" 9 Global     ",     " 3 scheduler  ",  " 2 tenletters ",
                           " 2 muchlongername ", " -1 Global     ", " 9 Global     "};
    const char* texts[] = {"OrvaService::start: exiting", "tick", "a", "b", "minus", "cut"};
    std::regex stamp("[0-9]{8}_[0-9]{2}:[0-9]{2}:[0-9]{2}");
    for (int i = 0; i < 6; ++i)
    {
        SCOPED_TRACE(lines[i]);
        std::string when = lines[i].substr(0, 17);
        EXPECT_TRUE(std::regex_match(when, stamp));
        EXPECT_LE(before, when);
        EXPECT_GE(after, when);
        EXPECT_EQ(std::string(heads[i]) + id + texts[i], lines[i].substr(17));
    }
    EXPECT_EQ("bare text", lines[6]);
}

TEST(OrvaLogging, InsertionsFormatLikePrintf)
{
    FileLog f(9);
    std::basic_string<wchar_t, char_traits_ci<wchar_t>> wideCi(L"WiDe");
    f.log << "s:" << std::string("str") << " b:" << true << false << " n:" << short(-3) << (unsigned short)(4)
          << -5 << 6u << -7L << 8UL << " f:" << 1.5f << 2.25 << " p:" << reinterpret_cast<const void*>(0x1234)
          << " c:" << 'x' << " ci:" << ci_string("MiXed") << " w:" << std::wstring(L"wide\u00e9")
          << " wci:" << wideCi << endrecord;
    std::vector<std::string> lines = f.lines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ("s:str b:truefalse n:-34-56-78 f:1.5000002.250000 p:0x1234 c:x ci:MiXed w:wide  wci:WiDe",
              textOf(lines[0]));
}

TEST(OrvaLogging, GlobalLevelFiltersInsertionsAndNamesOnlyNarrow)
{
    FileLog f(3);
    f.log.setLogLevel("scheduler", 9);
    f.log << setloglevel("scheduler", 5) << "dropped " << endrecord; // the name cannot widen
    f.log << "level nine by default " << endrecord;
    f.log << setloglevel(12) << "never " << endrecord;
    f.log.setCurrentLevel("n", 3);
    f.log.setCurrentLevel(-2); // ignored, and the name stays
    f.log << "kept" << endrecord;
    f.log.setGlobalLogLevel(9);
    f.log.setLogLevel("scheduler", 3);
    f.log << setloglevel("scheduler", 5) << "held back " << endrecord; // collected, then refused
    EXPECT_EQ(1u, f.lines().size());
    f.log << setloglevel("scheduler", 0) << "zero" << endrecord; // level 0 passes any name's level
    f.log << setloglevel("other", 7) << "no entry: global level" << endrecord;

    std::vector<std::string> lines = f.lines();
    ASSERT_EQ(3u, lines.size());
    EXPECT_NE(std::string::npos, lines[0].find(" 3 n          [")) << lines[0];
    EXPECT_EQ("kept", textOf(lines[0]));
    EXPECT_EQ("held back zero", lines[1]); // the refused text comes out in front of the next line
    EXPECT_NE(std::string::npos, lines[2].find(" 7 other      [")) << lines[2];
}

TEST(OrvaLogging, LevelZeroAndMinusOneAndTheSetterRanges)
{
    FileLog zero(0);
    zero.log << setloglevel(0) << "zero" << endrecord << setloglevel(1) << "one" << endrecord;
    EXPECT_EQ(std::vector<std::string>{"zero"}, zero.lines());

    FileLog off(-1);
    off.log << setloglevel(0) << "zero" << endrecord;
    off.log << setloglevel(-1) << "minus" << endrecord; // the log itself does not refuse it
    ASSERT_EQ(1u, off.lines().size());
    EXPECT_EQ("minus", textOf(off.lines()[0]));

    for (int level : {3, 10, -2})
        off.log.setLogLevel("x", level);
    off.log.setLogLevel("z", -1);
    for (int level : {12, 4, -2})
        off.log.setGlobalLogLevel(level);
    EXPECT_EQ(3, off.log.getLogLevel("x"));
    EXPECT_EQ(-1, off.log.getLogLevel("z"));
    EXPECT_EQ(4, off.log.getLogLevel("Global"));
}

TEST(OrvaLogging, FileNamesAreCutAtTheLastDotAndNumbered)
{
    LogTest::ScratchDir dir;
    char home[4096];
    ASSERT_NE(nullptr, getcwd(home, sizeof(home)));
    ASSERT_EQ(0, chdir(dir.path().c_str()));
    const std::string d = dir.path();
    const std::pair<std::string, std::string> cases[] = {
        // given name, expected name before the number
        {"mylog", "mylog"},
        {d + "/x.d/mylog", d + "/x"},
        {"./agent", ""},
        {"\"" + d + "/a.log\"", d + "/a"},
        {"\"" + d + "/q\"", d + "/q\""},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.first);
        std::string expected = c.second + std::to_string(LogTest::seedAndPeek(5)) + ".log";
        CaptureStderr();
        OrvaLogging log(c.first, 1, 9);
        EXPECT_EQ("OrvaLogging: Opening " + expected + " for logging...\n", GetCapturedStderr());
        log << "x" << endrecord;
        EXPECT_EQ(1u, readLines(expected).size());
    }
    EXPECT_EQ(0, chdir(home));
}

TEST(OrvaLogging, TargetSwitchesOpenFreshFiles)
{
    LogTest::ScratchDir dir;
    CaptureStdout();
    CaptureStderr();
    OrvaLogging log(dir.file("agent.log"), 2, 9);
    log.setTarget(2); // the same value: nothing happens
    log << "to stdout" << endrecord;
    std::string first = dir.file("agent" + std::to_string(LogTest::seedAndPeek(21)) + ".log");
    log.setTarget(1);
    log << "one" << endrecord;
    log.setTarget(3); // the file stays open
    log << "three" << endrecord;
    log.setTarget(2); // closed
    log << "two" << endrecord;
    std::string second = dir.file("agent" + std::to_string(LogTest::seedAndPeek(22)) + ".log");
    log.setTarget(1);
    log << "again" << endrecord;
    log.setTarget(0);
    log << "dropped" << endrecord;
    std::string err = GetCapturedStderr();
    std::string out = GetCapturedStdout();

    EXPECT_EQ("OrvaLogging: Opening " + first + " for logging...\nOrvaLogging: Opening " + second +
                  " for logging...\n",
              err);
    std::vector<std::string> firstLines = readLines(first);
    ASSERT_EQ(2u, firstLines.size());
    EXPECT_EQ("one", textOf(firstLines[0]));
    EXPECT_EQ("three", textOf(firstLines[1]));
    EXPECT_EQ(std::vector<std::string>{"again"}, std::vector<std::string>{textOf(readLines(second).at(0))});
    std::regex expectedOut("[^\n]*\\] to stdout\n[^\n]*\\] three\n[^\n]*\\] two\n");
    EXPECT_TRUE(std::regex_match(out, expectedOut)) << out;
}

TEST(OrvaLogging, FailedOpenLeavesStandardOutputOnly)
{
    LogTest::ScratchDir dir;
    std::string name = dir.file("missing/agent" + std::to_string(LogTest::seedAndPeek(3)) + ".log");
    CaptureStderr();
    CaptureStdout();
    OrvaLogging log(dir.file("missing/agent.log"), 3, 9);
    log << "still here" << endrecord;
    EXPECT_EQ("still here\n", textOf(GetCapturedStdout()));
    EXPECT_EQ("OrvaLogging: Opening " + name + " for logging...\nOrvaLogging: Cannot open log file " + name +
                  " (2)\n",
              GetCapturedStderr());
}

TEST(OrvaLogging, RegistrationAccessAndTheMessageMacro)
{
    OVKIT_LOG(1, counted("unregistered"));
    EXPECT_FALSE(OrvaLogging::isAccessAllowed());
    CaptureStderr();
    OrvaLogging off; // standard output at level -1: no file is opened
    OrvaLogging::setInstance(off);
    EXPECT_FALSE(OrvaLogging::isAccessAllowed());
    EXPECT_EQ("", GetCapturedStderr());
    OVKIT_LOG(0, counted("off"));

    FileLog* on = new FileLog(5);
    OrvaLogging::setInstance(on->log);
    EXPECT_TRUE(OrvaLogging::isAccessAllowed());
    OVKIT_LOG(9, counted("too detailed"));
    EXPECT_EQ(0, g_nEvaluations);
    OVKIT_LOG(5, counted("Agent::start: port ") << 80);
    EXPECT_EQ(1, g_nEvaluations);
    std::vector<std::string> lines = on->lines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_NE(std::string::npos, lines[0].find(" 5 Global     [")) << lines[0];
    EXPECT_EQ("Agent::start: port 80", textOf(lines[0]));

    {
        OrvaLogging other("other", 0, 1); // not the registered one
    }
    EXPECT_EQ(&on->log, OrvaLogging::getInstance());
    delete on;
    EXPECT_EQ(nullptr, OrvaLogging::getInstance());
    EXPECT_FALSE(OrvaLogging::isAccessAllowed());
}

TEST(OrvaLogging, RecordsBelongToOneThreadAtATime)
{
    FileLog f(9);
    f.log << setloglevel("mine", 4) << "part one, ";
    std::thread([&] { f.log.endrecord(); }).join(); // returns at once and changes nothing
    f.log << "part two" << endrecord;
    std::vector<std::string> lines = f.lines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_NE(std::string::npos, lines[0].find(" 4 mine       [")) << lines[0];
    EXPECT_EQ("part one, part two", textOf(lines[0]));

    auto writer = [&](const char* piece)
    {
        for (int i = 0; i < 200; ++i)
            f.log << piece << piece << piece << endrecord;
    };
    std::thread a(writer, "a");
    std::thread b(writer, "b");
    a.join();
    b.join();
    lines = f.lines();
    ASSERT_EQ(401u, lines.size());
    for (size_t i = 1; i < lines.size(); ++i)
        ASSERT_TRUE(textOf(lines[i]) == "aaa" || textOf(lines[i]) == "bbb") << lines[i];
}
