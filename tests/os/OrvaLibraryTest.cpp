#include <ovkit/OrvaLibrary.h>

#include <ovkit/OrvaException.h>

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <string>

using namespace OrvaSupport;

namespace
{

const char* const c_szPluginPath = OVKIT_TEST_PLUGIN_PATH;

// Whether the test library is loaded now, asked without loading it.
bool pluginLoaded()
{
    void* handle = dlopen(c_szPluginPath, RTLD_NOW | RTLD_NOLOAD);
    if (handle != nullptr)
        dlclose(handle);
    return handle != nullptr;
}

int callAnswer(OrvaLibrary& library)
{
    auto answer = reinterpret_cast<int (*)()>(library.getProcAddr("ovkit_plugin_answer"));
    return answer != nullptr ? answer() : -1;
}

} // namespace

TEST(OrvaLibraryTest, LoadsByExactOrDecoratedNameAndFindsSymbols)
{
    // The tests' library search path holds the plugin's folder.
    OrvaSmartPointer<OrvaLibrary> decorated(new OrvaLibrary("ovkittestplugin", false));
    OrvaLibrary exact(c_szPluginPath, true);
    EXPECT_EQ(callAnswer(*decorated), 42);
    EXPECT_EQ(callAnswer(exact), 42);
    EXPECT_EQ(*static_cast<int*>(exact.getProcAddr("ovkit_plugin_value")), 7);
    EXPECT_EQ(exact.getProcAddr("no_such_symbol"), nullptr);
    EXPECT_EQ(decorated->getProcAddr(""), nullptr);
    decorated = nullptr;
    EXPECT_TRUE(pluginLoaded()) << "each object holds its own load";
}

TEST(OrvaLibraryTest, FailureTextHoldsTheNameAsGivenAndTheLoaderText)
{
    for (bool exactName : {false, true})
    {
        try
        {
            OrvaLibrary library("ovkit-no-such", exactName);
            ADD_FAILURE() << "loaded";
        }
        catch (const OrvaException& e)
        {
            const std::string prefix = "OrvaLibrary::OrvaLibrary: failed to load: ovkit-no-such.  ";
            EXPECT_EQ(e.getText().compare(0, prefix.size(), prefix), 0) << e.getText();
            const std::string file = exactName ? "ovkit-no-such" : "libovkit-no-such.so";
            EXPECT_NE(e.getText().find(file + ": cannot open shared object file"), std::string::npos)
                << e.getText();
            EXPECT_EQ(e.getCode(), 0);
        }
    }
}

TEST(OrvaLibraryTest, FirstCopyDestroyedUnloadsAndAssignmentClosesNothing)
{
    OrvaLibrary* first = new OrvaLibrary(c_szPluginPath, true);
    OrvaLibrary second(*first);
    delete first;
    EXPECT_FALSE(pluginLoaded());
    EXPECT_EQ(second.getProcAddr("ovkit_plugin_answer"), nullptr);

    OrvaLibrary assigned(c_szPluginPath, true);
    {
        OrvaLibrary other("ovkittestplugin", false);
        assigned = other;
    }
    EXPECT_TRUE(pluginLoaded()) << "the load that the assignment gave up stays";
    EXPECT_EQ(assigned.getProcAddr("ovkit_plugin_answer"), nullptr);
}

TEST(OrvaLibraryTest, NoHandleIsClosedTwice)
{
    void* own = dlopen(c_szPluginPath, RTLD_NOW);
    ASSERT_NE(own, nullptr);
    {
        OrvaLibrary first(c_szPluginPath, true);
        OrvaLibrary second(first);
        OrvaLibrary third(second);
        third = first;
        EXPECT_EQ(callAnswer(third), 42);
    }
    EXPECT_TRUE(pluginLoaded()) << "the test's own load was dropped";
    dlclose(own);
}
