#include <ovkit/OrvaCriticalSection.h>
#include <ovkit/OrvaObjectBase.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

using namespace OrvaSupport;

namespace
{

struct Counted : OrvaObjectBase
{
    explicit Counted(int* deaths = nullptr) : m_pDeaths(deaths) {}
    ~Counted() override
    {
        if (m_pDeaths)
            ++*m_pDeaths;
    }
    int* m_pDeaths;
};

class GlobalNamespaceClass : public OrvaObjectBase
{
};

} // namespace

namespace Outer
{
class Inner : public OrvaObjectBase
{
};
} // namespace Outer

TEST(OrvaObjectBase, CopiesAndAssignmentsForgetReferences)
{
    int deaths = 0;
    OrvaSmartPointer<Counted> held(new Counted(&deaths));
    held->addRef();
    ASSERT_EQ(2, held->refCount());

    Counted copy(*held);
    EXPECT_EQ(0, copy.refCount());

    Counted target;
    target.addRef();
    target = *held;
    EXPECT_EQ(0, target.refCount());

    Counted& same = *held;
    *held = same;
    EXPECT_EQ(2, held->refCount());

    EXPECT_EQ(1, held->release());
    EXPECT_EQ(0, deaths);

    // A release at count 0 gives -1 and deletes nothing.
    EXPECT_EQ(-1, copy.release());
    EXPECT_EQ(0, deaths);
}

TEST(OrvaSmartPointer, LastReferenceDeletesAndOrderIsNone)
{
    int deaths = 0;
    {
        OrvaSmartPointer<Counted> a(new Counted(&deaths));
        OrvaSmartPointer<Counted> b(a);
        OrvaSmartPointer<Counted> empty;
        EXPECT_EQ(2, a->refCount());
        EXPECT_TRUE(a == b);
        EXPECT_FALSE(a == empty);

        OrvaSmartPointer<Counted>& alias = a;
        a = alias;
        a = b;
        a = static_cast<Counted*>(b);
        EXPECT_EQ(2, a->refCount());

        EXPECT_FALSE(a < b);
        EXPECT_FALSE(b < a);
        EXPECT_FALSE(a < empty);
        EXPECT_FALSE(empty < a);

        b = nullptr;
        EXPECT_EQ(1, a->refCount());
        EXPECT_EQ(0, deaths);
    }
    EXPECT_EQ(1, deaths);
}

TEST(OrvaSmartPointer, AssignmentReleasesFirstAndGetOwnershipHandsOver)
{
    int deaths = 0;
    OrvaSmartPointer<Counted> a(new Counted(&deaths));
    Counted* second = new Counted(&deaths);
    OrvaSmartPointer<Counted> b(second);
    a = b;
    EXPECT_EQ(1, deaths);
    EXPECT_EQ(2, second->refCount());

    Counted* raw = a.getOwnership();
    EXPECT_EQ(nullptr, static_cast<Counted*>(a));
    b = nullptr;
    EXPECT_EQ(1, deaths); // the reference taken over keeps it alive
    EXPECT_EQ(1, raw->refCount());
    raw->release();
    EXPECT_EQ(2, deaths);
}

TEST(OrvaObjectBase, ClassNamesFollowTheNameScheme)
{
    struct Case
    {
        const char* raw;
        const char* normalized;
    };
    const Case cases[] = {
        {"Q211OrvaSupport10OrvaThread", "OrvaSupport::OrvaThread"},
        {"Q_2_11OrvaSupport10OrvaThread", "OrvaSupport::OrvaThread"},
        {"Q31A1B1C", "A::B::C"},
        {"N11OrvaSupport10OrvaThreadE", "OrvaSupport10OrvaThreadE"},
        {"18LockImplementation", "LockImplementation"},
        {"3Foo", "Foo"},
        {"Q3Foo", "Foo"},
        {"x", ""},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.normalized, OrvaObjectBase::normalizeClassName(c.raw)) << c.raw;

    EXPECT_THROW(OrvaObjectBase::normalizeClassName(""), std::out_of_range);
    EXPECT_THROW(OrvaObjectBase::normalizeClassName("Q29Short"), std::out_of_range);
}

TEST(OrvaObjectBase, GetClassNameAndIsAUseTheDynamicType)
{
    LockImplementation lock;
    EXPECT_EQ("LockImplementation", lock.getClassName());
    EXPECT_TRUE(lock.isA("LockImplementation"));
    EXPECT_FALSE(lock.isA("LockBase"));
    EXPECT_FALSE(lock.isA("lockimplementation"));

    Outer::Inner inner;
    EXPECT_EQ("Outer5InnerE", inner.getClassName());
    OrvaObjectBase& base = inner;
    EXPECT_TRUE(base.isA("Outer5InnerE"));
    EXPECT_FALSE(base.isA("OrvaSupport14OrvaObjectBaseE"));

    OrvaObjectBase root;
    EXPECT_EQ("OrvaSupport14OrvaObjectBaseE", root.getClassName());
}

TEST(OrvaObjectBase, LastReleaseRunsTheDestructorOutsideTheGlobalSection)
{
    struct Probe : OrvaObjectBase
    {
        ~Probe() override
        {
            // Another thread must be able to take the global section now.
            std::thread other(
                [this]
                {
                    m_bOtherGotSection = g_pCriticalSection->testAndSet();
                    if (m_bOtherGotSection)
                        g_pCriticalSection->unlock();
                });
            other.join();
            *m_pResult = m_bOtherGotSection;
        }
        bool m_bOtherGotSection = false;
        bool* m_pResult = nullptr;
    };
    bool otherGotSection = false;
    Probe* probe = new Probe;
    probe->m_pResult = &otherGotSection;
    OrvaSmartPointer<Probe> p(probe);
    p = nullptr;
    EXPECT_TRUE(otherGotSection);
}

TEST(OrvaSmartPointer, ComparesWithRawPointersAndNull)
{
    OrvaSmartPointer<OrvaObjectBase> empty;
    OrvaObjectBase* object = new OrvaObjectBase;
    OrvaSmartPointer<OrvaObjectBase> p(object);
    EXPECT_TRUE(empty == nullptr);
    EXPECT_TRUE(p == object);
    EXPECT_FALSE(p == nullptr);
    EXPECT_FALSE(empty == object);
}
