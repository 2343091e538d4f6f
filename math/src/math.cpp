// The numeric layer: the interpreter-facing operations on decimal records. Each checks
// its record operands, calls the record library, turns the library's failures that have
// a substitute into that value plus a condition code, and stops the process through
// fatal_math_error on anything else.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "dec_internal.hpp"

namespace {

constexpr const char *base_name(const char *path) {
  const char *b = path;
  for (const char *p = path; *p; ++p)
    if (*p == '/') b = p + 1;
  return b;
}
constexpr const char *kFile = base_name(__FILE__);

// 0, M_CC_NULL or M_CC_MALFORMED for a record handed in by a caller.
int check_record(const t_DECIMAL *v) {
  if (v == nullptr || v->dec_pos == DEC_POS_NULL) return M_CC_NULL;
  if (v->dec_pos != DEC_POS_POSITIVE && v->dec_pos != DEC_POS_NEGATIVE) return M_CC_MALFORMED;
  int n = v->dec_ndgts;
  if (n < 0 || n > DEC_MAX_DIGITS) return M_CC_MALFORMED;
  if (n == 0) return 0;
  if (v->dec_exp < DEC_MIN_EXP || v->dec_exp > DEC_MAX_EXP || v->dec_dgts[0] == 0)
    return M_CC_MALFORMED;
  for (int i = 0; i < n; ++i)
    if (v->dec_dgts[i] > 99) return M_CC_MALFORMED;
  return 0;
}

void set(t_DECIMAL *to, const t_DECIMAL &from) {
  std::memcpy(to, &from, sizeof *to);
}

void set_huge(t_DECIMAL *to, bool negative) {
  set(to, c_dec_huge);
  if (negative) to->dec_pos = DEC_POS_NEGATIVE;
}

}  // namespace

#define M_FATAL(cc) fatal_math_error((cc), kFile, __LINE__)
#define M_CHECK(v)              \
  do {                          \
    int cc_ = check_record(v);  \
    if (cc_ != 0) M_FATAL(cc_); \
  } while (0)
#define M_NOT_NULL(v)                           \
  do {                                          \
    if (qz::dec_is_null(v)) M_FATAL(M_CC_NULL); \
  } while (0)

void fatal_math_error(int cc, const char *file, int line) {
  std::fprintf(stderr, "fatal math error cc #%d\n", cc);
  std::fprintf(stderr, "file = %s, line = %d\n", file, line);
  std::fflush(stderr);
  std::abort();
}

int m_zero(t_DECIMAL *result) {
  set(result, c_dec_zero);
  return 0;
}

int m_one(t_DECIMAL *result) {
  set(result, c_dec_one);
  return 0;
}

int m_huge(t_DECIMAL *result) {
  set(result, c_dec_huge);
  return 0;
}

int m_sgn(const t_DECIMAL *v) {
  M_CHECK(v);
  if (qz::dec_is_zero(v)) return 0;
  return v->dec_pos == DEC_POS_POSITIVE ? 1 : -1;
}

int m_chs(const t_DECIMAL *source, t_DECIMAL *result) {
  M_CHECK(source);
  qz::dec_copy(result, source);
  decchs(result);
  M_NOT_NULL(result);
  return 0;
}

char *m_gcvt(const t_DECIMAL *v, int ndigit, char *buf) {
  M_CHECK(v);
  if (ndigit < 1) {
    buf[0] = '\0';
    return buf;
  }
  int decpt = 0, sign = 0;
  char dg[DEC_DIGIT_BUFSIZE];
  std::strcpy(dg, qz::dec_digits(v, ndigit, &decpt, &sign, 0));
  if (dg[0] == '0') {
    std::strcpy(buf, "0");
    return buf;
  }
  int nd = static_cast<int>(std::strlen(dg));
  while (nd > 1 && dg[nd - 1] == '0')
    --nd;
  dg[nd] = '\0';
  int x = decpt >= 0 ? decpt : nd - decpt;
  char *o = buf;
  if (sign) *o++ = '-';
  if (x <= ndigit) {
    if (decpt > 0) {
      for (int i = 0; i < decpt; ++i)
        *o++ = i < nd ? dg[i] : '0';
      if (decpt < nd) {
        *o++ = '.';
        for (int i = decpt; i < nd; ++i)
          *o++ = dg[i];
      }
    } else {
      *o++ = '0';
      *o++ = '.';
      for (int i = 0; i < -decpt; ++i)
        *o++ = '0';
      for (int i = 0; i < nd; ++i)
        *o++ = dg[i];
    }
    *o = '\0';
  } else {
    *o++ = dg[0];
    if (nd > 1) {
      *o++ = '.';
      for (int i = 1; i < nd; ++i)
        *o++ = dg[i];
    }
    std::sprintf(o, "E%+03d", decpt - 1);
  }
  return buf;
}

