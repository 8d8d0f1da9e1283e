#include <ovkit/OrvaServiceControl.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <vector>

using namespace OrvaSupport;

TEST(OrvaServiceControlTest, EveryOperationThrowsNinetyNineForAnyName)
{
    for (const char* name : {"", "agent", "no such service"})
    {
        std::unique_ptr<OrvaServiceControl> control(OrvaServiceControl::CreateOrvaServiceControl(name));
        ASSERT_NE(dynamic_cast<OrvaServiceControlLin*>(control.get()), nullptr);
        OrvaServiceControl& c = *control;
        const std::vector<std::function<void()>> operations = {
            [&] { c.StartService(); },           [&] { c.StopService(); },
            [&] { c.RestartService(); },         [&] { c.GetServiceStatus(); },
            [&] { c.GetServiceStartType(); },    [&] { c.SetServiceStartType(0); },
            [&] { c.SetServiceStartType(~0u); }, [&] { c.IsServiceInstalled(); }};
        for (std::size_t i = 0; i < operations.size(); ++i)
        {
            try
            {
                operations[i]();
                ADD_FAILURE() << "operation " << i << " returned for \"" << name << "\"";
            }
            catch (const OrvaServiceControlException& e)
            {
                EXPECT_EQ(e.m_nCode, 99) << i;
                EXPECT_EQ(e.m_nDetail, 0) << i;
            }
        }
    }
}
