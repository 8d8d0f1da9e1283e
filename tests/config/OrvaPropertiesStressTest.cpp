#include <ovkit/OrvaProperties.h>
#include <ovkit/OrvaThread.h>

#include "support/Processes.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <string>

using namespace OrvaSupport;

TEST(OrvaPropertiesStressTest, LoaderKilledInARead)
{
    // The loader stores the first line of a pipe, then waits in a read for
    // more. Killed there, it dies at once and leaves the line it stored and
    // the table's lock free. Run in a child, so that a hang fails the test.
    auto scenario = []() -> std::string
    {
        struct Loader : OrvaThread
        {
            OrvaProperties<std::string>* m_pTable = nullptr;
            std::string m_sPath;
            std::atomic<pid_t> m_nTid{0};
            int run() override
            {
                m_nTid = ovkit_test::currentTid();
                m_pTable->loadPropertiesImpl(m_sPath, '=');
                return 0;
            }
        };
        int ends[2];
        if (pipe(ends) != 0 || write(ends[1], "first=1\n", 8) != 8)
            return "no pipe";
        OrvaProperties<std::string> props;
        Loader loader;
        loader.m_pTable = &props;
        loader.m_sPath = "/proc/self/fd/" + std::to_string(ends[0]);
        loader.start();
        std::string value;
        if (!ovkit_test::waitFor([&] { return props.getPropertyValue("first", value); }, 10) ||
            !ovkit_test::waitFor([&] { return ovkit_test::taskState(loader.m_nTid) == 'S'; }, 10))
            return "the loader did not store the first line and wait";
        loader.kill();
        if (!ovkit_test::threadGone(loader.m_nTid))
            return "the killed loader lives on";
        props.setProperty("second", "2"); // takes the table's lock
        return props.getProperty("first") == "1" && props.getProperty("second") == "2" ? "" : "a lost value";
    };
    EXPECT_TRUE(ovkit_test::runInChild(30, scenario));
}
