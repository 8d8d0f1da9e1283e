#include <ovkit/OrvaLockFactory.h>

#include <ovkit/OrvaException.h>

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

using namespace OrvaSupport;

namespace
{

// Exclusive use of each kind of lock, the same calls for all three.
void take(OrvaCriticalSectionObject& lock)
{
    lock.lock();
}
void give(OrvaCriticalSectionObject& lock)
{
    lock.unlock();
}
bool tryTake(OrvaCriticalSectionObject& lock)
{
    return lock.testAndSet();
}
void take(OrvaReadWriteLock& lock)
{
    lock.writeLock();
}
void give(OrvaReadWriteLock& lock)
{
    lock.writeUnLock();
}
bool tryTake(OrvaReadWriteLock& lock)
{
    return lock.tryWriteLock();
}

// Whether another thread could take the lock now; it gives it back at once.
template <class L>
bool freeForOthers(L& lock)
{
    bool taken = false;
    std::thread(
        [&]
        {
            taken = tryTake(lock);
            if (taken)
                give(lock);
        })
        .join();
    return taken;
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
    for (const char* name : {"c", "a", "b"})
        factory.createLock(name);
    TypeParam* a = &factory.get("a");
    factory.createLock("a"); // changes nothing
    EXPECT_EQ(a, &factory.get("a"));
    EXPECT_EQ((Names{"a", "b", "c"}), factory.getRegisteredLockNames());
    EXPECT_TRUE(factory.exists("b"));

    TypeParam* found = a;
    EXPECT_FALSE(factory.getImpl("z", found));
    EXPECT_EQ(a, found); // a miss leaves the pointer alone
    EXPECT_TRUE(factory.getImpl("c", found));
    EXPECT_EQ(&factory.get("c"), found);
    try
    {
        factory.get("z");
        ADD_FAILURE() << "no exception";
    }
    catch (OrvaNoSuchElementException& e)
    {
        EXPECT_EQ("OrvaNoSuchElementException - z", e.getText());
    }

    // Two names, two locks.
    take(*a);
    EXPECT_FALSE(freeForOthers(*a));
    EXPECT_TRUE(freeForOthers(factory.get("b")));
    give(*a);
}

TYPED_TEST(OrvaLockFactoryTest, CopiesAndAssignmentShareUsedLocks)
{
    OrvaLockFactory<std::string, TypeParam> source;
    source.createLock("a");
    take(source.get("a")); // opens a critical section
    give(source.get("a"));

    OrvaLockFactory<std::string, TypeParam> copy(source);
    OrvaLockFactory<std::string, TypeParam> assigned;
    assigned.createLock("other");
    assigned = source;
    const auto& self = assigned;
    assigned = self; // nothing happens
    EXPECT_EQ(Names{"a"}, assigned.getRegisteredLockNames());

    take(source.get("a"));
    EXPECT_FALSE(freeForOthers(copy.get("a")));
    EXPECT_FALSE(freeForOthers(assigned.get("a")));
    give(source.get("a"));
    EXPECT_TRUE(freeForOthers(copy.get("a")));
}

TEST(OrvaLockFactoryTest, UnusedCriticalSectionsCopyAsFreshLocks)
{
    OrvaLockFactory<std::string, OrvaCriticalSectionObject> source;
    source.createLock("a");
    OrvaLockFactory<std::string, OrvaCriticalSectionObject> copy(source);
    source.get("a").lock();
    EXPECT_TRUE(freeForOthers(copy.get("a")));
    source.get("a").unlock();
}
