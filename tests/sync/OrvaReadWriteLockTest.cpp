#include <ovkit/OrvaReadWriteLock.h>

#include "support/LogTestHelpers.h"
#include "support/ThreadTestHelpers.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace OrvaSupport;
using ovkit_test::BodyThread;
using ovkit_test::waitUntil;

namespace
{

// Each try runs on a thread of its own, so that the caller's own hold does
// not decide the answer; whatever it takes is given back.
bool otherCanRead(OrvaReadWriteLock& lock)
{
    bool taken = false;
    std::thread([&] { taken = lock.tryReadLock() && (lock.readUnLock(), true); }).join();
    return taken;
}

bool otherCanWrite(OrvaReadWriteLock& lock)
{
    bool taken = false;
    std::thread([&] { taken = lock.tryWriteLock() && (lock.writeUnLock(), true); }).join();
    return taken;
}

} // namespace

TEST(OrvaReadWriteLock, CopiesShareOneLock)
{
    auto source = std::make_unique<OrvaReadWriteLock>();
    OrvaReadWriteLock copy(*source);

    copy.readLock();
    EXPECT_FALSE(otherCanWrite(*source));
    EXPECT_TRUE(otherCanRead(*source)); // readers share
    EXPECT_TRUE(source->tryReadLock());
    source->readUnLock();

    // A writer through the source waits for the reader of the copy.
    std::atomic<bool> written{false};
    {
        BodyThread writer(
            [&]
            {
                source->writeLock();
                written = true;
                source->writeUnLock();
            });
        ASSERT_TRUE(writer.sleeping());
        EXPECT_FALSE(written);
        copy.readUnLock();
    }
    EXPECT_TRUE(written);

    // The lock lives on in its last handle.
    source.reset();
    copy.writeLock();
    EXPECT_FALSE(otherCanRead(copy));
    EXPECT_FALSE(otherCanWrite(copy));
    copy.writeUnLock();
    EXPECT_TRUE(otherCanWrite(copy));
}

TEST(OrvaReadWriteLock, SelfDeadlockIsLoggedAndIgnored)
{
    LogTest::FileLog f(1);
    OrvaLogging::setInstance(f.log);
    OrvaReadWriteLock lock;

    lock.writeLock();
    lock.writeLock();                  // refused by the system, logged, and the call returns
    lock.readLock();                   // likewise
    EXPECT_FALSE(lock.tryWriteLock()); // the try forms log nothing
    EXPECT_FALSE(lock.tryReadLock());
    lock.writeUnLock(); // one release frees it
    EXPECT_TRUE(otherCanWrite(lock));

    const std::vector<std::string> expected = {
        "OrvaReadWriteLock::writeLock: Acquiring Writelock exited with the following error3",
        "OrvaReadWriteLock::readLock: Acquiring Readlock exited with the following error 3",
    };
    EXPECT_EQ(expected, f.lines(true));
}
