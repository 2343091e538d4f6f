// libFuzzer target for the two parsers of outside data: text (deccvasc) and the packed
// storage form (lddecimal). Every input is fed to both; results must be well-formed
// records and must survive a round trip through the matching writer.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "qzmath.h"

namespace {

// A record as the library makes it: normal form, exponent in range.
bool well_formed(const t_DECIMAL &v) {
  if (v.dec_pos == DEC_POS_NULL) return v.dec_ndgts == 0;
  if (v.dec_pos > 1 || v.dec_ndgts < 0 || v.dec_ndgts > 8) return false;
  if (v.dec_ndgts == 0) return true;
  if (v.dec_exp < DEC_MIN_EXP || v.dec_exp > DEC_MAX_EXP) return false;
  if (v.dec_dgts[0] == 0 || v.dec_dgts[v.dec_ndgts - 1] == 0) return false;
  for (int i = 0; i < v.dec_ndgts; ++i)
    if (v.dec_dgts[i] > 99) return false;
  return true;
}

bool same(const t_DECIMAL &a, const t_DECIMAL &b) {
  return a.dec_exp == b.dec_exp && a.dec_pos == b.dec_pos && a.dec_ndgts == b.dec_ndgts &&
         std::memcmp(a.dec_dgts, b.dec_dgts, static_cast<size_t>(a.dec_ndgts)) == 0;
}

void check(bool ok) {
  if (!ok) __builtin_trap();
}

void fuzz_text(const char *text, int len) {
  t_DECIMAL v;
  int rc = deccvasc(text, len, &v);
  check(rc == 0 || rc == DEC_E_OVERFLOW || rc == DEC_E_UNDERFLOW || rc == DEC_E_BADTEXT ||
        rc == DEC_E_BADEXP);
  if (rc == DEC_E_BADTEXT || rc == DEC_E_BADEXP) {
    check(v.dec_pos == DEC_POS_NULL);
    return;
  }
  if (v.dec_pos == DEC_POS_NULL || v.dec_ndgts == 0) return;  // blank text or a zero
  check(well_formed(v));
  if (rc != 0) return;
  // Fixed text wide enough for every digit parses back to the same value.
  char buf[220];
  int decimals = v.dec_exp >= v.dec_ndgts ? 0 : 2 * (v.dec_ndgts - v.dec_exp);
  dectoasc(&v, buf, 200, decimals);
  t_DECIMAL back;
  check(deccvasc(buf, 200, &back) == 0 && same(back, v));
  // The numeric layer accepts every record the parser makes.
  double d;
  m_to_dbl(&v, &d);
  t_DECIMAL r;
  m_cv_dbl(d, &r);
  check(well_formed(r));
  char small[8];
  dectoasc(&v, small, 5, -1);
}

void fuzz_packed(const unsigned char *bytes, int len) {
  t_DECIMAL v;
  check(lddecimal(bytes, len, &v) == 0);
  check(v.dec_ndgts >= 0 && v.dec_ndgts <= 8);
  if (!well_formed(v) || v.dec_pos == DEC_POS_NULL || len < 1 || len > 64) return;
  // A well-formed record stored into a field of the same length loads back unchanged.
  unsigned char field[64];
  stdecimal(&v, field, len);
  t_DECIMAL back;
  lddecimal(field, len, &back);
  if (v.dec_ndgts == 0) {
    check(back.dec_ndgts == 0);
    return;
  }
  if (v.dec_pos == DEC_POS_NEGATIVE && v.dec_exp == 63) return;  // stored as null
  check(same(back, v));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size > 4096) return 0;
  int len = static_cast<int>(size);
  fuzz_text(reinterpret_cast<const char *>(data), len);
  fuzz_packed(data, len);
  return 0;
}
