/// \file
/// A calendar value in broken-down local time.
///
///     OrvaDateTime date;                          // now, local time
///     std::string error;
///     date.setDateTimeFromStrImpl("15/11/1994 08:12:31", error);
///     date.modifyDate(OrvaDateTime::Day, 35, error);   // 20 December 1994
///     std::wstring text = date.toString(std::locale::classic());
///
/// OrvaDateTime does no calendar arithmetic of its own: the C library's
/// mktime, localtime and gmtime do it all. A date is valid when mktime takes
/// its fields as they stand, without carrying any of them, so month lengths,
/// leap years and summer-time gaps are those of the C library and of the TZ
/// the process runs under. With a 64-bit time_t the range of dates is very
/// wide (the year 99 and the year 3904 are both valid); it ends where the full
/// year no longer fits in an int.
///
/// Three text forms are read (see setDateTime):
///
///     "Tue, 15 Nov 1994 08:12:31 GMT"   day name, day, month name, year, time, zone
///     "15/11/1994 08:12:31"             day/month/year, the time optional
///     "Tue Nov 15 08:12:31 1994"        day name, month name, day, time, year
///
/// Setting operations come as ...Impl forms that return false with a text in
/// `error` for a malformed request, and throw OrvaInvalidDateException for a
/// date that does not exist. After any failure the object keeps its value and
/// its instance id.
///
/// Every object carries an instance id drawn from the class-wide counter
/// m_objectCounter; a copy carries the id of its source, and each successful
/// set operation draws a new one.
///
/// Thread safety: none. The class takes no lock, increments the counter
/// without protection, and works on the shared results of localtime and
/// gmtime. Use an object from one thread at a time, and do not run date
/// operations on several threads at once.
#ifndef OVKIT_ORVADATETIME_H
#define OVKIT_ORVADATETIME_H

#include <ovkit/OrvaException.h>
#include <ovkit/OrvaExport.h>

#include <ctime>
#include <locale>
#include <string>

namespace OrvaSupport
{

/// A date and time of day, held as the six broken-down fields of local time,
/// with a locale of its own and an instance id.
class OVKIT_API OrvaDateTime
{
public:
    /// Selects the field that modifyDate shifts.
    enum FieldId_t
    {
        Month = 0,
        Day = 1,
        Year = 2,
        Hour = 3,
        Minute = 4,
        Second = 5
    };

    /// The current local time, the default locale of the library, and a new
    /// instance id (the counter is incremented, then read).
    OrvaDateTime();
    /// Copies the date and the instance id; the locale is the global
    /// std::locale(), not the source's. The counter is not touched.
    OrvaDateTime(const OrvaDateTime& other);
    /// Copies the six date fields and the instance id, so that the target
    /// carries the id of its source. The locale is not copied.
    OrvaDateTime& operator=(const OrvaDateTime& other);
    virtual ~OrvaDateTime();

    ///@{
    /// The stored fields as they are: day of the month 1-31, month 0-11,
    /// full year, hour, minute, second.
    int getDayOfMonth() const { return m_nDay; }
    int getMonth() const { return m_nMonth; }
    int getYear() const { return m_nYear; }
    int getHour() const { return m_nHour; }
    int getMinute() const { return m_nMinute; }
    int getSecond() const { return m_nSecond; }
    ///@}
    /// The instance id: its source's for a copy, a new one after each
    /// successful set operation.
    unsigned int getInstanceId() const { return m_nInstanceId; }

