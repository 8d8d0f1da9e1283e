#include <ovkit/OrvaLogging.h>
#include <ovkit/OrvaObjectStream.h>
#include <ovkit/OrvaProperties.h>
#include <ovkit/OrvaThread.h>

#include "support/LogTestHelpers.h"
#include "support/ThreadTestHelpers.h"

#include <gtest/gtest.h>

#include <fstream>

using namespace OrvaSupport;
using ovkit_test::killLoop;
using ovkit_test::runInChild;

namespace
{

// A fresh level of `lock` for this thread, given back at once.
std::string takeFreeLock(OrvaCriticalSectionObject& lock, const char* name)
{
    if (!lock.testAndSet())
        return std::string(name) + " stayed held (depth " + std::to_string(lock.lockCount()) + ")";
    const int depth = lock.lockCount();
    lock.unlock();
    return depth == 1 ? "" : std::string(name) + " taken at depth " + std::to_string(depth);
}

long virtualSize()
{
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * sysconf(_SC_PAGESIZE);
}

OrvaCriticalSectionObject s_oShared;

} // namespace

TEST(OrvaThreadStressTest, KilledLockUsersLeaveTheLockFree)
{
    auto lockAndUnlock = []
    {
        s_oShared.lock();
        s_oShared.unlock();
    };
    auto guarded = [] { OrvaCriticalSection guard(s_oShared, true); };
    auto lockFree = [](int) { return takeFreeLock(s_oShared, "the lock"); };
    EXPECT_TRUE(runInChild(30, [&] { return killLoop(lockAndUnlock, lockFree); }));
    EXPECT_TRUE(runInChild(30, [&] { return killLoop(guarded, lockFree); }));
}

TEST(OrvaThreadStressTest, KilledSmartPointerCopiesLeaveTheCountsUsable)
{
    auto copies = []
    {
        OrvaSmartPointer<OrvaObjectBase> shared(new OrvaObjectBase);
        auto step = [&shared] { OrvaSmartPointer<OrvaObjectBase> copy(shared); };
        auto check = [&](int)
        {
            std::string failure = takeFreeLock(*g_pCriticalSection, "the count lock");
            const int before = shared->refCount();
            const int during = OrvaSmartPointer<OrvaObjectBase>(shared)->refCount();
            if (before < 1 || during != before + 1 || shared->refCount() != before)
                failure += " count " + std::to_string(before) + " is out of step";
            return failure;
        };
        return killLoop(step, check);
    };
    EXPECT_TRUE(runInChild(30, copies));
}

TEST(OrvaThreadStressTest, KilledStreamUserLeavesTheStreamUsable)
{
    auto streams = []
    {
        OrvaBufferStream stream;
        auto step = [&stream]
        {
            int value = 7;
            stream.write(&value, sizeof(value), 1);
            stream.read(&value, sizeof(value), 1);
        };
        // A lock left held would hang the check; the child's time limit reports it.
        auto check = [&](int i)
        {
            stream.reset();
            int value = i, back = -1;
            stream.write(&value, sizeof(value), 1);
            stream.read(&back, sizeof(back), 1);
            return back == i ? "" : "read back " + std::to_string(back);
        };
        return killLoop(step, check);
    };
    EXPECT_TRUE(runInChild(30, streams));
}

TEST(OrvaThreadStressTest, KilledPropertyWriterLeavesTheTableUsable)
{
    auto writes = []
    {
        OrvaProperties<std::string> table(false);
        const std::string value(64, 'v');
        // The victim's name and value are built once, outside its loop; each
        // round allocates the entry and frees it again.
        auto step = [&table, name = std::string("victim"), value]
        {
            table.setProperty(name, value);
            table.removeProperty(name);
        };
        auto check = [&](int i)
        {
            table.setProperty("main", std::to_string(i));
            std::string left;
            if (table.getProperty("main") != std::to_string(i))
                return "the table lost a value";
            return table.getPropertyValue("victim", left) && left != value ? "a damaged value was left" : "";
        };
        return killLoop(step, check);
    };
    EXPECT_TRUE(runInChild(30, writes));
}

TEST(OrvaThreadStressTest, KilledLogWriterLeavesTheLogWorking)
{
    ovkit_test::FileLog file(9); // made here, so that its directory goes even when the child dies
    auto records = [&]
    {
        OrvaLogging::setInstance(file.log);
        int kills = 0;
        // The level is set by call rather than by the manipulator: a frame
        // that holds the manipulator's temporary cannot be unwound between
        // its calls (see OrvaLogging.h).
        auto step = [&file]
        {
            file.log.setCurrentLevel(1);
            file.log << "text" << 42 << endrecord;
        };
        auto check = [&](int i)
        {
            file.log << setloglevel(1) << "main " << i << endrecord;
            kills = i + 1;
            return "";
        };
        std::string failure = killLoop(step, check);
        // Every record of the main thread made it to the file, on a line of its own.
        int written = 0;
        for (const std::string& line : file.lines())
            written += line.find("main ") != std::string::npos;
        if (failure.empty() && written != kills)
            failure = std::to_string(written) + " records of the main thread written for " +
                      std::to_string(kills) + " kills";
        return failure;
    };
    EXPECT_TRUE(runInChild(30, records));
}

TEST(OrvaThreadStressTest, EndedThreadsDoNotKeepTheirStacks)
{
    static std::atomic<pid_t> s_nQuickTid{0};
    struct Quick : OrvaThread
    {
        int run() override
        {
            s_nQuickTid = ovkit_test::currentTid();
            return 7;
        }
    };
    // A thread that is never joined keeps its stack mapping, 8 MB by default.
    const long limit = 400L << 20;
    long before = virtualSize();
    for (int i = 0; i < 300; ++i)
    {
        Quick thread;
        thread.start();
        // The thread has left before its owner waits.
        ASSERT_TRUE(ovkit_test::waitFor([&] { return thread.getExitCode() == 7; }, 10));
        ASSERT_TRUE(ovkit_test::threadGone(s_nQuickTid));
    }
    EXPECT_LT(virtualSize() - before, limit) << "threads that ended before their owner waited";

    // Plain OrvaThread objects here: a subclass would be taken apart while
    // its thread may still be about to call its run().
    before = virtualSize();
    for (int i = 0; i < 300; ++i)
        OrvaThread().start();
    EXPECT_LT(virtualSize() - before, limit) << "threads destroyed right after start()";
}
