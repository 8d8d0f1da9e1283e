#include <ovkit/OrvaLogging.h>

#include <ovkit/OrvaThread.h>

#include "support/LogTestHelpers.h"
#include "support/Processes.h"

#include <gtest/gtest.h>

#include <atomic>

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
TEST(OrvaLoggingSlowTest, WatchdogWritesOutRecordOfCancelledOwner)
{
    ovkit_test::FileLog f(9);
    OrvaLogging::setInstance(f.log);
    RecordOwner owner(f.log);
    owner.start();
    ASSERT_TRUE(ovkit_test::waitFor([&] { return owner.m_bInRecord.load(); }));
    owner.kill(); // cancellation gives the log lock back; the record stays open
    EXPECT_TRUE(f.lines().empty());

    ASSERT_TRUE(ovkit_test::waitFor([&] { return f.lines().size() >= 2; }, 150));
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
