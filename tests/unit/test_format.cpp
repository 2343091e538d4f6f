// Tests of the text forms of fetched values: every function against snprintf with the
// printf format it stands for, byte for byte, on boundary values and on kSamples random
// values per set, with guard bytes after the declared buffer size.
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

#include "format.hpp"

#ifndef QZ_FORMAT_SAMPLES
#define QZ_FORMAT_SAMPLES 1000000
#endif

namespace {

constexpr long kSamples = QZ_FORMAT_SAMPLES;  // random values per set
constexpr int kGuard = 8;                     // bytes after the declared size
constexpr char kSentinel = '\x5a';
constexpr std::uint64_t kSeed = 20240611;

// Counts the values compared and keeps the first few mismatches as readable lines.
template <int Size>
struct Tally {
  long checked = 0;      // values compared
  long failed = 0;       // values whose text differed
  std::string examples;  // the first mismatches, one per line

  // ours(buffer) writes our text and returns its length; want is snprintf's text of the
  // same value. describe() names the input and is called only on a mismatch.
  template <class Ours, class Describe>
  void check(Ours ours, const char *want, int want_len, Describe describe) {
    char got[Size + kGuard];
    std::memset(got, kSentinel, sizeof got);
    int len = ours(got);
    ++checked;
    bool ok = len == want_len && want_len < Size && std::memcmp(got, want, want_len + 1) == 0;
    for (int i = Size; i < Size + kGuard; ++i)
      ok = ok && got[i] == kSentinel;
    if (!ok && ++failed <= 5) {
      std::string shown(got, static_cast<std::size_t>(len >= 0 && len < Size ? len : 0));
      examples += describe() + ": snprintf \"" + want + "\", ours \"" + shown + "\" (length " +
                  std::to_string(len) + ")\n";
    }
  }
};

std::string hex_bits(double d) {
  std::uint64_t bits;
  std::memcpy(&bits, &d, sizeof bits);
  char text[32];
  std::snprintf(text, sizeof text, "bits 0x%016" PRIx64, bits);
  return text;
}

double from_bits(std::uint64_t bits) {
  double d;
  std::memcpy(&d, &bits, sizeof d);
  return d;
}

// A value as a failure message shows it: a double by its bits, an integer in decimal.
template <class V>
std::string describe(V v) {
  if constexpr (std::is_floating_point_v<V>)
    return hex_bits(v);
  else
    return std::to_string(v);
}

// Compares ours(out, v...) with snprintf(format, v...) for one set of values.
template <int Size, class... V>
void check(Tally<Size> &t, int (*ours)(char *, V...), const char *format, V... v) {
  char want[96];
  int n = std::snprintf(want, sizeof want, format, v...);
  t.check([&](char *out) { return ours(out, v...); }, want, n,
          [&] {
            std::string text = format;
            ((text += " " + describe(v)), ...);
            return text;
          });
}

void check_int(Tally<qz::kFormatIntSize> &t, std::int32_t v) {
  check(t, qz::format_int, "%d", v);
}
void check_double(Tally<qz::kFormatDoubleSize> &t, double d) {
  check(t, qz::format_g14, "%.14g", d);
}
void check_date(Tally<qz::kFormatDateSize> &t, std::int16_t y, std::uint16_t m, std::uint16_t d) {
  check(t, qz::format_date, "%04d%02d%02d", y, m, d);
}
void check_time(Tally<qz::kFormatTimeSize> &t, std::uint16_t h, std::uint16_t mi, std::uint16_t s) {
  check(t, qz::format_time, "%02d%02d%02d", h, mi, s);
}

struct Stamp {
  std::int16_t year;
  std::uint16_t month, day, hour, minute, second;  // as an ODBC timestamp holds them
};

void check_timestamp(Tally<qz::kFormatTimestampSize> &t, const Stamp &v) {
  check(t, qz::format_timestamp, "%04d%02d%02d %02d%02d%02d", v.year, v.month, v.day, v.hour,
        v.minute, v.second);
}
void check_header(Tally<qz::kFormatXpackHeaderSize> &t, std::int32_t number, std::int32_t vl) {
  check(t, qz::format_xpack_header, "~%d~%d~", number, vl);
}

// An int32 of random magnitude: the bit patterns alone are nearly all ten digits long.
std::int32_t random_magnitude(std::mt19937_64 &rng) {
  std::uint64_t r = rng();
  std::uint32_t u = static_cast<std::uint32_t>(r) >> (r >> 32) % 32;
  return static_cast<std::int32_t>((r >> 40) & 1 ? 0u - u : u);
}

// A double read by strtod from a random decimal text: 1 to 17 significant digits, a
// decimal exponent in [lo, hi], either sign. Short digit strings are what databases
// hold; they also give exact ties and values just either side of a rounding step.
double random_decimal(std::mt19937_64 &rng, int lo, int hi) {
  char text[40];
  char *p = text;
  std::uint64_t r = rng();
  if (r & 1) *p++ = '-';
  int digits = 1 + static_cast<int>((r >> 1) % 17);
  for (int i = 0; i < digits; ++i)
    *p++ = static_cast<char>('0' + rng() % 10);
  int exp = lo + static_cast<int>(rng() % static_cast<std::uint64_t>(hi - lo + 1));
  std::snprintf(p, 16, "e%d", exp - digits + 1);
  return std::strtod(text, nullptr);
}

template <int Size>
void expect_clean(const Tally<Size> &t, long at_least) {
  EXPECT_GE(t.checked, at_least);
  EXPECT_EQ(t.failed, 0) << t.failed << " of " << t.checked << " differ, first ones:\n"
                         << t.examples;
}

TEST(FormatInt, BoundariesAndRandomValuesMatchSnprintf) {
  Tally<qz::kFormatIntSize> t;
  const std::int32_t lo = std::numeric_limits<std::int32_t>::min();
  const std::int32_t hi = std::numeric_limits<std::int32_t>::max();
  for (std::int32_t v : {0, 1, -1, lo, lo + 1, hi, hi - 1})
    check_int(t, v);
  // Either side of every digit-count step.
  for (std::int64_t p = 1; p <= 1000000000; p *= 10)
    for (std::int64_t v : {p - 1, p, p + 1, -p + 1, -p, -p - 1})
      check_int(t, static_cast<std::int32_t>(v));
  std::mt19937_64 rng(kSeed);
  for (long i = 0; i < kSamples; ++i)
    check_int(t, static_cast<std::int32_t>(rng()));
  for (long i = 0; i < kSamples; ++i)
    check_int(t, random_magnitude(rng));
  expect_clean(t, 2 * kSamples);
}

TEST(FormatInt, XpackHeaderMatchesSnprintf) {
  Tally<qz::kFormatXpackHeaderSize> t;
  const std::int32_t lo = std::numeric_limits<std::int32_t>::min();
  const std::int32_t hi = std::numeric_limits<std::int32_t>::max();
  for (std::int32_t a : {0, 1, -1, 9, 10, lo, hi})
    for (std::int32_t b : {0, 1, 9, 10, 1023, -1, lo, hi})
      check_header(t, a, b);
  std::mt19937_64 rng(kSeed + 1);
  for (long i = 0; i < kSamples; ++i)
    check_header(t, random_magnitude(rng), random_magnitude(rng));
  expect_clean(t, kSamples);
}

// Values where the text changes shape: the fixed and exponent forms meet at 1e-4 and
// 1e14, rounding to 14 digits can carry into a new power of ten, and the exponent grows
// to three figures; swept a few ulps either side.
TEST(FormatDouble, SpecialAndBoundaryValuesMatchSnprintf) {
  Tally<qz::kFormatDoubleSize> t;
  const double inf = std::numeric_limits<double>::infinity();
  for (double d : {0.0, -0.0, inf, -inf, 1.0, -1.0, 0.1, 0.5, 123.45, -2.9, 1e20, 3.99,
                   std::numeric_limits<double>::min(), std::numeric_limits<double>::max(),
                   std::numeric_limits<double>::denorm_min(), -std::numeric_limits<double>::max()})
    check_double(t, d);
  // NaNs of both signs, quiet and signalling, with assorted payloads.
  for (std::uint64_t payload :
       {0x8000000000000ULL, 0x1ULL, 0x4000000000000ULL, 0xFFFFFFFFFFFFFULL, 0x123456789ABCULL})
    for (std::uint64_t sign : {0ULL, 0x8000000000000000ULL})
      check_double(t, from_bits(sign | 0x7FF0000000000000ULL | payload));
  // The largest subnormal and the smallest normal, with neighbours.
  for (std::uint64_t bits = 0xFFFFFFFFFFF00ULL; bits <= 0x10000000000FFULL; ++bits) {
    check_double(t, from_bits(bits));
    check_double(t, from_bits(bits | 0x8000000000000000ULL));
  }
  for (int e = -325; e <= 309; ++e) {
    for (const char *mantissa : {"1", "9.99999999999995", "9.999999999999949", "5",
                                 "1.00000000000005", "1.23456789012345"}) {
      char text[48];
      std::snprintf(text, sizeof text, "%se%d", mantissa, e);
      double centre = std::strtod(text, nullptr);
      double up = centre;
      double down = centre;
      for (int k = 0; k < 8; ++k) {
        check_double(t, up);
        check_double(t, -down);
        up = std::nextafter(up, inf);
        down = std::nextafter(down, 0.0);
      }
    }
  }
  // Exact ties at the 15th digit: round half to even, as glibc does.
  std::mt19937_64 rng(kSeed + 2);
  for (long i = 0; i < kSamples / 10; ++i) {
    double k = static_cast<double>(10000000000000LL + rng() % 90000000000000LL);
    check_double(t, k * 10 + 5);                        // 15-digit integers ending in 5
    check_double(t, k + 0.5);                           // 14 digits and a half
    check_double(t, std::ldexp(k * 10 + 5, -20));       // the same digits in a fraction
    check_double(t, static_cast<double>(rng() >> 11));  // integers up to 2^53
  }
  // Whole numbers of every length up to and past 1e14, where the text stops being the
  // plain digits, and either side of 1e8.
  for (double edge : {1e14, 1e8, 1e15}) {
    double up = edge;
    double down = edge;
    for (int k = 0; k < 16; ++k) {
      for (double d : {up, down, -up, -down, up - 1, down - 1, up + 1})
        check_double(t, d);
      up = std::nextafter(up, inf);
      down = std::nextafter(down, 0.0);
    }
  }
  for (long i = 0; i < kSamples / 10; ++i) {
    std::uint64_t r = rng();
    double whole = static_cast<double>((r >> 8) % 200000000000000ULL >> (r % 48));
    check_double(t, r & 0x80 ? -whole : whole);
  }
  expect_clean(t, kSamples / 10);
}

// Random bit patterns; decimals across the whole exponent range (subnormals and overflow
// to infinity included); decimals where the fixed form turns into the exponent form.
TEST(FormatDouble, RandomBitsAndMagnitudesMatchSnprintf) {
  Tally<qz::kFormatDoubleSize> t;
  std::mt19937_64 rng(kSeed + 3);
  for (long i = 0; i < kSamples; ++i) {
    check_double(t, from_bits(rng()));
    check_double(t, random_decimal(rng, -330, 310));
    if (i % 2) check_double(t, random_decimal(rng, -8, 16));
  }
  expect_clean(t, 2 * kSamples + kSamples / 2);
}

TEST(FormatDate, FullRangesMatchSnprintf) {
  Tally<qz::kFormatDateSize> t;
  std::mt19937_64 rng(kSeed + 5);
  for (int y = -32768; y <= 32767; ++y)
    check_date(t, static_cast<std::int16_t>(y), static_cast<std::uint16_t>(rng() % 13),
               static_cast<std::uint16_t>(rng() % 32));
  for (int v = 0; v <= 65535; ++v) {
    check_date(t, 2019, static_cast<std::uint16_t>(v), 13);
    check_date(t, -1, 2, static_cast<std::uint16_t>(v));
  }
  // Any fields, and fields around the usual four-digit year and two-digit month and day.
  for (long i = 0; i < 2 * kSamples; ++i) {
    std::uint64_t r = rng(), year = i % 2 ? r % 10003 - 1 : r, near = i % 2 ? 102 : 65536;
    check_date(t, static_cast<std::int16_t>(year), static_cast<std::uint16_t>((r >> 16) % near),
               static_cast<std::uint16_t>((r >> 32) % near));
  }
  expect_clean(t, 2 * kSamples);
}

TEST(FormatTime, FullRangesMatchSnprintf) {
  Tally<qz::kFormatTimeSize> t;
  std::mt19937_64 rng(kSeed + 6);
  for (int v = 0; v <= 65535; ++v) {
    check_time(t, static_cast<std::uint16_t>(v), 5, 9);
    check_time(t, 8, static_cast<std::uint16_t>(v), 9);
    check_time(t, 8, 5, static_cast<std::uint16_t>(v));
  }
  for (long i = 0; i < 2 * kSamples; ++i) {  // any fields, and fields of two digits or so
    std::uint64_t r = rng(), near = i % 2 ? 102 : 65536;
    check_time(t, static_cast<std::uint16_t>(r % near),
               static_cast<std::uint16_t>((r >> 16) % near),
               static_cast<std::uint16_t>((r >> 32) % near));
  }
  expect_clean(t, 2 * kSamples);
}

TEST(FormatTimestamp, FullRangesMatchSnprintf) {
  Tally<qz::kFormatTimestampSize> t;
  std::mt19937_64 rng(kSeed + 7);
  for (long i = 0; i < 2 * kSamples; ++i) {  // any fields, and the usual widths or so
    std::uint64_t r = rng(), s = rng(), year = i % 2 ? r % 10003 - 1 : r, n = i % 2 ? 102 : 65536;
    auto f = [n](std::uint64_t x) { return static_cast<std::uint16_t>(x % n); };
    check_timestamp(
        t, {static_cast<std::int16_t>(year), f(r >> 16), f(r >> 32), f(r >> 48), f(s), f(s >> 16)});
  }
  expect_clean(t, 2 * kSamples);
}

// The declared sizes are tight: the longest texts fill them up to the NUL.
TEST(FormatSizes, LongestTextsFillTheDeclaredSizes) {
  const std::int32_t lo = std::numeric_limits<std::int32_t>::min();
  char buf[64];
  EXPECT_EQ(qz::format_int(buf, lo), qz::kFormatIntSize - 1);
  EXPECT_EQ(qz::format_g14(buf, -1.2345678901234e-308), qz::kFormatDoubleSize - 1);
  EXPECT_EQ(qz::format_date(buf, -32768, 65535, 65535), qz::kFormatDateSize - 1);
  EXPECT_EQ(qz::format_time(buf, 65535, 65535, 65535), qz::kFormatTimeSize - 1);
  EXPECT_EQ(qz::format_timestamp(buf, -32768, 65535, 65535, 65535, 65535, 65535),
            qz::kFormatTimestampSize - 1);
  EXPECT_EQ(qz::format_xpack_header(buf, lo, lo), qz::kFormatXpackHeaderSize - 1);
}

// The forms the packed rows and readers are known by, written out.
TEST(FormatSizes, KnownTexts) {
  char buf[64];
  const struct {
    double d;          // value
    const char *text;  // its text
  } doubles[] = {{from_bits(0xFFF8000000000000ULL), "-nan"},
                 {-0.0, "-0"},
                 {1e20, "1e+20"},
                 {99999999999999.5, "1e+14"},
                 {0.0001, "0.0001"},
                 {1e-300, "1e-300"}};
  for (const auto &c : doubles) {
    qz::format_g14(buf, c.d);
    EXPECT_STREQ(buf, c.text);
  }
  qz::format_date(buf, -1, 2, 3);
  EXPECT_STREQ(buf, "-0010203");
  qz::format_timestamp(buf, 1970, 1, 2, 0, 0, 0);
  EXPECT_STREQ(buf, "19700102 000000");
  qz::format_time(buf, 8, 5, 100);
  EXPECT_STREQ(buf, "0805100");
  qz::format_xpack_header(buf, 3, 0);
  EXPECT_STREQ(buf, "~3~0~");
}

}  // namespace
