// The direct conversions against the text routes they replace, on ten million random
// operands each: m_to_dbl against m_gcvt (14 figures) then strtod, and deccvdbl against
// deccvreal with 15 figures (the C library's exact "%.14e"). The results must be
// bit-identical, in every build and, through the text routes, in every rounding mode.
#include <gtest/gtest.h>

#include <cfenv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "decimal_test_util.hpp"

namespace {

// Records of every shape, biased towards the exponents programs use and towards digits
// that put the fifteenth figure on a rounding tie.
t_DECIMAL random_record(Rng &rng) {
  t_DECIMAL v;
  std::memset(&v, 0, sizeof v);
  int n = 1 + rng.below(8);
  for (int i = 0; i < n; ++i) {
    int c = rng.below(10);
    v.dec_dgts[i] = static_cast<uint8_t>(c < 6 ? rng.below(100) : c < 8 ? 99 : c < 9 ? 50 : 0);
  }
  if (v.dec_dgts[0] == 0) v.dec_dgts[0] = static_cast<uint8_t>(1 + rng.below(99));
  if (v.dec_dgts[n - 1] == 0) v.dec_dgts[n - 1] = 50;
  v.dec_ndgts = static_cast<int8_t>(n);
  v.dec_exp = static_cast<int16_t>(rng.below(4) == 0 ? rng.below(128) - 64 : rng.below(25) - 12);
  v.dec_pos = static_cast<uint8_t>(rng.below(2));
  return v;
}

double random_double(Rng &rng) {
  int c = rng.below(8);
  uint64_t bits = rng.next();
  double d;
  if (c == 0) {  // any finite double
    std::memcpy(&d, &bits, sizeof d);
    return d != d || d - d != 0 ? 1.25 : d;
  }
  if (c == 1) {  // 16-figure integers: exact ties at the fifteenth figure
    uint64_t n = 1000000000000000ull + bits % 8000000000000000ull;
    n = n / 10 * 10 + (rng.below(2) ? 5 : rng.below(10));
    return rng.below(2) ? static_cast<double>(n) : -static_cast<double>(n);
  }
  if (c == 2) {  // short decimals: k / 10^j
    static const double p10[] = {1, 10, 100, 1000, 1e4, 1e5, 1e6, 1e7, 1e8};
    return static_cast<double>(static_cast<int64_t>(bits % 2000001) - 1000000) / p10[rng.below(9)];
  }
  // a random mantissa scaled across the records' range
  static double scale[271];
  if (scale[0] == 0)
    for (int e = -135; e <= 135; ++e)
      scale[e + 135] = std::strtod(("1e" + std::to_string(e)).c_str(), nullptr);
  double m = 1 + static_cast<double>(bits >> 11) / 9007199254740992.0 * 9;
  return (rng.below(2) ? m : -m) * scale[rng.below(271)];
}

// One random record through both routes to double; a description when they differ.
std::string record_route_difference(Rng &rng) {
  t_DECIMAL v = random_record(rng);
  double direct = 0;
  char buf[32];
  m_to_dbl(&v, &direct);
  m_gcvt(&v, 14, buf);
  double text = std::strtod(buf, nullptr);
  return std::memcmp(&direct, &text, sizeof direct) == 0 ? "" : show(v) + " " + buf;
}

// One random double through both routes to a record; a description when they differ.
std::string double_route_difference(Rng &rng) {
  double d = random_double(rng);
  t_DECIMAL direct, text;
  std::memset(&direct, 0, sizeof direct);
  std::memset(&text, 0, sizeof text);
  int rc1 = deccvdbl(d, &direct), rc2 = deccvreal(d, 15, &text);
  if (rc1 == rc2 && bytes_equal(direct, text)) return "";
  char buf[40];
  std::snprintf(buf, sizeof buf, "%.17g", d);
  return std::string(buf) + ": " + show(direct) + " vs " + show(text);
}

// Operands per route: ten million unless QZ_ROUTES_COUNT says otherwise (the sanitizer
// and the emulated i386 builds register the test with fewer).
long route_count() {
  const char *env = std::getenv("QZ_ROUTES_COUNT");
  return env ? std::atol(env) : 10000000;
}

TEST(DecimalRoutes, DirectConversionsMatchTheTextRoutes) {
  Rng records{0xD1B54A32D192ED03ull}, doubles{0x2545F4914F6CDD1Dull};
  long differ[2] = {0, 0};
  std::string first[2];
  for (long i = 0, n = route_count(); i < n; ++i) {
    for (int route = 0; route < 2; ++route) {
      std::string d =
          route == 0 ? record_route_difference(records) : double_route_difference(doubles);
      if (!d.empty() && differ[route]++ == 0) first[route] = d;
    }
  }
  EXPECT_EQ(differ[0], 0) << "record to double, first: " << first[0];
  EXPECT_EQ(differ[1], 0) << "double to record, first: " << first[1];
}

// A program that switched the rounding mode gets the text routes: the C library's
// conversions follow the mode, the direct ones would not.
TEST(DecimalRoutes, OtherRoundingModesTakeTheTextRoute) {
  Rng rng{99};
  for (int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
    long differ = 0;
    std::fesetround(mode);
    for (int i = 0; i < 20000; ++i)
      differ += !record_route_difference(rng).empty() + !double_route_difference(rng).empty();
    std::fesetround(FE_TONEAREST);
    EXPECT_EQ(differ, 0) << "rounding mode " << mode;
  }
}

}  // namespace
