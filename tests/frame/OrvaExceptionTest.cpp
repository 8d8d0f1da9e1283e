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
    EXPECT_EQ("a", e.getText());
    EXPECT_EQ(L"a", e.getUText());
    ASSERT_EQ(3u, e.getCallStack().size());
    EXPECT_EQ(L"c", e.getCallStack().back());

    EXPECT_EQ(L"c", e.popMessage());
    EXPECT_EQ(L"b\na", e.getFormattedMessages());
    e.popMessage();
    e.popMessage();
    EXPECT_EQ(L"", e.popMessage()); // an empty stack stays empty
    EXPECT_TRUE(e.getCallStack().empty());
    EXPECT_EQ("a", e.getText()); // the text is not on the stack
}

TEST(OrvaException, ConstructorsAndSetters)
{
    const OrvaException plain;
    EXPECT_EQ(0, plain.getCode());
    EXPECT_EQ("", plain.getText());
    EXPECT_TRUE(plain.getCallStack().empty());
    EXPECT_EQ(L"", plain.getFormattedMessages());

    const OrvaException coded(7);
    EXPECT_EQ(7, coded.getCode());
    EXPECT_TRUE(coded.getCallStack().empty());

    OrvaException wide(std::wstring(L"wide text"), -2);
    EXPECT_EQ("wide text", wide.getText());
    EXPECT_EQ(-2, wide.getCode());
    EXPECT_EQ(L"wide text", wide.getFormattedMessages());

    // setText changes the text but not the stack, which keeps the first text.
    wide.setText("narrow");
    EXPECT_EQ("narrow", wide.getText());
    EXPECT_EQ(L"wide text", wide.getFormattedMessages());
    wide.setText(std::wstring(L"again"));
    EXPECT_EQ(L"again", wide.getUText());

    // An empty newest line adds no separator of its own.
    OrvaException blank("x", 0);
    blank.pushMessage(L"");
    EXPECT_EQ(L"x", blank.getFormattedMessages());
}

TEST(OrvaException, CopiesHaveTheirOwnStack)
{
    OrvaException source("first", 3);
    OrvaException copy(source);
    copy.pushMessage(L"copy only");
    EXPECT_EQ(L"first", source.getFormattedMessages());
    EXPECT_EQ(L"copy only\nfirst", copy.getFormattedMessages());
    EXPECT_EQ(3, copy.getCode());

    OrvaException assigned;
    assigned = copy;
    assigned.popMessage();
    assigned.setText("changed");
    EXPECT_EQ(L"copy only\nfirst", copy.getFormattedMessages());
    EXPECT_EQ("first", copy.getText());
    EXPECT_EQ(3, assigned.getCode());

    OrvaException& self = assigned;
    assigned = self;
    EXPECT_EQ("changed", assigned.getText());
    EXPECT_EQ(L"first", assigned.getFormattedMessages());
}

TEST(OrvaException, DerivedClassesFormTheirTexts)
{
    struct Case
    {
        std::function<void()> raise;
        std::string text;
    };
    const Case cases[] = {
        {[] { throw OrvaInvalidDateException("bad day"); }, "OrvaInvalidDateException - bad day"},
        {[] { throw OrvaInvalidEncryptionException("key"); }, "OrvaInvalidEncryptionException - key"},
        {[] { throw OrvaNoSuchElementException("lock"); }, "OrvaNoSuchElementException - lock"},
        {[] { throw OrvaMissingMessageException("MSG_1"); }, "OrvaMissingMessageException - Missing MSG_1"},
        {[] { throw OrvaKeyDataNotSupportedException("x"); }, "OrvaKeyDataNotSupportedException - x"},
        {[] { throw OrvaPropertyNotFound("Name"); }, "Property not found: Name"},
        {[] { throw OrvaPropertyNotFound(std::wstring(L"Wide")); }, "Property not found: Wide"},
        {[] { throw OrvaPropertyNotFound(ci_string("Ci\0tail", 7)); }, "Property not found: Ci"},
        {[] { throw OrvaPropertyNotFound(ci_wstring(L"Cw\0tail", 7)); }, "Property not found: Cw"},
        {[]
         {
             throw OrvaPropertyNotFound(std::wstring(L"a\x4E2D"
                                                     L"b"));
         },
         "Property not found: a b"},
        {[] { throw OrvaPropertyNotFound(); }, ""},
    };
    for (const Case& c : cases)
    {
        try
        {
            c.raise();
            ADD_FAILURE() << "nothing thrown for " << c.text;
        }
        catch (const OrvaException& e)
        {
            EXPECT_EQ(c.text, e.getText());
            EXPECT_EQ(0, e.getCode()) << c.text;
            // The text is also the first (and only) entry of the stack.
            EXPECT_EQ(c.text.empty() ? 0u : 1u, e.getCallStack().size()) << c.text;
            EXPECT_EQ(e.getUText(), e.getFormattedMessages()) << c.text;
        }
    }

    // The derived class is what reaches a handler for it, and copies keep it.
    try
    {
        throw OrvaPropertyNotFound(std::string("p"));
    }
    catch (const OrvaPropertyNotFound& e)
    {
        OrvaPropertyNotFound copy(e);
        OrvaPropertyNotFound assigned;
        assigned = copy;
        EXPECT_EQ("Property not found: p", assigned.getText());
    }
}
