#include <ovkit/OrvaCriticalSection.h>
#include <ovkit/OrvaModule.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace OrvaSupport;

namespace
{

std::vector<std::string> s_journal;

class ClientModule : public ModuleData
{
public:
    explicit ClientModule(std::string name) : ModuleData(false), m_sName(std::move(name)) {}
    void attach() override { s_journal.push_back("attach " + m_sName); }
    void detach() override { s_journal.push_back("detach " + m_sName); }

private:
    std::string m_sName;
};

} // namespace

TEST(OrvaModuleTest, LibraryIsAttachedOnceAtLoadAndControlOnlyCounts)
{
    EXPECT_EQ(1, g_ModuleData.useCount());
    EXPECT_TRUE(g_ModuleData.autoAttach());
    OrvaCriticalSectionObject* before = g_pCriticalSection;
    ASSERT_NE(nullptr, before);
    ModuleData* tail = ModuleData::head(); // the library's record is the oldest on the list
    while (tail->next())
        tail = tail->next();
    EXPECT_EQ(&g_ModuleData, tail);
    {
        ModuleDataControl control;
        EXPECT_EQ(2, g_ModuleData.useCount());
        EXPECT_EQ(before, g_pCriticalSection); // not attached again
    }
    EXPECT_EQ(1, g_ModuleData.useCount());
    EXPECT_EQ(before, g_pCriticalSection);
}

TEST(OrvaModuleTest, ClientModulesAttachOldestFirstAndDetachNewestFirst)
{
    s_journal.clear();
    {
        ClientModule a("A");
        ClientModule b("B");
        EXPECT_EQ(&b, ModuleData::head());
        EXPECT_EQ(&a, b.next());
        EXPECT_EQ(&b, a.previous());
        EXPECT_TRUE(s_journal.empty());

        ModuleData::entry();
        EXPECT_EQ((std::vector<std::string>{"attach A", "attach B"}), s_journal);
        EXPECT_EQ(2, g_ModuleData.useCount());
        EXPECT_EQ(1, a.useCount());

        ModuleData::entry();
        EXPECT_EQ(2u, s_journal.size());
        EXPECT_EQ(2, b.useCount());

        ModuleData::exit();
        EXPECT_EQ(2u, s_journal.size());
        {
            // A record that was never entered is skipped and stays at 0.
            ClientModule c("C");
            ModuleData::exit();
            EXPECT_EQ((std::vector<std::string>{"attach A", "attach B", "detach B", "detach A"}), s_journal);
            EXPECT_EQ(0, c.useCount());
            EXPECT_EQ(0, a.useCount());
            EXPECT_EQ(1, g_ModuleData.useCount());
        }
    }
    // Destroyed newest first: the list is back to what it was.
    EXPECT_EQ(&g_ModuleData, ModuleData::head());
    EXPECT_EQ(nullptr, g_ModuleData.previous());
    EXPECT_EQ(1, g_ModuleData.useCount());
}

TEST(OrvaModuleTest, ObjectBaseInitAndFinitPair)
{
    OVKITFinitOrvaObjectBase();
    EXPECT_EQ(nullptr, g_pCriticalSection);
    OVKITFinitOrvaObjectBase();
    EXPECT_EQ(nullptr, g_pCriticalSection);

    OVKITInitOrvaObjectBase();
    OrvaCriticalSectionObject* created = g_pCriticalSection;
    ASSERT_NE(nullptr, created);
    OVKITInitOrvaObjectBase();
    EXPECT_EQ(created, g_pCriticalSection);

    OrvaSmartPointer<OrvaObjectBase> p(new OrvaObjectBase);
    EXPECT_EQ(1, p->refCount());
}
