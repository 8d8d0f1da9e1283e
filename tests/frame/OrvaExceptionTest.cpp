#include <ovkit/OrvaException.h>

#include <gtest/gtest.h>

#include <functional>

using namespace OrvaSupport;

TEST(OrvaException, MessageStackIsNewestFirst)
{
    OrvaException e("a", 5);
    e.pushMessage(L"b");
    e.pushMessage(L"c");
    EXPECT_EQ(L"c\nb\na", e.getFormattedMessages());
    EXPECT_EQ(5, e.getCode());
    EXPECT_EQ(L"c", e.getCallStack().back());

    EXPECT_EQ(L"c", e.popMessage());
    EXPECT_EQ(L"b\na", e.getFormattedMessages());
    e.popMessage();
    e.popMessage();
    EXPECT_EQ(L"", e.popMessage()); // an empty stack stays empty
    EXPECT_TRUE(e.getCallStack().empty());
    EXPECT_EQ("a", e.getText()); // the text is not on the stack

    const OrvaException plain;
    EXPECT_EQ(0, plain.getCode());
    EXPECT_EQ(L"", plain.getFormattedMessages());
    EXPECT_TRUE(OrvaException(7).getCallStack().empty());
}

TEST(OrvaException, SetTextLeavesTheStackAndCopiesHaveTheirOwn)
{
    OrvaException source(std::wstring(L"first"), 3);
    source.setText("narrow");
    EXPECT_EQ("narrow", source.getText());
    EXPECT_EQ(L"first", source.getFormattedMessages());
    source.setText(std::wstring(L"wide"));
    EXPECT_EQ(L"wide", source.getUText());
    EXPECT_EQ(L"first", source.getFormattedMessages());

    OrvaException copy(source);
    copy.pushMessage(L"copy only");
    EXPECT_EQ(L"first", source.getFormattedMessages());
    EXPECT_EQ(L"copy only\nfirst", copy.getFormattedMessages());
    EXPECT_EQ(3, copy.getCode());
    OrvaException assigned;
    assigned = copy;
    assigned.popMessage();
    EXPECT_EQ(L"copy only\nfirst", copy.getFormattedMessages());
    EXPECT_EQ(L"first", assigned.getFormattedMessages());
    EXPECT_EQ("wide", assigned.getText());
}

TEST(OrvaException, DerivedClassesFormTheirTexts)
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
