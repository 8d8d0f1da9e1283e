// Dates: the three text forms of setDateTime, and what a parsed date then
// offers: shifting a field, the checked setters and the text output.
//
// Input: a selector byte, a field byte, four bytes of a signed amount
// (little-endian), then the date text.
//   selector bits 0-1  the time zone: UTC, Europe/Berlin, America/New_York,
//                      Australia/Lord_Howe (half-hour summer time)
//   field              the field of modifyDate, 0-7 (6 and 7 shift nothing)
// A failed parse or shift keeps the object's value and instance id.
#include <ovkit/OrvaDateTime.h>
#include <ovkit/OrvaException.h>

#include "FuzzSupport.h"

#include <cstdlib>
#include <ctime>
#include <locale>
#include <string>

using namespace OrvaSupport;
using ovkit_fuzz::Input;

namespace
{

struct Snapshot
{
    explicit Snapshot(const OrvaDateTime& date)
        : day(date.getDayOfMonth()), month(date.getMonth()), year(date.getYear()), hour(date.getHour()),
          minute(date.getMinute()), second(date.getSecond()), id(date.getInstanceId())
    {
    }
    bool operator==(const Snapshot& other) const
    {
        return day == other.day && month == other.month && year == other.year && hour == other.hour &&
               minute == other.minute && second == other.second && id == other.id;
    }
    int day, month, year, hour, minute, second;
    unsigned int id;
};

/// A date that stands in the object is one that mktime takes as it is.
void checkFields(const OrvaDateTime& date)
{
    OVKIT_FUZZ_CHECK(date.getDayOfMonth() >= 1 && date.getDayOfMonth() <= 31);
    OVKIT_FUZZ_CHECK(date.getMonth() >= 0 && date.getMonth() <= 11);
    OVKIT_FUZZ_CHECK(date.getHour() >= 0 && date.getHour() <= 23);
    OVKIT_FUZZ_CHECK(date.getMinute() >= 0 && date.getMinute() <= 59);
    OVKIT_FUZZ_CHECK(date.getSecond() >= 0 && date.getSecond() <= 60);
}

/// Parses `text`; on failure, of either kind, the object is unchanged.
bool parse(OrvaDateTime& date, const std::string& text)
{
    const Snapshot before(date);
    std::string error;
    try
    {
        if (date.setDateTime(text, error))
            return true;
        OVKIT_FUZZ_CHECK(!error.empty());
    }
    catch (const OrvaException&)
    {
    }
    OVKIT_FUZZ_CHECK(Snapshot(date) == before);
    return false;
}

void useDate(OrvaDateTime& date, int field, int amount)
{
    checkFields(date);
    const std::locale& classic = std::locale::classic();
    date.getTime();
    date.getWeekday();
    date.day();
    date.isLeapYear();
    OVKIT_FUZZ_CHECK(date.hash() == 0);
    date.monthName(classic);
    date.weekdayName(classic);
    date.dateToString(classic);
    date.timeToString(classic);
    date.toString(classic);
    date.toGMTString();

    std::string error;
    date.setYearImpl(static_cast<unsigned>(amount), error);
    date.setMonthImpl(static_cast<unsigned>(amount), error);
    date.setDayImpl(static_cast<unsigned>(amount), error);

    const Snapshot before(date);
    try
    {
        if (date.modifyDate(static_cast<OrvaDateTime::FieldId_t>(field), amount, error))
        {
            checkFields(date);
            return;
        }
    }
    catch (const OrvaException&)
    {
    }
    OVKIT_FUZZ_CHECK(Snapshot(date) == before);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > ovkit_fuzz::c_nMaxInput)
        return 0;
    static const char* const zones[] = {"UTC0", "Europe/Berlin", "America/New_York", "Australia/Lord_Howe"};
    Input input(data, size);
    const std::uint8_t selector = input.byte();
    const int field = input.byte() % 8;
    std::uint32_t amount = 0;
    for (int i = 0; i < 4; ++i)
        amount |= static_cast<std::uint32_t>(input.byte()) << (8 * i);
    const std::string text = input.rest();
    setenv("TZ", zones[selector & 3], 1);
    tzset();

    OrvaDateTime date;
    if (parse(date, text))
        useDate(date, field, static_cast<int>(amount));
    // The form that draws a new instance id, on a second object.
    OrvaDateTime other;
    std::string error;
    try
    {
        other.setDateTimeFromStrImpl(text, error);
    }
    catch (const OrvaException&)
    {
    }
    return 0;
}