namespace {

constexpr uint64_t kPow10[] = {1ull,
                               10ull,
                               100ull,
                               1000ull,
                               10000ull,
                               100000ull,
                               1000000ull,
                               10000000ull,
                               100000000ull,
                               1000000000ull,
                               10000000000ull,
                               100000000000ull,
                               1000000000000ull,
                               10000000000000ull,
                               100000000000000ull,
                               1000000000000000ull,
                               10000000000000000ull,
                               100000000000000000ull,
                               1000000000000000000ull};

// The double that the text route (m_gcvt with 14 figures, then strtod) gives, formed
// without text where a single correctly rounded operation yields it: v rounded half away
// to 14 figures is f x 10^e with f < 2^53. With double arithmetic (SSE, the x86-64
// build) f times or divided by an exact power of ten up to 10^22 is correctly rounded;
// with x87 extended arithmetic (the i386 build) only an integer product that is exact
// in 64 bits and then rounded once to double is. Anything else returns false and takes
// the text route; a test compares both routes on ten million records.
bool to_dbl_direct(const t_DECIMAL *v, double *out) {
  int n = v->dec_ndgts;
  if (n == 0) {
    *out = 0.0;
    return true;
  }
  uint64_t f = 0;
  for (int i = 0; i < n; ++i)
    f = f * 100 + v->dec_dgts[i];
  int figures = 2 * n - (v->dec_dgts[0] < 10 ? 1 : 0);
  int e = 2 * (v->dec_exp - n);
  if (figures > 14) {
    int r = figures - 14;
    uint64_t p = kPow10[r], q = f / p, rem = f % p;
    if (rem >= p - rem) ++q;  // half away from zero
    f = q;
    e += r;
  }
  double x;
#if defined(__FLT_EVAL_METHOD__) && __FLT_EVAL_METHOD__ == 0
  static const double kPow10d[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                   1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                   1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
  if (e >= 0 && e <= 22)
    x = static_cast<double>(f) * kPow10d[e];
  else if (e < 0 && e >= -22)
    x = static_cast<double>(f) / kPow10d[-e];
  else
    return false;
#else
  if (e < 0 || e > 18 || f > static_cast<uint64_t>(INT64_MAX) / kPow10[e]) return false;
  x = static_cast<double>(static_cast<int64_t>(f * kPow10[e]));
#endif
  *out = qz::dec_is_neg(v) ? -x : x;
  return true;
}

}  // namespace

int m_to_dbl(const t_DECIMAL *v, double *out) {
  M_CHECK(v);
  if (qz::fpu_default() && to_dbl_direct(v, out)) return 0;
  char buf[32];
  m_gcvt(v, 14, buf);
  *out = std::strtod(buf, nullptr);
  return 0;
}

int m_cv_dbl(double d, t_DECIMAL *result) {
  if (std::isnan(d)) {
    set(result, c_dec_zero);
    return M_CC_RANGE;
  }
  if (std::isinf(d)) {
    set(result, d > 0 ? c_dec_huge : c_dec_zero);
    return M_CC_RANGE;
  }
  int rc = deccvdbl(d, result);
  switch (rc) {
    case 0:
      M_NOT_NULL(result);
      return 0;
    case DEC_E_UNDERFLOW:
      set(result, c_dec_zero);
      return M_CC_RANGE;
    case DEC_E_OVERFLOW:
      set_huge(result, d < 0);
      return M_CC_RANGE;
    default:
      M_FATAL(rc);
  }
}

int m_to_int(const t_DECIMAL *v, int32_t *out) {
  M_CHECK(v);
  int rc = dectoint32(v, out);
  if (rc == 0) return 0;
  if (rc == DEC_E_OVERFLOW) {
    *out = qz::dec_is_neg(v) ? INT32_MIN : INT32_MAX;
    return M_CC_INT_RANGE;
  }
  M_FATAL(rc);
}

namespace {

// The common tail of the four arithmetic wrappers.
enum class Op { add, sub, mpy, dvd };

int arith(Op op, const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result, int line) {
  int ca = check_record(a), cb = check_record(b);
  if (ca != 0) fatal_math_error(ca, kFile, line);
  if (cb != 0) fatal_math_error(cb, kFile, line);
  bool na = qz::dec_is_neg(a) && !qz::dec_is_zero(a);
  bool nb = qz::dec_is_neg(b) && !qz::dec_is_zero(b);
  int rc = 0;
  bool neg = false;  // sign of an overflowing result
  switch (op) {
    case Op::add:
      rc = decadd(a, b, result);
      neg = na && nb;
      break;
    case Op::sub:
      rc = decsub(a, b, result);
      neg = na && !nb;
      break;
    case Op::mpy:
      rc = decmul(a, b, result);
      neg = na != nb;
      break;
    case Op::dvd:
      rc = decdiv(a, b, result);
      neg = na != nb;
      break;
  }
  switch (rc) {
    case 0:
      if (qz::dec_is_null(result)) fatal_math_error(M_CC_NULL, kFile, line);
      return 0;
    case DEC_E_UNDERFLOW:
      set(result, c_dec_zero);
      return M_CC_RANGE;
    case DEC_E_OVERFLOW:
      set_huge(result, neg);
      return M_CC_RANGE;
    case DEC_E_DIVZERO:
      if (op == Op::dvd) {
        set_huge(result, neg);
        return M_CC_DIVZERO;
      }
      break;
    default:
      break;
  }
  fatal_math_error(rc, kFile, line);
}

}  // namespace

int m_add(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result) {
  return arith(Op::add, a, b, result, __LINE__);
}

int m_sub(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result) {
  return arith(Op::sub, a, b, result, __LINE__);
}

int m_mpy(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result) {
  return arith(Op::mpy, a, b, result, __LINE__);
}

int m_dvd(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result) {
  return arith(Op::dvd, a, b, result, __LINE__);
}

int m_cmp(const t_DECIMAL *a, const t_DECIMAL *b) {
  M_CHECK(a);
  M_CHECK(b);
  int rc = deccmp(a, b);
  if (rc == DEC_E_NULLCMP) M_FATAL(M_CC_NULL);
  return rc;
}

int m_round(const t_DECIMAL *source, int places, t_DECIMAL *result) {
  M_CHECK(source);
  bool neg = qz::dec_is_neg(source);
  qz::dec_copy(result, source);
  int rc = decround(result, places);
  if (rc == DEC_E_OVERFLOW) {
    set_huge(result, neg);
    return 0;  // saturated without a condition
  }
  if (rc != 0) M_FATAL(rc);
  M_NOT_NULL(result);
  return 0;
}

int m_trunc(const t_DECIMAL *source, int places, t_DECIMAL *result) {
  M_CHECK(source);
  qz::dec_copy(result, source);
  int rc = dectrunc(result, places);
  if (rc != 0) M_FATAL(rc);
  M_NOT_NULL(result);
  return 0;
}

int mkprec(t_DECIMAL *v, int p) {
  M_CHECK(v);
  int16_t exp = v->dec_exp;
  uint8_t pos = v->dec_pos;
  v->dec_exp = 0;  // now 0.01 <= v < 1
  v->dec_pos = DEC_POS_POSITIVE;
  if (v->dec_ndgts > 0 && v->dec_dgts[0] < 10) ++p;  // the hidden leading zero
  int rc = decround(v, p);
  if (rc != 0) M_FATAL(rc);
  M_NOT_NULL(v);
  if (qz::dec_is_zero(v)) {
    set(v, c_dec_zero);
    return 0;
  }
  int e = v->dec_exp + exp;
  v->dec_exp = static_cast<int16_t>(e);
  v->dec_pos = pos;
  if (e <= DEC_MAX_EXP) return 0;
  // Rounded past the top: the largest value with p places, truncated.
  set(v, c_dec_huge);
  v->dec_exp = 0;
  rc = dectrunc(v, p);
  if (rc != 0) M_FATAL(rc);
  v->dec_exp = exp;
  v->dec_pos = pos;
  return M_CC_RANGE;
}

int m_load(const unsigned char *bytes, int length, t_DECIMAL *result) {
  lddecimal(bytes, length, result);
  if (qz::dec_is_null(result)) {
    set(result, c_dec_zero);
    return M_CC_NULLPACKED;
  }
  return 0;
}

int m_store(const t_DECIMAL *v, unsigned char *bytes, int length) {
  M_CHECK(v);
  return stdecimal(v, bytes, length);
}

int m_cv_asc(const char *text, int length, t_DECIMAL *result) {
  int rc = deccvasc(text, length, result);
  switch (rc) {
    case 0:
      if (qz::dec_is_null(result)) set(result, c_dec_zero);  // a blank text
      return 0;
    case DEC_E_BADTEXT:
    case DEC_E_BADEXP:
      set(result, c_dec_zero);
      return M_CC_BADTEXT;
    case DEC_E_UNDERFLOW:
      set(result, c_dec_zero);
      return M_CC_RANGE;
    case DEC_E_OVERFLOW:
      set_huge(result, qz::dec_is_neg(result));
      return M_CC_RANGE;
    default:
      M_FATAL(rc);
  }
}

char *m_to_asc(const t_DECIMAL *v, char *buffer, int length, int decimals) {
  M_CHECK(v);
  dectoasc(v, buffer, length, decimals);
  int end = length;
  while (end > 0 && buffer[end - 1] == ' ')
    --end;
  buffer[end < 0 ? 0 : end] = '\0';
  return buffer;
}

namespace {
char *digit_string(const t_DECIMAL *v, int ndigit, int *decpt, int *sign, int fflag) {
  char *r = qz::dec_digits(v, ndigit, decpt, sign, fflag);
  if (r[0] == '0') {  // a zero
    *decpt = 0;
    *sign = 0;
  }
  return r;
}
}  // namespace

char *m_ecvt(const t_DECIMAL *v, int ndigit, int *decpt, int *sign) {
  M_CHECK(v);
  return digit_string(v, ndigit, decpt, sign, 0);
}

char *m_fcvt(const t_DECIMAL *v, int ndigit, int *decpt, int *sign) {
  M_CHECK(v);
  return digit_string(v, ndigit, decpt, sign, 1);
}

int m_cv_int(int32_t i, t_DECIMAL *result) {
  if (i == INT32_MIN) {
    set(result, c_min_int32);
    return 0;
  }
  int rc = deccvint32(i, result);
  if (rc != 0) M_FATAL(rc);
  M_NOT_NULL(result);
  return 0;
}
