// The packed storage form of decimal records: a fixed field whose byte 0 carries null,
// sign and exponent and whose other bytes carry base-100 digits, complemented to 100
// for negative values so that the bytes of a field sort like the values.
#include <cstring>

#include "dec_internal.hpp"

void comp100(unsigned char *digits, int n) {
  int i = n - 1;
  while (i >= 0 && digits[i] == 0)
    --i;  // trailing zeros stay 0
  if (i < 0) return;
  digits[i] = static_cast<unsigned char>(100 - digits[i]);
  for (--i; i >= 0; --i)
    digits[i] = static_cast<unsigned char>(99 - digits[i]);
}

int lddecimal(const unsigned char *bytes, int length, t_DECIMAL *result) {
  std::memset(result->dec_dgts, 0, sizeof result->dec_dgts);
  if (length < 1 || bytes[0] == 0) {
    qz::dec_set_null(result);
    return 0;
  }
  int nd = length - 1 < DEC_MAX_DIGITS ? length - 1 : DEC_MAX_DIGITS;
  std::memcpy(result->dec_dgts, bytes + 1, static_cast<size_t>(nd));
  if (bytes[0] & 0x80) {
    result->dec_pos = DEC_POS_POSITIVE;
    result->dec_exp = static_cast<int16_t>(bytes[0] - 192);
  } else {
    result->dec_pos = DEC_POS_NEGATIVE;
    comp100(result->dec_dgts, nd);
    result->dec_exp = static_cast<int16_t>(63 - bytes[0]);
  }
  while (nd > 0 && result->dec_dgts[nd - 1] == 0)
    --nd;
  result->dec_ndgts = static_cast<int8_t>(nd);
  return 0;
}

int stdecimal(const t_DECIMAL *v, unsigned char *bytes, int length) {
  if (length < 1) return 0;
  std::memset(bytes, 0, static_cast<size_t>(length));
  if (qz::dec_is_null(v)) return 0;
  if (qz::dec_is_zero(v)) {
    bytes[0] = 0xC0;
    return 0;
  }
  unsigned char d[DEC_MAX_DIGITS];
  int nd = v->dec_ndgts;
  std::memcpy(d, v->dec_dgts, static_cast<size_t>(nd));
  unsigned b0 = static_cast<unsigned>(v->dec_exp - 64) & 0xFFu;
  int room = length - 1;  // digit bytes of the field
  if (nd > room) {
    bool up = d[room] >= 50;  // the first digit that does not fit
    nd = room;
    if (up) {
      int i = nd - 1;
      for (; i >= 0; --i) {
        if (d[i] < 99) {
          ++d[i];
          break;
        }
        d[i] = 0;
      }
      if (i < 0) {  // all kept digits were 99; byte 0 of exponent 63 wraps to null
        if (nd > 0) d[0] = 1;
        b0 = (b0 + 1) & 0xFFu;
      }
    }
  }
  if (qz::dec_is_neg(v)) {
    b0 = ~b0 & 0xFFu;
    comp100(d, nd);
  }
  bytes[0] = static_cast<unsigned char>(b0);
  std::memcpy(bytes + 1, d, static_cast<size_t>(nd));
  return 0;
}
