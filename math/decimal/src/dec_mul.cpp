// Multiplication and division of decimal records, both digit by digit in base 100 into
// a nine-place working record. Their truncations are deliberate: multiplication drops
// partial products past the guard place without carrying them, and division forms only
// eight quotient digits when the first one is 0.
#include <cstring>

#include "dec_internal.hpp"

namespace {

void set_zero(t_DECIMAL *v) {
  std::memcpy(v, &c_dec_zero, sizeof *v);
}

// Floor division and modulo by 100 (the borrows of the division are negative).
inline int floor_div100(int c) {
  return c >= 0 ? c / 100 : -((99 - c) / 100);
}
inline int floor_mod100(int c) {
  return c - 100 * floor_div100(c);
}

}  // namespace

int decmul(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result) {
  if (qz::dec_is_null(a) || qz::dec_is_null(b)) {
    qz::dec_set_null(result);
    return 0;
  }
  if (qz::dec_is_zero(a) || qz::dec_is_zero(b)) {
    set_zero(result);
    return 0;
  }
  t_DECIMAL_WORK w;
  std::memset(&w, 0, sizeof w);
  int c = 0;
  for (int i = a->dec_ndgts - 1; i >= 0; --i) {
    c = 0;
    for (int j = b->dec_ndgts - 1; j >= 0; --j) {
      int k = i + j;
      if (k > 8) continue;  // dropped, the carry unchanged
      int t = w.dec_dgts[k] + a->dec_dgts[i] * b->dec_dgts[j] + c;
      w.dec_dgts[k] = static_cast<uint8_t>(t % 100);
      c = t / 100;
    }
    if (i > 0) w.dec_dgts[i - 1] = static_cast<uint8_t>(c);
  }
  w.dec_pos = a->dec_pos == b->dec_pos ? DEC_POS_POSITIVE : DEC_POS_NEGATIVE;
  w.dec_exp = static_cast<int16_t>(a->dec_exp + b->dec_exp - 1);
  int n = a->dec_ndgts + b->dec_ndgts - (c == 0 ? 1 : 0);
  w.dec_ndgts = static_cast<int8_t>(n > 9 ? 9 : n);
  int rc = dec_round(&w, c);
  qz::dec_from_work(result, &w);
  return rc;
}

namespace {

// One quotient digit's step of the long division: subtracts q times the divisor bd (bn
// digits) from the remainder r, aligned at step s and starting at place p, adding the
// divisor back while the trial digit q was too large. Returns the digit that stays.
int subtract_digit(int (&r)[9], const int (&bd)[9], int bn, int s, int p, int q) {
  int nb = bn;
  int c = 0;
  if (nb > 9 - p) {
    // The divisor reaches past place 9: only the hundreds of the first product that falls
    // off enter, as the starting borrow.
    nb = 9 - p;
    c = -((q * bd[9 - p]) / 100);
  }
  for (int x = s + nb - 1; x >= p; --x) {
    if (x <= 8) c += r[x];
    if (x - s >= 0) c -= q * bd[x - s];
    int digit = floor_mod100(c);
    c = floor_div100(c);
    if (x <= 8) r[x] = digit;
  }
  int top = c;
  while (top < 0 && q > 0) {  // the trial digit was too large: add the divisor back
    --q;
    c = 0;
    for (int x = s + nb - 1; x >= p; --x) {
      int v = c + (x <= 8 ? r[x] : 0) + (x - s >= 0 ? bd[x - s] : 0);
      int digit = floor_mod100(v);
      c = floor_div100(v);
      if (x <= 8) r[x] = digit;
    }
    top += c;
  }
  return q;
}

}  // namespace

int decdiv(const t_DECIMAL *a, const t_DECIMAL *b, t_DECIMAL *result) {
  if (qz::dec_is_null(a) || qz::dec_is_null(b)) {
    qz::dec_set_null(result);
    return 0;
  }
  // The divisor's digits, 0 beyond its count. A first digit 0 (a record no operation
  // makes) would make the trial divisor 0: such a divisor is shifted up first.
  int bd[9] = {0};
  int bn = b->dec_ndgts;
  int lead = 0;
  while (lead < bn && b->dec_dgts[lead] == 0)
    ++lead;
  if (qz::dec_is_zero(b) || lead == bn) {
    set_zero(result);
    return DEC_E_DIVZERO;
  }
  for (int i = lead; i < bn; ++i)
    bd[i - lead] = b->dec_dgts[i];
  bn -= lead;
  t_DECIMAL_WORK w;
  std::memset(&w, 0, sizeof w);
  int wexp = a->dec_exp - (b->dec_exp - lead) + 1;
  w.dec_pos = a->dec_pos == b->dec_pos ? DEC_POS_POSITIVE : DEC_POS_NEGATIVE;
  w.dec_ndgts = 9;
  int r[9] = {0};  // running remainder, places 0 to 8
  for (int i = 0; i < a->dec_ndgts && i < 9; ++i)
    r[i] = a->dec_dgts[i];
  const int dv = 100 * bd[0] + (bn > 1 ? bd[1] : 0);  // trial divisor
  int q = 0;
  int place = 0;
  for (int s = 0; s <= 8; ++s) {
    int p = (s > 0 && r[s - 1] != 0) ? s - 1 : s;
    if (s == 1 && q == 0) {
      --wexp;  // the first quotient digit was 0: write place 0 again
    } else if (s > 0) {
      ++place;
    }
    int t = 100 * r[p] + (p < 8 ? r[p + 1] : 0) + 1;
    if (p != s) t *= 100;
    q = t / dv;
    if (q > 0) q = subtract_digit(r, bd, bn, s, p, q > 99 ? 99 : q);
    w.dec_dgts[place] = static_cast<uint8_t>(q);
  }
  // wexp lies within int16 for any exponents the field can hold.
  w.dec_exp = static_cast<int16_t>(wexp);
  int rc = dec_round(&w, 0);
  qz::dec_from_work(result, &w);
  return rc;
}
