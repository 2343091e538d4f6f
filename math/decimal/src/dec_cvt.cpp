// Conversions of decimal records: digit generation (decefcvt and its two forms), double
// and float to record, record to int32/int16 and integers to record, and record to
// double or float through extended-precision arithmetic.
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

  result->dec_pos = std::signbit(d) ? DEC_POS_NEGATIVE : DEC_POS_POSITIVE;
  int e = decpt > 0 ? (decpt + 1) / 2 : decpt / 2;
  std::memset(result->dec_dgts, 0, sizeof result->dec_dgts);
  int take = ndigit < 16 ? ndigit : 16;
  bool odd = decpt % 2 != 0;
  if (take == 16 && odd) take = 15;
  if (take > nf) take = nf;
  int i = 0, place = 0;
  if (odd) {
    result->dec_dgts[place++] = static_cast<uint8_t>(figs[i++] - '0');
  }
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

int deccvdbl(double d, t_DECIMAL *result) {
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
