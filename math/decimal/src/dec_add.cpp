// Addition, subtraction, comparison and sign change of decimal records. Addition aligns
// the smaller operand on the larger one's digits and keeps only the places up to the
// guard digit; everything below it is dropped before rounding.
#include <cstring>

#include "dec_internal.hpp"

namespace {

// Digit i of v, 0 beyond its digit count.
inline int digit_at(const t_DECIMAL *v, int i) {
  return i < v->dec_ndgts ? v->dec_dgts[i] : 0;
}

// True when |b| > |a|; both have digits and are in normal form.
bool magnitude_less(const t_DECIMAL *a, const t_DECIMAL *b) {
  if (a->dec_exp != b->dec_exp) return b->dec_exp > a->dec_exp;
  for (int i = 0; i < DEC_MAX_DIGITS; ++i) {
    int x = digit_at(a, i), y = digit_at(b, i);
    if (x != y) return y > x;
  }
  return false;
}

}  // namespace

int decadd(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result) {
  if (qz::dec_is_null(a) || qz::dec_is_null(b)) {
    qz::dec_set_null(result);
    return 0;
  }
  if (qz::dec_is_zero(a)) {
    qz::dec_copy(result, b);
    return 0;
  }
  if (qz::dec_is_zero(b)) {
    qz::dec_copy(result, a);
    return 0;
  }
  const t_DECIMAL *l = a, *s = b;  // larger and smaller magnitude; a first on a tie
  if (magnitude_less(a, b)) {
    l = b;
    s = a;
  }
  int k = l->dec_exp - s->dec_exp;
  if (k > 8) {  // s lies wholly below the guard digit
    qz::dec_copy(result, l);
    return 0;
  }
  t_DECIMAL_WORK w;
  w.dec_exp = l->dec_exp;
  w.dec_pos = l->dec_pos;
  w.dec_ndgts = l->dec_ndgts;
  std::memset(w.dec_dgts, 0, sizeof w.dec_dgts);
  std::memcpy(w.dec_dgts, l->dec_dgts, static_cast<size_t>(l->dec_ndgts));

  int n = k + s->dec_ndgts;
  if (n > 9) n = 9;  // digits of s past the guard place are dropped
  if (n > w.dec_ndgts) w.dec_ndgts = static_cast<int8_t>(n);
  bool same = a->dec_pos == b->dec_pos;
  int c = 0;
  for (int p = n - 1; p >= 0; --p) {
    int j = p - k;
    int sd = j >= 0 ? s->dec_dgts[j] : 0;
    int sum = w.dec_dgts[p] + (same ? sd : -sd) + c;
    if (sum < 0) {
      sum += 100;
      c = -1;
    } else if (sum > 99) {
      sum -= 100;
      c = 1;
    } else {
      c = 0;
    }
    w.dec_dgts[p] = static_cast<uint8_t>(sum);
  }
  int rc = dec_round(&w, c);
  qz::dec_from_work(result, &w);
  return rc;
}

int decsub(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result) {
  if (qz::dec_is_null(a) || qz::dec_is_null(b)) {
    qz::dec_set_null(result);
    return 0;
  }
  if (qz::dec_is_zero(b)) {
    qz::dec_copy(result, a);
    return 0;
  }
  t_DECIMAL nb = *b;
  nb.dec_pos = qz::dec_is_neg(b) ? DEC_POS_POSITIVE : DEC_POS_NEGATIVE;
  return decadd(a, &nb, result);
}

int deccmp(const t_DECIMAL *a, const t_DECIMAL *b) {
  if (qz::dec_is_null(a) || qz::dec_is_null(b)) return DEC_E_NULLCMP;
  bool az = qz::dec_is_zero(a), bz = qz::dec_is_zero(b);
  if (az && bz) return 0;
  int s = a->dec_pos != DEC_POS_NEGATIVE ? 1 : -1;
  if (a->dec_pos != b->dec_pos) return s;
  if (a->dec_exp == b->dec_exp) {
    for (int i = 0; i < DEC_MAX_DIGITS; ++i) {
      int x = digit_at(a, i), y = digit_at(b, i);
      if (x != y) return x > y ? s : -s;
    }
    return 0;
  }
  if (az) return -1;
  if (bz) return 1;
  return a->dec_exp > b->dec_exp ? s : -s;
}

int decchs(t_DECIMAL *v) {
  if (qz::dec_is_null(v)) {
    v->dec_ndgts = 0;
    v->dec_exp = 0;
  } else if (!qz::dec_is_zero(v)) {
    v->dec_pos = qz::dec_is_neg(v) ? DEC_POS_POSITIVE : DEC_POS_NEGATIVE;
  }
  return 0;
}
