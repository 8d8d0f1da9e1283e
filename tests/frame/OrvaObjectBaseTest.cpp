#include <ovkit/OrvaCriticalSection.h>
#include <ovkit/OrvaObjectBase.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

using namespace OrvaSupport;

namespace
{

// Counts its deaths, but only those outside the global section: another
// thread must be able to take it while the destructor runs.
struct Counted : OrvaObjectBase
{
    explicit Counted(int* deaths = nullptr) : m_pDeaths(deaths) {}
    ~Counted() override
    {
        bool outside = false;
        std::thread(
            [&]
            {
                if ((outside = g_pCriticalSection->testAndSet()))
                    g_pCriticalSection->unlock();
            })
            .join();
        if (m_pDeaths && outside)
            ++*m_pDeaths;
    }
    int* m_pDeaths;
};

} // namespace

namespace Outer
{
class Inner : public OrvaObjectBase
{
};
} // namespace Outer

TEST(OrvaObjectBaseTest, CopiesAndAssignmentsForgetReferences)
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

TEST(OrvaObjectBaseTest, SmartPointerCountsComparesAndHandsOverAndDeletesOutsideTheSection)
{
    int deaths = 0;
    Counted* first = new Counted(&deaths);
    Counted* second = new Counted(&deaths);
    OrvaSmartPointer<Counted> a(first);
    OrvaSmartPointer<Counted> b(second);
    OrvaSmartPointer<Counted> empty;
    a = b; // the old object goes first
    EXPECT_EQ(1, deaths);
    OrvaSmartPointer<Counted> c(a);
    EXPECT_EQ(3, second->refCount());
    EXPECT_TRUE(a == c && a == second && empty == nullptr);
    EXPECT_FALSE(a == empty || a == nullptr || empty == second);
    EXPECT_FALSE(a < c || c < a || a < empty || empty < a); // no order at all

    OrvaSmartPointer<Counted>& alias = a;
    a = alias;
    a = c;
    a = static_cast<Counted*>(c);
    EXPECT_EQ(3, second->refCount());

    Counted* raw = a.getOwnership();
    EXPECT_EQ(nullptr, static_cast<Counted*>(a));
    b = nullptr;
    c = nullptr;
    EXPECT_EQ(1, deaths); // the reference taken over keeps it alive
    EXPECT_EQ(1, raw->refCount());
    {
        OrvaSmartPointer<Counted> last(raw);
        raw->release();
    }
    EXPECT_EQ(2, deaths); // the last pointer's destructor deletes
}

TEST(OrvaObjectBaseTest, ClassNamesFollowTheNameSchemeOfTheDynamicType)
{
    // A mangled name, and what normalizeClassName makes of it.
    const char* const cases[][2] = {
        {"Q211OrvaSupport10OrvaThread", "OrvaSupport::OrvaThread"},
        {"Q_2_11OrvaSupport10OrvaThread", "OrvaSupport::OrvaThread"},
        {"Q31A1B1C", "A::B::C"},
        {"N11OrvaSupport10OrvaThreadE", "OrvaSupport10OrvaThreadE"},
        {"18LockImplementation", "LockImplementation"},
        {"3Foo", "Foo"},
        {"Q3Foo", "Foo"},
        {"x", ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c[1], OrvaObjectBase::normalizeClassName(c[0])) << c[0];

    EXPECT_THROW(OrvaObjectBase::normalizeClassName(""), std::out_of_range);
    EXPECT_THROW(OrvaObjectBase::normalizeClassName("Q29Short"), std::out_of_range);

    // getClassName and isA take the dynamic type.
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
