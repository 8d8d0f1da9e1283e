#include <ovkit/OrvaDateTime.h>

#include <ovkit/OrvaLocaleFactory.h>

#include <atomic>
#include <cctype>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <cwchar>
#include <iterator>
#include <sstream>

namespace OrvaSupport
{

namespace
{

const char* const c_szInvalidDate = "Input does not compute to a valid DateTime object";
const char* const c_szBadRfcFormat = "Incorrect RFC1123 DateTime format";
const char* const c_szBadFormat = "Incorrect DateTime format";
const char* const c_szBadShift = "Subtracting does not compute to a valid Date. Trying to subtract field,";
const char* const c_szShiftTail = " with ";

// Longest texts accepted by the three parsed forms.
const std::string::size_type c_nMaxRfcLength = 29;
const std::string::size_type c_nMaxNumericLength = 19;
const std::string::size_type c_nMaxCtimeLength = 25;

// The name and zone words are read into buffers of this size; the scan
// formats bound them to one character less.
const int c_nWordBufferSize = 10;

/// A zeroed tm whose summer-time flag is left to mktime.
tm blankTm()
{
    tm result = tm();
    result.tm_isdst = -1;
    return result;
}

/// `base` with its six calendar fields replaced; month counts from 0 and year
/// from 1900, as in tm.
tm withFields(tm base, int day, int month, int year, int hour, int minute, int second)
{
    base.tm_mday = day;
    base.tm_mon = month;
    base.tm_year = year;
    base.tm_hour = hour;
    base.tm_min = minute;
    base.tm_sec = second;
    return base;
}

/// A copy of what localtime_r or gmtime_r returned; a zeroed tm for the null
/// they give when the year would not fit.
tm copyOf(const tm* source)
{
    return source ? *source : tm();
}

// The C library's local-time conversion reads the zone anew on every call
// (the TZ variable, and the zone file behind it); the re-entrant one reads it
// once. Between the two: the zone is read again whenever TZ has changed since
// the last conversion, so a process that sets TZ still gets its own zone,
// while the file is read once per setting rather than once per call.
std::atomic<std::uint64_t> s_nZoneSetting{0};

std::uint64_t zoneSetting()
{
    const char* tz = getenv("TZ");
    if (!tz)
        return 1;
    std::uint64_t hash = 1469598103934665603ull; // FNV-1a, never 0 or 1 in practice
    for (; *tz; ++tz)
        hash = (hash ^ static_cast<unsigned char>(*tz)) * 1099511628211ull;
    return hash | 2;
}

// Each thread keeps its last conversion: the log converts the present
// second for every record it writes.
struct LastConversion
{
    time_t m_nTime;
    std::uint64_t m_nZoneSetting; // 0: nothing converted yet
    tm m_oFields;
};
__attribute__((tls_model("initial-exec"))) thread_local LastConversion t_oLastConversion = {0, 0, tm()};

tm localFields(time_t t)
{
    const std::uint64_t setting = zoneSetting();
    LastConversion& last = t_oLastConversion;
    if (last.m_nZoneSetting == setting && last.m_nTime == t)
        return last.m_oFields;
    if (s_nZoneSetting.load(std::memory_order_acquire) != setting)
    {
        tzset();
        s_nZoneSetting.store(setting, std::memory_order_release);
    }
    tm fields;
    const tm converted = copyOf(localtime_r(&t, &fields));
    last = {t, setting, converted};
    return converted;
}

// The broken-down local time of a date.
tm localFieldsOf(const OrvaDateTime& date)
{
    return localFields(date.getTime());
}

/// `value` + `delta`, held to the range of int so that a hostile number
/// cannot overflow; a held value is far outside every valid date.
int addClamped(int value, long long delta)
{
    long long sum = static_cast<long long>(value) + delta;
    if (sum > INT_MAX)
        return INT_MAX;
    if (sum < INT_MIN)
        return INT_MIN;
    return static_cast<int>(sum);
}

/// True when every word that a bounded "%9s" read ended where the text's
/// word ended: `ends` holds the offsets after each word (from "%n").
bool wordsComplete(const std::string& text, const int* ends, int count)
{
    for (int i = 0; i < count; ++i)
    {
        int end = ends[i];
        if (end < 0)
            return false;
        if (static_cast<std::string::size_type>(end) < text.size() &&
            !std::isspace(static_cast<unsigned char>(text[end])))
            return false;
    }
    return true;
}

} // namespace

unsigned int OrvaDateTime::m_objectCounter = 0;

const char* const OrvaDateTime::abbrevMonthNames[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

OrvaDateTime::OrvaDateTime() : m_oLocale(OrvaLocaleFactory::getDefaultLocale(false))
{
    takeFields(localFields(time(nullptr)));
    m_nInstanceId = ++m_objectCounter;
}

OrvaDateTime::OrvaDateTime(const OrvaDateTime& other)
    : m_nDay(0), m_nMonth(0), m_nYear(0), m_nHour(0), m_nMinute(0), m_nSecond(0), m_oLocale(),
      m_nInstanceId(0)
{
    *this = other;
}

OrvaDateTime& OrvaDateTime::operator=(const OrvaDateTime& other)
{
    if (this != &other)
    {
        m_nDay = other.m_nDay;
        m_nMonth = other.m_nMonth;
        m_nYear = other.m_nYear;
        m_nHour = other.m_nHour;
        m_nMinute = other.m_nMinute;
        m_nSecond = other.m_nSecond;
        m_nInstanceId = other.m_nInstanceId;
    }
    return *this;
}

OrvaDateTime::~OrvaDateTime() {}

time_t OrvaDateTime::getTime() const
{
    tm fields = withFields(blankTm(), m_nDay, m_nMonth, m_nYear - 1900, m_nHour, m_nMinute, m_nSecond);
    return mktime(&fields);
}

int OrvaDateTime::getWeekday() const
{
    return localFieldsOf(*this).tm_wday;
}

int OrvaDateTime::day() const
{
    return localFieldsOf(*this).tm_yday + 1;
}

bool OrvaDateTime::isLeapYear() const
{
    tm probe = localFieldsOf(*this);
    probe.tm_mday = 29;
    probe.tm_mon = 1;
    mktime(&probe);
    return probe.tm_mday == 29 || probe.tm_mon == 1;
}

int OrvaDateTime::hash() const
{
    // The chain below is kept as it has always been: the floating-point
    // remainder cancels out, so every date hashes to 0.
    unsigned int x = static_cast<unsigned int>(getTime()) * 41358u + m_nInstanceId;
    double value = static_cast<double>(x);
    return static_cast<int>(value - 28.0 * (value / 28.0));
}

void OrvaDateTime::adjustInstanceId()
{
    m_nInstanceId = ++m_objectCounter;
}

int OrvaDateTime::getMonthForRFCName(std::string& name) const
{
    for (int month = 0; month < 12; ++month)
    {
        if (name == abbrevMonthNames[month])
            return month;
    }
    return 0;
}

bool OrvaDateTime::validateDateTime(const tm& time, std::string& error) const
{
    tm probe = time;
    bool valid = mktime(&probe) != static_cast<time_t>(-1) && probe.tm_year == time.tm_year &&
                 probe.tm_mon == time.tm_mon && probe.tm_mday == time.tm_mday &&
                 probe.tm_hour == time.tm_hour && probe.tm_min == time.tm_min && probe.tm_sec == time.tm_sec;
    // The full year is held in an int as well.
    if (valid && time.tm_year > INT_MAX - 1900)
        valid = false;
    if (!valid)
        error = c_szInvalidDate;
    return valid;
}

bool OrvaDateTime::operatorImpl(const tm& time, std::string& error)
{
    if (!validateDateTime(time, error))
        return false;
    takeFields(time);
    adjustInstanceId();
    return true;
}

void OrvaDateTime::takeFields(const tm& time)
{
    m_nDay = time.tm_mday;
    m_nMonth = time.tm_mon;
    m_nYear = time.tm_year + 1900;
    m_nHour = time.tm_hour;
    m_nMinute = time.tm_min;
    m_nSecond = time.tm_sec;
}

namespace
{

// The three text forms, one reader each: true with `fields` filled, or false
// with `error` set.

// "Tue, 15 Nov 1994 08:12:31 GMT". The day name and the zone are read but not
// used; the fields are taken as local time and may carry.
bool readRfcForm(const OrvaDateTime& date, const std::string& text, tm& fields, std::string& error)
{
    char dayName[c_nWordBufferSize] = "", monthName[c_nWordBufferSize] = "", zone[c_nWordBufferSize] = "";
    int ends[3] = {-1, -1, -1};
    int dayOfMonth = 0, year = 0, hour = 0, minute = 0, second = 0;
    if (text.size() > c_nMaxRfcLength ||
        sscanf(text.c_str(), "%9s%n %d %9s%n %d %d:%d:%d %9s%n", dayName, &ends[0], &dayOfMonth, monthName,
               &ends[1], &year, &hour, &minute, &second, zone, &ends[2]) != 8 ||
        !wordsComplete(text, ends, 3))
    {
        error = c_szBadRfcFormat;
        return false;
    }
    std::string name(monthName);
    fields = withFields(blankTm(), dayOfMonth, date.getMonthForRFCName(name), addClamped(year, -1900), hour,
                        minute, second);
    time_t carried = mktime(&fields);
    fields = localFields(carried);
    return true;
}

// "15/11/1994 08:12:31", day first; the time of day is optional.
bool readNumericForm(const std::string& text, tm& fields, std::string& error)
{
    int dayOfMonth = 0, month = 0, year = 0, hour = 0, minute = 0, second = 0;
    if (text.size() > c_nMaxNumericLength)
    {
        error = c_szBadRfcFormat;
        return false;
    }
    if (sscanf(text.c_str(), "%d/%d/%d %d:%d:%d", &dayOfMonth, &month, &year, &hour, &minute, &second) <= 2)
    {
        error = c_szBadFormat;
        return false;
    }
    fields = withFields(blankTm(), dayOfMonth, addClamped(month, -1), addClamped(year, -1900), hour, minute,
                        second);
    return true;
}

// "Tue Nov 15 08:12:31 1994", the order of ctime.
bool readCtimeForm(const OrvaDateTime& date, const std::string& text, tm& fields, std::string& error)
{
    char dayName[c_nWordBufferSize] = "", monthName[c_nWordBufferSize] = "";
    int ends[2] = {-1, -1};
    int dayOfMonth = 0, year = 0, hour = 0, minute = 0, second = 0;
    if (text.size() > c_nMaxCtimeLength ||
        sscanf(text.c_str(), "%9s%n %9s%n %d %d:%d:%d %d", dayName, &ends[0], monthName, &ends[1],
               &dayOfMonth, &hour, &minute, &second, &year) != 7 ||
        !wordsComplete(text, ends, 2))
    {
        error = c_szBadFormat;
        return false;
    }
    std::string name(monthName);
    fields = withFields(blankTm(), dayOfMonth, date.getMonthForRFCName(name), addClamped(year, -1900), hour,
                        minute, second);
    return true;
}

} // namespace

bool OrvaDateTime::setDateTime(const std::string& text, std::string& error)
{
    tm fields = blankTm();
    const bool read = text.find(',') != std::string::npos   ? readRfcForm(*this, text, fields, error)
                      : text.find('/') != std::string::npos ? readNumericForm(text, fields, error)
                                                            : readCtimeForm(*this, text, fields, error);
    if (!read)
        return false;
    if (!operatorImpl(fields, error))
        throw OrvaInvalidDateException(error);
    return true;
}

bool OrvaDateTime::setDateTimeFromStrImpl(const std::string& text, std::string& error)
{
    if (!setDateTime(text, error))
        return false;
    adjustInstanceId();
    return true;
}

bool OrvaDateTime::setDateTimeFromTmImpl(const tm& time, std::string& error)
{
    if (!operatorImpl(time, error))
        throw OrvaInvalidDateException(error);
    return true;
}

bool OrvaDateTime::setDateImpl(unsigned day, unsigned month, unsigned year, std::string& error)
{
    return setDateTimeImpl(day, month, year, 0, 0, 0, error);
}

bool OrvaDateTime::setDateTimeImpl(unsigned day, unsigned month, unsigned year, unsigned hour,
                                   unsigned minute, unsigned second, std::string& error)
{
    // tm_isdst stays 0 here, unlike in the parsed forms: the caller speaks
    // of standard time.
    const tm fields =
        withFields(tm(), static_cast<int>(day), static_cast<int>(month - 1), static_cast<int>(year),
                   static_cast<int>(hour), static_cast<int>(minute), static_cast<int>(second));
    if (!operatorImpl(fields, error))
        throw OrvaInvalidDateException(error);
    adjustInstanceId();
    return true;
}

// Validates this date with one local field replaced, after a range check of
// the new value when `highest` is above 0.
bool OrvaDateTime::probeField(int tm::*field, unsigned value, int offset, unsigned highest,
                              const char* tooHigh, std::string& error) const
{
    if (highest > 0 && (value < 1 || value > highest))
    {
        error = tooHigh;
        return false;
    }
    tm probe = localFieldsOf(*this);
    // Unsigned arithmetic, as the value is unsigned: a year far beyond the
    // range of int wraps around instead of overflowing.
    probe.*field = static_cast<int>(value + static_cast<unsigned>(offset));
    return validateDateTime(probe, error);
}

bool OrvaDateTime::setYearImpl(unsigned year, std::string& error) const
{
    return probeField(&tm::tm_year, year, -1900, 0, "", error);
}

bool OrvaDateTime::setMonthImpl(unsigned month, std::string& error) const
{
    return probeField(&tm::tm_mon, month, -1, 12, "Invalid Month : Exceeds 12", error);
}

bool OrvaDateTime::setDayImpl(unsigned day, std::string& error) const
{
    return probeField(&tm::tm_mday, day, 0, 31, "Invalid Day : Exceeds 31", error);
}

bool OrvaDateTime::modifyDate(FieldId_t field, int amount, std::string& error)
{
    if (amount == 0)
        return false;

    // The tm member of each field, in the order of FieldId_t.
    static int tm::*const c_aFieldMembers[] = {&tm::tm_mon,  &tm::tm_mday, &tm::tm_year,
                                               &tm::tm_hour, &tm::tm_min,  &tm::tm_sec};
    tm shifted = localFieldsOf(*this);
    const unsigned index = static_cast<unsigned>(field);
    int* target = index < 6 ? &(shifted.*c_aFieldMembers[index]) : nullptr;

    // A sum that leaves the range of int counts as a failure of mktime.
    bool computes = true;
    if (target)
    {
        long long sum = static_cast<long long>(*target) + amount;
        if (sum > INT_MAX || sum < INT_MIN)
            computes = false;
        else
            *target = static_cast<int>(sum);
    }
    if (!computes || mktime(&shifted) == static_cast<time_t>(-1))
    {
        error = c_szBadShift;
        // The tail of " with " from offset field + amount, where that offset
        // lies inside it; the numbers themselves are never printed.
        long long offset = static_cast<long long>(field) + amount;
        std::string tail(c_szShiftTail);
        if (offset >= 0 && offset <= static_cast<long long>(tail.size()))
            error += tail.substr(static_cast<std::string::size_type>(offset));
        return false;
    }
    if (!operatorImpl(shifted, error))
        throw OrvaInvalidDateException(error);
    return true;
}

std::wstring OrvaDateTime::formatLocalTime(const std::locale& locale, const wchar_t* format) const
{
    tm local = localFieldsOf(*this);
    return constructTimeString(&local, locale, format);
}

std::wstring OrvaDateTime::monthName(const std::locale& locale) const
{
    return formatLocalTime(locale, L"%B");
}

std::wstring OrvaDateTime::weekdayName(const std::locale& locale) const
{
    return formatLocalTime(locale, L"%A");
}

std::wstring OrvaDateTime::dateToString(const std::locale& locale) const
{
    // The time of day: the names of this pair are exchanged, and stay so.
    return formatLocalTime(locale, L"%X");
}

std::wstring OrvaDateTime::timeToString(const std::locale& locale) const
{
    // The date: see dateToString.
    return formatLocalTime(locale, L"%x");
}

std::wstring OrvaDateTime::toString(const std::locale& locale) const
{
    return formatLocalTime(locale, L"%c");
}

std::wstring OrvaDateTime::toGMTString() const
{
    time_t t = getTime();
    tm converted;
    tm utc = copyOf(gmtime_r(&t, &converted));
    return constructTimeString(&utc, m_oLocale, L"%c");
}

std::wstring OrvaDateTime::constructTimeString(tm* time, const std::locale& locale, const wchar_t* format)
{
    std::wostringstream stream;
    stream.imbue(locale);
    const std::time_put<wchar_t>& facet = std::use_facet<std::time_put<wchar_t>>(locale);
    facet.put(std::ostreambuf_iterator<wchar_t>(stream), stream, L' ', time, format, format + wcslen(format));
    return stream.str();
}

} // namespace OrvaSupport
