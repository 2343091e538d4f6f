// The decimal library against its documented examples and edge cases: records and
// constants, normalisation, arithmetic, conversions, packed storage, text forms, the
// numeric layer's substitutes and its fatal stops.
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

t_DECIMAL neg(t_DECIMAL v) {
  v.dec_pos = DEC_POS_NEGATIVE;
  return v;
}

std::string gcvt14(const t_DECIMAL &v) {
  char buf[40];
  return m_gcvt(&v, 14, buf);
}

// ---- Records and constants ------------------------------------------------------------

TEST(DecimalRecord, ConstantsHaveTheirWireBytes) {
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
}

TEST(DecimalRecord, LayoutIsTheWireFormat) {
  unsigned char bytes[12] = {0xFB, 0xFF, 0x00, 0x02, 12, 34, 0, 0, 0, 0, 0, 0};
  t_DECIMAL v;
  std::memcpy(&v, bytes, sizeof v);
  EXPECT_DEC(v, R(-5, {12, 34}, true));
}

// ---- Normaliser ----------------------------------------------------------------------

TEST(DecRound, GuardDigitRoundsHalfAwayAndCarriesPastTheTop) {
  t_DECIMAL_WORK w = {3, DEC_POS_NEGATIVE, 9, {99, 99, 99, 99, 99, 99, 99, 99, 50}};
  EXPECT_EQ(dec_round(&w, 0), 0);
  EXPECT_EQ(w.dec_exp, 4);
  EXPECT_EQ(w.dec_ndgts, 1);
  EXPECT_EQ(w.dec_dgts[0], 1);
  EXPECT_EQ(w.dec_pos, DEC_POS_NEGATIVE);

  t_DECIMAL_WORK top = {63, DEC_POS_POSITIVE, 9, {99, 99, 99, 99, 99, 99, 99, 99, 50}};
  EXPECT_EQ(dec_round(&top, 0), DEC_E_OVERFLOW);
  EXPECT_EQ(top.dec_exp, 63);

  t_DECIMAL_WORK down = {2, DEC_POS_POSITIVE, 9, {1, 2, 3, 4, 5, 6, 7, 8, 49}};
  EXPECT_EQ(dec_round(&down, 0), 0);
  EXPECT_EQ(down.dec_ndgts, 8);
  EXPECT_EQ(down.dec_dgts[7], 8);
}

TEST(DecRound, LeadingZerosShiftAndAllZerosGiveCanonicalZero) {
  t_DECIMAL_WORK w = {-63, DEC_POS_NEGATIVE, 4, {0, 0, 7, 0}};
  EXPECT_EQ(dec_round(&w, 0), DEC_E_UNDERFLOW);
  EXPECT_EQ(w.dec_exp, -64);
  EXPECT_EQ(w.dec_ndgts, 1);
  EXPECT_EQ(w.dec_dgts[0], 7);

  t_DECIMAL_WORK z = {12, DEC_POS_NEGATIVE, 3, {0, 0, 0}};
  EXPECT_EQ(dec_round(&z, 0), 0);
  EXPECT_EQ(z.dec_exp, 0);
  EXPECT_EQ(z.dec_pos, DEC_POS_POSITIVE);
  EXPECT_EQ(z.dec_ndgts, 0);
}

