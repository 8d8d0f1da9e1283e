#include <ovkit/OrvaException.h>

#include <gtest/gtest.h>

#include <functional>

using namespace OrvaSupport;

TEST(OrvaExceptionTest, MessageStackIsNewestFirstAndCopiesHaveTheirOwn)
{
    OrvaException e(std::wstring(L"a"), 5);
    e.pushMessage(L"b");
    e.pushMessage(L"c");
    EXPECT_EQ(L"c\nb\na", e.getFormattedMessages());
    EXPECT_EQ(L"c", e.getCallStack().back());
    e.setText("narrow"); // the text is not on the stack
    EXPECT_EQ(L"c\nb\na", e.getFormattedMessages());

    OrvaException copy(e);
    EXPECT_EQ(L"c", copy.popMessage());
    OrvaException assigned;
    assigned = copy;
    assigned.popMessage();
    EXPECT_EQ(L"c\nb\na", e.getFormattedMessages());
    EXPECT_EQ(L"b\na", copy.getFormattedMessages());
    EXPECT_EQ(L"a", assigned.getFormattedMessages());
    EXPECT_EQ(5, assigned.getCode());
    EXPECT_EQ("narrow", assigned.getText());
    assigned.popMessage();
    EXPECT_EQ(L"", assigned.popMessage()); // an empty stack stays empty
    EXPECT_TRUE(assigned.getCallStack().empty());
    assigned.setText(std::wstring(L"wide"));
    EXPECT_EQ(L"wide", assigned.getUText());
    EXPECT_EQ("wide", assigned.getText());

    EXPECT_EQ(0, OrvaException().getCode());
    EXPECT_EQ(L"", OrvaException().getFormattedMessages());
    EXPECT_TRUE(OrvaException(7).getCallStack().empty());
}

TEST(OrvaExceptionTest, DerivedClassesFormTheirTexts)
{
    const std::pair<std::function<void()>, std::string> cases[] = {
        {[] { throw OrvaInvalidDateException("bad day"); }, "OrvaInvalidDateException - bad day"},
        {[] { throw OrvaInvalidEncryptionException("key"); }, "OrvaInvalidEncryptionException - key"},
        {[] { throw OrvaNoSuchElementException("lock"); }, "OrvaNoSuchElementException - lock"},
        {[] { throw OrvaMissingMessageException("MSG_1"); }, "OrvaMissingMessageException - Missing MSG_1"},
        {[] { throw OrvaKeyDataNotSupportedException("x"); }, "OrvaKeyDataNotSupportedException - x"},
        {[] { throw OrvaPropertyNotFound("Name"); }, "Property not found: Name"},
        {[] { throw OrvaPropertyNotFound(std::wstring(L"Wide")); }, "Property not found: Wide"},
        {[] { throw OrvaPropertyNotFound(ci_string("Ci\0tail", 7)); }, "Property not found: Ci"},
        {[] { throw OrvaPropertyNotFound(ci_wstring(L"Cw\0tail", 7)); }, "Property not found: Cw"},
        {[] { throw OrvaPropertyNotFound(std::wstring(L"a\x4E2D") + L"b"); }, "Property not found: a b"},
        {[] { throw OrvaPropertyNotFound(); }, ""},
    };
    for (const auto& c : cases)
    {
        try
        {
            c.first();
            ADD_FAILURE() << "nothing thrown for " << c.second;
        }
        catch (const OrvaException& e)
        {
            EXPECT_EQ(c.second, e.getText());
            EXPECT_EQ(0, e.getCode()) << c.second;
            EXPECT_EQ(e.getUText(), e.getFormattedMessages()) << c.second; // the text is the one entry
        }
    }
}