    /// mktime of the six fields, with the summer-time flag left to mktime.
    time_t getTime() const;
    /// The day of the week, 0 for Sunday.
    int getWeekday() const;
    /// The day of the YEAR, 1 to 366 (1 February is 32); not the day of the
    /// month, which getDayOfMonth gives.
    int day() const;
    /// Asks mktime whether 29 February exists in the year, starting from the
    /// local time of this date: true if, after normalisation, the day is
    /// still 29 or the month still February. Summer-time flag and time of
    /// day come along from this date, so in a zone with summer time a date
    /// in the first hour of a summer day can answer true for a common year
    /// (mktime moves 1 March 00:30 back into February).
    bool isLeapYear() const;
    /// 0 for every date. The value is computed as (getTime() * 41358 +
    /// instance id) in 32-bit unsigned arithmetic, less 28 times its own
    /// quotient by 28 in floating point, cut to an integer, which leaves
    /// nothing; callers that hash dates get one bucket.
    int hash() const;
    /// Increments m_objectCounter and takes its value as the instance id.
    void adjustInstanceId();
    /// The index 0-11 of `name` among abbrevMonthNames, compared exactly
    /// ("Jan", not "jan" or "January"). An unknown name gives 0 (January),
    /// without an error.
    int getMonthForRFCName(std::string& name) const;

    /// Checks `tm` without changing anything: it is valid when mktime accepts
    /// a copy (result other than -1) and leaves year, month, day, hour,
    /// minute and second as they were, and when the full year fits in an
    /// int. So 31 April, 29 February of a common year, 24:00 and an hour in a
    /// summer-time gap are all invalid; so is the one second whose time_t is
    /// -1 (31 December 1969 23:59:59 UTC). With tm_isdst 0 a summer date is
    /// invalid in a zone with summer time, because mktime moves its hour.
    /// On failure `error` is "Input does not compute to a valid DateTime
    /// object".
    bool validateDateTime(const tm& time, std::string& error) const;
    /// validateDateTime, and if it passes, stores the fields (tm_year + 1900
    /// as the full year) and takes a new instance id. Never throws.
    bool operatorImpl(const tm& time, std::string& error);

    /// Parses one of the three text forms, chosen by what the text contains:
    ///
    /// - a ",": "%s %d %s %d %d:%d:%d %s" (day name, day, month name, year,
    ///   hour, minute, second, zone), at most 29 characters, all 8 parts
    ///   present, else "Incorrect RFC1123 DateTime format". Day name and zone
    ///   are not looked at: the time is taken as local time. This form alone
    ///   carries: "31 Feb 1994" becomes 3 March 1994.
    /// - else a "/": "%d/%d/%d %d:%d:%d" (day first), at most 19 characters,
    ///   else "Incorrect RFC1123 DateTime format", the first form's text;
    ///   with fewer than three numbers "Incorrect DateTime format". Missing
    ///   time parts are 0. The year is taken as written: "1/2/99" is the
    ///   year 99.
    /// - else: "%s %s %d %d:%d:%d %d" (day name, month name, day, hour,
    ///   minute, second, year), at most 25 characters, all 7 parts present,
    ///   else "Incorrect DateTime format".
    ///
    /// Month names are read as getMonthForRFCName reads them (unknown means
    /// January). Each of the name and zone words may have at most 9
    /// characters; a longer word makes the text malformed, with the form's
    /// format error. Returns false with `error` for a malformed text; throws
    /// OrvaInvalidDateException for a well-formed text naming a date that
    /// does not exist (the first form carries instead, and so throws only
    /// beyond the range of mktime); true on success. A success takes one new
    /// instance id.
    bool setDateTime(const std::string& text, std::string& error);
    /// setDateTime, and on success adjustInstanceId: the counter rises by two.
    bool setDateTimeFromStrImpl(const std::string& text, std::string& error);
    /// operatorImpl, but an invalid date throws OrvaInvalidDateException
    /// with the validation text. True on success.
    bool setDateTimeFromTmImpl(const tm& time, std::string& error);
    /// Sets day `day`, month `month` (1-12) and year `year` counted from 1900
    /// (104 is 2004; 2004 is 3904), at 00:00:00 with tm_isdst 0, so in a
    /// zone with summer time a summer date is invalid. An invalid date throws
    /// OrvaInvalidDateException. On success the counter rises by two.
    bool setDateImpl(unsigned day, unsigned month, unsigned year, std::string& error);
    /// As setDateImpl, with the time of day.
    bool setDateTimeImpl(unsigned day, unsigned month, unsigned year, unsigned hour, unsigned minute,
                         unsigned second, std::string& error);

