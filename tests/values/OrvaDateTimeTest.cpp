#include <ovkit/OrvaDateTime.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <tuple>
#include <vector>

using namespace OrvaSupport;

namespace
{

const std::string kInvalid = "Input does not compute to a valid DateTime object";
const std::string kRfc = "Incorrect RFC1123 DateTime format";
const std::string kPlain = "Incorrect DateTime format";
const std::string kBadShift = "Subtracting does not compute to a valid Date. Trying to subtract field,";

void useZone(const char* zone)
{
    setenv("TZ", zone, 1);
    tzset();
}

// Year, month 0-11, day of the month, hour, minute, second.
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

class OrvaDateTimeTest : public ::testing::Test
{
protected:
    void SetUp() override { useZone("UTC0"); }
};

TEST_F(OrvaDateTimeTest, ReadsTheThreeFormsAsLocalTime)
{
    const std::pair<const char*, std::vector<int>> cases[] = {
        {"Tue, 15 Nov 1994 08:12:31 GMT", {1994, 10, 15, 8, 12, 31}},
        {"Sun, 15 Nov 1994 08:12:31 PST", {1994, 10, 15, 8, 12, 31}}, // day name and zone ignored
        {"Tue, 31 Feb 1994 08:12:31 GMT", {1994, 2, 3, 8, 12, 31}},   // only this form carries
        {"1/2/2004", {2004, 1, 1, 0, 0, 0}},
        {"1/2/2004 10", {2004, 1, 1, 10, 0, 0}},
        {"1/2/99", {99, 1, 1, 0, 0, 0}}, // no two-digit years
        {"Wed Jun 30 21:49:08 1993", {1993, 5, 30, 21, 49, 8}},
        {"Wed Xxx 30 21:49:08 1993", {1993, 0, 30, 21, 49, 8}}, // unknown month names are January
    };
    for (const auto& c : cases)
        EXPECT_EQ(fieldsOf(parsed(c.first)), c.second) << c.first;
}

TEST_F(OrvaDateTimeTest, BadTextsFailOrThrowAndChangeNothing)
{
    const std::pair<const char*, const std::string&> malformed[] = {
        {"Tue, 15 Nov 1994 08:12:31", kRfc},          // no zone
        {"Tue, 15 Nov 1994 08:12:31 GMT+0100", kRfc}, // over 29 characters
        {"Tue, 1 Nov 9 1:2:3 Antarctica", kRfc},      // a word longer than nine
        {"01/02/2004 00:00:00 extra", kRfc},          // the numeric form's length error
        {"1/2", kPlain},
        {"Wed Jun 30 21:49:08", kPlain},
        {"Wed Jun 30 21:49:08 1993 xx", kPlain}, // over 25 characters
    };
    OrvaDateTime date = parsed("1/2/2004");
    const unsigned int id = OrvaDateTime::m_objectCounter;
    std::string error;
    for (const auto& c : malformed)
        EXPECT_TRUE(!date.setDateTimeFromStrImpl(c.first, error) && error == c.second)
            << c.first << ": " << error;
    // Well formed, but no such date.
    for (const char* text :
         {"31/2/1994", "29/2/2003", "1/13/2004", "1/1/2004 24:00:00", "Wed Apr 31 1:2:3 1993"})
    {
        error.clear();
        EXPECT_THROW(date.setDateTimeFromStrImpl(text, error), OrvaInvalidDateException) << text;
        EXPECT_EQ(error, kInvalid) << text;
    }
    EXPECT_EQ(fieldsOf(date), (std::vector<int>{2004, 1, 1, 0, 0, 0}));
    EXPECT_EQ(date.getInstanceId(), id);
    EXPECT_EQ(OrvaDateTime::m_objectCounter, id);
}

TEST_F(OrvaDateTimeTest, SetDateCountsYearsFrom1900AsStandardTime)
{
    OrvaDateTime date;
    std::string error;
    EXPECT_TRUE(date.setDateImpl(1, 2, 2004, error) && date.getYear() == 3904);
    EXPECT_TRUE(date.setDateTimeImpl(29, 2, 100, 23, 59, 59, error));
    EXPECT_EQ(fieldsOf(date), (std::vector<int>{2000, 1, 29, 23, 59, 59}));
    tm carried = tm();
    carried.tm_mday = 32;
    EXPECT_FALSE(date.operatorImpl(carried, error));
    EXPECT_THROW(date.setDateTimeFromTmImpl(carried, error), OrvaInvalidDateException);

    // In summer, a date set as standard time moves an hour and is refused; a parsed one is not.
    useZone("CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_THROW(date.setDateImpl(1, 7, 104, error), OrvaInvalidDateException);
    EXPECT_EQ(fieldsOf(parsed("1/7/2004")), (std::vector<int>{2004, 6, 1, 0, 0, 0}));
}

TEST_F(OrvaDateTimeTest, InstanceIdsFollowTheCounter)
{
    OrvaDateTime first;
    OrvaDateTime copy(first); // a copy carries its source's id and draws none
    OrvaDateTime second;
    EXPECT_EQ(copy.getInstanceId(), first.getInstanceId());
    EXPECT_EQ(second.getInstanceId(), first.getInstanceId() + 1);

    std::string error;
    tm valid = tm();
    valid.tm_mday = 1;
    auto step = [&](auto operation)
    {
        const unsigned int before = OrvaDateTime::m_objectCounter;
        operation();
        EXPECT_EQ(copy.getInstanceId(), OrvaDateTime::m_objectCounter);
        return OrvaDateTime::m_objectCounter - before;
    };
    EXPECT_EQ(step([&] { copy.setDateTimeFromStrImpl("1/2/2004", error); }), 2u);
    EXPECT_EQ(step([&] { copy.setDateImpl(1, 2, 104, error); }), 2u);
    EXPECT_EQ(step([&] { copy.setDateTimeImpl(1, 2, 104, 1, 2, 3, error); }), 2u);
    EXPECT_EQ(step([&] { copy.setDateTimeFromTmImpl(valid, error); }), 1u);
    EXPECT_EQ(step([&] { copy.modifyDate(OrvaDateTime::Day, 1, error); }), 1u);

    // An amount of 0 does nothing at all, not even to the error text.
    error = "untouched";
    EXPECT_EQ(step([&] { EXPECT_FALSE(copy.modifyDate(OrvaDateTime::Day, 0, error)); }), 0u);
    EXPECT_EQ(error, "untouched");
}

TEST_F(OrvaDateTimeTest, ModifyDateCarriesThroughMktime)
{
    // Rows with a tail fail, leaving " with " less its first field + amount characters in the
    // error. In UTC, mktime's answer for 31 December 1969 23:59:59 is -1, its failure value.
    const std::tuple<const char*, OrvaDateTime::FieldId_t, int, std::vector<int>, const char*> cases[] = {
        {"1/1/2004", OrvaDateTime::Day, 35, {2004, 1, 5, 0, 0, 0}, nullptr},
        {"31/1/2004", OrvaDateTime::Month, 1, {2004, 2, 2, 0, 0, 0}, nullptr},
        {"31/12/2004 23:30:00", OrvaDateTime::Hour, 25, {2005, 0, 2, 0, 30, 0}, nullptr},
        {"1/1/2004", OrvaDateTime::Second, -1, {2003, 11, 31, 23, 59, 59}, nullptr},
        {"29/2/2004", OrvaDateTime::Year, 1, {2005, 2, 1, 0, 0, 0}, nullptr},
        {"1/1/1970", OrvaDateTime::Second, -1, {1970, 0, 1, 0, 0, 0}, "h "},
        {"1/1/1970 00:59:59", OrvaDateTime::Hour, -1, {1970, 0, 1, 0, 59, 59}, "ith "},
        {"31/12/1969 23:59:58", OrvaDateTime::Second, 1, {1969, 11, 31, 23, 59, 58}, ""},
    };
    for (const auto& [start, field, amount, fields, tail] : cases)
    {
        OrvaDateTime date = parsed(start);
        const unsigned int id = date.getInstanceId();
        std::string error;
        EXPECT_EQ(date.modifyDate(field, amount, error), tail == nullptr) << start << ": " << error;
        EXPECT_EQ(fieldsOf(date), fields) << start << " field " << field << " by " << amount;
        EXPECT_EQ(date.getInstanceId() == id, tail != nullptr) << start;
        EXPECT_EQ(error, tail ? kBadShift + tail : "") << start;
    }
}

TEST_F(OrvaDateTimeTest, CalendarQueries)
{
    EXPECT_EQ(parsed("1/2/2004").day(), 32); // day of the year, not of the month
    EXPECT_EQ(parsed("31/12/2004").day(), 366);
    EXPECT_EQ(parsed("31/12/2003").day(), 365);
    for (const char* leap : {"1/1/2004", "31/12/2000", "1/7/1996"})
        EXPECT_TRUE(parsed(leap).isLeapYear()) << leap;
    for (const char* common : {"1/1/2003", "31/12/1900", "1/7/2100"})
        EXPECT_FALSE(parsed(common).isLeapYear()) << common;

    OrvaDateTime date = parsed("15/11/1994 08:12:31");
    EXPECT_EQ(date.getTime(), 784887151);
    EXPECT_EQ(date.getWeekday(), 2);
    EXPECT_EQ(date.dateToString(std::locale::classic()), L"08:12:31"); // the names are exchanged
    EXPECT_EQ(date.timeToString(std::locale::classic()), L"11/15/94");

    std::string error;
    EXPECT_TRUE(date.setMonthImpl(2, error) && date.setDayImpl(30, error) && date.setYearImpl(2004, error));
    EXPECT_TRUE(!date.setDayImpl(31, error) && error == kInvalid); // 31 November
    EXPECT_TRUE(!date.setMonthImpl(13, error) && error == "Invalid Month : Exceeds 12");
    EXPECT_TRUE(!date.setDayImpl(0, error) && error == "Invalid Day : Exceeds 31");
    EXPECT_EQ(fieldsOf(date), (std::vector<int>{1994, 10, 15, 8, 12, 31}));
}

TEST_F(OrvaDateTimeTest, YearTestsTakeEveryUnsignedYear)
{
    // The year less 1900 is unsigned arithmetic, whatever the year: one whose
    // full value passes the range of int is no date, and one that wraps
    // around to a small negative number is the year it wraps to.
    OrvaDateTime date = parsed("15/11/1994 08:12:31");
    std::string error;
    for (unsigned year : {2147483648u, 2147483655u, 2147485547u})
        EXPECT_TRUE(!date.setYearImpl(year, error) && error == kInvalid) << year;
    EXPECT_TRUE(date.setYearImpl(4294967295u, error)); // the year -1
    EXPECT_EQ(fieldsOf(date), (std::vector<int>{1994, 10, 15, 8, 12, 31}));
}

} // namespace

TEST_F(OrvaDateTimeTest, AChangedZoneCountsAtOnceWithinTheSameSecond)
{
    for (int attempt = 0; attempt < 5; ++attempt)
    {
        const time_t second = time(nullptr);
        useZone("UTC0");
        OrvaDateTime utc;
        setenv("TZ", "XXX-5", 1); // no tzset(): the library notices the change itself
        OrvaDateTime ahead;
        if (time(nullptr) != second)
            continue; // a second boundary fell in between: try again
        EXPECT_EQ((utc.getHour() + 5) % 24, ahead.getHour());
        return;
    }
    FAIL() << "no two conversions within one second";
}
