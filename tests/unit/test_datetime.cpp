// Tests of date, time and timestamp conversions: the number and text forms of
// parameters with every check (day and month ranges, years below 1900, leap years judged
// after that, 30-day months, hours, minutes, seconds), the seconds broken down as UTC,
// and fetched timestamps read as UTC under several TZ settings, daylight saving included.
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include <gtest/gtest.h>

#include "datetime.hpp"

namespace {

constexpr std::int32_t kMin32 = -2147483647 - 1;
constexpr std::int32_t kMax32 = 2147483647;

// POSIX TZ strings, so that no time zone database is needed, with the offset west of
// UTC of their standard time (what `timezone` must hold under them).
struct Zone {
  const char *tz;  // TZ value
  long west;       // seconds west of UTC of standard time
};
const Zone kZones[] = {
    {"UTC0", 0},
    {"CET-1CEST,M3.5.0,M10.5.0/3", -3600},    // east of UTC, summer time from March
    {"EST5EDT,M3.2.0,M11.1.0", 18000},        // west of UTC
    {"NZST-12NZDT,M9.5.0,M4.1.0/3", -43200},  // summer time across the turn of the year
    {"IST-5:30", -19800},                     // half-hour offset, no summer time
};

// Sets TZ for the life of the object and restores the former setting.
class ZoneScope {
 public:
  explicit ZoneScope(const char *tz) {
    const char *old = std::getenv("TZ");
    had_ = old != nullptr;
    if (had_) old_ = old;
    setenv("TZ", tz, 1);
    tzset();
  }
  ~ZoneScope() {
    if (had_)
      setenv("TZ", old_.c_str(), 1);
    else
      unsetenv("TZ");
    tzset();
  }

