#include <ovkit/OrvaCriticalSection.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
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
    std::thread other(
        [&]
        {
            taken = lock.testAndSet();
            if (taken)
                lock.unlock();
        });
    other.join();
    return taken;
}

} // namespace

TEST(OrvaCriticalSection, RecursionAndUnwind)
{
    OrvaCriticalSectionObject lock;
    lock.lock();
    lock.lock();
    lock.unlock();
    EXPECT_EQ(1, lock.lockCount());
    EXPECT_FALSE(tryFromOtherThread(lock));
    lock.unlock();
    EXPECT_EQ(0, lock.lockCount());
    EXPECT_TRUE(tryFromOtherThread(lock));

    lock.lock();
    lock.lock();
    lock.lock();
    lock.unwind();
    EXPECT_EQ(0, lock.lockCount());
    EXPECT_TRUE(heldDepths().empty());
    EXPECT_TRUE(tryFromOtherThread(lock));
    lock.unwind(); // free: nothing happens
    EXPECT_EQ(0, lock.lockCount());
}

TEST(OrvaCriticalSection, TestAndSetAndForeignUnlock)
{
    OrvaCriticalSectionObject lock;
    EXPECT_TRUE(lock.testAndSet());
    EXPECT_TRUE(lock.testAndSet());
    EXPECT_EQ(2, lock.lockCount());

    std::thread other(
        [&]
        {
            EXPECT_FALSE(lock.testAndSet());
            lock.unlock(); // not the owner: ignored
            EXPECT_EQ(2, lock.lockCount());
        });
    other.join();
    EXPECT_EQ(2, lock.lockCount());
    lock.unwind();

    OrvaCriticalSectionObject freeLock;
    std::thread stranger([&] { freeLock.unlock(); });
    stranger.join();
    freeLock.unlock();
    EXPECT_EQ(0, freeLock.lockCount());
    EXPECT_TRUE(tryFromOtherThread(freeLock));
}

TEST(OrvaCriticalSection, HeldListSurvivesOutOfOrderRelease)
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
    b.unwind();
    a.unlock();
    EXPECT_TRUE(heldDepths().empty());
}

TEST(OrvaCriticalSection, CopiesShareOnlyAnOpenedLock)
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
}

TEST(OrvaCriticalSection, LastHandleReleasesAHeldLockBeforeDying)
{
    {
        OrvaCriticalSectionObject lock;
        lock.lock();
        lock.lock();
        EXPECT_EQ((std::vector<int>{2}), heldDepths());
    }
    EXPECT_TRUE(heldDepths().empty());

    // A copy keeps the lock alive, held, after the first handle dies.
    auto* first = new OrvaCriticalSectionObject;
    first->lock();
    OrvaCriticalSectionObject survivor(*first);
    delete first;
    EXPECT_EQ(1, survivor.lockCount());
    survivor.unlock();
    EXPECT_TRUE(heldDepths().empty());
}

TEST(OrvaCriticalSection, GuardGivesBackItsLevelEarlyOrAtScopeEnd)
{
    OrvaMutexObject lock;
    {
        OrvaCriticalSection guard(lock, true);
        OrvaCriticalSection inner(lock, true);
        inner.unlock();
        inner.unlock(); // a second early unlock does nothing
        EXPECT_EQ(1, lock.lockCount());
        EXPECT_FALSE(tryFromOtherThread(lock));
    }
    EXPECT_TRUE(tryFromOtherThread(lock));
}

TEST(OrvaCriticalSection, ExcludesOtherThreads)
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

namespace
{

struct CancelScene
{
    OrvaCriticalSectionObject a, b, c;
    std::atomic<bool> holding{false};
};

void* holdAndSpin(void* argument)
{
    auto* scene = static_cast<CancelScene*>(argument);
    pthread_setcanceltype(PTHREAD_CANCEL_ASYNCHRONOUS, nullptr);
    pthread_cleanup_push(OrvaCriticalSectionRecoverFn, nullptr);
    scene->a.lock();
    scene->b.lock();
    scene->b.lock();
    scene->c.lock();
    scene->holding = true;
    for (;;)
        pause(); // cancelled inside a call, as a blocked thread would be
    pthread_cleanup_pop(0);
    return nullptr;
}

} // namespace

TEST(OrvaCriticalSection, CancelledThreadGivesBackEveryLock)
{
    CancelScene scene;
    scene.a.init();
    scene.b.init();
    scene.c.init();
    pthread_t victim;
    ASSERT_EQ(0, pthread_create(&victim, nullptr, holdAndSpin, &scene));
    while (!scene.holding)
        std::this_thread::yield();

    std::atomic<int> proceeded{0};
    std::thread waiter(
        [&]
        {
            for (OrvaCriticalSectionObject* lock : {&scene.a, &scene.b, &scene.c})
            {
                OrvaCriticalSection guard(*lock, true);
                ++proceeded;
            }
        });
    pthread_cancel(victim);
    pthread_join(victim, nullptr);
    waiter.join();

    EXPECT_EQ(3, proceeded);
    EXPECT_EQ(0, scene.a.lockCount());
    EXPECT_EQ(0, scene.b.lockCount());
    EXPECT_EQ(0, scene.c.lockCount());

    OrvaCriticalSectionRecoverFn(nullptr); // holds nothing: nothing happens
    EXPECT_TRUE(heldDepths().empty());
}
