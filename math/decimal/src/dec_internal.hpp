// Helpers shared by the decimal record library and the numeric layer: record tests and
// copies, and digit generation with the overflow case resolved.
#pragma once

#include <cstring>

#include "qzmath.h"

namespace qz {

inline bool dec_is_null(const t_DECIMAL *v) {
  return v->dec_pos == DEC_POS_NULL;
}
inline bool dec_is_zero(const t_DECIMAL *v) {
  return v->dec_ndgts == 0;
}
inline bool dec_is_neg(const t_DECIMAL *v) {
  return v->dec_pos == DEC_POS_NEGATIVE;
}

inline void dec_set_null(t_DECIMAL *v) {
  v->dec_pos = DEC_POS_NULL;
  v->dec_ndgts = 0;
  v->dec_exp = 0;
}

inline void dec_copy(t_DECIMAL *to, const t_DECIMAL *from) {
  if (to != from) std::memcpy(to, from, sizeof *to);
}

// Copies a working record's first eight digits and its fields into a record.
inline void dec_from_work(t_DECIMAL *to, const t_DECIMAL_WORK *w) {
  to->dec_exp = w->dec_exp;
  to->dec_pos = w->dec_pos;
  to->dec_ndgts = w->dec_ndgts;
  std::memcpy(to->dec_dgts, w->dec_dgts, sizeof to->dec_dgts);
}

// Clamps an exponent computed in int to the records' range: 0, DEC_E_OVERFLOW or
// DEC_E_UNDERFLOW, with *exp set to the clamped value.
inline int dec_clamp_exp(int e, int16_t *exp) {
  if (e > DEC_MAX_EXP) {
    *exp = DEC_MAX_EXP;
    return DEC_E_OVERFLOW;
  }
  if (e < DEC_MIN_EXP) {
    *exp = DEC_MIN_EXP;
    return DEC_E_UNDERFLOW;
  }
  *exp = static_cast<int16_t>(e);
  return 0;
}

// True when the floating-point unit computes as the direct conversions assume: x87
// precision control at extended precision and rounding to nearest (x87 and, in the
// x86-64 build, SSE). A program that changed either gets the text routes, which the C
// library carries out in whatever mode is set.
inline bool fpu_default() {
#if defined(__i386__) || defined(__x86_64__)
  unsigned short cw;
  __asm__ volatile("fnstcw %0" : "=m"(cw));
  if ((cw & 0x0F00u) != 0x0300u) return false;
#if defined(__x86_64__)
  if ((__builtin_ia32_stmxcsr() & 0x6000u) != 0) return false;
#endif
  return true;
#else
  return false;
#endif
}

// decefcvt, except that when its rounding carries the value past 100^63 (the library
// then gives "") the digits of the rounded value, a 1 followed by zeros with decpt one
// higher, are written into the digit buffer instead.
char *dec_digits(const t_DECIMAL *v, int ndigit, int *decpt, int *sign, int fflag);

}  // namespace qz
