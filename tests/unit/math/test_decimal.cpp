// The decimal library against its documented examples and edge cases: records and
// constants, normalisation, arithmetic, conversions, packed storage, text forms, the
// numeric layer's substitutes and its fatal stops; then round trips on random records.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>

#include "decimal_test_util.hpp"

namespace {

const char *kFatalNull = "fatal math error cc #-2\nfile = math\\.cpp, line = [0-9]+\n";
const char *kFatalMalformed = "fatal math error cc #-3\nfile = math\\.cpp, line = [0-9]+\n";
constexpr int kAny = INT_MIN;  // an output a case does not look at

t_DECIMAL neg(t_DECIMAL v) {
  v.dec_pos = DEC_POS_NEGATIVE;
  return v;
}

std::string gcvt14(const t_DECIMAL &v) {
  char buf[40];
  return m_gcvt(&v, 14, buf);
}

// ---- Records, constants and the normaliser --------------------------------------------

TEST(DecimalRecord, ConstantsAndLayoutAreTheWireFormat) {
  struct {
    const t_DECIMAL *v;
    unsigned char bytes[12];
  } cases[] = {
      {&c_dec_zero, {0x00, 0x00, 0x01, 0x00, 0, 0, 0, 0, 0, 0, 0, 0}},
      {&c_dec_one, {0x01, 0x00, 0x01, 0x01, 0x01, 0, 0, 0, 0, 0, 0, 0}},
      {&c_dec_huge, {0x3F, 0x00, 0x01, 0x07, 0x63, 0x63, 0x63, 0x63, 0x63, 0x63, 0x63, 0}},
      {&c_int32_max, {0x05, 0x00, 0x01, 0x05, 0x15, 0x2F, 0x30, 0x24, 0x2F, 0, 0, 0}},
      {&c_int32_min, {0x05, 0x00, 0x00, 0x05, 0x15, 0x2F, 0x30, 0x24, 0x30, 0, 0, 0}},
      {&c_min_int32, {0x05, 0x00, 0x00, 0x05, 0x15, 0x2F, 0x30, 0x24, 0x30, 0, 0, 0}},
  };
  for (const auto &c : cases)
    EXPECT_EQ(std::memcmp(c.v, c.bytes, 12), 0) << *c.v;
  unsigned char bytes[12] = {0xFB, 0xFF, 0x00, 0x02, 12, 34, 0, 0, 0, 0, 0, 0};
  t_DECIMAL v;
  std::memcpy(&v, bytes, sizeof v);
  EXPECT_DEC(v, R(-5, {12, 34}, true));
}

t_DECIMAL as_record(const t_DECIMAL_WORK &w) {
  t_DECIMAL v;
  std::memset(&v, 0, sizeof v);
  v.dec_exp = w.dec_exp;
  v.dec_pos = w.dec_pos;
  v.dec_ndgts = w.dec_ndgts;
  std::memcpy(v.dec_dgts, w.dec_dgts, sizeof v.dec_dgts);
  return v;
}

TEST(DecRound, GuardDigitLeadingZerosAndCarry) {
  const struct {
    t_DECIMAL_WORK in;  // working record
    int carry;          // carry into the first place
    int code;           // its return value
    t_DECIMAL want;     // normalised record
  } cases[] = {
      // guard digit 50 rounds half away from zero, and carries past the top
      {{3, DEC_POS_NEGATIVE, 9, {99, 99, 99, 99, 99, 99, 99, 99, 50}}, 0, 0, R(4, {1}, true)},
      {{63, DEC_POS_POSITIVE, 9, {99, 99, 99, 99, 99, 99, 99, 99, 50}},
       0,
       DEC_E_OVERFLOW,
       R(63, {1})},
      {{2, DEC_POS_POSITIVE, 9, {1, 2, 3, 4, 5, 6, 7, 8, 49}},
       0,
       0,
       R(2, {1, 2, 3, 4, 5, 6, 7, 8})},
      // leading zeros shift; all zeros give the canonical zero
      {{-63, DEC_POS_NEGATIVE, 4, {0, 0, 7, 0}}, 0, DEC_E_UNDERFLOW, R(-64, {7}, true)},
      {{12, DEC_POS_NEGATIVE, 3, {0, 0, 0}}, 0, 0, c_dec_zero},
      // a carry takes the first place: the old ninth digit is gone and 60 rounds up
      {{1, DEC_POS_POSITIVE, 9, {1, 2, 3, 4, 5, 6, 7, 60, 99}},
       1,
       0,
       R(2, {1, 1, 2, 3, 4, 5, 6, 8})},
  };
  for (const auto &c : cases) {
    t_DECIMAL_WORK w = c.in;
    EXPECT_EQ(dec_round(&w, c.carry), c.code) << c.want;
    EXPECT_DEC(as_record(w), c.want);
  }
}

TEST(DecRoundDeathTest, DigitCountAboveNineIsAnAssertion) {
  t_DECIMAL_WORK w = {0, DEC_POS_POSITIVE, 10, {1}};
  EXPECT_DEATH(dec_round(&w, 0), "s->dec_ndgts >= 0 && s->dec_ndgts <= \\(8\\+1\\)");
}

// ---- Arithmetic, comparison, sign ------------------------------------------------------
// One binary operation on two records: the code and the result it must give. `bytes`
// compares every byte of the result (a canonical zero, an operand passed on untouched);
// otherwise exponent, sign and the counted digits.
struct BinaryCase {
  const char *what;                                              // the rule shown
  int (*fn)(const t_DECIMAL *, const t_DECIMAL *, t_DECIMAL *);  // operation
  t_DECIMAL a, b;                                                // operands
  int code;                                                      // its return value
  t_DECIMAL want;                                                // result
  bool bytes = false;                                            // compare all 12 bytes
};

TEST(DecArith, DocumentedResultsAndSubstitutes) {
  const t_DECIMAL big = R(4, {98, 76, 54, 32, 10, 12, 34, 56}), n = null_record(), z = c_dec_zero,
                  huge = c_dec_huge, mhuge = neg(c_dec_huge), tiny = R(-34, {1});  // 10^-70
  t_DECIMAL odd = P("-12.34");
  odd.dec_dgts[5] = 77;  // bytes past the count come along untouched
  const BinaryCase cases[] = {
      {"opposite values", decadd, R(3, {12, 34, 56}), R(3, {12, 34, 56}, true), 0, z, true},
      {"nine apart: the larger", decadd, R(-5, {99, 99}, true), big, 0, big, true},
      {"guard digit 50", decadd, R(0, {99, 99, 99, 99, 99, 99, 99, 99}), R(-8, {50}), 0, R(1, {1})},
      {"equal values", decsub, P("-12.34"), P("-12.34"), 0, z, true},
      {"zero subtrahend", decsub, odd, z, 0, odd, true},
      {"zero factor", decmul, P("1.5"), z, 0, z, true},
      {"signs", decmul, P("1.5"), P("-2"), 0, P("-3")},
      // The exact product rounds to ...99 53; the partial products past the guard place
      // are dropped, so the guard digit comes out lower.
      {"guard place", decmul, R(1, {1, 0, 0, 50, 1, 0, 99, 98}),
       R(0, {98, 0, 0, 98, 99, 0, 50, 99}), 0, R(0, {98, 0, 49, 99, 98, 47, 99, 52})},
      {"carry out of the first place", decmul, R(1, {99}), R(2, {99, 1}), 0, R(3, {98, 1, 99})},
      {"1/3", decdiv, P("1"), P("3"), 0, R(0, {33, 33, 33, 33, 33, 33, 33, 33})},
      {"2/3 truncated", decdiv, P("2"), P("3"), 0, R(0, {66, 66, 66, 66, 66, 66, 66, 66})},
      {"10/4", decdiv, P("10"), P("4"), 0, P("2.5")},
      {"by zero", decdiv, P("-7"), z, DEC_E_DIVZERO, z, true},
      {"null by zero", decdiv, n, z, 0, n},
      {"m_add overflow", m_add, huge, huge, M_CC_RANGE, huge, true},
      {"m_add negative overflow", m_add, mhuge, mhuge, M_CC_RANGE, mhuge, true},
      {"m_sub overflow", m_sub, mhuge, huge, M_CC_RANGE, mhuge, true},
      {"m_mpy underflow", m_mpy, tiny, tiny, M_CC_RANGE, z, true},
      {"m_mpy overflow", m_mpy, huge, mhuge, M_CC_RANGE, mhuge, true},
      {"m_dvd by zero", m_dvd, P("5"), z, M_CC_DIVZERO, huge, true},
      {"m_dvd negative by zero", m_dvd, P("-5"), z, M_CC_DIVZERO, mhuge, true},
      {"m_dvd zero by zero: zero is not negative", m_dvd, z, z, M_CC_DIVZERO, huge, true},
      {"m_dvd underflow", m_dvd, tiny, huge, M_CC_RANGE, z, true},
      {"m_add to zero", m_add, P("5"), P("-5"), M_CC_OK, z, true},
  };
  for (const BinaryCase &c : cases) {
    t_DECIMAL r;
    std::memset(&r, 0x33, sizeof r);
    EXPECT_EQ(c.fn(&c.a, &c.b, &r), c.code) << c.what;
    if (c.bytes)
      EXPECT_TRUE(bytes_equal(r, c.want)) << c.what << ": " << r;
    else
      EXPECT_DEC(r, c.want) << c.what;
  }
}

TEST(DecAdd, ResultMayBeAnOperandAndOverflowClampsTheExponent) {
  t_DECIMAL a = c_dec_huge;
  EXPECT_EQ(decadd(&a, &a, &a), DEC_E_OVERFLOW);
  EXPECT_EQ(a.dec_exp, 63);
  EXPECT_EQ(a.dec_dgts[0], 1);
}

TEST(DecCmp, DocumentedOrderingsZerosAndNull) {
  const struct {
    t_DECIMAL a, b;  // compared
    int want;        // deccmp's answer
  } cases[] = {
      {c_dec_zero, P("-5"), 1},
      {P("-5"), P("-7"), 1},
      {P("-7"), P("-5"), -1},
      {P("100"), P("99.5"), 1},
      {P("99.5"), P("100"), -1},
      {P("100"), P("100"), 0},
      {c_dec_zero, R(5, {}, true), 0},  // any record without digits is zero
      {null_record(), P("100"), DEC_E_NULLCMP},
      {P("100"), null_record(), DEC_E_NULLCMP},
  };
  for (const auto &c : cases)
    EXPECT_EQ(deccmp(&c.a, &c.b), c.want) << c.a << " " << c.b;
  EXPECT_EQ(m_cmp(&cases[3].a, &cases[1].a), 1);
}

TEST(DecChs, FlipsSignButNotZeroAndKeepsNull) {
  t_DECIMAL x = P("2.5"), z = c_dec_zero, n = null_record(), r;
  n.dec_exp = 9;
  EXPECT_EQ(decchs(&x), 0);
  EXPECT_DEC(x, P("-2.5"));
  decchs(&z);
  EXPECT_TRUE(bytes_equal(z, c_dec_zero));
  decchs(&n);
  EXPECT_EQ(n.dec_pos, DEC_POS_NULL);
  EXPECT_EQ(n.dec_exp, 0);
  EXPECT_EQ(m_sgn(&x), -1);
  EXPECT_EQ(m_sgn(&c_dec_one), 1);
  EXPECT_EQ(m_sgn(&c_dec_zero), 0);
  EXPECT_EQ(m_chs(&x, &r), 0);
  EXPECT_DEC(r, P("2.5"));
  EXPECT_EQ(m_chs(&r, &r), 0);
  EXPECT_DEC(r, x);
}

// ---- Digit generation and the general text form -------------------------------------

TEST(MathGcvt, FourteenDigitExamples) {
  const t_DECIMAL top = R(63, {99, 99, 99, 99, 99, 99, 99, 99});
  const struct {
    t_DECIMAL v;       // record
    const char *text;  // m_gcvt with 14 digits
  } cases[] = {
      {R(2, {1, 23, 45, 60}), "123.456"},
      {R(-1, {1}), "0.0001"},
      {R(-9, {1}), "1E-20"},
      {R(11, {1}), "1E+20"},
      {R(7, {12, 34, 56, 78, 90, 12, 34}), "12345678901234"},
      {R(8, {1, 23, 45, 67, 89, 1, 23, 45}), "1.2345678901235E+14"},
      {c_dec_huge, "9.9999999999999E+125"},
      {R(0, {50}, true), "-0.5"},
      {R(0, {}, true), "0"},  // a zero with the negative sign byte
      {top, "1E+126"},        // rounding past the top
      {neg(top), "-1E+126"},
      // the longest text: ndigit + 7 characters
      {R(-60, {12, 34, 56, 78, 90, 12, 34, 56}, true), "-1.2345678901235E-121"},
  };
  for (const auto &c : cases)
    EXPECT_EQ(gcvt14(c.v), c.text);
  char buf[8] = "xxx";
  EXPECT_STREQ(m_gcvt(&c_dec_one, 0, buf), "");
}

TEST(DecEfcvt, SignificantAndFixedDigitsNullZeroAndTheTop) {
  const t_DECIMAL v = R(2, {1, 23, 45, 60}, true), top = R(63, {99, 99, 99, 99, 99, 99, 99, 99});
  const struct {
    char *(*fn)(const t_DECIMAL *, int, int *, int *);  // digit generator
    t_DECIMAL in;                                       // record
    int ndigit;                                         // digits or places asked for
    const char *text;                                   // digits given
    int decpt, sign;  // outputs (77: left alone; kAny: not looked at)
  } cases[] = {
      {dececvt, v, 4, "1235", 3, 1},
      {decfcvt, v, 1, "1235", 3, 1},
      {decfcvt, v, 5, "12345600", 3, 1},
      {dececvt, R(1, {99, 99, 50}), 3, "100", 3, 0},  // 99.995
      {decfcvt, R(0, {4}), 0, "", kAny, kAny},        // 0.04: no figure before place 0
      {dececvt, null_record(), 5, "", 77, 77},
      {dececvt, top, 14, "", kAny, kAny},  // rounding past the top
      {m_ecvt, top, 3, "100", 127, 0},     // the numeric layer gives the rounded value
      {m_ecvt, R(0, {}, true), 3, "000", 0, 0},
      {m_fcvt, P("-0.125"), 2, "13", 0, 1},
  };
  for (const auto &c : cases) {
    int decpt = 77, sign = 77;
    EXPECT_STREQ(c.fn(&c.in, c.ndigit, &decpt, &sign), c.text) << c.in << " " << c.ndigit;
    EXPECT_EQ(c.decpt == kAny ? kAny : decpt, c.decpt) << c.in << " " << c.ndigit;
    EXPECT_EQ(c.sign == kAny ? kAny : sign, c.sign) << c.in << " " << c.ndigit;
  }
}

// ---- Conversions with double ---------------------------------------------------------

int dectoreal2(const t_DECIMAL *v, double *out) {
  return dectoreal(v, out, 2);
}

TEST(DecToReal, DocumentedValuesSumAndLimit) {
  const t_DECIMAL w = R(1, {1, 23, 45, 67, 89, 1, 23, 45});
  const struct {
    int (*fn)(const t_DECIMAL *, double *);  // conversion
    t_DECIMAL in;                            // record
    double want;                             // exact double
  } cases[] = {
      {m_to_dbl, c_dec_huge, 9.9999999999999e125},
      {m_to_dbl, R(0, {10}), 0.1},
      {m_to_dbl, R(8, {1, 23, 45, 67, 89, 1, 23, 45}), 123456789012350.0},
      {m_to_dbl, R(63, {99, 99, 99, 99, 99, 99, 99, 99}), 1e126},
      {dectodbl, R(2, {1, 23, 45, 60}, true), -123.456},
      {dectodbl, null_record(), 0.0},
      {dectoreal2, w, 1.23},
  };
  for (const auto &c : cases) {
    double d = -1;
    EXPECT_EQ(c.fn(&c.in, &d), 0) << c.in;
    EXPECT_EQ(d, c.want) << c.in;
  }
  float f;
  EXPECT_EQ(dectoflt(&w, &f), 0);  // six digits: 1.2345678901
  EXPECT_EQ(f, static_cast<float>(1.2345678901));
}
TEST(DecCvReal, DocumentedDigitLayoutsZerosAndSubstitutes) {
  const double inf = std::numeric_limits<double>::infinity(),
               nan = std::numeric_limits<double>::quiet_NaN();
  const struct {
    int (*fn)(double, t_DECIMAL *);  // deccvdbl or m_cv_dbl
    double in;                       // value converted
    int code;                        // its return value
    t_DECIMAL want;                  // record
    bool bytes = true;               // compared byte for byte (else by its digits)
  } cases[] = {
      {deccvdbl, 123.456, 0, R(2, {1, 23, 45, 60}), false},
      {deccvdbl, 0.0, 0, c_dec_zero},
      {m_cv_dbl, -2.5, M_CC_OK, R(1, {2, 50}, true), false},
      {m_cv_dbl, 1e300, M_CC_RANGE, c_dec_huge},
      {m_cv_dbl, -1e300, M_CC_RANGE, neg(c_dec_huge)},
      {m_cv_dbl, 1e-300, M_CC_RANGE, c_dec_zero},
      {m_cv_dbl, nan, M_CC_RANGE, c_dec_zero},
      {m_cv_dbl, -inf, M_CC_RANGE, c_dec_zero},
      {m_cv_dbl, inf, M_CC_RANGE, c_dec_huge},
  };
  for (const auto &c : cases) {
    t_DECIMAL r;
    EXPECT_EQ(c.fn(c.in, &r), c.code) << c.in;
    EXPECT_TRUE(c.bytes ? bytes_equal(r, c.want) : same(r, c.want)) << c.in << ": " << r;
  }
  t_DECIMAL r;
  EXPECT_EQ(deccvreal(0.1234567890123456, 16, &r), 0);  // 16 figures, even decimal point
  EXPECT_DEC(r, R(0, {12, 34, 56, 78, 90, 12, 34, 56}));
  // 6.666666666666667 to 16 figures; the decimal point is odd, so the 16th is dropped.
  EXPECT_EQ(deccvreal(20.0 / 3.0, 16, &r), 0);
  EXPECT_DEC(r, R(1, {6, 66, 66, 66, 66, 66, 66, 66}));
  EXPECT_EQ(deccvflt(0.1f, &r), 0);
  EXPECT_DEC(r, R(0, {10}));
  // The library itself reports the range and keeps the exponent at its limit.
  EXPECT_EQ(deccvdbl(1e200, &r), DEC_E_OVERFLOW);
  EXPECT_EQ(r.dec_exp, 63);
  EXPECT_EQ(deccvdbl(-1e-200, &r), DEC_E_UNDERFLOW);
  EXPECT_EQ(r.dec_exp, -64);
  EXPECT_EQ(deccvdbl(nan, &r), DEC_E_BADTEXT);
  EXPECT_EQ(r.dec_pos, DEC_POS_NULL);
}

TEST(DecToReal, ExtendedPrecisionSumAndLimit) {
  double d;
  t_DECIMAL v = R(2, {1, 23, 45, 60}, true);
  EXPECT_EQ(dectodbl(&v, &d), 0);
  EXPECT_EQ(d, -123.456);
  t_DECIMAL w = R(1, {1, 23, 45, 67, 89, 1, 23, 45});
  float f;
  EXPECT_EQ(dectoflt(&w, &f), 0);  // six digits: 1.2345678901
  EXPECT_EQ(f, static_cast<float>(1.2345678901));
  EXPECT_EQ(dectoreal(&w, &d, 2), 0);
  EXPECT_EQ(d, 1.23);
  t_DECIMAL n = null_record();
  EXPECT_EQ(dectodbl(&n, &d), 0);
  EXPECT_EQ(d, 0.0);
}

// ---- Integers -------------------------------------------------------------------------

TEST(MathToInt, TruncatesAndSaturates) {
  struct {
    const char *text;
    int32_t value;
    int cc;
  } cases[] = {
      {"2147483647.9", INT32_MAX, M_CC_OK},
      {"2147483648", INT32_MAX, M_CC_INT_RANGE},
      {"-2147483648.7", INT32_MIN, M_CC_OK},
      {"-2147483649", INT32_MIN, M_CC_INT_RANGE},
      {"-0.9", 0, M_CC_OK},
      {"99.99", 99, M_CC_OK},
      {"1e30", INT32_MAX, M_CC_INT_RANGE},
      {"-123456", -123456, M_CC_OK},
  };
  for (const auto &c : cases) {
    t_DECIMAL v = P(c.text);
    int32_t out = 12345;
    EXPECT_EQ(m_to_int(&v, &out), c.cc) << c.text;
    EXPECT_EQ(out, c.value) << c.text;
  }
}

int to_int16(const t_DECIMAL *v, int32_t *out) {
  short s = static_cast<short>(*out);
  int rc = dectoint16(v, &s);
  *out = s;
  return rc;
}

TEST(DecToInt, NullGivesTheMinimumAndOverflowLeavesOut) {
  const struct {
    int (*fn)(const t_DECIMAL *, int32_t *);  // conversion
    t_DECIMAL in;                             // record
    int code;                                 // its return value
    int32_t out;                              // output (7 when left alone)
  } cases[] = {
      {dectoint32, null_record(), 0, INT32_MIN}, {dectofix, P("3000000000"), DEC_E_OVERFLOW, 7},
      {to_int16, P("32767.9"), 0, 32767},        {to_int16, P("32768"), DEC_E_OVERFLOW, 7},
      {to_int16, P("-32768"), 0, -32768},        {to_int16, null_record(), 0, -32768},
  };
  for (const auto &c : cases) {
    int32_t out = 7;
    EXPECT_EQ(c.fn(&c.in, &out), c.code) << c.in;
    EXPECT_EQ(out, c.out) << c.in;
  }
}

int from_int16(int32_t i, t_DECIMAL *r) {
  return deccvint16(static_cast<short>(i), r);
}

TEST(DecCvInt, DigitsNullMinimumAndNumericLayer) {
  const struct {
    int (*fn)(int32_t, t_DECIMAL *);  // conversion
    int32_t in;                       // integer
    t_DECIMAL want;                   // record
  } cases[] = {
      {deccvfix, 100, R(2, {1})},
      {deccvfix, -2147483647, R(5, {21, 47, 48, 36, 47}, true)},
      {deccvfix, 0, c_dec_zero},
      {deccvint32, INT32_MIN, null_record()},
      {from_int16, -32768, null_record()},
      {from_int16, -1200, R(2, {12}, true)},
      {m_cv_int, INT32_MIN, c_min_int32},
      {m_cv_int, 42, R(1, {42})},
  };
  for (const auto &c : cases) {
    t_DECIMAL r;
    EXPECT_EQ(c.fn(c.in, &r), 0) << c.in;
    EXPECT_DEC(r, c.want) << c.in;
  }
}

// ---- Arithmetic to places ---------------------------------------------------------

// m_round and m_trunc as in-place operations, checking that the source stays.
int m_round_in_place(t_DECIMAL *v, int places) {
  const t_DECIMAL src = *v, keep = *v;
  int code = m_round(&src, places, v);
  EXPECT_TRUE(bytes_equal(src, keep)) << "m_round changed its source";
  return code;
}
int m_trunc_in_place(t_DECIMAL *v, int places) {
  const t_DECIMAL src = *v, keep = *v;
  int code = m_trunc(&src, places, v);
  EXPECT_TRUE(bytes_equal(src, keep)) << "m_trunc changed its source";
  return code;
}

enum class Match { digits, value, bytes };  // how a result is compared

// One operation to places (or to significant digits for mkprec) and what it must leave.
struct PlacesCase {
  const char *name;             // operation, for messages
  int (*fn)(t_DECIMAL *, int);  // operation in place
  t_DECIMAL in;                 // operand
  int places;                   // places or digits
  int code;                     // its return value
  t_DECIMAL want;               // result
  Match match = Match::digits;  // how it is compared
};
#define OP(f) #f, f

// Random operands to places are in the cross-check; these are the documented cases and
// the digit counts that the cross-check does not look at.
TEST(DecPlaces, RoundHalfAwayTruncateAndPrecision) {
  const t_DECIMAL top = R(63, {99, 99, 99, 99, 99, 99, 99, 99}, true);
  const PlacesCase cases[] = {
      {OP(decround), P("0.5"), 0, 0, P("1"), Match::value},
      {OP(decround), P("0.004"), 2, 0, c_dec_zero, Match::bytes},
      {OP(decround), P("1.5"), -1, DEC_E_NEGPLACES, P("1.5")},
      // Only a digit cleared just above the cut shortens the count: 99.995 to 2 places is
      // 100 held as the digits 1, 0.
      {OP(decround), R(1, {99, 99, 50}), 2, 0, R(2, {1, 0})},
      {OP(decround), R(1, {1, 0, 4}), 3, 0, R(1, {1, 0})},        // 1.0004: the 4 goes
      {OP(decround), R(1, {5, 99, 99, 60}), 4, 0, R(1, {6, 0})},  // 5.999960
      {OP(decround), R(0, {99, 99, 60}), 3, 0, R(1, {1})},        // carry past the top
      {OP(dectrunc), P("123.456"), 1, 0, P("123.4")},
      {OP(dectrunc), P("0.001234"), 4, 0, P("0.0012")},
      {OP(dectrunc), P("-7.9"), 0, 0, P("-7")},
      {OP(dectrunc), P("0.001234"), 2, 0, c_dec_zero, Match::bytes},
      {OP(m_round_in_place), top, 0, 0, top, Match::bytes},  // an integer: nothing to round
      {OP(m_round_in_place), P("-2.345"), 2, 0, P("-2.35")},
      {OP(m_trunc_in_place), P("-2.345"), 2, 0, P("-2.34")},
      {OP(mkprec), P("123.456"), 4, 0, P("123.5")},
      {OP(mkprec), P("0.0012345"), 2, 0, P("0.0012")},
      {OP(mkprec), P("-0.0000049"), 1, 0, P("-0.000005")},
      {OP(mkprec), top, 4, M_CC_RANGE, R(63, {99, 99}, true)},  // the overflow pattern
  };
  for (const PlacesCase &c : cases) {
    t_DECIMAL v = c.in;
    EXPECT_EQ(c.fn(&v, c.places), c.code) << c.name << " " << c.in << ", " << c.places;
    if (c.match == Match::bytes)
      EXPECT_TRUE(bytes_equal(v, c.want)) << c.name << " " << c.in << ": " << v;
    else if (c.match == Match::value)
      EXPECT_EQ(deccmp(&v, &c.want), 0) << c.name << " " << c.in << ": " << v;
    else
      EXPECT_DEC(v, c.want) << c.name << " " << c.in << ", " << c.places;
  }
}

// ---- Packed storage -------------------------------------------------------------------

TEST(Packed, DocumentedBytesAndLoadBack) {
  struct {
    t_DECIMAL v;
    unsigned char bytes[4];
  } cases[] = {
      {R(1, {1}), {0xC1, 0x01, 0x00, 0x00}},
      {R(1, {1}, true), {0x3E, 0x63, 0x00, 0x00}},
      {c_dec_zero, {0xC0, 0x00, 0x00, 0x00}},
      {null_record(), {0x00, 0x00, 0x00, 0x00}},
  };
  for (const auto &c : cases) {
    unsigned char out[4] = {9, 9, 9, 9};
    EXPECT_EQ(stdecimal(&c.v, out, 4), 0);
    EXPECT_EQ(std::memcmp(out, c.bytes, 4), 0) << c.v;
    t_DECIMAL back;
    EXPECT_EQ(lddecimal(out, 4, &back), 0);
    EXPECT_DEC(back, c.v);
  }
}

TEST(Packed, ShortFieldRoundsOnTheFirstDigitThatDoesNotFitAndComp100) {
  unsigned char out[3];
  t_DECIMAL a = R(1, {1, 23, 45}), b = R(1, {1, 23, 50}), c = R(1, {99, 99, 50}, true), back;
  stdecimal(&a, out, 3);
  EXPECT_EQ(std::string(reinterpret_cast<char *>(out), 3), "\xC1\x01\x17");
  stdecimal(&b, out, 3);
  EXPECT_EQ(out[2], 0x18);
  stdecimal(&c, out, 3);  // carries into byte 0: -100
  lddecimal(out, 3, &back);
  EXPECT_DEC(back, R(2, {1}, true));
  unsigned char d[3] = {1, 23, 0};
  comp100(d, 3);
  EXPECT_EQ(std::string(reinterpret_cast<char *>(d), 3),
            std::string("\x62\x4d\x00", 3));  // 98 77 0
  comp100(d, 3);
  EXPECT_EQ(std::string(reinterpret_cast<char *>(d), 3), std::string("\x01\x17\x00", 3));
}

TEST(Packed, NumericLayerStoresLoadsAndReportsNull) {
  unsigned char nul[4] = {0, 5, 5, 5}, out[6];
  t_DECIMAL r, v = P("-98765.4321");
  EXPECT_EQ(m_load(nul, 4, &r), M_CC_NULLPACKED);
  EXPECT_TRUE(bytes_equal(r, c_dec_zero));
  EXPECT_EQ(m_store(&v, out, 6), 0);
  EXPECT_EQ(m_load(out, 6, &r), 0);
  EXPECT_DEC(r, v);
}

// ---- Text -----------------------------------------------------------------------------

// Random shapes of text (zeros, points, exponents, signs, junk) are in the cross-check.
TEST(DecCvAsc, DocumentedParsesAndWhatMayFollowTheNumber) {
  const t_DECIMAL n = null_record();
  const struct {
    const char *text;  // parsed
    int len;           // length given (-1: its strlen)
    int code;          // deccvasc's answer
    t_DECIMAL want;    // record (ignored for range and exponent codes)
  } cases[] = {
      {"  -12.5e1", -1, 0, R(2, {1, 25}, true)},
      {"    ", -1, 0, n},
      {"", 0, 0, n},
      // 18 significant figures kept, at the right magnitude: 1.23456789012345678e19
      {"12345678901234567890", -1, 0, R(10, {12, 34, 56, 78, 90, 12, 34, 57})},
      {"5.", -1, 0, R(1, {5})},
      {"1e", -1, 0, R(1, {1})},
      {"42\0junk", 7, 0, R(1, {42})},  // a NUL ends the text
      {"425", 2, 0, R(1, {42})},       // so does the length
      {"1.2.3", -1, DEC_E_BADTEXT, n},
      {".", -1, DEC_E_BADTEXT, n},
      {"-", -1, DEC_E_BADTEXT, n},
      {"e5", -1, DEC_E_BADTEXT, n},
      {"--1", -1, DEC_E_BADTEXT, n},
      {"1e+-2", -1, DEC_E_BADTEXT, n},
      {"1e1000", -1, DEC_E_BADEXP, n},
  };
  for (const auto &c : cases) {
    t_DECIMAL r;
    int len = c.len < 0 ? static_cast<int>(std::strlen(c.text)) : c.len;
    EXPECT_EQ(deccvasc(c.text, len, &r), c.code) << c.text;
    if (c.code == 0 || c.code == DEC_E_BADTEXT) {
      EXPECT_DEC(r, c.want) << c.text;
    }
  }
}

TEST(MathCvAsc, CodesAndSubstitutes) {
  const struct {
    const char *text;  // parsed
    int code;          // m_cv_asc's answer
    t_DECIMAL want;    // record, byte for byte
  } cases[] = {
      {"   ", M_CC_OK, c_dec_zero},
      {"1.2.3", M_CC_BADTEXT, c_dec_zero},
      {"-1e300", M_CC_RANGE, neg(c_dec_huge)},
      {"1e-300", M_CC_RANGE, c_dec_zero},
      {"3.25", M_CC_OK, R(1, {3, 25})},
  };
  for (const auto &c : cases) {
    t_DECIMAL r;
    EXPECT_EQ(m_cv_asc(c.text, static_cast<int>(std::strlen(c.text)), &r), c.code) << c.text;
    EXPECT_TRUE(bytes_equal(r, c.want)) << c.text << ": " << r;
  }
  t_DECIMAL r;
  EXPECT_EQ(m_cv_asc("1e1000", 6, &r), M_CC_BADTEXT);
}

TEST(DecToAsc, DocumentedFieldsSignsSmallValuesNarrowFieldsAndNull) {
  const struct {
    t_DECIMAL v;        // record
    int len, decimals;  // field
    const char *text;   // the field's bytes
  } cases[] = {
      {P("1234567"), 5, 0, "1.2e6"},
      {P("3.14159"), 10, 2, "3.14      "},
      {P("-2.5"), 6, 2, "-2.50 "},
      {P("0.05"), 6, 2, "0.05  "},
      {P("0.0001"), 6, 2, "0.00  "},
      {P("0.0001"), 8, -1, "0.00    "},  // negative decimals keep too few here
      {P("12.345"), 5, 3, "12.35"},      // decimals reduced to fit
      {P("-1234567"), 6, 0, "-1.2e6"},
      {P("9999999"), 5, 0, "1e7  "},  // rounding moves the exponent
      {P("1234567"), 2, 0, "**"},
      {P("100"), 4, 0, "100 "},
      {null_record(), 4, 0, "    "},
      {c_dec_zero, 3, 0, "0  "},
  };
  for (const auto &c : cases) {
    char buf[64];
    dectoasc(&c.v, buf, c.len, c.decimals);
    EXPECT_EQ(std::string(buf, static_cast<size_t>(c.len)), c.text) << c.v;
  }
  char buf[16];
  t_DECIMAL pi = P("3.14159");
  EXPECT_STREQ(m_to_asc(&pi, buf, 10, 2), "3.14");
  EXPECT_STREQ(m_to_asc(&pi, buf, 10, -1), "3.14159");
}

// ---- Fatal stops ----------------------------------------------------------------------

using MathDeathTest = ::testing::Test;

TEST_F(MathDeathTest, NullRecordStopsWithConditionMinusTwo) {
  t_DECIMAL n = null_record(), r;
  double d;
  int32_t i;
  EXPECT_DEATH(m_to_dbl(&n, &d), kFatalNull);
  EXPECT_DEATH(m_to_int(&n, &i), kFatalNull);
  EXPECT_DEATH(m_sgn(&n), kFatalNull);
  EXPECT_DEATH(m_chs(&n, &r), kFatalNull);
  EXPECT_DEATH(m_add(&c_dec_one, &n, &r), kFatalNull);
  EXPECT_DEATH(m_to_dbl(nullptr, &d), kFatalNull);
}

TEST_F(MathDeathTest, MalformedRecordStopsWithItsOwnCondition) {
  t_DECIMAL many = R(1, {1}), negcount = R(1, {1}), pos = R(1, {5}), exp = R(64, {5}), r;
  many.dec_ndgts = 9;
  negcount.dec_ndgts = -1;
  pos.dec_pos = 7;
  for (const t_DECIMAL &bad : {many, negcount, R(1, {1, 100}), R(1, {0, 5}), pos, exp}) {
    double d;
    EXPECT_DEATH(m_to_dbl(&bad, &d), kFatalMalformed) << bad;
  }
  EXPECT_DEATH(m_mpy(&exp, &exp, &r), kFatalMalformed);
  EXPECT_DEATH(m_cmp(&pos, &c_dec_one), kFatalMalformed);
}

TEST_F(MathDeathTest, LibraryCodesWithoutSubstituteStop) {
  t_DECIMAL v = P("1.5"), r;
  EXPECT_DEATH(m_round(&v, -1, &r), "fatal math error cc #-1\nfile = math\\.cpp");
  EXPECT_DEATH(m_trunc(&v, -2, &r), "fatal math error cc #-1\nfile = math\\.cpp");
}

TEST(MathValidation, ZeroWithAnyExponentAndTrailingZeroDigitsAreAccepted) {
  double d = 1;
  t_DECIMAL z = R(40, {}, true), t = R(2, {1, 0});  // as decround may leave it
  EXPECT_EQ(m_to_dbl(&z, &d), 0);
  EXPECT_EQ(d, 0.0);
  EXPECT_EQ(m_to_dbl(&t, &d), 0);
  EXPECT_EQ(d, 100.0);
}

}  // namespace