    /// Tests only, and changes nothing: whether this date with its year
    /// replaced by `year` (a full year) would be valid. The summer-time flag
    /// of this date is kept, so a change across summer and winter time can
    /// be refused in a zone with summer time.
    bool setYearImpl(unsigned year, std::string& error) const;
    /// As setYearImpl for the month, 1-12; outside that range the error is
    /// "Invalid Month : Exceeds 12", a month of 0 included.
    bool setMonthImpl(unsigned month, std::string& error) const;
    /// As setYearImpl for the day of the month, 1-31; outside that range the
    /// error is "Invalid Day : Exceeds 31", a day of 0 included.
    bool setDayImpl(unsigned day, std::string& error) const;

    /// Adds `amount` to one field and lets mktime carry: 35 days on from
    /// 1 January is 5 February, one month on from 31 January is 2 or 3 March,
    /// 25 hours on moves the day. Works on local time, so a shift by days
    /// across a summer-time change moves the hour too. An amount of 0 returns
    /// false and leaves `error` untouched. A field value outside FieldId_t
    /// shifts nothing but still normalises and draws a new id. When mktime
    /// fails (or the field would leave the int range) the result is false and
    /// `error` is "Subtracting does not compute to a valid Date. Trying to
    /// subtract field," followed by the text " with " less its first
    /// (field + amount) characters, or by nothing when that sum lies outside
    /// 0-6; the same text is used for both signs. A normalised result that is
    /// not valid throws OrvaInvalidDateException. True on success, with one
    /// new instance id.
    bool modifyDate(FieldId_t field, int amount, std::string& error);

    /// Wide texts made by the std::time_put<wchar_t> facet of `locale` from
    /// the local time of this date. dateToString gives the locale's TIME of
    /// day ("%X") and timeToString the locale's DATE ("%x"): the two names
    /// are exchanged, and callers rely on that. A locale without the facet
    /// throws std::bad_cast.
    std::wstring monthName(const std::locale& locale) const;    ///< "%B"
    std::wstring weekdayName(const std::locale& locale) const;  ///< "%A"
    std::wstring dateToString(const std::locale& locale) const; ///< "%X", the time of day
    std::wstring timeToString(const std::locale& locale) const; ///< "%x", the date
    std::wstring toString(const std::locale& locale) const;     ///< "%c"
    /// The locale's date and time ("%c") of the UTC value, through this
    /// object's own locale. Not an RFC 1123 text.
    std::wstring toGMTString() const;

    /// The class-wide instance counter, starting at 0. Incremented without
    /// any lock.
    static unsigned int m_objectCounter;
    /// "Jan" to "Dec".
    static const char* const abbrevMonthNames[12];

protected:
    /// Writes `time` by the wide `format` through the std::time_put<wchar_t>
    /// facet of `locale` into a wide string stream imbued with `locale`.
    static std::wstring constructTimeString(tm* time, const std::locale& locale, const wchar_t* format);

private:
    void takeFields(const tm& time);
    bool probeField(int tm::*field, unsigned value, int offset, unsigned highest, const char* tooHigh,
                    std::string& error) const;
    /// This date as local time, written by `format` through constructTimeString.
    std::wstring formatLocalTime(const std::locale& locale, const wchar_t* format) const;

    int m_nDay;
    int m_nMonth;
    int m_nYear;
    int m_nHour;
    int m_nMinute;
    int m_nSecond;
    std::locale m_oLocale;
    unsigned int m_nInstanceId;
};

} // namespace OrvaSupport

#endif // OVKIT_ORVADATETIME_H