TEST(DecRound, CarryTakesTheFirstPlaceAndDropsTheNinthDigit) {
  t_DECIMAL_WORK w = {1, DEC_POS_POSITIVE, 9, {1, 2, 3, 4, 5, 6, 7, 60, 99}};
  EXPECT_EQ(dec_round(&w, 1), 0);
  EXPECT_EQ(w.dec_exp, 2);
  // digits 1 1 2 3 4 5 6 7 | 60: the old ninth digit is gone, 60 rounds up.
  const uint8_t expect[] = {1, 1, 2, 3, 4, 5, 6, 8};
  EXPECT_EQ(w.dec_ndgts, 8);
  EXPECT_EQ(std::memcmp(w.dec_dgts, expect, 8), 0);
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
      {"eight apart: the guard digit rounds", decadd, big, R(-4, {50}), 0,
       R(4, {98, 76, 54, 32, 10, 12, 34, 57})},
      {"guard digit 50", decadd, R(0, {99, 99, 99, 99, 99, 99, 99, 99}), R(-8, {50}), 0, R(1, {1})},
      {"zero operand", decadd, z, R(1, {7}, true), 0, R(1, {7}, true), true},
      {"null operand", decadd, R(1, {7}, true), n, 0, n},
      {"equal values", decsub, P("-12.34"), P("-12.34"), 0, z, true},
      {"zero subtrahend", decsub, odd, z, 0, odd, true},
      {"zero minuend", decsub, z, P("-12.34"), 0, P("12.34")},
      {"zero factor", decmul, P("1.5"), z, 0, z, true},
      {"null factor", decmul, n, P("1.5"), 0, n},
      {"signs", decmul, P("1.5"), P("-2"), 0, P("-3")},
      // The exact product rounds to ...99 53; the partial products past the guard place
      // are dropped, so the guard digit comes out lower.
      {"guard place", decmul, R(1, {1, 0, 0, 50, 1, 0, 99, 98}),
       R(0, {98, 0, 0, 98, 99, 0, 50, 99}), 0, R(0, {98, 0, 49, 99, 98, 47, 99, 52})},
      {"carry out of the first place", decmul, R(1, {99}), R(2, {99, 1}), 0, R(3, {98, 1, 99})},
      {"1/3", decdiv, P("1"), P("3"), 0, R(0, {33, 33, 33, 33, 33, 33, 33, 33})},
      {"2/3 truncated", decdiv, P("2"), P("3"), 0, R(0, {66, 66, 66, 66, 66, 66, 66, 66})},
      {"10/4", decdiv, P("10"), P("4"), 0, P("2.5")},
      {"first digit not 0: nine places, rounded", decdiv, P("20"), P("3"), 0,
       R(1, {6, 66, 66, 66, 66, 66, 66, 67})},
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

TEST(DecCmp, DocumentedOrderings) {
  t_DECIMAL zero = c_dec_zero, m5 = P("-5"), m7 = P("-7"), h = P("100"), h2 = P("99.5");
  EXPECT_EQ(deccmp(&zero, &m5), 1);
  EXPECT_EQ(deccmp(&m5, &m7), 1);
  EXPECT_EQ(deccmp(&m7, &m5), -1);
  EXPECT_EQ(deccmp(&h, &h2), 1);
  EXPECT_EQ(deccmp(&h2, &h), -1);
  EXPECT_EQ(deccmp(&h, &h), 0);
  t_DECIMAL zero2 = R(5, {}, true);  // any record without digits is zero
  EXPECT_EQ(deccmp(&zero, &zero2), 0);
  t_DECIMAL n = null_record();
  EXPECT_EQ(deccmp(&n, &h), DEC_E_NULLCMP);
  EXPECT_EQ(deccmp(&h, &n), DEC_E_NULLCMP);
  EXPECT_EQ(m_cmp(&h, &m5), 1);
}

TEST(DecChs, FlipsSignButNotZeroAndKeepsNull) {
  t_DECIMAL x = P("2.5");
  EXPECT_EQ(decchs(&x), 0);
  EXPECT_DEC(x, P("-2.5"));
  t_DECIMAL z = c_dec_zero;
  decchs(&z);
  EXPECT_TRUE(bytes_equal(z, c_dec_zero));
  t_DECIMAL n = null_record();
  n.dec_exp = 9;
  decchs(&n);
  EXPECT_EQ(n.dec_pos, DEC_POS_NULL);
  EXPECT_EQ(n.dec_exp, 0);
}

TEST(MathSign, SgnAndChs) {
  t_DECIMAL a = P("-3"), b = P("4"), r;
  EXPECT_EQ(m_sgn(&a), -1);
  EXPECT_EQ(m_sgn(&b), 1);
  EXPECT_EQ(m_sgn(&c_dec_zero), 0);
  EXPECT_EQ(m_chs(&a, &r), 0);
  EXPECT_DEC(r, P("3"));
  EXPECT_EQ(m_chs(&r, &r), 0);
  EXPECT_DEC(r, a);
}

// ---- Digit generation and the general text form -------------------------------------

TEST(MathGcvt, FourteenDigitExamples) {
  EXPECT_EQ(gcvt14(R(2, {1, 23, 45, 60})), "123.456");
  EXPECT_EQ(gcvt14(R(-1, {1})), "0.0001");
  EXPECT_EQ(gcvt14(R(-9, {1})), "1E-20");
  EXPECT_EQ(gcvt14(R(11, {1})), "1E+20");
  EXPECT_EQ(gcvt14(R(7, {12, 34, 56, 78, 90, 12, 34})), "12345678901234");
  EXPECT_EQ(gcvt14(R(8, {1, 23, 45, 67, 89, 1, 23, 45})), "1.2345678901235E+14");
  EXPECT_EQ(gcvt14(c_dec_huge), "9.9999999999999E+125");
  EXPECT_EQ(gcvt14(R(0, {50}, true)), "-0.5");
  EXPECT_EQ(gcvt14(R(0, {}, true)), "0");  // a zero with the negative sign byte
  char buf[8] = "xxx";
  EXPECT_STREQ(m_gcvt(&c_dec_one, 0, buf), "");
}

TEST(MathGcvt, LongestTextIsNdigitPlusSeven) {
  t_DECIMAL v = R(-60, {12, 34, 56, 78, 90, 12, 34, 56}, true);
  EXPECT_EQ(gcvt14(v), "-1.2345678901235E-121");
  EXPECT_EQ(gcvt14(v).size(), 14u + 7u);
}

TEST(DecEfcvt, SignificantAndFixedDigitsAndNull) {
  int decpt = 99, sign = 99;
  t_DECIMAL v = R(2, {1, 23, 45, 60}, true);
  EXPECT_STREQ(dececvt(&v, 4, &decpt, &sign), "1235");
  EXPECT_EQ(decpt, 3);
  EXPECT_EQ(sign, 1);
  EXPECT_STREQ(decfcvt(&v, 1, &decpt, &sign), "1235");
  EXPECT_STREQ(decfcvt(&v, 5, &decpt, &sign), "12345600");
  t_DECIMAL nines = R(1, {99, 99, 50});  // 99.995
  EXPECT_STREQ(dececvt(&nines, 3, &decpt, &sign), "100");
  EXPECT_EQ(decpt, 3);
  t_DECIMAL small = R(0, {4});                          // 0.04
  EXPECT_STREQ(decfcvt(&small, 0, &decpt, &sign), "");  // no figure before place 0
  t_DECIMAL n = null_record();
  decpt = sign = 77;
  EXPECT_STREQ(dececvt(&n, 5, &decpt, &sign), "");
  EXPECT_EQ(decpt, 77);
  EXPECT_EQ(sign, 77);
}

TEST(DecEfcvt, RoundingPastTheTopGivesEmptyAndTheNumericLayerItsRoundedValue) {
  t_DECIMAL top = R(63, {99, 99, 99, 99, 99, 99, 99, 99});
  int decpt, sign;
  EXPECT_STREQ(dececvt(&top, 14, &decpt, &sign), "");
  EXPECT_EQ(gcvt14(top), "1E+126");
  EXPECT_EQ(gcvt14(neg(top)), "-1E+126");
  double d;
  EXPECT_EQ(m_to_dbl(&top, &d), 0);
  EXPECT_EQ(d, 1e126);
  EXPECT_STREQ(m_ecvt(&top, 3, &decpt, &sign), "100");
  EXPECT_EQ(decpt, 127);
}

// ---- Conversions with double ---------------------------------------------------------

TEST(MathToDbl, DocumentedValues) {
  double d;
  EXPECT_EQ(m_to_dbl(&c_dec_huge, &d), 0);
  EXPECT_EQ(d, 9.9999999999999e125);
  t_DECIMAL tenth = R(0, {10});
  m_to_dbl(&tenth, &d);
  EXPECT_EQ(d, 0.1);
  t_DECIMAL v = R(8, {1, 23, 45, 67, 89, 1, 23, 45});
  m_to_dbl(&v, &d);
  EXPECT_EQ(d, 123456789012350.0);
  t_DECIMAL m = R(0, {50}, true);
  m_to_dbl(&m, &d);
  EXPECT_EQ(d, -0.5);
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
      {deccvdbl, 0.1, 0, R(0, {10}), false},
      {deccvdbl, -0.000123, 0, R(-1, {1, 23}, true), false},
      {deccvdbl, 0.0, 0, c_dec_zero},
      {deccvdbl, -0.0, 0, c_dec_zero},  // zero of either sign is canonical
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

TEST(DecToInt, NullAndOverflowLeaveOrSetOut) {
  int32_t out = 7;
  t_DECIMAL n = null_record();
  EXPECT_EQ(dectoint32(&n, &out), 0);
  EXPECT_EQ(out, INT32_MIN);
  t_DECIMAL big = P("3000000000");
  out = 7;
  EXPECT_EQ(dectofix(&big, &out), DEC_E_OVERFLOW);
  EXPECT_EQ(out, 7);
}

TEST(DecToInt16, RangeAndNull) {
  short s = 0;
  t_DECIMAL a = P("32767.9"), b = P("32768"), c = P("-32768"), n = null_record();
  EXPECT_EQ(dectoint16(&a, &s), 0);
  EXPECT_EQ(s, 32767);
  s = 5;
  EXPECT_EQ(dectoint16(&b, &s), DEC_E_OVERFLOW);
  EXPECT_EQ(s, 5);
  EXPECT_EQ(dectoint16(&c, &s), 0);
  EXPECT_EQ(s, -32768);
  s = 0;
  EXPECT_EQ(dectoint16(&n, &s), 0);
  EXPECT_EQ(s, -32768);
}

TEST(DecCvInt, DigitsNullMinimumAndNumericLayer) {
  t_DECIMAL r;
  EXPECT_EQ(deccvfix(100, &r), 0);
  EXPECT_DEC(r, R(2, {1}));
  EXPECT_EQ(deccvfix(-2147483647, &r), 0);
  EXPECT_DEC(r, R(5, {21, 47, 48, 36, 47}, true));
  EXPECT_EQ(deccvfix(0, &r), 0);
  EXPECT_DEC(r, c_dec_zero);
  EXPECT_EQ(deccvint32(INT32_MIN, &r), 0);
  EXPECT_EQ(r.dec_pos, DEC_POS_NULL);
  EXPECT_EQ(deccvint16(-32768, &r), 0);
  EXPECT_EQ(r.dec_pos, DEC_POS_NULL);
  EXPECT_EQ(deccvint16(-1200, &r), 0);
  EXPECT_DEC(r, R(2, {12}, true));
  EXPECT_EQ(m_cv_int(INT32_MIN, &r), 0);
  EXPECT_TRUE(bytes_equal(r, c_min_int32));
  EXPECT_EQ(m_cv_int(42, &r), 0);
  EXPECT_DEC(r, R(1, {42}));
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

TEST(DecPlaces, RoundHalfAwayTruncateAndPrecision) {
  const t_DECIMAL top = R(63, {99, 99, 99, 99, 99, 99, 99, 99}, true);
  const PlacesCase cases[] = {
      {OP(decround), P("0.5"), 0, 0, P("1"), Match::value},
      {OP(decround), P("-2.345"), 2, 0, P("-2.35"), Match::value},
      {OP(decround), P("0.994"), 2, 0, P("0.99"), Match::value},
      {OP(decround), P("0.004"), 2, 0, c_dec_zero, Match::bytes},
      {OP(decround), P("123.456"), 1, 0, P("123.5"), Match::value},
      {OP(decround), P("-0.05"), 1, 0, P("-0.1"), Match::value},
      {OP(decround), P("7"), 3, 0, P("7"), Match::value},
      {OP(decround), P("0.0049"), 2, 0, P("0"), Match::value},
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
      {OP(dectrunc), P("99.999"), 2, 0, P("99.99")},
      {OP(dectrunc), P("0.001234"), 2, 0, c_dec_zero, Match::bytes},
      {OP(dectrunc), c_dec_zero, -3, DEC_E_NEGPLACES, c_dec_zero},
      {OP(dectrunc), null_record(), 2, 0, null_record()},
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

TEST(Packed, ShortFieldRoundsOnTheFirstDigitThatDoesNotFit) {
  unsigned char out[3];
  t_DECIMAL a = R(1, {1, 23, 45}), b = R(1, {1, 23, 50}), c = R(1, {99, 99, 50}, true);
  stdecimal(&a, out, 3);
  EXPECT_EQ(out[0], 0xC1);
  EXPECT_EQ(out[1], 0x01);
  EXPECT_EQ(out[2], 0x17);
  stdecimal(&b, out, 3);
  EXPECT_EQ(out[2], 0x18);
  stdecimal(&c, out, 3);  // carries into byte 0: -100
  t_DECIMAL back;
  lddecimal(out, 3, &back);
  EXPECT_DEC(back, R(2, {1}, true));
}

TEST(Packed, Comp100AndNumericLayer) {
  unsigned char d[3] = {1, 23, 0};
  comp100(d, 3);
  EXPECT_EQ(d[0], 98);
  EXPECT_EQ(d[1], 77);
  EXPECT_EQ(d[2], 0);
  comp100(d, 3);
  EXPECT_EQ(d[0], 1);
  EXPECT_EQ(d[1], 23);
  unsigned char nul[4] = {0, 5, 5, 5};
  t_DECIMAL r;
  EXPECT_EQ(m_load(nul, 4, &r), M_CC_NULLPACKED);
  EXPECT_TRUE(bytes_equal(r, c_dec_zero));
  unsigned char out[6];
  t_DECIMAL v = P("-98765.4321");
  EXPECT_EQ(m_store(&v, out, 6), 0);
  EXPECT_EQ(m_load(out, 6, &r), 0);
  EXPECT_DEC(r, v);
}

// ---- Text -----------------------------------------------------------------------------

TEST(DecCvAsc, DocumentedParses) {
  t_DECIMAL r;
  EXPECT_EQ(deccvasc("  -12.5e1", 9, &r), 0);
  EXPECT_DEC(r, R(2, {1, 25}, true));
  EXPECT_EQ(deccvasc("1.2.3", 5, &r), DEC_E_BADTEXT);
  EXPECT_EQ(deccvasc("1e1000", 6, &r), DEC_E_BADEXP);
  EXPECT_EQ(deccvasc("    ", 4, &r), 0);
  EXPECT_EQ(r.dec_pos, DEC_POS_NULL);
  EXPECT_EQ(deccvasc("", 0, &r), 0);
  EXPECT_EQ(r.dec_pos, DEC_POS_NULL);
  // 18 significant figures kept, at the right magnitude: 1.23456789012345678e19.
  EXPECT_EQ(deccvasc("12345678901234567890", 20, &r), 0);
  EXPECT_DEC(r, R(10, {12, 34, 56, 78, 90, 12, 34, 57}));
}

TEST(DecCvAsc, LeadingZerosPointsExponentsAndSign) {
  struct {
    const char *text;
    t_DECIMAL value;
  } cases[] = {
      {"007.50", R(1, {7, 50})},
      {"0.00012", R(-1, {1, 20})},
      {".5", R(0, {50})},
      {"5.", R(1, {5})},
      {"+1E-3", R(-1, {10})},
      {"1e", R(1, {1})},
      {"  2.5E+02  ", R(2, {2, 50})},
      {"0.000", c_dec_zero},
      {"1234567890.1234567891", R(5, {12, 34, 56, 78, 90, 12, 34, 57})},
  };
  for (const auto &c : cases) {
    t_DECIMAL r;
    EXPECT_EQ(deccvasc(c.text, static_cast<int>(std::strlen(c.text)), &r), 0) << c.text;
    EXPECT_DEC(r, c.value);
  }
  t_DECIMAL r;
  EXPECT_EQ(deccvasc("-0", 2, &r), 0);  // the sign is applied after normalising
  EXPECT_EQ(r.dec_ndgts, 0);
  EXPECT_EQ(r.dec_pos, DEC_POS_NEGATIVE);
}

TEST(DecCvAsc, WhatMayFollowTheNumber) {
  const char *bad[] = {"12x", "12 3", "1e5x", ".", "-", "e5", "1,5", "--1", "1e+-2"};
  for (const char *t : bad) {
    t_DECIMAL r;
    EXPECT_EQ(deccvasc(t, static_cast<int>(std::strlen(t)), &r), DEC_E_BADTEXT) << t;
    EXPECT_EQ(r.dec_pos, DEC_POS_NULL) << t;
  }
  t_DECIMAL r;
  EXPECT_EQ(deccvasc("42\0junk", 7, &r), 0);  // a NUL ends the text
  EXPECT_DEC(r, R(1, {42}));
  EXPECT_EQ(deccvasc("425", 2, &r), 0);  // so does the length
  EXPECT_DEC(r, R(1, {42}));
  EXPECT_EQ(deccvasc("1e-1000", 7, &r), DEC_E_BADEXP);
  EXPECT_EQ(deccvasc("1e999", 5, &r), DEC_E_OVERFLOW);
  EXPECT_EQ(deccvasc("-1e-999", 7, &r), DEC_E_UNDERFLOW);
}

TEST(MathCvAsc, CodesAndSubstitutes) {
  t_DECIMAL r;
  EXPECT_EQ(m_cv_asc("   ", 3, &r), M_CC_OK);
  EXPECT_TRUE(bytes_equal(r, c_dec_zero));
  EXPECT_EQ(m_cv_asc("1.2.3", 5, &r), M_CC_BADTEXT);
  EXPECT_TRUE(bytes_equal(r, c_dec_zero));
  EXPECT_EQ(m_cv_asc("1e1000", 6, &r), M_CC_BADTEXT);
  EXPECT_EQ(m_cv_asc("-1e300", 6, &r), M_CC_RANGE);
  EXPECT_TRUE(bytes_equal(r, neg(c_dec_huge)));
  EXPECT_EQ(m_cv_asc("1e-300", 6, &r), M_CC_RANGE);
  EXPECT_TRUE(bytes_equal(r, c_dec_zero));
  EXPECT_EQ(m_cv_asc("3.25", 4, &r), M_CC_OK);
  EXPECT_DEC(r, R(1, {3, 25}));
}

std::string field(const t_DECIMAL &v, int len, int decimals) {
  char buf[256];
  dectoasc(&v, buf, len, decimals);
  return std::string(buf, static_cast<size_t>(len));
}

TEST(DecToAsc, DocumentedFields) {
  EXPECT_EQ(field(P("1234567"), 5, 0), "1.2e6");
  EXPECT_EQ(field(P("3.14159"), 10, 2), "3.14      ");
  char buf[16];
  t_DECIMAL pi = P("3.14159");
  EXPECT_STREQ(m_to_asc(&pi, buf, 10, 2), "3.14");
  EXPECT_STREQ(m_to_asc(&pi, buf, 10, -1), "3.14159");
}

TEST(DecToAsc, SignsSmallValuesNarrowFieldsAndNull) {
  EXPECT_EQ(field(P("-2.5"), 6, 2), "-2.50 ");
  EXPECT_EQ(field(P("0.05"), 6, 2), "0.05  ");
  EXPECT_EQ(field(P("0.0001"), 6, 2), "0.00  ");
  EXPECT_EQ(field(P("0.0001"), 8, -1), "0.00    ");  // negative decimals keep too few here
  EXPECT_EQ(field(P("12.345"), 5, 3), "12.35");      // decimals reduced to fit
  EXPECT_EQ(field(P("-1234567"), 6, 0), "-1.2e6");
  EXPECT_EQ(field(P("9999999"), 5, 0), "1e7  ");  // rounding moves the exponent
  EXPECT_EQ(field(P("1234567"), 2, 0), "**");
  EXPECT_EQ(field(P("100"), 4, 0), "100 ");
  EXPECT_EQ(field(null_record(), 4, 0), "    ");
  EXPECT_EQ(field(c_dec_zero, 3, 0), "0  ");
}

TEST(MathDigits, ZeroGivesDecptAndSignZero) {
  int decpt = 5, sign = 5;
  t_DECIMAL z = R(0, {}, true);
  EXPECT_STREQ(m_ecvt(&z, 3, &decpt, &sign), "000");
  EXPECT_EQ(decpt, 0);
  EXPECT_EQ(sign, 0);
  t_DECIMAL v = P("-0.125");
  EXPECT_STREQ(m_fcvt(&v, 2, &decpt, &sign), "13");
  EXPECT_EQ(decpt, 0);
  EXPECT_EQ(sign, 1);
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
  double d;
  t_DECIMAL many = R(1, {1});
  many.dec_ndgts = 9;
  EXPECT_DEATH(m_to_dbl(&many, &d), kFatalMalformed);
  t_DECIMAL negcount = R(1, {1});
  negcount.dec_ndgts = -1;
  EXPECT_DEATH(m_to_dbl(&negcount, &d), kFatalMalformed);
  t_DECIMAL digit = R(1, {1, 100});
  EXPECT_DEATH(m_to_dbl(&digit, &d), kFatalMalformed);
  t_DECIMAL lead = R(1, {0, 5});
  EXPECT_DEATH(m_to_dbl(&lead, &d), kFatalMalformed);
  t_DECIMAL exp = R(64, {5});
  t_DECIMAL r;
  EXPECT_DEATH(m_mpy(&exp, &exp, &r), kFatalMalformed);
  t_DECIMAL pos = R(1, {5});
  pos.dec_pos = 7;
  EXPECT_DEATH(m_cmp(&pos, &c_dec_one), kFatalMalformed);
}

TEST_F(MathDeathTest, LibraryCodesWithoutSubstituteStop) {
  t_DECIMAL v = P("1.5"), r;
  EXPECT_DEATH(m_round(&v, -1, &r), "fatal math error cc #-1\nfile = math\\.cpp");
  EXPECT_DEATH(m_trunc(&v, -2, &r), "fatal math error cc #-1\nfile = math\\.cpp");
}

TEST(MathValidation, ZeroWithAnyExponentAndTrailingZeroDigitsAreAccepted) {
  double d = 1;
  t_DECIMAL z = R(40, {}, true);  // zero whatever its exponent says
  EXPECT_EQ(m_to_dbl(&z, &d), 0);
  EXPECT_EQ(d, 0.0);
  t_DECIMAL t = R(2, {1, 0});  // as decround may leave it
  EXPECT_EQ(m_to_dbl(&t, &d), 0);
  EXPECT_EQ(d, 100.0);
}

}  // namespace

// ---- Round trips ----------------------------------------------------------------------

namespace {

// A small deterministic generator of records in normal form.
struct Rng {
  uint64_t s;  // xorshift state
  uint64_t next() {
    s ^= s << 13;
    s ^= s >> 7;
    s ^= s << 17;
    return s;
  }
  int below(int n) { return static_cast<int>(next() % static_cast<uint64_t>(n)); }
  t_DECIMAL record(int lo, int hi) {
    t_DECIMAL v;
    std::memset(&v, 0, sizeof v);
    int n = 1 + below(8);
    for (int i = 0; i < n; ++i)
      v.dec_dgts[i] = static_cast<uint8_t>(below(3) == 0 ? 99 : below(100));
    if (v.dec_dgts[0] == 0) v.dec_dgts[0] = 1;
    if (v.dec_dgts[n - 1] == 0) v.dec_dgts[n - 1] = 7;
    v.dec_ndgts = static_cast<int8_t>(n);
    v.dec_exp = static_cast<int16_t>(lo + below(hi - lo + 1));
    v.dec_pos = static_cast<uint8_t>(below(2));
    return v;
  }
};

}  // namespace

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

TEST(RoundTrip, GeneralTextAndDoubleKeepFourteenDigits) {
  Rng rng{4242};
  for (int i = 0; i < 50000; ++i) {
    t_DECIMAL v = rng.record(-60, 60);
    v.dec_ndgts = static_cast<int8_t>(v.dec_ndgts > 7 ? 7 : v.dec_ndgts);  // 14 figures
    while (v.dec_dgts[v.dec_ndgts - 1] == 0)
      --v.dec_ndgts;
    char buf[40];
    m_gcvt(&v, 14, buf);
    t_DECIMAL back;
    ASSERT_EQ(m_cv_asc(buf, static_cast<int>(std::strlen(buf)), &back), M_CC_OK);
    ASSERT_PRED2(same, back, v) << buf;
    double d;
    ASSERT_EQ(m_to_dbl(&v, &d), 0);
    ASSERT_EQ(m_cv_dbl(d, &back), M_CC_OK);
    ASSERT_PRED2(same, back, v) << buf;
  }
}
