#include <ovkit/OrvaObjectFactory.h>

#include "support/Processes.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

using namespace OrvaSupport;
using Names = std::vector<std::string>;

namespace
{

struct Widget : OrvaObjectBase
{
    explicit Widget(int k) : kind(k) {}
    int kind;
};

// A creator of widgets of kind K; of none for 0.
template <int K>
OrvaObjectBase* make()
{
    return K != 0 ? new Widget(K) : nullptr;
}

struct WidgetRegistration : OrvaObjectFactoryRegistration
{
    WidgetRegistration(const std::string& name, OrvaObjectFactory& factory, int k)
        : OrvaObjectFactoryRegistration(name, factory), kind(k)
    {
    }
    OrvaSmartPointer<OrvaObjectBase> createInstance() override { return new Widget(kind); }
    int kind;
};

// The kind of widget that `name` constructs; 0 for none.
int built(OrvaObjectFactory& factory, const std::string& name)
{
    OrvaSmartPointer<OrvaObjectBase> object = factory.construct(name);
    return object == nullptr ? 0 : static_cast<Widget*>(static_cast<OrvaObjectBase*>(object))->kind;
}

OrvaObjectFactory* s_pFactory = nullptr;

} // namespace

TEST(OrvaObjectFactory, RegistrationsComeFirstAndStayWithTheirFactory)
{
    OrvaObjectFactory factory, target;
    factory.add("W", &make<2>);
    factory.add("W", &make<1>); // the latest creator stays
    factory.add("nothing", &make<0>);
    EXPECT_EQ(1, built(factory, "W"));
    EXPECT_EQ(0, built(factory, "w")); // names are exact bytes
    EXPECT_EQ(0, built(factory, "nothing"));
    {
        WidgetRegistration early("W", factory, 3), late("W", factory, 4); // late replaces early
        EXPECT_EQ(4, built(factory, "W"));
        EXPECT_EQ((Names{"W", "nothing", "W"}), factory.getRegisteredClasses());
        // Copies take the creators; assignment keeps its own registrations.
        EXPECT_EQ((Names{"W", "nothing"}), OrvaObjectFactory(factory).getRegisteredClasses());
        WidgetRegistration own("T", target, 5);
        target = factory;
        EXPECT_EQ((Names{"W", "nothing", "T"}), target.getRegisteredClasses());
        factory.remove("W"); // the registration only
        EXPECT_EQ(1, built(factory, "W"));
        factory.remove("unknown");
        factory.add("W", late);
    }
    // late's end took its registration; early's end then took the creator.
    EXPECT_EQ((Names{"nothing"}), factory.getRegisteredClasses());
    EXPECT_EQ((Names{"W", "nothing"}), target.getRegisteredClasses());
}

TEST(OrvaObjectFactory, CreatorsRunOutsideTheLock)
{
    OrvaObjectFactory factory;
    s_pFactory = &factory;
    factory.add("waits",
                []() -> OrvaObjectBase* // hangs if the lock were still held
                {
                    std::thread([] { s_pFactory->add("added", &make<2>); }).join();
                    return new Widget(5);
                });
    EXPECT_EQ(5, built(factory, "waits"));
    EXPECT_EQ(2, built(factory, "added"));

    factory.add("throws", []() -> OrvaObjectBase* { throw 7; });
    EXPECT_THROW(factory.construct("throws"), int);
    std::thread([&factory] { factory.remove("throws"); }).join(); // the lock was given back
    EXPECT_EQ(0, built(factory, "throws"));
}

TEST(OrvaObjectFactory, GlobalInstanceIsDeletedOnceAndKeepsItsAddress)
{
    EXPECT_TRUE(ovkit_test::runInChild(
        30,
        []() -> std::string
        {
            OrvaObjectFactory* global = OrvaObjectFactory::getGlobalInstance();
            if (global != OrvaObjectFactory::getGlobalInstance())
                return "a second instance";
            auto* registration = new WidgetRegistration("R", *global, 1);
            OrvaObjectFactory::deleteGlobalInstance();
            OrvaObjectFactory::deleteGlobalInstance();
            delete registration; // outlives its factory: must not touch it
            if (global != OrvaObjectFactory::getGlobalInstance())
                return "the address changed";
            return ""; // leaves through exit(): the stop sequence deletes it no more
        },
        true));
}
