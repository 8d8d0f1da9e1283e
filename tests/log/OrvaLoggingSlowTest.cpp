#include <ovkit/OrvaLogging.h>

#include <ovkit/OrvaThread.h>

#include "support/LogTestHelpers.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <chrono>

using namespace OrvaSupport;

namespace
{

// Opens a record and idles inside it until it is cancelled.
struct RecordOwner : OrvaThread
{
    explicit RecordOwner(OrvaLogging& log) : OrvaThread("RecordOwner"), m_rLog(log) {}
    using OrvaThread::run;
    int run() override
    {
        m_rLog << setloglevel("owner", 4) << "written by the watchdog #" << 1;
        m_bInRecord = true;
        for (;;)
            sleep(1);
    }

    OrvaLogging& m_rLog;
    std::atomic<bool> m_bInRecord{false};
};

} // namespace

// A cancelled thread's record stays open until the watchdog, a minute later,
// finds the lock free and writes it out; at level 9 its note follows.
TEST(OrvaLoggingSlow, WatchdogWritesOutRecordOfCancelledOwner)
{
    LogTest::FileLog f(9);
    OrvaLogging::setInstance(f.log);
    RecordOwner owner(f.log);
    owner.start();
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(150);
    while (!owner.m_bInRecord && std::chrono::steady_clock::now() < deadline)
        usleep(10 * 1000);
    ASSERT_TRUE(owner.m_bInRecord);
    owner.kill(); // cancellation gives the log lock back; the record stays open
    EXPECT_TRUE(f.lines().empty());

    while (f.lines().size() < 2 && std::chrono::steady_clock::now() < deadline)
        usleep(100 * 1000);
    ASSERT_EQ(2u, f.lines().size());
    EXPECT_NE(std::string::npos, f.lines()[0].find(" 4 owner      [")) << f.lines()[0];
    f.log << "after" << endrecord; // the log is free for everyone again
    EXPECT_EQ(
        (std::vector<std::string>{"written by the watchdog #1",
                                  "OrvaLogging::timerElapsed: called (NOTE: This message only appears and "
                                  "repeats when LogLevel = 9)",
                                  "after"}),
        f.lines(true));
}
