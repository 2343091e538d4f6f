// Tests of numbers read from text and of doubles narrowed to 32-bit integers: what the
// readers report (and the value read so far) for trailing characters and overflow, the
// setters' length limits, and truncation of NaN, infinities and huge values, which the
// sanitizer build checks for undefined conversions.
#include <cerrno>
#include <cfloat>
#include <cmath>
#include <limits>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "numtext.hpp"

namespace {

constexpr std::int32_t kMin32 = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kMax32 = std::numeric_limits<std::int32_t>::max();

// What read_int32 reports for a text, and the value it leaves: the value read so far
// after trailing characters, the nearer end of the 32-bit range (in every build, where a
// 64-bit long would take 3000000000 without complaint) on overflow.
TEST(ReadInt32, ValuesTrailingCharactersAndRange) {
  const struct {
    const char *text;    // input
    int rc;              // report
    std::int32_t value;  // value left
  } cases[] = {
      {"123", qz::kNumOk, 123},
      {"  42", qz::kNumOk, 42},
      {"\t\n-17", qz::kNumOk, -17},
      {"+5", qz::kNumOk, 5},
      {"-0", qz::kNumOk, 0},
      {"2147483647", qz::kNumOk, kMax32},
      {"-2147483648", qz::kNumOk, kMin32},
      {"000000000000000000000042", qz::kNumOk, 42},
      {"", qz::kNumOk, 0},  // no digits and nothing after them
      {"12a", qz::kNumTrailing, 12},
      {"42 ", qz::kNumTrailing, 42},  // padded CHAR
      {"abc", qz::kNumTrailing, 0},
      {"   ", qz::kNumTrailing, 0},
      {"0x1A", qz::kNumTrailing, 0},
      {"1e3", qz::kNumTrailing, 1},
      {"2.9", qz::kNumTrailing, 2},
      {"-", qz::kNumTrailing, 0},
      {"2147483648", qz::kNumRange, kMax32},
      {"3000000000", qz::kNumRange, kMax32},
      {"-2147483649", qz::kNumRange, kMin32},
      {"99999999999999999999999", qz::kNumRange, kMax32},
      {"3000000000x", qz::kNumRange, kMax32},
  };
  for (const auto &c : cases) {
    std::int32_t v = 999;
    EXPECT_EQ(qz::read_int32(c.text, &v), c.rc) << '"' << c.text << '"';
    EXPECT_EQ(v, c.value) << '"' << c.text << '"';
  }
}

TEST(ReadInt32, AnEarlierErrnoDoesNotCount) {
  errno = ERANGE;
  std::int32_t v = 0;
  EXPECT_EQ(qz::read_int32("5", &v), qz::kNumOk);
  EXPECT_EQ(v, 5);
  errno = EINVAL;
  double d = 0;
  EXPECT_EQ(qz::read_double("2.5", &d), qz::kNumOk);
  EXPECT_EQ(d, 2.5);
}

TEST(ReadDouble, NumbersTrailingTextAndRange) {
  struct {
    const char *text;
    int rc;
    double value;
  } cases[] = {
      {"2.9", qz::kNumOk, 2.9},           {" -2.9", qz::kNumOk, -2.9},
      {"1e20", qz::kNumOk, 1e20},         {"0x1p3", qz::kNumOk, 8.0},
      {"+.5", qz::kNumOk, 0.5},           {"", qz::kNumOk, 0.0},
      {"INF", qz::kNumOk, HUGE_VAL},      {"-infinity", qz::kNumOk, -HUGE_VAL},
      {"12a", qz::kNumTrailing, 12.0},    {"3.99 ", qz::kNumTrailing, 3.99},
      {".", qz::kNumTrailing, 0.0},       {"1,5", qz::kNumTrailing, 1.0},
      {"1e400", qz::kNumRange, HUGE_VAL}, {"-1e400", qz::kNumRange, -HUGE_VAL},
  };
  for (const auto &c : cases) {
    double v = 999;
    EXPECT_EQ(qz::read_double(c.text, &v), c.rc) << c.text;
    EXPECT_EQ(v, c.value) << c.text;
  }
  double v = 999;
  EXPECT_EQ(qz::read_double("1e-400", &v), qz::kNumRange);  // underflow sets errno too
  EXPECT_EQ(v, 0.0);
  EXPECT_EQ(qz::read_double("nan", &v), qz::kNumOk);
  EXPECT_TRUE(std::isnan(v));
}

TEST(ParamText, IntegerTextsUpTo15Bytes) {
  std::int32_t v = 7;
  EXPECT_EQ(qz::param_text_int32("42", 2, &v), qz::kNumOk);
  EXPECT_EQ(v, 42);
  EXPECT_EQ(qz::param_text_int32("000000000000043", 15, &v), qz::kNumOk);
  EXPECT_EQ(v, 43);
  // Sixteen digits are refused unread; the text is only as long as its length says.
  v = 7;
  EXPECT_EQ(qz::param_text_int32("0000000000000042", 16, &v), qz::kNumTooLong);
  EXPECT_EQ(qz::param_text_int32("42 ", 3, &v), qz::kNumTrailing);
  EXPECT_EQ(qz::param_text_int32("4x", 2, &v), qz::kNumTrailing);
  EXPECT_EQ(qz::param_text_int32("999999999999999", 15, &v), qz::kNumRange);
  EXPECT_EQ(v, 7) << "a refused text must not be stored";
  EXPECT_EQ(qz::param_text_int32("123456", 3, &v), qz::kNumOk);
  EXPECT_EQ(v, 123);
  EXPECT_EQ(qz::param_text_int32(std::string("12\0x", 4).data(), 4, &v), qz::kNumOk);
  EXPECT_EQ(v, 12);  // a NUL ends the text as it ends it for strtol
  EXPECT_EQ(qz::param_text_int32("", 0, &v), qz::kNumOk);
  EXPECT_EQ(v, 0);
}

TEST(ParamText, RealTextsUpTo511Bytes) {
  std::string t(511 - 4, '0');
  t += "3.99";
  double v = 7;
  EXPECT_EQ(qz::param_text_double(t.data(), 511, &v), qz::kNumOk);
  EXPECT_EQ(v, 3.99);
  v = 7;
  std::string longer = "0" + t;
  EXPECT_EQ(qz::param_text_double(longer.data(), 512, &v), qz::kNumTooLong);
  EXPECT_EQ(qz::param_text_double("3.99x", 5, &v), qz::kNumTrailing);
  EXPECT_EQ(qz::param_text_double("1e999", 5, &v), qz::kNumRange);
  EXPECT_EQ(v, 7) << "a refused text must not be stored";
  EXPECT_EQ(qz::param_text_double("2.75junk", 4, &v), qz::kNumOk);
  EXPECT_EQ(v, 2.75);
  EXPECT_EQ(qz::kParamIntTextMax, 15);
  EXPECT_EQ(qz::kParamRealTextMax, 511);
  EXPECT_EQ(qz::kParamDateTextMax, 15);
  EXPECT_EQ(qz::kParamTimeTextMax, 15);
  EXPECT_EQ(qz::kParamTimestampTextMax, 31);
}

// Toward zero inside the range; everything else (NaN included) gives the smallest int.
TEST(TruncToInt32, TowardZeroInsideTheRangeElseTheSmallestInt) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const std::pair<double, std::int32_t> cases[] = {
      {2.9, 2},
      {-2.9, -2},
      {3.99, 3},
      {0.0, 0},
      {-0.0, 0},
      {-0.999, 0},
      {DBL_TRUE_MIN, 0},
      {20190213.0, 20190213},
      {2147483647.0, kMax32},
      {std::nextafter(2147483648.0, 0.0), kMax32},
      {-2147483648.0, kMin32},
      {std::nextafter(-2147483649.0, 0.0), kMin32},
      {2147483648.0, kMin32},
      {-2147483649.0, kMin32},
      {1e20, kMin32},
      {-DBL_MAX, kMin32},
      {HUGE_VAL, kMin32},
      {-HUGE_VAL, kMin32},
      {nan, kMin32},
      {-nan, kMin32},
      {std::numeric_limits<double>::signaling_NaN(), kMin32},
      {4294967296.0, kMin32},
      {9223372036854775808.0, kMin32},
  };
  for (const auto &[d, want] : cases)
    EXPECT_EQ(qz::trunc_to_int32(d), want) << d;
}

}  // namespace
