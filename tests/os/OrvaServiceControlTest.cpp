#include <ovkit/OrvaServiceControl.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>

using namespace OrvaSupport;

TEST(OrvaServiceControlTest, EveryOperationThrowsNinetyNineEvenForAnEmptyName)
{
    std::unique_ptr<OrvaServiceControl> c(OrvaServiceControl::CreateOrvaServiceControl(""));
    const std::function<void()> operations[] = {
        [&] { c->StartService(); },        [&] { c->StopService(); },
        [&] { c->RestartService(); },      [&] { c->GetServiceStatus(); },
        [&] { c->GetServiceStartType(); }, [&] { c->IsServiceInstalled(); },
        [&] { c->SetServiceStartType(0); }};
    for (const auto& operation : operations)
    {
        try
        {
            operation();
            ADD_FAILURE() << "returned";
        }
        catch (const OrvaServiceControlException& e)
        {
            EXPECT_EQ(e.m_nCode, 99);
            EXPECT_EQ(e.m_nDetail, 0);
        }
    }
}
