#include <ovkit/OrvaCriticalSection.h>
#include <ovkit/OrvaModule.h>

#include <gtest/gtest.h>

#include <string>

using namespace OrvaSupport;

namespace
{

std::string s_sJournal; // "+A" for each attach of A, "-A" for each detach

struct ClientModule : ModuleData
{
    explicit ClientModule(char name) : ModuleData(false), m_cName(name) {}
    void attach() override { s_sJournal += std::string("+") + m_cName; }
    void detach() override { s_sJournal += std::string("-") + m_cName; }
    char m_cName;
};

} // namespace

TEST(OrvaModuleTest, LibraryIsOldestAndClientsAttachOldestFirstAndDetachNewestFirst)
{
    // The library attached itself once, at load; a control only counts.
    EXPECT_EQ(1, g_ModuleData.useCount());
    EXPECT_TRUE(g_ModuleData.autoAttach());
    OrvaCriticalSectionObject* const section = g_pCriticalSection;
    ASSERT_NE(nullptr, section);
    {
        ModuleDataControl control;
        EXPECT_EQ(2, g_ModuleData.useCount());
    }
    EXPECT_EQ(1, g_ModuleData.useCount());
    EXPECT_EQ(section, g_pCriticalSection); // not attached again

    s_sJournal.clear();
    {
        ClientModule a('A');
        ClientModule b('B');
        EXPECT_EQ(&b, ModuleData::head());
        EXPECT_EQ(&a, b.next());
        EXPECT_EQ(&b, a.previous());
        EXPECT_EQ(&g_ModuleData, a.next()); // the library's record is the oldest
        EXPECT_EQ(nullptr, g_ModuleData.next());

        ModuleData::entry();
        ModuleData::entry();
        EXPECT_EQ("+A+B", s_sJournal);
        EXPECT_EQ(3, g_ModuleData.useCount());
        EXPECT_EQ(2, a.useCount());
        ModuleData::exit();
        EXPECT_EQ("+A+B", s_sJournal);
        {
            ClientModule c('C'); // never entered: skipped, and stays at 0
            ModuleData::exit();
            EXPECT_EQ("+A+B-B-A", s_sJournal);
            EXPECT_EQ(0, c.useCount());
            EXPECT_EQ(0, a.useCount());
            EXPECT_EQ(1, g_ModuleData.useCount());
        }
    }
    // Destroyed newest first: the list is back to what it was.
    EXPECT_EQ(&g_ModuleData, ModuleData::head());
    EXPECT_EQ(nullptr, g_ModuleData.previous());
}

TEST(OrvaModuleTest, ObjectBaseInitAndFinitPair)
{
    OVKITFinitOrvaObjectBase();
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
