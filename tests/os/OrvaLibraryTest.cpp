#include <ovkit/OrvaLibrary.h>

#include <ovkit/OrvaException.h>

#include <gtest/gtest.h>

#include <dlfcn.h>

using namespace OrvaSupport;

namespace
{

const char* const c_szPlugin = OVKIT_TEST_PLUGIN_PATH;

// Asked without loading it.
bool pluginLoaded()
{
    void* handle = dlopen(c_szPlugin, RTLD_NOW | RTLD_NOLOAD);
    return handle != nullptr && dlclose(handle) == 0;
}

void* answer(OrvaLibrary& library)
{
    return library.getProcAddr("ovkit_plugin_answer");
}

} // namespace

TEST(OrvaLibraryTest, LoadsByExactOrDecoratedNameAndReportsFailures)
{
    // The tests' library search path holds the plugin's folder.
    OrvaSmartPointer<OrvaLibrary> decorated(new OrvaLibrary("ovkittestplugin", false));
    OrvaLibrary exact(c_szPlugin, true);
    EXPECT_EQ(reinterpret_cast<int (*)()>(answer(*decorated))(), 42);
    EXPECT_EQ(*static_cast<int*>(exact.getProcAddr("ovkit_plugin_value")), 7);
    EXPECT_EQ(exact.getProcAddr("no_such_symbol"), nullptr);
    decorated = nullptr;
    EXPECT_NE(answer(exact), nullptr) << "each object holds a load of its own";

    try
    {
        OrvaLibrary missing("ovkit-none", false);
        ADD_FAILURE() << "loaded";
    }
    catch (const OrvaException& e)
    {
        EXPECT_EQ(e.getText(),
                  "OrvaLibrary::OrvaLibrary: failed to load: ovkit-none.  libovkit-none.so: cannot "
                  "open shared object file: No such file or directory");
        EXPECT_EQ(e.getCode(), 0);
    }
}

TEST(OrvaLibraryTest, FirstCopyDestroyedUnloadsAndAssignmentClosesNothing)
{
    OrvaLibrary* first = new OrvaLibrary(c_szPlugin, true);
    OrvaLibrary second(*first);
    delete first;
    EXPECT_FALSE(pluginLoaded());
    EXPECT_EQ(answer(second), nullptr);

    OrvaLibrary assigned(c_szPlugin, true);
    assigned = OrvaLibrary("ovkittestplugin", false); // the temporary closes the shared load
    EXPECT_TRUE(pluginLoaded()) << "the load that the assignment gave up stays";
    EXPECT_EQ(answer(assigned), nullptr);
}

TEST(OrvaLibraryTest, NoHandleIsClosedTwice)
{
    void* own = dlopen(c_szPlugin, RTLD_NOW);
    {
        OrvaLibrary first(c_szPlugin, true);
        OrvaLibrary second(first);
        OrvaLibrary third(second);
        third = first;
        EXPECT_NE(answer(third), nullptr);
    }
    EXPECT_TRUE(pluginLoaded()) << "the test's own load was dropped";
    dlclose(own);
}
