// The property table: repeated names, lookups, case-insensitive names and
// the grammar of one line.
#include <ovkit/OrvaProperties.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace OrvaSupport;

namespace
{

typedef std::vector<std::string> Values;

template <class S>
S text(const char* ascii)
{
    std::string narrow(ascii);
    return S(narrow.begin(), narrow.end());
}

} // namespace

TEST(OrvaPropertiesTest, DuplicatesInBothKindsOfTable)
{
    OrvaProperties<std::string> multi;
    multi.addProperty("a", "1");
    multi.addProperty("a", "2");
    multi.addProperty("", "ignored");
    EXPECT_EQ(1, multi.size());
    EXPECT_EQ("1", multi.getProperty("a"));
    EXPECT_EQ((Values{"1", "2"}), multi.getPropertyValues("a"));
    multi.setProperty("a", "3"); // replaces the first value only
    EXPECT_EQ((Values{"3", "2"}), multi.getPropertyValues("a"));

    OrvaProperties<std::string> single(false);
    single.addProperty("a", "1");
    single.addProperty("a", "2");
    EXPECT_EQ((Values{"2"}), single.getPropertyValues("a"));

    // Copies and assignment keep the flag; assignment leaves the count alone.
    OrvaSmartPointer<OrvaProperties<std::string>> shared(new OrvaProperties<std::string>(single));
    OrvaSmartPointer<OrvaProperties<std::string>> second(shared);
    multi = single;
    multi.addProperty("a", "4");
    shared->addProperty("a", "5");
    EXPECT_EQ((Values{"4"}), multi.getPropertyValues("a"));
    EXPECT_EQ((Values{"5"}), shared->getPropertyValues("a"));
    EXPECT_EQ(2, shared->refCount());

    // A miss with a default answers with the caller's own object.
    const std::string fallback("fallback");
    EXPECT_EQ(&fallback, &multi.getProperty("zz", fallback));
}

TEST(OrvaPropertiesTest, CaseInsensitiveLookups)
{
    OrvaProperties<ci_string> narrow;
    narrow.addProperty("Key", "1");
    narrow.addProperty("KEY", "2");
    EXPECT_EQ(1, narrow.size());
    EXPECT_STREQ("1", narrow.getProperty("kEy").c_str());
    EXPECT_STREQ("Key", narrow.getProperties().begin()->first.c_str()); // first spelling stays
    narrow.addProperty(ci_string("nameXvalue"), 'x'); // a letter separator matches both cases
    EXPECT_STREQ("value", narrow.getProperty("NAME").c_str());

    OrvaProperties<ci_wstring> wide;
    wide.addProperty(L"Path", L"/bin");
    EXPECT_STREQ(L"/bin", wide.getProperty(L"PATH").c_str());
    EXPECT_THROW(wide.getProperty(L"PATHS"), OrvaPropertyNotFound);

    OrvaProperties<std::wstring> exact;
    exact.addProperty(L"Path", L"1");
    exact.addProperty(L"PATH", L"2");
    EXPECT_EQ(2, exact.size());
}

template <class S>
class OrvaPropertiesLineTest : public ::testing::Test
{
};
typedef ::testing::Types<std::string, std::wstring, ci_string, ci_wstring> StringTypes;
TYPED_TEST_SUITE(OrvaPropertiesLineTest, StringTypes);

TYPED_TEST(OrvaPropertiesLineTest, LinesSplitAsTheGrammarSays)
{
    struct Case
    {
        const char* line;
        const char* name; // null: nothing stored
        const char* value;
    };
    // clang-format off
    const Case cases[] = {
        {"a=1", "a", "1"},          {"a = 1", "a ", "1"},      {"  a=1", "  a", "1"},
        {"a=  1  ", "a", "1  "},    {"a=1=2", "a", "1=2"},     {"a=", "a", ""},
        {"a", "a", ""},             {"=1", nullptr, nullptr},  {"", nullptr, nullptr},
        {"#a=1", nullptr, nullptr}, {" #a=1", " #a", "1"},     {"a=#1", "a", "#1"},
        {"a=1\tb", "a", "1\tb"},    {"a=\t1", "a", "\t1"},     {"a=1\r", "a", "1"},
        {"a=1\nb\r", "a", "1\nb"},  {"a\r=1\n", "a\r", "1\n"}, {"a=   ", "a", ""},
        {"\r", "\r", ""},
    };
    // clang-format on
    for (const Case& c : cases)
    {
        OrvaProperties<TypeParam> props;
        props.addProperty(text<TypeParam>(c.line), typename TypeParam::value_type('='));
        ASSERT_EQ(c.name ? 1 : 0, props.size()) << c.line;
        EXPECT_TRUE(!c.name || (props.getProperties().begin()->first == text<TypeParam>(c.name) &&
                                props.getProperty(text<TypeParam>(c.name)) == text<TypeParam>(c.value)))
            << c.line;
    }
}
