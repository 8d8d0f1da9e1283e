#include <ovkit/OrvaReadWriteLock.h>

#include "support/LogTestHelpers.h"
#include "support/ThreadTestHelpers.h"

#include <gtest/gtest.h>

#include <memory>

using namespace OrvaSupport;

namespace
{

// Whether another thread can take the lock now; it gives it back at once
// (either unlock releases either kind).
bool otherCanTake(OrvaReadWriteLock& lock, bool exclusive)
{
    return ovkit_test::onOtherThread(
        [&] { return (exclusive ? lock.tryWriteLock() : lock.tryReadLock()) && (lock.readUnLock(), true); });
}

} // namespace

TEST(OrvaReadWriteLock, CopiesShareOneLock)
{
    auto source = std::make_unique<OrvaReadWriteLock>();
    OrvaReadWriteLock copy(*source);
    copy.readLock();
    EXPECT_FALSE(otherCanTake(*source, true));
    EXPECT_TRUE(otherCanTake(*source, false)); // readers share
    copy.readUnLock();

    source.reset(); // the lock lives on in its last handle
    copy.writeLock();
    EXPECT_FALSE(otherCanTake(copy, false));
    copy.writeUnLock();
    EXPECT_TRUE(otherCanTake(copy, true));
}

TEST(OrvaReadWriteLock, SelfDeadlockIsLoggedAndIgnored)
{
    ovkit_test::FileLog f(1);
    OrvaLogging::setInstance(f.log);
    OrvaReadWriteLock lock;
    lock.writeLock();
    lock.writeLock();                  // refused by the system, logged, and the call returns
    lock.readLock();                   // likewise
    EXPECT_FALSE(lock.tryWriteLock()); // the try forms log nothing
    EXPECT_FALSE(lock.tryReadLock());
    lock.writeUnLock(); // one release frees it
    EXPECT_TRUE(otherCanTake(lock, true));

    EXPECT_EQ((std::vector<std::string>{
                  "OrvaReadWriteLock::writeLock: Acquiring Writelock exited with the following error3",
                  "OrvaReadWriteLock::readLock: Acquiring Readlock exited with the following error 3"}),
              f.lines(true));
}
