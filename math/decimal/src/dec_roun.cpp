// dec_round: the normaliser every arithmetic result passes through. It removes leading
// zero digits or takes in a carry, rounds on the guard digit (half away from zero, the
// sign being a separate field), drops trailing zeros and checks the exponent range.
#include <cassert>
#include <cstring>

#include "dec_internal.hpp"

int dec_round(t_DECIMAL_WORK *s, int carry) {
  // An internal invariant: no operation builds such a record from valid operands.
  // The expression is the assertion's message: keep its spelling.
  // clang-format off
  assert(s->dec_ndgts >= 0 && s->dec_ndgts <= (8+1));
  // clang-format on
  uint8_t *d = s->dec_dgts;
  int n = s->dec_ndgts;
  int e = s->dec_exp;  // in int: a carry may take it one past the int16 field's range

  if (carry > 0) {
    // A carry out of the first digit becomes the new first digit; with nine digits
    // the ninth falls off the end.
    for (int i = (n == 9 ? 8 : n); i > 0; --i)
      d[i] = d[i - 1];
    d[0] = static_cast<uint8_t>(carry);
    ++e;
    if (n < 9) ++n;
  } else {
    int k = 0;
    while (k < n && d[k] == 0)
      ++k;
    if (k == n) {
      s->dec_exp = 0;
      s->dec_pos = DEC_POS_POSITIVE;
      s->dec_ndgts = 0;
      std::memset(d, 0, sizeof s->dec_dgts);
      return 0;
    }
    if (k > 0) {
      std::memmove(d, d + k, static_cast<size_t>(n - k));
      std::memset(d + n - k, 0, static_cast<size_t>(k));
      e -= k;
      n -= k;
    }
  }

  if (n == 9) {
    if (d[8] >= 50) {
      int i = 7;
      for (; i >= 0; --i) {
        if (d[i] < 99) {
          ++d[i];
          break;
        }
        d[i] = 0;
      }
      if (i < 0) {  // all eight were 99
        d[0] = 1;
        ++e;
      }
    }
    d[8] = 0;
    n = 8;
  }
  while (n > 0 && d[n - 1] == 0)
    --n;
  s->dec_ndgts = static_cast<int8_t>(n);
  return qz::dec_clamp_exp(e, &s->dec_exp);
}
