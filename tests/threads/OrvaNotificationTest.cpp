#include <ovkit/OrvaNotification.h>

#include "support/ThreadTestHelpers.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>

using namespace OrvaSupport;
using ovkit_test::CallDependent;

TEST(OrvaNotificationTest, DeliversByIndexInOrderOfRegistrationWhileTheListChanges)
{
    OrvaCollaborator subject;
    std::string trace;
    std::function<void()> bAction, cAction;
    auto record = [&trace](const char* name, std::function<void()>* action = nullptr)
    {
        return [&trace, name, action](const OrvaNotification& n)
        {
            trace += name + std::to_string(n.getId());
            if (action && *action)
                (*action)();
        };
    };
    CallDependent a(record("a")), b(record("b", &bAction)), c(record("c", &cAction)), late(record("L"));
    subject.addDependent(a);
    subject.addDependent(b);
    subject.addDependent(a);
    subject.notify(OrvaNotification(3));
    EXPECT_EQ(trace, "a3b3a3"); // twice registered, twice called

    subject.removeDependent(a); // every occurrence
    subject.addDependent(c);

    // b removes itself, from another thread: the list lock is free during the
    // callback. c moves to b's index and is skipped in this pass.
    trace.clear();
    bAction = [&] { std::thread([&] { subject.removeDependent(b); }).join(); };
    subject.notify(OrvaNotification(1));
    EXPECT_EQ(trace, "b1");

    // A dependent added during the pass is called in the same pass.
    trace.clear();
    cAction = [&] { subject.addDependent(late); };
    subject.notify(OrvaNotification(2));
    EXPECT_EQ(trace, "c2L2");
}
