// Conversions of decimal records: digit generation (decefcvt and its two forms), double
// and float to record, record to int32/int16 and integers to record, and record to
// double or float through extended-precision arithmetic.
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "dec_internal.hpp"

namespace {

char ds[DEC_DIGIT_BUFSIZE];  // the digit buffer shared by every digit generation call
constexpr int kMaxFigures = DEC_DIGIT_BUFSIZE - 1;

void set_zero(t_DECIMAL *v) {
  std::memcpy(v, &c_dec_zero, sizeof *v);
}

// The decimal point position and the hidden leading zero of a record.
inline int lead_zero(const t_DECIMAL *v) {
  return v->dec_ndgts > 0 && v->dec_dgts[0] < 10;
}

// Writes `count` figures of v into ds, from decimal place z on (0 beyond its digits).
void emit(const t_DECIMAL *v, int z, long long count) {
  if (count > kMaxFigures) count = kMaxFigures;
  int o = 0;
  for (int p = z; o < count; ++p, ++o) {
    int idx = p / 2;
    int dg = idx < v->dec_ndgts ? v->dec_dgts[idx] : 0;
    ds[o] = static_cast<char>('0' + (p % 2 == 0 ? dg / 10 : dg % 10));
  }
  ds[o] = '\0';
}

// decefcvt with the rounding overflow reported through *overflow.
char *efcvt(const t_DECIMAL *v, int ndigit, int *decpt, int *sign, int fflag, bool *overflow) {
  *overflow = false;
  ds[0] = '\0';
  if (qz::dec_is_null(v)) return ds;
  *sign = qz::dec_is_neg(v) ? 1 : 0;
  t_DECIMAL cur = *v;
  int z = lead_zero(&cur);
  *decpt = 2 * cur.dec_exp - z;
  long long count = ndigit + (fflag ? static_cast<long long>(*decpt) : 0);
  if (count < 0) return ds;
  if (cur.dec_ndgts > 0 && count < 2 * cur.dec_ndgts - z) {
    // Add half a unit of the last kept decimal place (half away from zero: the half
    // carries the value's sign).
    t_DECIMAL half = c_dec_zero;
    long long place = count + z;
    half.dec_pos = cur.dec_pos;
    half.dec_exp = static_cast<int16_t>(cur.dec_exp - place / 2);
    half.dec_ndgts = 1;
    half.dec_dgts[0] = place % 2 != 0 ? 5 : 50;
    if (decadd(&cur, &half, &cur) != 0) {
      *overflow = true;
      return ds;
    }
    z = lead_zero(&cur);
    *decpt = 2 * cur.dec_exp - z;
    if (fflag) count = ndigit + static_cast<long long>(*decpt);
  }
  emit(&cur, z, count);
  return ds;
}

}  // namespace

char *decefcvt(const t_DECIMAL *v, int ndigit, int *decpt, int *sign, int fflag) {
  bool overflow;
  return efcvt(v, ndigit, decpt, sign, fflag, &overflow);
}

char *dececvt(const t_DECIMAL *v, int ndigit, int *decpt, int *sign) {
  return decefcvt(v, ndigit, decpt, sign, 0);
}

char *decfcvt(const t_DECIMAL *v, int ndigit, int *decpt, int *sign) {
  return decefcvt(v, ndigit, decpt, sign, 1);
}

char *qz::dec_digits(const t_DECIMAL *v, int ndigit, int *decpt, int *sign, int fflag) {
  bool overflow;
  char *r = efcvt(v, ndigit, decpt, sign, fflag, &overflow);
  if (overflow) {
    // The rounded value is the power of ten just above v: a 1 and zeros.
    ++*decpt;
    long long count = ndigit + (fflag ? static_cast<long long>(*decpt) : 0);
    if (count > kMaxFigures) count = kMaxFigures;
    for (long long i = 0; i < count; ++i)
      ds[i] = i == 0 ? '1' : '0';
    ds[count > 0 ? count : 0] = '\0';
  }
  return r;
}

