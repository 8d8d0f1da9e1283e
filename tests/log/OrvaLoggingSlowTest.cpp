#include <ovkit/OrvaLogging.h>

#include <ovkit/OrvaThread.h>

#include "log/LogTestHelpers.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <vector>

using namespace OrvaSupport;
using LogTest::textOf;

namespace
{

// Opens a record and idles inside it until it is cancelled.
class RecordOwner : public OrvaThread
{
public:
    explicit RecordOwner(OrvaLogging& log) : OrvaThread("RecordOwner"), m_rLog(log) {}
    using OrvaThread::run;
    int run() override
    {
        m_rLog << setloglevel("owner", 4) << "written by "
               << "the watchdog";
        m_bInRecord = true;
        for (;;)
            sleep(1);
    }

    std::atomic<bool> m_bInRecord{false};

private:
    OrvaLogging& m_rLog;
};

} // namespace

// A cancelled thread's record stays open until the watchdog, a minute later,
// finds the lock free and writes it out; at level 9 its note follows.
TEST(OrvaLoggingSlow, WatchdogWritesOutRecordOfCancelledOwner)
{
    LogTest::ScratchDir dir;
    std::string fileName = dir.file("watch" + std::to_string(LogTest::seedAndPeek(9)) + ".log");
    OrvaLogging log(dir.file("watch.log"), 1, 9);
    OrvaLogging::setInstance(log);

    RecordOwner owner(log);
    owner.start();
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!owner.m_bInRecord && std::chrono::steady_clock::now() < deadline)
        usleep(10 * 1000);
    ASSERT_TRUE(owner.m_bInRecord);
    owner.kill(); // cancellation gives the log lock back; the record stays open
    EXPECT_TRUE(LogTest::readLines(fileName).empty());

    deadline = std::chrono::steady_clock::now() + std::chrono::seconds(150);
    while (LogTest::readLines(fileName).size() < 2 && std::chrono::steady_clock::now() < deadline)
        usleep(100 * 1000);
    std::vector<std::string> lines = LogTest::readLines(fileName);
    ASSERT_EQ(2u, lines.size());
    EXPECT_NE(std::string::npos, lines[0].find(" 4 owner      [")) << lines[0];
    EXPECT_EQ("written by the watchdog", textOf(lines[0]));
    EXPECT_EQ(
        "OrvaLogging::timerElapsed: called (NOTE: This message only appears and repeats when LogLevel = 9)",
        textOf(lines[1]));

    log << "after" << endrecord; // the log is free for everyone again
    EXPECT_EQ("after", textOf(LogTest::readLines(fileName).back()));
}
