// The pure parts of the host and the ODBC bridge: the interpreter string operations, the
// text forms of fetched values against snprintf, dates and times, numbers read from text
// and the type tables, each as one table of "input = outcome" rows.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <random>
#include <sstream>
#include <string>

#include "datetime.hpp"
#include "format.hpp"
#include "numtext.hpp"
#include "qzhost.hpp"
#include "rows.hpp"
#include "sqltypes.hpp"

namespace {

// An interpreter string "text/capacity" in a buffer with "#" guard bytes past it.
struct Str {
  std::string bytes;  // the buffer
  QzStr s;            // its descriptor
  explicit Str(const std::string &spec) {
    size_t slash = spec.rfind('/');
    int cap = std::atoi(spec.c_str() + slash + 1);
    bytes = spec.substr(0, slash) + std::string(static_cast<size_t>(cap) + 4, '#');
    s = QzStr{cap, static_cast<int>(slash), bytes.data()};
  }
};

// "op target source": the status and the target, with the two bytes after its text.
std::string qzstr(const std::string &row) {
  std::istringstream in(row);
  std::string op, a, b, c;
  in >> op >> a >> b >> c;
  Str x(a), y(b.empty() ? "/0" : b);
  char out[16];
  if (op == "substr") {
    QzStr *v = QzSubstr(&x.s, std::atoi(b.c_str()), std::atoi(c.c_str()));
    return v ? std::string(v->text, static_cast<size_t>(v->len)) + " " + std::to_string(v->maxlen) +
                   " at " + std::to_string(v->text - x.s.text)
             : "null";
  }
  if (op == "cmp") return std::to_string(QzStrcmp(&x.s, &y.s));
  if (op == "text") return std::to_string(QzStr2str(&x.s, out)) + " " + out;
  int rc = op == "store"  ? str2QzStr(b.c_str(), &x.s)
           : op == "copy" ? QzStrcpy(&x.s, &y.s)
                          : QzStrcat(&x.s, &y.s);
  return std::to_string(rc) + " " + x.bytes.substr(0, static_cast<size_t>(x.s.len)) + "|" +
         x.bytes.substr(static_cast<size_t>(x.s.len), 2);
}

// Stores either fit the capacity or change nothing (status 18), and write no terminator.
TEST(QzStr, OperationsFitOrChangeNothing) {
  expect_rows(
      {// "op target source": status and the target afterwards
       "substr HELLO/5 2 3 = ELL 3 at 1", "substr HELLO/5 4 10 = LO 2 at 3",
       "substr HELLO/5 1 0 =  0 at 0", "substr HELLO/5 5 1 = O 1 at 4", "substr HELLO/5 6 1 = null",
       "substr HELLO/5 0 1 = null", "substr HELLO/5 1 -1 = null",
       // stores fit or change nothing (18), and write no terminator
       "store xy/10 0123456789 = 0 0123456789|##", "store old/9 0123456789 = 18 old|##",
       "copy zz/2 cde/3 = 18 zz|##", "copy abc/8 de/2 = 0 de|c#", "cat ab/5 cde/3 = 0 abcde|##",
       "cat abcde/5 f/1 = 18 abcde|##", "cat ab/4 = 0 ab|##", "cmp ABC/3 ABD/3 = -1",
       "cmp ABC/3 AB/2 = 1", "cmp AB/2 ABCD/4 = -2", "cmp ABC/3 ABC/9 = 0", "cmp \xE9/1 z/1 = 1",
       "text AB~CD/5 = 2 AB", "text ABCD/4 = 4 ABCD", "text /0 = 0 "},
      qzstr);
  QzStr *m = QzMkstr(16);
  ASSERT_NE(m, nullptr);
  EXPECT_EQ(m->maxlen * 100 + m->len, 1600);
  EXPECT_EQ(str2QzStr("sixteen-bytes!!!", m), 0);  // the sanitizer build checks the 16 bytes
  std::free(m->text);
  EXPECT_EQ(QzMkstr(-1), nullptr);
  dll_alloc_fail_at(1);  // through the allocation hook
  EXPECT_EQ(QzMkstr(4), nullptr);
}

// Counts mismatches between ours(buffer) and snprintf's text of the same values; the bytes
// after the declared size must stay untouched.
struct Differ {
  long checked = 0, failed = 0;
  std::string first;  // the first mismatch
  template <int Size, class... V>
  void check(int (*ours)(char *, V...), const char *format, V... v) {
    char want[96], got[Size + 8];
    int n = std::snprintf(want, sizeof want, format, v...);
    std::memset(got, 0x5a, sizeof got);
    bool ok = ours(got, v...) == n && n < Size && std::memcmp(got, want, n + 1) == 0;
    for (int i = Size; i < Size + 8; ++i)
      ok = ok && got[i] == 0x5a;
    ++checked;
    if (!ok && failed++ == 0) first = std::string(format) + ": snprintf \"" + want + "\"";
  }
};

// Random values of every shape, and the boundaries where the text changes shape on purpose:
// digit counts, the fixed and exponent forms of "%.14g", ties, NaNs with a sign, fields
// too wide for the short path.
TEST(Format, EveryFormMatchesSnprintf) {
  Differ t;
  std::mt19937_64 rng(20240611);
  auto g14 = [&t](double d) { t.check<qz::kFormatDoubleSize>(qz::format_g14, "%.14g", d); };
  auto i32 = [&t](std::int32_t v) { t.check<qz::kFormatIntSize>(qz::format_int, "%d", v); };
  auto stamp = [&t](std::int16_t y, std::uint16_t mo, std::uint16_t d, std::uint16_t h,
                    std::uint16_t mi, std::uint16_t s) {
    t.check<qz::kFormatDateSize>(qz::format_date, "%04d%02d%02d", y, mo, d);
    t.check<qz::kFormatTimeSize>(qz::format_time, "%02d%02d%02d", h, mi, s);
    t.check<qz::kFormatTimestampSize>(qz::format_timestamp, "%04d%02d%02d %02d%02d%02d", y, mo, d,
                                      h, mi, s);
  };
  for (std::int64_t p = 1; p <= 1000000000; p *= 10)
    for (std::int64_t v : {p - 1, p, -p, -p - 1})
      i32(static_cast<std::int32_t>(v));
  i32(-2147483647 - 1);
  for (double d : {0.0, -0.0, HUGE_VAL, -HUGE_VAL, 99999999999999.5, 1e14, -1e14, 1e15, 1e-4,
                   9.99999999999995e-5, 1e-300, 5e-324, 1.7976931348623157e308,
                   -1.2345678901234e-308, 123456789012345.0, 1e8 - 1, std::nan(""), -std::nan("")})
    g14(d);
  for (int y : {-32768, -1000, -999, -10, -9, -1, 0, 9, 10, 999, 1000, 9999, 10000, 32767}) {
    for (int f : {0, 1, 9, 10, 99, 100, 65535}) {
      auto u = static_cast<std::uint16_t>(f), seven = std::uint16_t{7};
      stamp(static_cast<std::int16_t>(y), u, seven, u, seven, u);
      stamp(static_cast<std::int16_t>(y), seven, u, seven, u, seven);
    }
  }
  for (long i = 0; i < 20000; ++i) {
    std::uint64_t r = rng(), s = rng();
    auto mag = static_cast<std::int32_t>(static_cast<std::uint32_t>(r) >> (s % 32));
    i32(static_cast<std::int32_t>(r));
    i32(s & 1 ? -mag : mag);
    t.check<qz::kFormatXpackHeaderSize>(qz::format_xpack_header, "~%d~%d~", mag,
                                        static_cast<std::int32_t>(s >> 32));
    double d;
    std::memcpy(&d, &r, sizeof d);
    g14(d);
    // a short decimal around the forms' boundaries, a whole number of any length, a tie
    g14(std::strtod((std::to_string(r % 100000) + "e" + std::to_string(int(s % 30) - 12)).c_str(),
                    nullptr));
    double whole = static_cast<double>((r >> 8) % 200000000000000ull >> (s % 48));
    g14(s & 2 ? -whole : whole);
    g14(static_cast<double>(1000000000000000ull + r % 9000000000000000ull) / 10);
    auto u16 = [&](int shift) {  // a field of any size, or of two digits or so
      return static_cast<std::uint16_t>(i % 2 ? (s >> shift) % 102 : s >> shift);
    };
    stamp(static_cast<std::int16_t>(i % 2 ? static_cast<int>(r % 10003) - 1 : r), u16(0), u16(8),
          u16(16), u16(32), u16(48));
  }
  EXPECT_EQ(t.failed, 0) << t.failed << " of " << t.checked << " differ, first " << t.first;
}

// "D" a date number, "T" a time number, "S" seconds since 1970, "d", "t", "s" the texts:
// the code and the value stored, or "-" when the output was left alone. "U" a fetched
// timestamp, given as text, to seconds (7: not stored).
std::string datetime(const std::string &row) {
  const char *t = row.data() + 2;
  int len = static_cast<int>(row.size()) - 2;
  auto n = static_cast<std::int32_t>(std::strtoll(t, nullptr, 10));
  union {
    SQL_DATE_STRUCT d;
    SQL_TIME_STRUCT t;
    SQL_TIMESTAMP_STRUCT s;
  } v, before;
  std::memset(&v, 0x5a, sizeof v);
  before = v;
  const char kind = row[0];
  int rc = kind == 'D'   ? qz::date_from_number(n, &v.d)
           : kind == 'T' ? qz::time_from_number(n, &v.t)
           : kind == 'S' ? qz::timestamp_from_seconds(n, &v.s)
           : kind == 'd' ? qz::date_from_text(t, len, &v.d)
           : kind == 't' ? qz::time_from_text(t, len, &v.t)
                         : qz::timestamp_from_text(t, len, &v.s);
  std::int32_t seconds = 7;
  if (kind == 'U') rc = qz::timestamp_utc_seconds(v.s, &seconds);
  const char shown = std::memcmp(&v, &before, sizeof v) ? kind : '-';
  char b[64] = "-";
  if (kind == 'U')
    std::snprintf(b, sizeof b, "%d", seconds);
  else if (shown == 'D' || shown == 'd')
    std::snprintf(b, sizeof b, "%04d-%02u-%02u", v.d.year, v.d.month, v.d.day);
  else if (shown == 'T' || shown == 't')
    std::snprintf(b, sizeof b, "%02u:%02u:%02u", v.t.hour, v.t.minute, v.t.second);
  else if (shown != '-')
    std::snprintf(b, sizeof b, "%04d-%02u-%02u %02u:%02u:%02u.%u", v.s.year, v.s.month, v.s.day,
                  v.s.hour, v.s.minute, v.s.second, static_cast<unsigned>(v.s.fraction));
  return std::to_string(rc) + " " + b;
}

// Codes: 1 too long, 2 syntax, 3 number range, 4 day, 5 month, 6 year, 7 no such day, 8
// hour, 9 minute, 10 second. Years below 1900 get 1900 added before leap years are judged.
TEST(DateTime, ParameterValuesAndTheirChecks) {
  expect_rows(
      {// "kind input": code and the value stored
       "D 20190213 = 0 2019-02-13", "D 990101 = 0 1999-01-01", "D 101 = 0 1900-01-01",
       "D 18991231 = 0 3799-12-31", "D 20190229 = 7 -", "D 20000229 = 0 2000-02-29",
       "D 19000229 = 7 -", "D 21000229 = 7 -", "D 1000229 = 0 2000-02-29", "D 229 = 7 -",
       "D 960229 = 0 1996-02-29", "D 20190431 = 7 -", "D 20190430 = 0 2019-04-30",
       "D 20190631 = 7 -", "D 20190931 = 7 -", "D 20191131 = 7 -", "D 20191231 = 0 2019-12-31",
       "D 20191300 = 4 -", "D 20190132 = 4 -", "D 20191301 = 5 -", "D 20190001 = 5 -",
       "D -20190213 = 4 -", "D 327671231 = 0 32767-12-31", "D 327680101 = 6 -",
       // times, seconds since 1970, then the text forms
       "T 81500 = 0 08:15:00", "T 235959 = 0 23:59:59", "T 0 = 0 00:00:00", "T 240000 = 8 -",
       "T 236000 = 9 -", "T 235960 = 10 -", "T -1 = 10 -", "T -10000 = 8 -",
       "S 0 = 0 1970-01-01 00:00:00.0", "S -1 = 0 1969-12-31 23:59:59.0",
       "S 951782400 = 0 2000-02-29 00:00:00.0", "S 2147483647 = 0 2038-01-19 03:14:07.0",
       "S -2147483648 = 0 1901-12-13 20:45:52.0", "d 2019-02-13 = 0 2019-02-13",
       "d 02/13/2019 = 0 2019-02-13", "d 13.2.2019 = 0 2019-02-13", "d ^20190213 = 0 2019-02-13",
       "d 2019-^02-^13 = 0 2019-02-13", "d 19-2-13 = 0 1919-02-13",
       "d 000002019-02-13 = 0 2019-02-13", "d 0000002019-02-13 = 1 -",
       "d 20190213~zz = 0 2019-02-13", "d 02/29/2019 = 7 -", "d 2019/02/13 = 5 -",
       "d 0.1.2019 = 4 -", "d 32768-01-01 = 6 -", "d 99999999999 = 3 -", "d 2147483647 = 4 -",
       "d 2147483648 = 3 -", "d 2019-9999999999 = 3 -", "d  = 2 -", "d 2019-02-13^ = 2 -",
       "d 2019-02/13 = 2 -", "d +20190213 = 2 -", "d 2019-02 = 2 -", "d 2019-02- = 2 -",
       "d 2019x = 2 -", "t 08:15 = 0 08:15:00", "t 8:15:0 = 0 08:15:00", "t 081500 = 0 08:15:00",
       "t 08:+15 = 0 08:15:00", "t 08:15:-0 = 0 08:15:00", "t ^08:15 = 0 08:15:00",
       "t 8 = 0 00:00:08", "t 24:00 = 8 -", "t 23:60 = 9 -", "t 23:59:60 = 10 -", "t 08:-5 = 9 -",
       "t -08:15 = 2 -", "t 08:15:00:00 = 2 -", "t 08: = 2 -", "t 08.15 = 2 -",
       "t 0000000008:15:00 = 1 -", "t 08:99999999999 = 3 -", "t 08:-2147483648 = 9 -",
       "t 08:-2147483649 = 3 -", "t 000000008:15:00 = 0 08:15:00",
       "s 2019-02-13^08:15:00 = 0 2019-02-13 08:15:00.0",
       "s 20190213^081500 = 0 2019-02-13 08:15:00.0", "s 20190213^^08:15 = 0 2019-02-13 08:15:00.0",
       "s 13.02.2019 = 0 2019-02-13 00:00:00.0",
       "s 0000000000002019-02-13^23:59:59 = 0 2019-02-13 23:59:59.0",
       "s 00000000000002019-02-13^23:59:59 = 1 -", "s 2019-02-13T08:15:00 = 2 -",
       "s 20190213^ = 2 -", "s 2019-02-13\t08:15 = 2 -", "s 2019-02-13^24:00 = 8 -",
       "s 19000229^000000 = 7 -"},
      datetime);
  EXPECT_EQ(qz::date_number({2019, 2, 13}), 20190213);
  EXPECT_EQ(qz::time_number({8, 5, 9}), 80509);
  EXPECT_EQ(qz::date_number({-32768, 65535, 65535}), -327680000 + 6553500 + 65535);
  EXPECT_EQ(qz::time_number({65535, 65535, 65535}), 655350000 + 6553500 + 65535);
}

// Fetched timestamps are read as UTC in every zone (POSIX rules, summer time included), and
// the reading undoes the parameters' breakdown across the 32-bit range.
TEST(DateTime, FetchedTimestampsAreReadAsUtcInEveryZone) {
  for (const char *tz : {"UTC0", "CET-1CEST,M3.5.0,M10.5.0/3", "EST5EDT,M3.2.0,M11.1.0",
                         "NZST-12NZDT,M9.5.0,M4.1.0/3", "IST-5:30"}) {
    setenv("TZ", tz, 1);
    tzset();
    expect_rows(
        {// "U timestamp": code and seconds (7: not stored)
         "U 1970-01-02 = 0 86400", "U 19691231^235959 = 0 -1", "U 2000-02-29 = 0 951782400",
         "U 2019-07-01^12:00 = 0 1561982400", "U 2019-03-31^02:30 = 0 1553999400",
         // no such local time in CET, and the ends of the 32-bit range
         "U 2037-12-31^23:59:59 = 0 2145916799", "U 1901-12-15 = 0 -2147385600",
         "U 2038-01-19^03:14:08 = 12 7", "U 1800-01-01 = 12 7"},
        datetime);
    for (std::int64_t s = -2147483648LL + 86400; s <= 2147483647 - 86400; s += 97 * 86400 + 3601) {
      SQL_TIMESTAMP_STRUCT ts;
      std::int32_t back = 7;
      ASSERT_EQ(qz::timestamp_from_seconds(static_cast<std::int32_t>(s), &ts), 0);
      ASSERT_EQ(qz::timestamp_utc_seconds(ts, &back), 0) << tz << " " << s;
      ASSERT_EQ(back, s) << tz << " " << s;
    }
  }
  setenv("TZ", "UTC0", 1);  // the ends of the 32-bit range themselves
  tzset();
  expect_rows({"U 1901-12-13^20:45:52 = 0 -2147483648", "U 2038-01-19^03:14:07 = 0 2147483647"},
              datetime);
  unsetenv("TZ");
  tzset();
}

// "i" read_int32, "r" read_double, "I" and "R" the setters' forms; the value left after
// the code (7: not stored). A setter's text is at most 15 or 511 bytes.
std::string numtext(const std::string &row) {
  const char *t = row.c_str() + 2;
  int len = static_cast<int>(row.size()) - 2, rc = -9;
  std::int32_t i = 7;
  double d = 7;
  if (row[0] == 'i') rc = qz::read_int32(t, &i);
  if (row[0] == 'I') rc = qz::param_text_int32(t, len, &i);
  if (row[0] == 'r') rc = qz::read_double(t, &d);
  if (row[0] == 'R') rc = qz::param_text_double(t, len, &d);
  char got[64];
  std::snprintf(got, sizeof got, "%d %.15g", rc, row[0] == 'i' || row[0] == 'I' ? i : d);
  return got;
}

TEST(NumText, ReadersSettersAndTruncation) {
  expect_rows(
      {// "kind text": code and the value left
       "i 123 = 0 123", "i \t\n-17 = 0 -17", "i +5 = 0 5", "i -2147483648 = 0 -2147483648",
       "i 000000000000000000000042 = 0 42", "i  = 0 0", "i 12a = 2 12", "i 42^ = 2 42",
       "i ^^^ = 2 0", "i 0x1A = 2 0", "i 2147483648 = 1 2147483647",
       "i -2147483649 = 1 -2147483648", "i 99999999999999999999999 = 1 2147483647",
       "i 3000000000x = 1 2147483647",
       // doubles, then the setters: not stored unless the code is 0
       "r 2.9 = 0 2.9", "r 0x1p3 = 0 8", "r +.5 = 0 0.5", "r  = 0 0", "r -infinity = 0 -inf",
       "r 3.99^ = 2 3.99", "r . = 2 0", "r 1e400 = 1 inf", "r 1e-400 = 1 0",
       "I 000000000000043 = 0 43", "I 0000000000000042 = 3 7", "I 999999999999999 = 1 7",
       "I 4x = 2 7", "I 12~x = 0 12", "R " + std::string(507, '0') + "3.99 = 0 3.99",
       "R " + std::string(508, '0') + "3.99 = 3 7", "R 1e999 = 1 7", "R 3.99x = 2 7"},
      numtext);
  errno = ERANGE;  // an earlier errno does not count
  EXPECT_EQ(numtext("i 5"), "0 5");
  // Toward zero inside the 32-bit range; anything else (NaN included) the smallest int.
  std::string truncs;
  for (double d : {2.9, -2.9, -0.999, 2147483647.9, -2147483648.9, 2147483648.0, -2147483649.0,
                   1e20, -HUGE_VAL, std::nan(""), 4294967296.0})
    truncs += std::to_string(qz::trunc_to_int32(d)) + " ";
  EXPECT_EQ(truncs,
            "2 -2 0 2147483647 -2147483648 -2147483648 -2147483648 -2147483648 -2147483648 "
            "-2147483648 -2147483648 ");
}

// "type precision scale default maximum": the name, C type and buffer size bound.
// "value code": C type, its name, the code back and the SETTYPE buffer (text: the default
// size itself). "param C type": the undescribed parameter's SQL type, precision, size.
std::string binding(const std::string &row) {
  int type, scale, def, max, n = std::atoi(row.c_str() + 6);
  if (row[0] == 'v') {
    int ctype = qz::ctype_of_value_type(n);
    qz::ColumnBuffer b = qz::buffer_for_value_type(n, 300);
    return std::to_string(ctype) + " " + qz::c_type_name(ctype) + " " +
           std::to_string(qz::value_type_of_ctype(ctype)) + " " + std::to_string(b.ctype) + "/" +
           std::to_string(b.size);
  }
  if (row[0] == 'p') {
    qz::ParamBinding p = qz::param_binding(n, 1024);
    return std::to_string(p.ctype) + " " + std::to_string(p.sql_type) + " " +
           std::to_string(p.precision) + " " + std::to_string(p.size);
  }
  unsigned long p;
  std::sscanf(row.c_str(), "%d %lu %d %d %d", &type, &p, &scale, &def, &max);
  char buf[qz::kSqlTypeNameSize];
  qz::ColumnBuffer b =
      qz::buffer_for_sql_type(type, static_cast<std::uint32_t>(p), scale, def, max);
  return std::string(qz::sql_type_name(type, buf)) + " " + std::to_string(b.ctype) + " " +
         std::to_string(b.size);
}

TEST(SqlTypes, BindingsNamesAndValueTypeCodes) {
  // Fixed types whatever the precision; text by precision (0: the default, past the
  // maximum: the maximum, where drivers cut); NUMERIC and DECIMAL by precision and scale.
  expect_rows(
      {// "type precision scale default maximum": name, C type, size
       "-7 9 5 10 20 = BIT 4 4", "-6 0 0 10 20 = TINYINT 4 4", "5 100000 0 10 20 = SMALLINT 4 4",
       "4 10 0 10 20 = INTEGER 4 4", "6 10 0 10 20 = FLOAT 8 8", "7 10 0 10 20 = REAL 8 8",
       "8 10 0 10 20 = DOUBLE 8 8", "9 10 0 10 20 = DATE 9 6", "10 10 0 10 20 = TIME 10 6",
       "11 10 0 10 20 = TIMESTAMP 11 16", "-5 19 0 1024 1024 = BIGINT 1 20",
       "-4 10 0 1024 1024 = LONGVARBINARY 1 11", "-3 10 0 1024 1024 = VARBINARY 1 11",
       "-2 2 0 1 1 = BINARY 1 1", "-1 4294967295 0 1024 1024 = LONGVARCHAR 1 1024",
       "1 1 0 1024 1024 = CHAR 1 2", "12 0 0 100 5000 = VARCHAR 1 100",
       "12 5000 0 100 5000 = VARCHAR 1 5001", "12 5001 0 100 5000 = VARCHAR 1 5000",
       // NUMERIC and DECIMAL by precision and scale; codes without a name
       "2 9 0 10 20 = NUMERIC 4 4", "2 0 0 10 20 = NUMERIC 4 4", "2 10 0 10 20 = NUMERIC 8 8",
       "2 9 2 10 20 = NUMERIC 8 8", "3 14 4 10 20 = DECIMAL 8 8", "3 5 -1 10 20 = DECIMAL 8 8",
       "3 15 0 10 20 = DECIMAL 1 16", "2 2000 2 10 20 = NUMERIC 1 2001",
       "3 4294967295 0 10 20 = DECIMAL 1 2147483647", "3 2147483646 0 10 20 = DECIMAL 1 2147483647",
       "3 2147483647 0 10 20 = DECIMAL 1 2147483647", "0 30 0 1024 1024 = UNKNOWN(0) 1 31",
       "91 30 0 1024 1024 = UNKNOWN(91) 1 31", "13 0 0 99 1024 = UNKNOWN(13) 1 99",
       "-8 30 0 1024 1024 = UNKNOWN(-8) 1 31",
       // value type codes 1..6 and the bindings of parameters no driver described
       "value 0 = 0 ? 0 0/0", "value 1 = 1 C_CHAR 1 1/300", "value 2 = 4 C_LONG 2 4/4",
       "value 3 = 8 C_DOUBLE 3 8/8", "value 4 = 9 C_DATE 4 9/6", "value 5 = 10 C_TIME 5 10/6",
       "value 6 = 11 C_TIMESTAMP 6 11/16", "value 7 = 0 ? 0 0/0", "param 1 = 1 12 1024 1025",
       "param 4 = 4 4 10 4", "param 8 = 8 8 15 8", "param 9 = 0 0 0 0",
       "-2147483648 30 0 1024 1024 = UNKNOWN(-2147483648) 1 31"},
      binding);
  EXPECT_STREQ(qz::c_type_name(SQL_C_SLONG), "?");
  EXPECT_EQ(qz::value_type_of_ctype(SQL_C_TYPE_TIMESTAMP), 0);
}

}  // namespace
