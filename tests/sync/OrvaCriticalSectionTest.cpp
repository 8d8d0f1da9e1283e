#include <ovkit/OrvaCriticalSection.h>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

using namespace OrvaSupport;

namespace
{

// The calling thread's held list, newest first, as lock counts.
std::vector<int> heldDepths()
{
    std::vector<int> depths;
    auto* entry = static_cast<LockImplementation*>(pthread_getspecific(LockThreadStorage::m_mutexListKey));
    for (LockImplementation* previous = nullptr; entry; previous = entry, entry = entry->m_pNextHeld)
    {
        EXPECT_EQ(previous, entry->m_pPrevHeld);
        depths.push_back(entry->m_nLockCount);
    }
    return depths;
}

bool tryFromOtherThread(OrvaCriticalSectionObject& lock)
{
    bool taken = false;
    std::thread(
        [&]
        {
            if ((taken = lock.testAndSet()))
                lock.unlock();
        })
        .join();
    return taken;
}

} // namespace

TEST(OrvaCriticalSectionTest, OwnerCountsLevelsAndOnlyTheOwnerGivesThemBack)
{
    OrvaCriticalSectionObject lock;
    EXPECT_TRUE(lock.testAndSet());
    lock.lock();
    lock.lock();
    lock.unlock();
    EXPECT_EQ(2, lock.lockCount());
    std::thread(
        [&]
        {
            EXPECT_FALSE(lock.testAndSet());
            lock.unlock(); // not the owner: ignored
        })
        .join();
    EXPECT_EQ(2, lock.lockCount());
    lock.unlock();
    EXPECT_FALSE(tryFromOtherThread(lock));
    lock.unlock();
    EXPECT_TRUE(tryFromOtherThread(lock));
    lock.unlock(); // free: ignored
    EXPECT_EQ(0, lock.lockCount());

    lock.lock();
    lock.lock();
    lock.lock();
    lock.unwind();
    EXPECT_EQ(0, lock.lockCount());
    EXPECT_TRUE(heldDepths().empty());
    EXPECT_TRUE(tryFromOtherThread(lock));
    lock.unwind(); // free: nothing happens
    OrvaCriticalSectionObject unopened;
    unopened.unlock();
    EXPECT_TRUE(tryFromOtherThread(unopened));

    OrvaMutexObject mutex;
    {
        OrvaCriticalSection guard(mutex, true);
        OrvaCriticalSection inner(mutex, true);
        inner.unlock();
        inner.unlock(); // a second early unlock does nothing
        EXPECT_EQ(1, mutex.lockCount());
        EXPECT_FALSE(tryFromOtherThread(mutex));
    }
    EXPECT_TRUE(tryFromOtherThread(mutex));
}

TEST(OrvaCriticalSectionTest, HeldListSurvivesOutOfOrderReleaseAndRecovery)
{
    OrvaCriticalSectionObject a, b, c;
    a.lock();
    b.lock();
    b.lock();
    c.lock();
    c.lock();
    c.lock();
    EXPECT_EQ((std::vector<int>{3, 2, 1}), heldDepths());

    a.unlock();
    EXPECT_EQ((std::vector<int>{3, 2}), heldDepths());
    c.unwind();
    EXPECT_EQ((std::vector<int>{2}), heldDepths());
    a.lock();
    EXPECT_EQ((std::vector<int>{1, 2}), heldDepths());

    // The clean-up routine gives back every level of every lock held.
    c.lock();
    OrvaCriticalSectionRecoverFn(nullptr);
    EXPECT_TRUE(heldDepths().empty());
    for (OrvaCriticalSectionObject* lock : {&a, &b, &c})
        EXPECT_TRUE(lock->lockCount() == 0 && tryFromOtherThread(*lock));
    OrvaCriticalSectionRecoverFn(nullptr); // holds nothing: nothing happens
    EXPECT_TRUE(heldDepths().empty());
}

TEST(OrvaCriticalSectionTest, CopiesShareOnlyAnOpenedLockWhichDiesReleasedWithItsLastHandle)
{
    OrvaCriticalSectionObject unopened;
    OrvaCriticalSectionObject independent(unopened);
    unopened.lock();
    EXPECT_EQ(0, independent.lockCount());
    EXPECT_TRUE(tryFromOtherThread(independent));

    OrvaCriticalSectionObject shared(unopened);
    EXPECT_EQ(1, shared.lockCount());
    EXPECT_FALSE(tryFromOtherThread(shared));
    shared.lock(); // same owner, same lock: one more level
    EXPECT_EQ(2, unopened.lockCount());

    OrvaCriticalSectionObject assigned;
    assigned.lock();
    assigned.unlock();
    assigned = unopened;
    EXPECT_EQ(2, assigned.lockCount());
    OrvaCriticalSectionObject& alias = assigned;
    assigned = alias;
    EXPECT_EQ(2, assigned.lockCount());
    unopened.unwind();
    EXPECT_EQ(0, shared.lockCount());
    EXPECT_TRUE(tryFromOtherThread(assigned));

    {
        OrvaCriticalSectionObject dying;
        dying.lock();
        dying.lock();
        EXPECT_EQ((std::vector<int>{2}), heldDepths());
    }
    EXPECT_TRUE(heldDepths().empty());
    auto* first = new OrvaCriticalSectionObject; // a copy keeps the lock alive, held
    first->lock();
    OrvaCriticalSectionObject survivor(*first);
    delete first;
    EXPECT_EQ(1, survivor.lockCount());
    survivor.unlock();
    EXPECT_TRUE(heldDepths().empty());
}

TEST(OrvaCriticalSectionTest, ExcludesOtherThreads)
{
    static OrvaCriticalSectionObject s_lock; // zero-filled static: opened on first use
    long counter = 0;
    auto work = [&]
    {
        for (int i = 0; i < 20000; ++i)
        {
            OrvaCriticalSection outer(s_lock, true);
            OrvaCriticalSection inner(s_lock, true);
            long seen = counter;
            counter = seen + 1;
        }
    };
    std::thread t1(work), t2(work), t3(work);
    t1.join();
    t2.join();
    t3.join();
    EXPECT_EQ(60000, counter);
}