 private:
  bool had_ = false;  // whether TZ was set before
  std::string old_;   // its former value
};

std::string show(const SQL_DATE_STRUCT &d) {
  char b[64];
  std::snprintf(b, sizeof b, "%04d-%02u-%02u", d.year, d.month, d.day);
  return b;
}

std::string show(const SQL_TIME_STRUCT &t) {
  char b[64];
  std::snprintf(b, sizeof b, "%02u:%02u:%02u", t.hour, t.minute, t.second);
  return b;
}

std::string show(const SQL_TIMESTAMP_STRUCT &t) {
  char b[96];
  std::snprintf(b, sizeof b, "%04d-%02u-%02u %02u:%02u:%02u.%u", t.year, t.month, t.day, t.hour,
                t.minute, t.second, static_cast<unsigned>(t.fraction));
  return b;
}

// Each helper returns the result code and the value as text; "untouched" when the
// conversion left its output as it was.
struct Got {
  int rc;             // the conversion's result
  std::string value;  // the stored value, or "untouched"
};

template <class T, class F>
Got run(F convert) {
  T v;
  std::memset(&v, 0x5a, sizeof v);
  T before = v;
  int rc = convert(&v);
  bool same = std::memcmp(&v, &before, sizeof v) == 0;
  return {rc, same ? std::string("untouched") : show(v)};
}

Got date_num(std::int32_t n) {
  return run<SQL_DATE_STRUCT>([&](SQL_DATE_STRUCT *o) { return qz::date_from_number(n, o); });
}
Got time_num(std::int32_t n) {
  return run<SQL_TIME_STRUCT>([&](SQL_TIME_STRUCT *o) { return qz::time_from_number(n, o); });
}
Got stamp_secs(std::int32_t s) {
  return run<SQL_TIMESTAMP_STRUCT>(
      [&](SQL_TIMESTAMP_STRUCT *o) { return qz::timestamp_from_seconds(s, o); });
}
Got date_text(const std::string &t) {
  return run<SQL_DATE_STRUCT>([&](SQL_DATE_STRUCT *o) {
    return qz::date_from_text(t.data(), static_cast<int>(t.size()), o);
  });
}
Got time_text(const std::string &t) {
  return run<SQL_TIME_STRUCT>([&](SQL_TIME_STRUCT *o) {
    return qz::time_from_text(t.data(), static_cast<int>(t.size()), o);
  });
}
Got stamp_text(const std::string &t) {
  return run<SQL_TIMESTAMP_STRUCT>([&](SQL_TIMESTAMP_STRUCT *o) {
    return qz::timestamp_from_text(t.data(), static_cast<int>(t.size()), o);
  });
}

void expect_ok(const Got &g, const char *want, const std::string &input) {
  EXPECT_EQ(g.rc, qz::kDtOk) << input;
  EXPECT_EQ(g.value, want) << input;
}

void expect_fail(const Got &g, int rc, const std::string &input) {
  EXPECT_EQ(g.rc, rc) << input;
  EXPECT_EQ(g.value, "untouched") << input;
}

TEST(DateNumber, SplitsYearMonthDayAndAdds1900ToYearsBelow1900) {
  expect_ok(date_num(20190213), "2019-02-13", "20190213");
  expect_ok(date_num(19000101), "1900-01-01", "19000101");
  expect_ok(date_num(990101), "1999-01-01", "990101");
  expect_ok(date_num(1190213), "2019-02-13", "1190213");
  expect_ok(date_num(101), "1900-01-01", "101");  // year 0
  expect_ok(date_num(18991231), "3799-12-31", "18991231");
}

TEST(DateNumber, LeapYearsAreJudgedAfterTheYearIsCompleted) {
  expect_fail(date_num(20190229), qz::kDtNoSuchDay, "20190229");
  expect_ok(date_num(20000229), "2000-02-29", "20000229");
  expect_fail(date_num(19000229), qz::kDtNoSuchDay, "19000229");
  expect_fail(date_num(21000229), qz::kDtNoSuchDay, "21000229");
  // Year 100 becomes 2000, a leap year; year 0 becomes 1900, which is none; 96 is 1996.
  expect_ok(date_num(1000229), "2000-02-29", "1000229");
  expect_fail(date_num(229), qz::kDtNoSuchDay, "229");
  expect_ok(date_num(960229), "1996-02-29", "960229");
}

TEST(DateNumber, MonthLengths) {
  for (int m = 1; m <= 12; ++m) {
    bool thirty = m == 4 || m == 6 || m == 9 || m == 11;
    int last = m == 2 ? 28 : thirty ? 30 : 31;
    std::int32_t n = 20190000 + m * 100;
    SQL_DATE_STRUCT want{2019, static_cast<SQLUSMALLINT>(m), static_cast<SQLUSMALLINT>(last)};
    expect_ok(date_num(n + last), show(want).c_str(), std::to_string(n + last));
    if (last < 31)
      expect_fail(date_num(n + last + 1), qz::kDtNoSuchDay, std::to_string(n + last + 1));
  }
}

TEST(DateNumber, RangesOfDayMonthAndYear) {
  expect_fail(date_num(20191300), qz::kDtBadDay, "20191300");
  expect_fail(date_num(20190132), qz::kDtBadDay, "20190132");
  expect_fail(date_num(20191301), qz::kDtBadMonth, "20191301");
  expect_fail(date_num(20190001), qz::kDtBadMonth, "20190001");
  expect_fail(date_num(0), qz::kDtBadDay, "0");
  // Negative numbers give negative parts and fail.
  expect_fail(date_num(-20190213), qz::kDtBadDay, "-20190213");
  expect_fail(date_num(kMin32), qz::kDtBadDay, "min");
  // The year field holds up to 32767.
  expect_ok(date_num(327671231), "32767-12-31", "327671231");
  expect_fail(date_num(327680101), qz::kDtBadYear, "327680101");
  expect_fail(date_num(kMax32), qz::kDtBadDay, "max");  // day 47, month 36
}

TEST(TimeNumber, SplitsAndChecks) {
  expect_ok(time_num(81500), "08:15:00", "81500");
  expect_ok(time_num(0), "00:00:00", "0");
  expect_ok(time_num(235959), "23:59:59", "235959");
  expect_ok(time_num(8), "00:00:08", "8");
  expect_fail(time_num(240000), qz::kDtBadHour, "240000");
  expect_fail(time_num(236000), qz::kDtBadMinute, "236000");
  expect_fail(time_num(235960), qz::kDtBadSecond, "235960");
  expect_fail(time_num(-1), qz::kDtBadSecond, "-1");
  expect_fail(time_num(-10000), qz::kDtBadHour, "-10000");
  expect_fail(time_num(kMax32), qz::kDtBadHour, "max");
}

TEST(TimestampSeconds, ZeroIsTheEpochWhateverTheZone) {
  for (const char *zone : {"UTC0", "CET-1CEST,M3.5.0,M10.5.0/3", "EST5EDT,M3.2.0,M11.1.0"}) {
    ZoneScope z(zone);
    expect_ok(stamp_secs(0), "1970-01-01 00:00:00.0", zone);
    expect_ok(stamp_secs(86400), "1970-01-02 00:00:00.0", zone);
    expect_ok(stamp_secs(1561982400), "2019-07-01 12:00:00.0", zone);
  }
}

TEST(TimestampSeconds, WholeInt32Range) {
  expect_ok(stamp_secs(-1), "1969-12-31 23:59:59.0", "-1");
  expect_ok(stamp_secs(951782400), "2000-02-29 00:00:00.0", "951782400");
  expect_ok(stamp_secs(kMax32), "2038-01-19 03:14:07.0", "max");
  expect_ok(stamp_secs(kMin32), "1901-12-13 20:45:52.0", "min");
}

TEST(DateText, FourFormsOfTheSameDate) {
  for (const char *t : {"20190213", "2019-02-13", "02/13/2019", "13.02.2019", "2019-2-13",
                        "2/13/2019", "13.2.2019", " 20190213", "2019- 02- 13"})
    expect_ok(date_text(t), "2019-02-13", t);
  expect_ok(date_text("19-2-13"), "1919-02-13", "19-2-13");
  expect_ok(date_text("13.02.119"), "2019-02-13", "13.02.119");
  expect_ok(date_text("000002019-02-13"), "2019-02-13", "15 characters");
}

TEST(DateText, RefusedForms) {
  for (const char *t : {"2019-02-13x", "2019-02", "2019-02/13", "13.02-2019", "2019x",
                        "2019-02-13 ", "20190213 ", "", " ", "-2019-02-13", "2019--2-13",
                        "2019-02-", "+20190213", "2019 02 13", "x20190213", "2019-02-13-"})
    expect_fail(date_text(t), qz::kDtSyntax, t);
  expect_fail(date_text("2019-02-13000000"), qz::kDtTooLong, "16 characters");
  expect_fail(date_text("99999999999"), qz::kDtNumberRange, "11 digits");
  expect_fail(date_text("2019-9999999999"), qz::kDtNumberRange, "long month");
}

TEST(DateText, ChecksApplyToEveryForm) {
  expect_fail(date_text("02/29/2019"), qz::kDtNoSuchDay, "02/29/2019");
  expect_ok(date_text("29.02.2000"), "2000-02-29", "29.02.2000");
  expect_fail(date_text("2019-04-31"), qz::kDtNoSuchDay, "2019-04-31");
  expect_fail(date_text("2019/02/13"), qz::kDtBadMonth, "2019/02/13");  // month 2019
  expect_fail(date_text("0.1.2019"), qz::kDtBadDay, "0.1.2019");
  expect_fail(date_text("32768-01-01"), qz::kDtBadYear, "32768-01-01");
  expect_ok(date_text(std::string("20190213\0zz", 11)), "2019-02-13", "NUL inside");
}

TEST(TimeText, ThreeFormsOfTheSameTime) {
  for (const char *t :
       {"081500", "08:15", "08:15:00", "8:15", "8:15:0", "81500", "08:+15", "08:15:-0", " 08:15"})
    expect_ok(time_text(t), "08:15:00", t);
  expect_ok(time_text("8"), "00:00:08", "8");
  expect_ok(time_text("23:59:59"), "23:59:59", "23:59:59");
  expect_ok(time_text("0:0"), "00:00:00", "0:0");
}

TEST(TimeText, RefusedForms) {
  expect_fail(time_text("24:00"), qz::kDtBadHour, "24:00");
  expect_fail(time_text("240000"), qz::kDtBadHour, "240000");
  expect_fail(time_text("23:60"), qz::kDtBadMinute, "23:60");
  expect_fail(time_text("23:59:60"), qz::kDtBadSecond, "23:59:60");
  // The minute and the second are read with a sign, the hour without.
  expect_fail(time_text("08:-5"), qz::kDtBadMinute, "08:-5");
  expect_fail(time_text("08:15:-1"), qz::kDtBadSecond, "08:15:-1");
  for (const char *t : {"-08:15", "+08:15", "08:15x", "08:15:00:00", "08-15", "08:", "08:15:", "",
                        "08.15", "08:15 ", "x"})
    expect_fail(time_text(t), qz::kDtSyntax, t);
  expect_fail(time_text("0000000008:15:00"), qz::kDtTooLong, "16 characters");
  expect_fail(time_text("08:99999999999"), qz::kDtNumberRange, "long minute");
}

TEST(TimestampText, FormsOfTheSameTimestamp) {
  for (const char *t :
       {"2019-02-13 08:15:00", "20190213 081500", "20190213 08:15", "13.02.2019 08:15:00",
        "02/13/2019 081500", "  2019-02-13 08:15", "20190213  081500", "19-2-13 8:15"}) {
    const char *want = t[0] == '1' && t[1] == '9' && t[2] == '-' ? "1919-02-13 08:15:00.0"
                                                                 : "2019-02-13 08:15:00.0";
    expect_ok(stamp_text(t), want, t);
  }
  for (const char *t : {"2019-02-13", "20190213", "13.02.2019"})
    expect_ok(stamp_text(t), "2019-02-13 00:00:00.0", t);
  std::string longest = std::string(12, '0') + "2019-02-13 23:59:59";  // 31 characters
  expect_ok(stamp_text(longest), "2019-02-13 23:59:59.0", "31 characters");
  expect_fail(stamp_text("0" + longest), qz::kDtTooLong, "32 characters");
}

TEST(TimestampText, RefusedForms) {
  for (const char *t : {"2019-02-13T08:15:00", "2019-02-13 08:15:00x", "2019-02-13 ", "20190213 ",
                        "2019-02-13 08:15:00 ", "20190213x", "2019-02-13 x", "2019-02-13 08-15", "",
                        "2019-02-13\t08:15"})
    expect_fail(stamp_text(t), qz::kDtSyntax, t);
  expect_fail(stamp_text("2019-02-13 24:00"), qz::kDtBadHour, "24:00");
  expect_fail(stamp_text("2019-02-13 23:60"), qz::kDtBadMinute, "23:60");
  expect_fail(stamp_text("19000229 000000"), qz::kDtNoSuchDay, "19000229");
  expect_fail(stamp_text("2019-02-30 08:00"), qz::kDtNoSuchDay, "2019-02-30");
}

TEST(FetchedNumbers, DateAndTimeNumbers) {
  EXPECT_EQ(qz::date_number({2019, 2, 13}), 20190213);
  EXPECT_EQ(qz::time_number({8, 5, 9}), 80509);
  EXPECT_EQ(qz::time_number({0, 0, 0}), 0);
  // The largest fields the structures can hold stay inside 32 bits.
  EXPECT_EQ(qz::date_number({32767, 65535, 65535}), 327670000 + 6553500 + 65535);
  EXPECT_EQ(qz::date_number({-32768, 1, 1}), -327680000 + 101);
  EXPECT_EQ(qz::time_number({65535, 65535, 65535}), 655350000 + 6553500 + 65535);
  // A valid date or time comes back as the number it was given as.
  for (std::int32_t n : {20190213, 19000101, 20000229, 327671231, 0, 80509, 235959}) {
    SQL_DATE_STRUCT d;
    SQL_TIME_STRUCT t;
    if (n > 235959) {
      EXPECT_EQ(qz::date_from_number(n, &d) ? -1 : qz::date_number(d), n);
    } else {
      EXPECT_EQ(qz::time_from_number(n, &t) ? -1 : qz::time_number(t), n);
    }
  }
}

std::int32_t utc_seconds(const SQL_TIMESTAMP_STRUCT &ts, int *rc) {
  std::int32_t s = 12345;
  *rc = qz::timestamp_utc_seconds(ts, &s);
  return s;
}

TEST(FetchedTimestamp, ReadAsUtcInEveryZone) {
  struct {
    SQL_TIMESTAMP_STRUCT ts;
    std::int32_t want;
  } cases[] = {
      {{1970, 1, 2, 0, 0, 0, 0}, 86400},         {{1970, 1, 1, 0, 0, 0, 0}, 0},
      {{1970, 1, 1, 0, 0, 0, 999999999}, 0},  // the fraction is dropped
      {{1969, 12, 31, 23, 59, 59, 0}, -1},    // mktime may answer -1 without failing
      {{2019, 7, 1, 12, 0, 0, 0}, 1561982400},   {{2019, 1, 15, 12, 0, 0, 0}, 1547553600},
      {{2019, 3, 31, 2, 30, 0, 0}, 1553999400},  // no such local time in CET
      {{2000, 2, 29, 0, 0, 0, 0}, 951782400},    {{2037, 12, 31, 23, 59, 59, 0}, 2145916799},
      {{1901, 12, 15, 0, 0, 0, 0}, -2147385600},
  };
  for (const Zone &zone : kZones) {
    ZoneScope z(zone.tz);
    ASSERT_EQ(timezone, zone.west) << zone.tz << " did not take effect";
    for (const auto &c : cases) {
      int rc;
      std::int32_t got = utc_seconds(c.ts, &rc);
      EXPECT_EQ(rc, qz::kDtOk) << zone.tz << " " << show(c.ts);
      EXPECT_EQ(got, c.want) << zone.tz << " " << show(c.ts);
    }
  }
}

TEST(FetchedTimestamp, BeyondThe32BitRangeFails) {
  for (const Zone &zone : kZones) {
    ZoneScope z(zone.tz);
    for (SQL_TIMESTAMP_STRUCT ts : {SQL_TIMESTAMP_STRUCT{2038, 1, 19, 3, 14, 8, 0},
                                    SQL_TIMESTAMP_STRUCT{2100, 1, 1, 0, 0, 0, 0},
                                    SQL_TIMESTAMP_STRUCT{32767, 12, 31, 23, 59, 59, 0},
                                    SQL_TIMESTAMP_STRUCT{1800, 1, 1, 0, 0, 0, 0}}) {
      int rc;
      std::int32_t got = utc_seconds(ts, &rc);
      EXPECT_EQ(rc, qz::kDtNoSeconds) << zone.tz << " " << show(ts);
      EXPECT_EQ(got, 12345) << "output written on failure";
    }
  }
}

TEST(FetchedTimestamp, SecondsRoundTripThroughBrokenDownUtc) {
  // Every eight days and an hour across 1901 to 2038, in every zone: the parameter's
  // breakdown and the reader's reading undo each other, across summer time changes.
  // The ends stay a day inside the 32-bit range: a 32-bit mktime cannot place a local
  // time whose standard-time reading lies beyond it.
  for (const Zone &zone : kZones) {
    ZoneScope z(zone.tz);
    int mismatches = 0;
    for (std::int64_t s = kMin32 + 86400; s <= kMax32 - 86400; s += 8 * 86400 + 3601) {
      SQL_TIMESTAMP_STRUCT ts;
      ASSERT_EQ(qz::timestamp_from_seconds(static_cast<std::int32_t>(s), &ts), qz::kDtOk);
      int rc;
      std::int32_t back = utc_seconds(ts, &rc);
      if (rc != qz::kDtOk || back != s) {
        if (++mismatches <= 3) ADD_FAILURE() << zone.tz << ": " << s << " came back as " << back;
      }
    }
    EXPECT_EQ(mismatches, 0) << zone.tz;
  }
}

}  // namespace
