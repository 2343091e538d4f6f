// Rounding (half away from zero) and truncation of a decimal record to a number of
// digits after the decimal point, in place.
#include <cstring>

#include "dec_internal.hpp"

namespace {
void set_zero(t_DECIMAL *v) {
  std::memcpy(v, &c_dec_zero, sizeof *v);
}
}  // namespace

int decround(t_DECIMAL *v, int places) {
  if (places < 0) return DEC_E_NEGPLACES;
  if (qz::dec_is_null(v)) return 0;
  int k = v->dec_exp + places / 2;  // first base-100 digit not wholly kept
  if (k >= v->dec_ndgts) return 0;
  if (k < 0) {
    set_zero(v);
    return 0;
  }
  uint8_t *d = v->dec_dgts;
  bool carry;
  int n;
  if (places % 2 != 0) {  // the tens figure of digit k stays
    int t = d[k] + 5;
    carry = t > 99;
    if (carry) t -= 100;
    t = t / 10 * 10;
    if (t != 0) {
      d[k] = static_cast<uint8_t>(t);
      n = k + 1;
    } else {
      n = k;
    }
  } else {
    carry = d[k] >= 50;
    n = k;
  }
  // Only a digit cleared at k - 1 shortens the count; digits cleared further up stay as
  // trailing zeros (the value is the same).
  for (int i = k - 1; carry && i >= 0; --i) {
    if (d[i] < 99) {
      ++d[i];
      carry = false;
    } else {
      d[i] = 0;
      if (i == k - 1) --n;
    }
  }
  if (carry) {  // past the first digit
    int grown = n < 8 ? n + 1 : 8;
    for (int i = grown - 1; i > 0; --i)
      d[i] = d[i - 1];
    d[0] = 1;
    n = grown;
    v->dec_ndgts = static_cast<int8_t>(n);
    if (v->dec_exp + 1 > DEC_MAX_EXP) {
      v->dec_exp = DEC_MAX_EXP;
      return DEC_E_OVERFLOW;
    }
    ++v->dec_exp;
  }
  if (n == 0) {
    set_zero(v);
    return 0;
  }
  v->dec_ndgts = static_cast<int8_t>(n);
  return 0;
}

int dectrunc(t_DECIMAL *v, int places) {
  if (places < 0) return DEC_E_NEGPLACES;
  if (qz::dec_is_null(v)) {
    v->dec_ndgts = 0;
    v->dec_exp = 0;
    return 0;
  }
  int k = v->dec_exp + places / 2;
  if (k >= v->dec_ndgts) return 0;
  if (k < 0) {
    set_zero(v);
    return 0;
  }
  uint8_t *d = v->dec_dgts;
  d[k] = places % 2 != 0 ? static_cast<uint8_t>(d[k] / 10 * 10) : 0;
  int n = k + 1;
  while (n > 0 && d[n - 1] == 0)
    --n;
  if (n == 0) {
    set_zero(v);
    return 0;
  }
  v->dec_ndgts = static_cast<int8_t>(n);
  return 0;
}
