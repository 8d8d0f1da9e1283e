#include <ovkit/OrvaDateTime.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <ctime>
#include <vector>

using namespace OrvaSupport;

namespace
{

const std::string kInvalid = "Input does not compute to a valid DateTime object";
const std::string kBadShift = "Subtracting does not compute to a valid Date. Trying to subtract field,";

void useZone(const char* zone)
{
    setenv("TZ", zone, 1);
    tzset();
}

std::vector<int> fieldsOf(const OrvaDateTime& date)
{
    return {date.getYear(), date.getMonth(),  date.getDayOfMonth(),
            date.getHour(), date.getMinute(), date.getSecond()};
}

OrvaDateTime parsed(const std::string& text)
{
    OrvaDateTime date;
    std::string error;
    EXPECT_TRUE(date.setDateTimeFromStrImpl(text, error)) << text << ": " << error;
    return date;
}

// Runs `operation`, which must throw OrvaInvalidDateException with the validation text.
template <class Operation>
void expectInvalidDate(Operation operation, const std::string& what)
{
    try
    {
        operation();
        ADD_FAILURE() << what << " was accepted";
    }
    catch (const OrvaInvalidDateException& e)
    {
        EXPECT_EQ(e.getText(), "OrvaInvalidDateException - " + kInvalid) << what;
    }
}

class OrvaDateTimeTest : public ::testing::Test
{
protected:
    void SetUp() override { useZone("UTC0"); }
};

TEST_F(OrvaDateTimeTest, ReadsTheThreeFormsAsLocalTime)
{
    struct Case
    {
        const char* text;
        std::vector<int> fields; // year, month 0-11, day, hour, minute, second
    };
    const Case cases[] = {
        {"Tue, 15 Nov 1994 08:12:31 GMT", {1994, 10, 15, 8, 12, 31}},
        {"Sun, 15 Nov 1994 08:12:31 PST", {1994, 10, 15, 8, 12, 31}}, // day name and zone ignored
        {"Tue, 31 Feb 1994 08:12:31 GMT", {1994, 2, 3, 8, 12, 31}},   // this form carries
        {"1/2/2004", {2004, 1, 1, 0, 0, 0}},
        {"1/2/2004 10", {2004, 1, 1, 10, 0, 0}},
        {"15/11/1994 08:12:31", {1994, 10, 15, 8, 12, 31}},
        {"1/2/99", {99, 1, 1, 0, 0, 0}},
        {"Wed Jun 30 21:49:08 1993", {1993, 5, 30, 21, 49, 8}},
        {"Wed Xxx 30 21:49:08 1993", {1993, 0, 30, 21, 49, 8}},
        {"Wednesday Jun 3 1:2:3 93", {93, 5, 3, 1, 2, 3}}, // a nine-letter word still fits
    };
    for (const Case& c : cases)
        EXPECT_EQ(fieldsOf(parsed(c.text)), c.fields) << c.text;

    // The zone word is not looked at: the same text is another instant under another TZ.
    EXPECT_EQ(parsed("Tue, 15 Nov 1994 08:12:31 GMT").getTime(), 784887151);
    useZone("EST5");
    EXPECT_EQ(parsed("Tue, 15 Nov 1994 08:12:31 GMT").getTime(), 784905151);
}

TEST_F(OrvaDateTimeTest, MalformedTextsReturnFalseAndChangeNothing)
{
    const std::string rfc = "Incorrect RFC1123 DateTime format";
    const std::string plain = "Incorrect DateTime format";
    const std::pair<const char*, const std::string*> cases[] = {
        {"Tue, 15 Nov 1994 08:12:31", &rfc},          // no zone
        {"Tue, 15 Nov 1994 08:12:31 GMT+0100", &rfc}, // 34 characters
        {"Tue, 1 Nov 9 1:2:3 Antarctica", &rfc},      // a ten-letter word
        {"01/02/2004 00:00:00 extra", &rfc},          // the numeric form's length error
        {"1/2", &plain},
        {"", &plain},
        {"Wed Jun 30 21:49:08", &plain},
        {"Wed Jun 30 21:49:08 1993 xx", &plain}, // 27 characters
        {"WednesdayJun 3 1:2:3 1993", &plain},   // one long word, not two
    };
    OrvaDateTime date = parsed("1/2/2004");
    const unsigned int id = date.getInstanceId();
    const unsigned int counter = OrvaDateTime::m_objectCounter;
    for (const auto& c : cases)
    {
        std::string error;
        EXPECT_FALSE(date.setDateTimeFromStrImpl(c.first, error)) << c.first;
        EXPECT_EQ(error, *c.second) << c.first;
    }
    EXPECT_EQ(fieldsOf(date), (std::vector<int>{2004, 1, 1, 0, 0, 0}));
    EXPECT_EQ(date.getInstanceId(), id);
    EXPECT_EQ(OrvaDateTime::m_objectCounter, counter);
}

TEST_F(OrvaDateTimeTest, DatesThatDoNotExistThrow)
{
    OrvaDateTime date = parsed("1/2/2004");
    const unsigned int id = date.getInstanceId();
    for (const char* text :
         {"31/2/1994", "29/2/2003", "1/13/2004", "1/1/2004 24:00:00", "Wed Apr 31 1:2:3 1993"})
    {
        std::string error;
        expectInvalidDate([&] { date.setDateTimeFromStrImpl(text, error); }, text);
        EXPECT_EQ(error, kInvalid) << text;
    }
    std::string error;
    EXPECT_THROW(date.setDateImpl(31, 4, 104, error), OrvaInvalidDateException);
    EXPECT_THROW(date.setDateImpl(1, 0, 104, error), OrvaInvalidDateException);
    EXPECT_THROW(date.setDateTimeImpl(29, 2, 101, 23, 59, 59, error), OrvaInvalidDateException);
    tm carried = tm();
    carried.tm_mday = 32;
    carried.tm_year = 100;
    carried.tm_isdst = -1;
    EXPECT_THROW(date.setDateTimeFromTmImpl(carried, error), OrvaInvalidDateException);
    EXPECT_FALSE(date.operatorImpl(carried, error));
    EXPECT_EQ(fieldsOf(date), (std::vector<int>{2004, 1, 1, 0, 0, 0}));
    EXPECT_EQ(date.getInstanceId(), id);
}

TEST_F(OrvaDateTimeTest, SetDateCountsYearsFrom1900AndSummerTimeRejects)
{
    OrvaDateTime date;
    std::string error;
    EXPECT_TRUE(date.setDateImpl(1, 2, 104, error));
    EXPECT_EQ(fieldsOf(date), (std::vector<int>{2004, 1, 1, 0, 0, 0}));
    EXPECT_TRUE(date.setDateImpl(1, 2, 2004, error));
    EXPECT_EQ(date.getYear(), 3904);
    EXPECT_TRUE(date.setDateTimeImpl(29, 2, 100, 23, 59, 59, error));
    EXPECT_EQ(fieldsOf(date), (std::vector<int>{2000, 1, 29, 23, 59, 59}));

    // setDateImpl takes the date as standard time; the parsed forms let mktime decide.
    useZone("CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_THROW(date.setDateImpl(1, 7, 104, error), OrvaInvalidDateException);
    EXPECT_TRUE(date.setDateImpl(1, 12, 104, error));
    EXPECT_EQ(fieldsOf(parsed("1/7/2004")), (std::vector<int>{2004, 6, 1, 0, 0, 0}));
    EXPECT_THROW(parsed("28/3/2004 02:30:00"), OrvaInvalidDateException); // in the spring gap
    OrvaDateTime spring = parsed("27/3/2004 12:00:00"); // a day on keeps the old summer-time flag
    EXPECT_TRUE(spring.modifyDate(OrvaDateTime::Day, 1, error));
    EXPECT_EQ(fieldsOf(spring), (std::vector<int>{2004, 2, 28, 13, 0, 0}));
}

TEST_F(OrvaDateTimeTest, InstanceIdsFollowTheCounter)
{
    OrvaDateTime first;
    OrvaDateTime second;
    EXPECT_EQ(second.getInstanceId(), first.getInstanceId() + 1);
    EXPECT_EQ(OrvaDateTime::m_objectCounter, second.getInstanceId());

    OrvaDateTime copy(first);
    EXPECT_EQ(copy.getInstanceId(), first.getInstanceId());
    copy = second;
    EXPECT_EQ(copy.getInstanceId(), second.getInstanceId());

    std::string error;
    tm valid = tm();
    valid.tm_mday = 1;
    valid.tm_year = 104;
    auto step = [&](auto operation)
    {
        unsigned int before = OrvaDateTime::m_objectCounter;
        operation();
        EXPECT_EQ(copy.getInstanceId(), OrvaDateTime::m_objectCounter);
        return OrvaDateTime::m_objectCounter - before;
    };
    EXPECT_EQ(step([&] { copy.setDateTimeFromStrImpl("1/2/2004", error); }), 2u);
    EXPECT_EQ(step([&] { copy.setDateImpl(1, 2, 104, error); }), 2u);
    EXPECT_EQ(step([&] { copy.setDateTimeImpl(1, 2, 104, 1, 2, 3, error); }), 2u);
    EXPECT_EQ(step([&] { copy.setDateTime("1/2/2004", error); }), 1u);
    EXPECT_EQ(step([&] { copy.setDateTimeFromTmImpl(valid, error); }), 1u);
    EXPECT_EQ(step([&] { copy.operatorImpl(valid, error); }), 1u);
    EXPECT_EQ(step([&] { copy.modifyDate(OrvaDateTime::Day, 1, error); }), 1u);
    EXPECT_EQ(step([&] { copy.adjustInstanceId(); }), 1u);

    // An amount of 0 does nothing at all, not even to the error text.
    error = "untouched";
    unsigned int id = copy.getInstanceId();
    EXPECT_FALSE(copy.modifyDate(OrvaDateTime::Day, 0, error));
    EXPECT_EQ(error, "untouched");
    EXPECT_EQ(copy.getInstanceId(), id);
}

TEST_F(OrvaDateTimeTest, ModifyDateCarriesThroughMktime)
{
    // A row with a tail must fail: the tail is what is left of " with " after field + amount
    // characters. In UTC, mktime's answer for 31 December 1969 23:59:59 is -1, its failure value.
    struct Case
    {
        const char* start;
        OrvaDateTime::FieldId_t field;
        int amount;
        std::vector<int> fields;
        const char* tail;
    };
    const Case cases[] = {
        {"1/1/2004", OrvaDateTime::Day, 35, {2004, 1, 5, 0, 0, 0}, nullptr},
        {"31/1/2004", OrvaDateTime::Month, 1, {2004, 2, 2, 0, 0, 0}, nullptr},
        {"31/1/2003", OrvaDateTime::Month, 1, {2003, 2, 3, 0, 0, 0}, nullptr},
        {"1/1/2004", OrvaDateTime::Month, -13, {2002, 11, 1, 0, 0, 0}, nullptr},
        {"31/12/2004 23:30:00", OrvaDateTime::Hour, 25, {2005, 0, 2, 0, 30, 0}, nullptr},
        {"1/1/2004", OrvaDateTime::Second, -1, {2003, 11, 31, 23, 59, 59}, nullptr},
        {"29/2/2004", OrvaDateTime::Year, -4, {2000, 1, 29, 0, 0, 0}, nullptr},
        {"29/2/2004", OrvaDateTime::Year, 1, {2005, 2, 1, 0, 0, 0}, nullptr},
        {"29/2/2004 5:6:7", static_cast<OrvaDateTime::FieldId_t>(6), 3, {2004, 1, 29, 5, 6, 7}, nullptr},
        {"1/1/1970", OrvaDateTime::Second, -1, {1970, 0, 1, 0, 0, 0}, "h "},
        {"1/1/1970 00:59:59", OrvaDateTime::Hour, -1, {1970, 0, 1, 0, 59, 59}, "ith "},
        {"31/12/1969 23:59:58", OrvaDateTime::Second, 1, {1969, 11, 31, 23, 59, 58}, ""},
        {"1/1/1970", OrvaDateTime::Day, INT_MAX, {1970, 0, 1, 0, 0, 0}, ""}, // beyond int: never added
    };
    for (const Case& c : cases)
    {
        OrvaDateTime date = parsed(c.start);
        const unsigned int id = date.getInstanceId();
        std::string error;
        EXPECT_EQ(date.modifyDate(c.field, c.amount, error), c.tail == nullptr) << c.start << ": " << error;
        EXPECT_EQ(fieldsOf(date), c.fields) << c.start << " field " << c.field << " by " << c.amount;
        EXPECT_EQ(date.getInstanceId() == id, c.tail != nullptr) << c.start;
        if (c.tail)
        {
            EXPECT_EQ(error, kBadShift + c.tail) << c.start;
        }
    }

    // A normalised result whose full year no longer fits an int throws.
    OrvaDateTime top;
    std::string error;
    ASSERT_TRUE(top.setDateImpl(1, 12, INT_MAX - 1900, error));
    EXPECT_EQ(top.getYear(), INT_MAX);
    expectInvalidDate([&] { top.modifyDate(OrvaDateTime::Month, 1, error); }, "year overflow");
    EXPECT_EQ(top.getYear(), INT_MAX);
}

TEST_F(OrvaDateTimeTest, CalendarQueries)
{
    EXPECT_EQ(parsed("1/2/2004").day(), 32);
    EXPECT_EQ(parsed("31/12/2004").day(), 366);
    EXPECT_EQ(parsed("31/12/2003").day(), 365);
    EXPECT_EQ(parsed("15/11/1994 08:12:31").getWeekday(), 2);
    EXPECT_EQ(parsed("15/11/1994 08:12:31").getTime(), 784887151);
    for (const char* leap : {"1/1/2004", "31/12/2000", "1/7/1996"})
        EXPECT_TRUE(parsed(leap).isLeapYear()) << leap;
    for (const char* common : {"1/1/2003", "31/12/1900", "1/7/2100"})
        EXPECT_FALSE(parsed(common).isLeapYear()) << common;
    for (const char* text : {"1/1/2004", "15/11/1994 08:12:31", "31/12/2038 1:2:3"})
        EXPECT_EQ(parsed(text).hash(), 0) << text;

    OrvaDateTime date;
    std::string names[] = {"Dec", "dec", "December"};
    EXPECT_EQ(date.getMonthForRFCName(names[0]), 11);
    EXPECT_EQ(date.getMonthForRFCName(names[1]) + date.getMonthForRFCName(names[2]), 0);
}

TEST_F(OrvaDateTimeTest, FieldTestsChangeNothing)
{
    OrvaDateTime date = parsed("31/1/2004 10:00:00");
    const unsigned int id = date.getInstanceId();
    std::string error;
    EXPECT_TRUE(date.setMonthImpl(3, error));
    EXPECT_FALSE(date.setMonthImpl(4, error)); // 31 April
    EXPECT_EQ(error, kInvalid);
    for (unsigned bad : {0u, 13u})
        EXPECT_TRUE(!date.setMonthImpl(bad, error) && error == "Invalid Month : Exceeds 12") << bad;
    for (unsigned bad : {0u, 32u})
        EXPECT_TRUE(!date.setDayImpl(bad, error) && error == "Invalid Day : Exceeds 31") << bad;
    EXPECT_TRUE(date.setDayImpl(1, error));
    EXPECT_TRUE(date.setYearImpl(1999, error));

    OrvaDateTime leapDay = parsed("29/2/2004");
    EXPECT_FALSE(leapDay.setYearImpl(2005, error));
    EXPECT_EQ(error, kInvalid);
    EXPECT_TRUE(leapDay.setYearImpl(2008, error));
    EXPECT_FALSE(leapDay.setDayImpl(30, error));

    EXPECT_EQ(fieldsOf(date), (std::vector<int>{2004, 0, 31, 10, 0, 0}));
    EXPECT_EQ(date.getInstanceId(), id);
}

TEST_F(OrvaDateTimeTest, WideOutputThroughTheLocaleFacet)
{
    const std::locale c = std::locale::classic();
    OrvaDateTime date = parsed("Tue, 15 Nov 1994 08:12:31 GMT");
    EXPECT_EQ(date.monthName(c), L"November");
    EXPECT_EQ(date.weekdayName(c), L"Tuesday");
    EXPECT_EQ(date.dateToString(c), L"08:12:31"); // the time of day, by name exchange
    EXPECT_EQ(date.timeToString(c), L"11/15/94"); // the date
    EXPECT_EQ(date.toString(c), L"Tue Nov 15 08:12:31 1994");

    // A copy formats through the global locale, the classic one in this program.
    useZone("EST5");
    OrvaDateTime eastern = parsed("15/11/1994 08:12:31");
    OrvaDateTime copy(eastern);
    EXPECT_EQ(copy.toGMTString(), L"Tue Nov 15 13:12:31 1994");
}

} // namespace