namespace {

// Lays out decimal figures as a record: the point position decpt decides whether the
// first base-100 digit holds one figure or two; at most 16 figures (15 with an odd
// point) are used.
int layout(const char *figs, int nf, int decpt, bool negative, int ndigit, t_DECIMAL *result) {
  result->dec_pos = negative ? DEC_POS_NEGATIVE : DEC_POS_POSITIVE;
  int e = decpt > 0 ? (decpt + 1) / 2 : decpt / 2;
  std::memset(result->dec_dgts, 0, sizeof result->dec_dgts);
  int take = ndigit < 16 ? ndigit : 16;
  bool odd = decpt % 2 != 0;
  if (take == 16 && odd) take = 15;
  if (take > nf) take = nf;
  int i = 0, place = 0;
  if (odd) result->dec_dgts[place++] = static_cast<uint8_t>(figs[i++] - '0');
  while (i < take) {
    int tens = figs[i] - '0';
    int units = i + 1 < take ? figs[i + 1] - '0' : 0;
    result->dec_dgts[place++] = static_cast<uint8_t>(tens * 10 + units);
    i += 2;
  }
  int n = 0;
  for (int j = 0; j < place; ++j)
    if (result->dec_dgts[j] != 0) n = j + 1;
  result->dec_ndgts = static_cast<int8_t>(n);
  return qz::dec_clamp_exp(e, &result->dec_exp);
}

static_assert(LDBL_MANT_DIG == 64, "the x87 extended format: a 64-bit significand first");

// Powers of ten in extended precision, each correctly rounded by the compiler.
const long double kPow10L[] = {
    1e0L,   1e1L,   1e2L,   1e3L,   1e4L,   1e5L,   1e6L,   1e7L,   1e8L,   1e9L,   1e10L,  1e11L,
    1e12L,  1e13L,  1e14L,  1e15L,  1e16L,  1e17L,  1e18L,  1e19L,  1e20L,  1e21L,  1e22L,  1e23L,
    1e24L,  1e25L,  1e26L,  1e27L,  1e28L,  1e29L,  1e30L,  1e31L,  1e32L,  1e33L,  1e34L,  1e35L,
    1e36L,  1e37L,  1e38L,  1e39L,  1e40L,  1e41L,  1e42L,  1e43L,  1e44L,  1e45L,  1e46L,  1e47L,
    1e48L,  1e49L,  1e50L,  1e51L,  1e52L,  1e53L,  1e54L,  1e55L,  1e56L,  1e57L,  1e58L,  1e59L,
    1e60L,  1e61L,  1e62L,  1e63L,  1e64L,  1e65L,  1e66L,  1e67L,  1e68L,  1e69L,  1e70L,  1e71L,
    1e72L,  1e73L,  1e74L,  1e75L,  1e76L,  1e77L,  1e78L,  1e79L,  1e80L,  1e81L,  1e82L,  1e83L,
    1e84L,  1e85L,  1e86L,  1e87L,  1e88L,  1e89L,  1e90L,  1e91L,  1e92L,  1e93L,  1e94L,  1e95L,
    1e96L,  1e97L,  1e98L,  1e99L,  1e100L, 1e101L, 1e102L, 1e103L, 1e104L, 1e105L, 1e106L, 1e107L,
    1e108L, 1e109L, 1e110L, 1e111L, 1e112L, 1e113L, 1e114L, 1e115L, 1e116L, 1e117L, 1e118L, 1e119L,
    1e120L, 1e121L, 1e122L, 1e123L, 1e124L, 1e125L, 1e126L, 1e127L, 1e128L, 1e129L, 1e130L, 1e131L,
    1e132L, 1e133L, 1e134L, 1e135L, 1e136L, 1e137L, 1e138L, 1e139L, 1e140L, 1e141L, 1e142L, 1e143L,
    1e144L, 1e145L, 1e146L, 1e147L, 1e148L, 1e149L, 1e150L};
constexpr int kMaxPow = static_cast<int>(sizeof kPow10L / sizeof kPow10L[0]) - 1;

// The fifteen correctly rounded figures of |d| (as an integer) and the point position,
// computed in extended precision where that is provably exact: false when the scaled
// value lies too close to a rounding tie or to a power of ten to be sure, or outside
// the records' range; the caller then takes the exact text route. The arithmetic is
// x87 extended precision in both the x86-64 and the i386 build, so both decide alike.
bool fifteen_figures(double d, uint64_t *figures, int *decpt) {
  int b2;
  std::frexp(d, &b2);  // |d| in [2^(b2-1), 2^b2)
  if (b2 < -400 || b2 > 400) return false;
  long double a = std::fabs(static_cast<long double>(d));
  // 10^e10 <= |d| < 10^(e10+1), estimated from the binary exponent (78913 / 2^18 is
  // log10(2) to six figures); the scaling below corrects it by one either way.
  int e10 = ((b2 - 1) * 78913) >> 18;
  int k = 14 - e10;
  if (k > kMaxPow || -k > kMaxPow) return false;
  long double t = k >= 0 ? a * kPow10L[k] : a / kPow10L[-k];
  if (t < 1e14L) {
    --e10;
    ++k;
    if (k > kMaxPow) return false;
    t = k >= 0 ? a * kPow10L[k] : a / kPow10L[-k];
  } else if (t >= 1e15L) {
    ++e10;
    --k;
    if (-k > kMaxPow) return false;
    t = k >= 0 ? a * kPow10L[k] : a / kPow10L[-k];
  }
  // The computed t is within 2^-13 of the exact product (two roundings of 2^-64
  // relative on a value below 2^50): stay clear of the decade's ends and of ties.
  if (t < 1e14L + 1 || t > 1e15L - 1) return false;
  // Adding 2^63 rounds t to an integer (the unit of the sum's last place is 1); the
  // significand of the sum then holds it, read without an x87 rounding-mode switch.
  const long double two63 = 9223372036854775808.0L;
  long double sum = t + two63;
  long double off = t - (sum - two63);  // exact, within [-0.5, 0.5]
  const long double margin = 1.0L / 1024;
  if (off > 0.5L - margin || off < -0.5L + margin) return false;
  uint64_t bits;
  std::memcpy(&bits, &sum, sizeof bits);
  uint64_t n = bits - (1ull << 63);
  if (n >= 1000000000000000ull || n < 100000000000000ull) return false;
  *figures = n;
  *decpt = e10 + 1;
  return true;
}

}  // namespace