// ---- Round trips ----------------------------------------------------------------------

TEST(RoundTrip, PackedFieldRestoresEveryValueThatFits) {
  Rng rng{0x9E3779B97F4A7C15ull};
  for (int i = 0; i < 200000; ++i) {
    t_DECIMAL v = rng.record(-64, 63);
    int length = v.dec_ndgts + 1 + rng.below(4);
    unsigned char field[16];
    ASSERT_EQ(stdecimal(&v, field, length), 0);
    t_DECIMAL back;
    ASSERT_EQ(lddecimal(field, length, &back), 0);
    if (v.dec_pos == DEC_POS_NEGATIVE && v.dec_exp == 63) {
      // Its byte 0 would be 0: the packed form reads it back as null.
      ASSERT_EQ(back.dec_pos, DEC_POS_NULL) << v;
      continue;
    }
    ASSERT_PRED2(same, back, v) << "length " << length;
  }
}

TEST(RoundTrip, PackedFieldsSortLikeTheirValues) {
  Rng rng{12345};
  for (int i = 0; i < 50000; ++i) {
    t_DECIMAL a = rng.record(-20, 20), b = rng.record(-20, 20);
    unsigned char fa[9], fb[9];
    stdecimal(&a, fa, 9);
    stdecimal(&b, fb, 9);
    int bytes = std::memcmp(fa, fb, 9);
    int order = deccmp(&a, &b);
    ASSERT_EQ(bytes < 0 ? -1 : bytes > 0 ? 1 : 0, order) << a << " vs " << b;
  }
}

TEST(RoundTrip, FixedTextWithEnoughWidthParsesBackToTheValue) {
  Rng rng{777};
  for (int i = 0; i < 100000; ++i) {
    t_DECIMAL v = rng.record(-64, 63);
    int decimals = v.dec_exp >= v.dec_ndgts ? 0 : 2 * (v.dec_ndgts - v.dec_exp);
    if (i % 2 == 0 && v.dec_exp >= 0) decimals = -1;  // chosen by dectoasc
    char buf[220];
    ASSERT_EQ(dectoasc(&v, buf, 200, decimals), 0);
    t_DECIMAL back;
    ASSERT_EQ(deccvasc(buf, 200, &back), 0) << std::string(buf, 200);
    ASSERT_PRED2(same, back, v) << std::string(buf, 60) << " decimals " << decimals;
  }
}

// The general text form and the double conversions need no round trip here: the
// cross-check holds m_to_dbl and deccvdbl to the exact rounding rules, and the routes test
// holds m_gcvt to m_to_dbl on ten million records.
