#include <ovkit/OrvaNotification.h>

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

using namespace OrvaSupport;

namespace
{

// Appends its name to a shared trace, then runs an optional action.
class Recorder : public OrvaDependent
{
public:
    Recorder(std::string& trace, const char* name) : m_rTrace(trace), m_pName(name) {}

    void handleNotification(OrvaCollaborator& from, const OrvaNotification& n) override
    {
        m_rTrace += m_pName;
        m_pFrom = &from;
        m_nId = n.getId();
        if (m_fnAction)
            m_fnAction();
    }

    std::function<void()> m_fnAction;
    OrvaCollaborator* m_pFrom = nullptr;
    int m_nId = -1;

private:
    std::string& m_rTrace;
    const char* m_pName;
};

} // namespace

TEST(OrvaNotificationTest, DeliversInOrderOfRegistrationAndRemovesEveryOccurrence)
{
    OrvaCollaborator subject;
    std::string trace;
    subject.notify(OrvaNotification(3)); // empty list: nothing happens

    Recorder a(trace, "a"), b(trace, "b"), stranger(trace, "x");
    subject.addDependent(a);
    subject.addDependent(b);
    subject.addDependent(a);
    subject.notify(OrvaNotification(3));
    EXPECT_EQ(trace, "aba");
    EXPECT_EQ(a.m_pFrom, &subject);
    EXPECT_EQ(a.m_nId, 3);

    trace.clear();
    subject.removeDependent(a);        // both occurrences
    subject.removeDependent(stranger); // not listed: no change
    subject.notify(OrvaNotification(4));
    EXPECT_EQ(trace, "b");

    // A copy is a new subject without dependents; assignment keeps the target's.
    OrvaCollaborator copy(subject);
    trace.clear();
    copy.notify(OrvaNotification(1));
    EXPECT_EQ(trace, "");
    subject = copy;
    subject.notify(OrvaNotification(1));
    EXPECT_EQ(trace, "b");
}

TEST(OrvaNotificationTest, CallbacksRunUnlockedAndChangesFollowTheIndex)
{
    OrvaCollaborator subject;
    std::string trace;
    Recorder a(trace, "a"), b(trace, "b"), c(trace, "c"), late(trace, "L");
    subject.addDependent(a);
    subject.addDependent(b);
    subject.addDependent(c);

    // a removes itself, from another thread: the lock is not held during the
    // callback. b moves to a's index and is skipped in this pass.
    a.m_fnAction = [&] { std::thread([&] { subject.removeDependent(a); }).join(); };
    subject.notify(OrvaNotification(1));
    EXPECT_EQ(trace, "ac");

    // A dependent added during the pass is called in the same pass.
    trace.clear();
    b.m_fnAction = [&] { subject.addDependent(late); };
    subject.notify(OrvaNotification(1));
    EXPECT_EQ(trace, "bcL");

    // An exception stops the delivery and reaches the caller; the lock is free.
    trace.clear();
    b.m_fnAction = [] { throw std::runtime_error("dependent failed"); };
    EXPECT_THROW(subject.notify(OrvaNotification(1)), std::runtime_error);
    EXPECT_EQ(trace, "b");
    std::thread([&] { subject.removeDependent(late); }).join();
}
