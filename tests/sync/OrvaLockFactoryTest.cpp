#include <ovkit/OrvaLockFactory.h>

#include <ovkit/OrvaException.h>

#include "support/ThreadTestHelpers.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <vector>

using namespace OrvaSupport;

namespace
{

// Exclusive use of the three kinds of lock through the same calls; take()
// does not wait.
struct Exclusive
{
    static bool take(OrvaCriticalSectionObject& lock) { return lock.testAndSet(); }
    static void give(OrvaCriticalSectionObject& lock) { lock.unlock(); }
    static bool take(OrvaReadWriteLock& lock) { return lock.tryWriteLock(); }
    static void give(OrvaReadWriteLock& lock) { lock.writeUnLock(); }
};

// Whether another thread could take the lock now; it gives it back at once.
template <class L>
bool freeForOthers(L& lock)
{
    return ovkit_test::onOtherThread([&] { return Exclusive::take(lock) && (Exclusive::give(lock), true); });
}

typedef std::vector<std::string> Names;

} // namespace

template <class L>
class OrvaLockFactoryTest : public ::testing::Test
{
};

typedef ::testing::Types<OrvaCriticalSectionObject, OrvaMutexObject, OrvaReadWriteLock> LockTypes;
TYPED_TEST_SUITE(OrvaLockFactoryTest, LockTypes);

TYPED_TEST(OrvaLockFactoryTest, NamesIdentityAndMisses)
{
    OrvaLockFactory<std::string, TypeParam> factory;
    EXPECT_FALSE(factory.exists("a"));
    for (const char* name : {"c", "a", "b", "a"})
        factory.createLock(name);
    EXPECT_EQ((Names{"a", "b", "c"}), factory.getRegisteredLockNames());
    EXPECT_TRUE(factory.exists("b"));
    TypeParam* a = &factory.get("a");
    factory.createLock("a"); // changes nothing
    EXPECT_EQ(a, &factory.get("a"));

    TypeParam* found = a;
    EXPECT_FALSE(factory.getImpl("z", found));
    EXPECT_EQ(a, found); // a miss leaves the pointer alone
    try
    {
        factory.get("z");
        ADD_FAILURE() << "no exception";
    }
    catch (OrvaNoSuchElementException& e)
    {
        EXPECT_EQ("OrvaNoSuchElementException - z", e.getText());
    }

    ASSERT_TRUE(Exclusive::take(*a)); // two names, two locks
    EXPECT_FALSE(freeForOthers(*a));
    EXPECT_TRUE(freeForOthers(factory.get("b")));
    Exclusive::give(*a);
}

TYPED_TEST(OrvaLockFactoryTest, CopiesFollowTheLocksCopyRule)
{
    OrvaLockFactory<std::string, TypeParam> source;
    source.createLock("used");
    source.createLock("unused");
    ASSERT_TRUE(Exclusive::take(source.get("used"))); // opens a critical section
    Exclusive::give(source.get("used"));
    OrvaLockFactory<std::string, TypeParam> copy(source), assigned;
    assigned.createLock("other");
    assigned = source;
    EXPECT_EQ((Names{"unused", "used"}), assigned.getRegisteredLockNames());

    ASSERT_TRUE(Exclusive::take(source.get("used")) && Exclusive::take(source.get("unused")));
    EXPECT_FALSE(freeForOthers(copy.get("used")));
    EXPECT_FALSE(freeForOthers(assigned.get("used")));
    // An unused critical section copies as a fresh lock; a read/write lock is always shared.
    EXPECT_EQ((!std::is_same<TypeParam, OrvaReadWriteLock>::value), freeForOthers(copy.get("unused")));
    Exclusive::give(source.get("used"));
    Exclusive::give(source.get("unused"));
    EXPECT_TRUE(freeForOthers(copy.get("used")));
}