int deccvreal(double d, int ndigit, t_DECIMAL *result) {
  if (std::isnan(d)) {
    qz::dec_set_null(result);
    return DEC_E_BADTEXT;
  }
  if (std::isinf(d)) {
    std::memcpy(result, &c_dec_huge, sizeof *result);
    if (d < 0) result->dec_pos = DEC_POS_NEGATIVE;
    return DEC_E_OVERFLOW;
  }
  if (d == 0) {
    set_zero(result);
    return 0;
  }
  if (ndigit < 1) ndigit = 1;
  if (ndigit > 40) ndigit = 40;  // only the first 16 are used
  // The exact conversion of the C library: correctly rounded, the same in every build.
  char text[64];
  std::snprintf(text, sizeof text, "%.*e", ndigit - 1, std::fabs(d));
  char figs[48];
  int nf = 0;
  const char *p = text;
  for (; *p && *p != 'e'; ++p)
    if (*p >= '0' && *p <= '9') figs[nf++] = *p;
  int decpt = (*p == 'e' ? std::atoi(p + 1) : 0) + 1;
  return layout(figs, nf, decpt, std::signbit(d), ndigit, result);
}

int deccvdbl(double d, t_DECIMAL *result) {
  // The same figures as deccvreal (d, 15) without the text conversion where they can be
  // had exactly; a test compares the two routes on ten million doubles.
  uint64_t n;
  int decpt;
  if (std::isfinite(d) && d != 0 && qz::fpu_default() && fifteen_figures(d, &n, &decpt)) {
    char figs[16];
    for (int i = 14; i >= 0; --i) {
      figs[i] = static_cast<char>('0' + n % 10);
      n /= 10;
    }
    return layout(figs, 15, decpt, std::signbit(d), 15, result);
  }
  return deccvreal(d, 15, result);
}

