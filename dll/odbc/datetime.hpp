// Dates, times and timestamps of parameters and fetched values: parameter values given
// as numbers (20190213, 81500, seconds since 1970) or as text (2019-02-13, 08:15, ...)
// checked and turned into ODBC's structures, and fetched structures turned into numbers.
#pragma once

#include <cstdint>

#include <sqltypes.h>

namespace qz {

// Outcome of a conversion to a date, time or timestamp; every failure has its own value
// (a parameter setter turns any of them into status 8).
constexpr int kDtOk = 0;
constexpr int kDtTooLong = 1;      // the text is longer than the setter's parse buffer
constexpr int kDtSyntax = 2;       // not one of the forms: missing number or separator,
                                   // another character, or text after the last number
constexpr int kDtNumberRange = 3;  // a number in the text exceeds the 32-bit range
constexpr int kDtBadDay = 4;       // day outside 1..31
constexpr int kDtBadMonth = 5;     // month outside 1..12
constexpr int kDtBadYear = 6;      // year, after 1900 was added below 1900, over 32767
constexpr int kDtNoSuchDay = 7;    // day past the end of its month (Feb 29 of 2019, Apr 31)
constexpr int kDtBadHour = 8;      // hour outside 0..23
constexpr int kDtBadMinute = 9;    // minute outside 0..59
constexpr int kDtBadSecond = 10;   // second outside 0..59
constexpr int kDtNoUtcTime = 11;   // seconds that cannot be broken down as UTC
constexpr int kDtNoSeconds = 12;   // a timestamp with no number of seconds since 1970

// Parameter values from numbers. A date number N is year N / 10000, month
// (N / 100) % 100, day N % 100 with truncating division (so a negative N fails); a time
// number is hour, minute and second the same way. Seconds count from 1970-01-01
// 00:00:00 UTC and are broken down as UTC, fraction 0. Years below 1900 get 1900 added
// before the checks; a year is a leap year when divisible by 4 and not by 100, or by
// 400. *out is written only when kDtOk is returned.
int date_from_number(std::int32_t n, SQL_DATE_STRUCT *out);
int time_from_number(std::int32_t n, SQL_TIME_STRUCT *out);
int timestamp_from_seconds(std::int32_t seconds, SQL_TIMESTAMP_STRUCT *out);

// Parameter values from text of len bytes (not NUL-terminated; at most 15 for a date or
// a time, 31 for a timestamp, else kDtTooLong). Numbers are decimal digits, each after
// optional white space; the minute and the second may also carry a sign.
// Date: YYYYMMDD, year-month-day, month/day/year or day.month.year.
// Time: H (a time number), H:M or H:M:S.
// Timestamp: a date (a YYYYMMDD date may also end at a blank), then optionally a blank
// and a time; without a time it is midnight. The text must end after the last number.
// The checks and *out are as for the number forms.
int date_from_text(const char *text, int len, SQL_DATE_STRUCT *out);
int time_from_text(const char *text, int len, SQL_TIME_STRUCT *out);
int timestamp_from_text(const char *text, int len, SQL_TIMESTAMP_STRUCT *out);

// Fetched values as numbers: year * 10000 + month * 100 + day, and hour * 10000 +
// minute * 100 + second.
std::int32_t date_number(const SQL_DATE_STRUCT &d);
std::int32_t time_number(const SQL_TIME_STRUCT &t);

// Seconds since 1970-01-01 00:00:00 UTC of a fetched timestamp read as UTC, whatever the
// local time zone; the fraction is dropped. The timestamp goes through mktime as local
// standard time (daylight saving time off, errno cleared), and the system's `timezone`
// (standard time's offset west of UTC) is taken off again. Returns kDtOk, or
// kDtNoSeconds when mktime returned -1 and set errno, or when the result does not fit
// 32 bits (as with a 32-bit time_t); *seconds is written only on kDtOk.
int timestamp_utc_seconds(const SQL_TIMESTAMP_STRUCT &ts, std::int32_t *seconds);

}  // namespace qz
