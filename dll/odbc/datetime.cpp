// Parsing works on a NUL-terminated copy of the text, so that a NUL inside the given
// length ends the text as it ends it for the C library's readers. Numbers are read into
// 64 bits and checked against the 32-bit range, the same in the 32-bit and the 64-bit
// build; the checks run on 64-bit values so that adding 1900 cannot overflow.
#include "datetime.hpp"

#include "numtext.hpp"

#include <cassert>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <limits>

namespace qz {
namespace {

constexpr std::int64_t kMax32 = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t kMin32 = std::numeric_limits<std::int32_t>::min();

struct Date {
  std::int64_t year;   // as given; 1900 is added below 1900
  std::int64_t month;  // 1..12 when valid
  std::int64_t day;    // 1..31 when valid
};

struct Time {
  std::int64_t hour;    // 0..23 when valid
  std::int64_t minute;  // 0..59 when valid
  std::int64_t second;  // 0..59 when valid
};

bool is_white(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

// Reads a decimal number at p after optional white space and, where signed is set, an
// optional sign; p is left after the last digit. No digit at all is a syntax error.
int read_number(const char *&p, bool is_signed, std::int64_t *out) {
  while (is_white(*p))
    ++p;
  bool negative = false;
  if (is_signed && (*p == '+' || *p == '-')) negative = *p++ == '-';
  if (*p < '0' || *p > '9') return kDtSyntax;
  std::int64_t v = 0;
  bool range = false;
  for (; *p >= '0' && *p <= '9'; ++p) {
    v = v * 10 + (*p - '0');
    if (v > kMax32 + 1) {
      range = true;
      v = kMax32 + 1;  // keeps the sum small; the digits are still consumed
    }
  }
  if (negative) v = -v;
  if (range || v > kMax32 || v < kMin32) return kDtNumberRange;
  *out = v;
  return kDtOk;
}

Date split_date_number(std::int64_t n) {
  return {n / 10000, (n / 100) % 100, n % 100};
}

Time split_time_number(std::int64_t n) {
  return {n / 10000, (n / 100) % 100, n % 100};
}

bool is_leap(std::int64_t year) {
  return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int check_date(Date d, SQL_DATE_STRUCT *out) {
  if (d.day < 1 || d.day > 31) return kDtBadDay;
  if (d.month < 1 || d.month > 12) return kDtBadMonth;
  if (d.year < 1900) d.year += 1900;
  if (d.year > std::numeric_limits<SQLSMALLINT>::max()) return kDtBadYear;
  std::int64_t last = 31;
  if (d.month == 2)
    last = is_leap(d.year) ? 29 : 28;
  else if (d.month == 4 || d.month == 6 || d.month == 9 || d.month == 11)
    last = 30;
  if (d.day > last) return kDtNoSuchDay;
  out->year = static_cast<SQLSMALLINT>(d.year);
  out->month = static_cast<SQLUSMALLINT>(d.month);
  out->day = static_cast<SQLUSMALLINT>(d.day);
  return kDtOk;
}

int check_time(Time t, SQL_TIME_STRUCT *out) {
  if (t.hour < 0 || t.hour > 23) return kDtBadHour;
  if (t.minute < 0 || t.minute > 59) return kDtBadMinute;
  if (t.second < 0 || t.second > 59) return kDtBadSecond;
  out->hour = static_cast<SQLUSMALLINT>(t.hour);
  out->minute = static_cast<SQLUSMALLINT>(t.minute);
  out->second = static_cast<SQLUSMALLINT>(t.second);
  return kDtOk;
}

// Date part at p: a first number A, then by the character after it a date number
// (end of text, or a blank where blank_ends), year-month-day, month/day/year or
// day.month.year. p is left after the last number.
int parse_date(const char *&p, bool blank_ends, Date *out) {
  std::int64_t a, b, c;
  if (int rc = read_number(p, false, &a)) return rc;
  char sep = *p;
  if (sep == '\0' || (blank_ends && sep == ' ')) {
    *out = split_date_number(a);
    return kDtOk;
  }
  if (sep != '-' && sep != '/' && sep != '.') return kDtSyntax;
  ++p;
  if (int rc = read_number(p, false, &b)) return rc;
  if (*p != sep) return kDtSyntax;
  ++p;
  if (int rc = read_number(p, false, &c)) return rc;
  if (sep == '-')
    *out = {a, b, c};
  else if (sep == '/')
    *out = {c, a, b};
  else
    *out = {c, b, a};
  return kDtOk;
}

// Time part at p: H alone (a time number), or H:M with an optional :S; the minute and
// the second may be signed. p is left after the last number.
int parse_time(const char *&p, Time *out) {
  std::int64_t h, m, s = 0;
  if (int rc = read_number(p, false, &h)) return rc;
  if (*p != ':') {
    *out = split_time_number(h);
    return kDtOk;  // the caller requires the end here
  }
  ++p;
  if (int rc = read_number(p, true, &m)) return rc;
  if (*p == ':') {
    ++p;
    if (int rc = read_number(p, true, &s)) return rc;
  }
  *out = {h, m, s};
  return kDtOk;
}

// Copies len bytes into buf (of max + 1 bytes) with a NUL; false when len exceeds max.
bool copy_text(const char *text, int len, char *buf, int max) {
  assert(len >= 0);
  if (len > max) return false;
  std::memcpy(buf, text, static_cast<std::size_t>(len));
  buf[len] = '\0';
  return true;
}

}  // namespace

int date_from_number(std::int32_t n, SQL_DATE_STRUCT *out) {
  return check_date(split_date_number(n), out);
}

int time_from_number(std::int32_t n, SQL_TIME_STRUCT *out) {
  return check_time(split_time_number(n), out);
}

int timestamp_from_seconds(std::int32_t seconds, SQL_TIMESTAMP_STRUCT *out) {
  std::time_t t = seconds;
  std::tm tm{};
  if (!gmtime_r(&t, &tm)) return kDtNoUtcTime;
  SQL_DATE_STRUCT d;
  SQL_TIME_STRUCT c;
  if (int rc = check_date({tm.tm_year + 1900LL, tm.tm_mon + 1LL, tm.tm_mday}, &d)) return rc;
  if (int rc = check_time({tm.tm_hour, tm.tm_min, tm.tm_sec}, &c)) return rc;
  *out = {d.year, d.month, d.day, c.hour, c.minute, c.second, 0};
  return kDtOk;
}

namespace {

// Text of at most Max characters, read whole by `read`, which parses from a pointer into
// its NUL-terminated copy and stores the result.
template <int Max, class Read>
int read_text(const char *text, int len, Read read) {
  char buf[Max + 1];
  if (!copy_text(text, len, buf, Max)) return kDtTooLong;
  const char *p = buf;
  if (int rc = read(p)) return rc;
  return *p == '\0' ? kDtOk : kDtSyntax;
}

}  // namespace

int date_from_text(const char *text, int len, SQL_DATE_STRUCT *out) {
  Date d;
  if (int rc = read_text<kParamDateTextMax>(
          text, len, [&](const char *&p) { return parse_date(p, false, &d); }))
    return rc;
  return check_date(d, out);
}

int time_from_text(const char *text, int len, SQL_TIME_STRUCT *out) {
  Time t;
  if (int rc = read_text<kParamTimeTextMax>(text, len,
                                            [&](const char *&p) { return parse_time(p, &t); }))
    return rc;
  return check_time(t, out);
}

int timestamp_from_text(const char *text, int len, SQL_TIMESTAMP_STRUCT *out) {
  Date d;
  Time t{0, 0, 0};
  if (int rc = read_text<kParamTimestampTextMax>(text, len, [&](const char *&p) {
        if (int rc = parse_date(p, true, &d)) return rc;
        // The blank before the time goes as white space.
        return *p == ' ' ? parse_time(p, &t) : kDtOk;
      }))
    return rc;
  SQL_DATE_STRUCT ds;
  SQL_TIME_STRUCT ts;
  if (int rc = check_date(d, &ds)) return rc;
  if (int rc = check_time(t, &ts)) return rc;
  *out = {ds.year, ds.month, ds.day, ts.hour, ts.minute, ts.second, 0};
  return kDtOk;
}

std::int32_t date_number(const SQL_DATE_STRUCT &d) {
  // At most 32767 * 10000 + 65535 * 101 in magnitude: no overflow.
  return d.year * 10000 + d.month * 100 + d.day;
}

std::int32_t time_number(const SQL_TIME_STRUCT &t) {
  return t.hour * 10000 + t.minute * 100 + t.second;
}

int timestamp_utc_seconds(const SQL_TIMESTAMP_STRUCT &ts, std::int32_t *seconds) {
  std::tm tm{};
  tm.tm_sec = ts.second;
  tm.tm_min = ts.minute;
  tm.tm_hour = ts.hour;
  tm.tm_mday = ts.day;
  tm.tm_mon = ts.month - 1;
  tm.tm_year = ts.year - 1900;
  tm.tm_isdst = 0;  // read as local standard time, whose offset `timezone` holds
  errno = 0;
  std::time_t t = std::mktime(&tm);
  // -1 is also the answer for 1969-12-31 23:59:59 UTC; only errno tells a failure.
  if (t == static_cast<std::time_t>(-1) && errno != 0) return kDtNoSeconds;
  // mktime has run tzset, so `timezone` belongs to the current TZ.
  std::int64_t s = static_cast<std::int64_t>(t) - timezone;
  if (s < kMin32 || s > kMax32) return kDtNoSeconds;
  *seconds = static_cast<std::int32_t>(s);
  return kDtOk;
}

}  // namespace qz