int deccvflt(float f, t_DECIMAL *result) {
  return deccvreal(static_cast<double>(f), 6, result);
}

int dectofix(const t_DECIMAL *v, int32_t *out) {
  int e = v->dec_exp;
  bool neg = qz::dec_is_neg(v);
  if (e > 0) {
    t_DECIMAL ip = *v;  // the integer part: digits cut after the first e
    if (ip.dec_ndgts > e) ip.dec_ndgts = static_cast<int8_t>(e);
    if (!neg && deccmp(&ip, &c_int32_max) > 0) return DEC_E_OVERFLOW;
    if (neg && deccmp(&ip, &c_int32_min) < 0) return DEC_E_OVERFLOW;
  }
  long long x = 0;
  for (int i = 0; i < e; ++i) {
    x = x * 100 + (i < v->dec_ndgts ? v->dec_dgts[i] : 0);
    if (x > 0xffffffffLL) break;  // only a malformed record gets here
  }
  if (neg) x = -x;
  *out = static_cast<int32_t>(x);
  return 0;
}

int dectoint32(const t_DECIMAL *v, int32_t *out) {
  if (qz::dec_is_null(v)) {
    *out = INT32_MIN;
    return 0;
  }
  return dectofix(v, out);
}

int dectoint16(const t_DECIMAL *v, short *out) {
  if (qz::dec_is_null(v)) {
    *out = -32768;
    return 0;
  }
  int32_t t;
  if (dectofix(v, &t) != 0 || t < -32768 || t > 32767) return DEC_E_OVERFLOW;
  *out = static_cast<short>(t);
  return 0;
}

int deccvfix(int32_t i, t_DECIMAL *result) {
  uint32_t m = i < 0 ? 0u - static_cast<uint32_t>(i) : static_cast<uint32_t>(i);
  uint8_t low[5];  // base-100 digits, least significant first
  int e = 0;
  while (m != 0) {
    low[e++] = static_cast<uint8_t>(m % 100);
    m /= 100;
  }
  std::memset(result->dec_dgts, 0, sizeof result->dec_dgts);
  int n = 0;
  for (int j = 0; j < e; ++j) {
    result->dec_dgts[j] = low[e - 1 - j];
    if (result->dec_dgts[j] != 0) n = j + 1;
  }
  result->dec_pos = i < 0 ? DEC_POS_NEGATIVE : DEC_POS_POSITIVE;
  result->dec_exp = static_cast<int16_t>(e);
  result->dec_ndgts = static_cast<int8_t>(n);
  return 0;
}

int deccvint32(int32_t i, t_DECIMAL *result) {
  if (i == INT32_MIN) {  // the interpreter's null integer
    qz::dec_set_null(result);
    return 0;
  }
  return deccvfix(i, result);
}

int deccvint16(short i, t_DECIMAL *result) {
  if (i == -32768) {
    qz::dec_set_null(result);
    return 0;
  }
  return deccvfix(i, result);
}

int dectoreal(const t_DECIMAL *v, double *out, int limit) {
  int m = limit < v->dec_ndgts ? limit : v->dec_ndgts;
  long double x = 0;
  for (int i = m - 1; i >= 0; --i) {
    x += v->dec_dgts[i];
    x /= 100;
  }
  if (qz::dec_is_neg(v)) x = -x;
  for (int i = 0; i < v->dec_exp; ++i)
    x *= 100;
  for (int i = 0; i > v->dec_exp; --i)
    x /= 100;
  *out = static_cast<double>(x);
  return 0;
}

int dectodbl(const t_DECIMAL *v, double *out) {
  return dectoreal(v, out, 15);
}

int dectoflt(const t_DECIMAL *v, float *out) {
  double t;
  dectoreal(v, &t, 6);
  *out = static_cast<float>(t);
  return 0;
}
