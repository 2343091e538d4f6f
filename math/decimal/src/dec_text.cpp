// Text forms of decimal records: free-form parsing (deccvasc) and fixed-width fields
// (dectoasc), which fall back to an exponent form when the integer part does not fit.
#include <cstring>

#include "dec_internal.hpp"

namespace {
constexpr int kFigures = 18;    // significant figures a parse keeps
constexpr int kExpLimit = 999;  // largest exponent figure value in a text
inline bool is_digit(char c) {
  return c >= '0' && c <= '9';
}
}  // namespace

int deccvasc(const char *text, int length, t_DECIMAL *result) {
  qz::dec_set_null(result);
  int n = 0;  // the text ends at its length or at a NUL
  while (n < length && text[n] != '\0')
    ++n;
  int i = 0;
  while (i < n && text[i] == ' ')
    ++i;
  if (i == n) return 0;
  bool neg = false;
  if (text[i] == '-' || text[i] == '+') neg = text[i++] == '-';

  unsigned char fig[kFigures];
  int nfig = 0;
  long long before = 0;  // significant figures before the point, stored or not
  long long zeros = 0;   // zeros between the point and the first significant figure
  bool point = false, significant = false, any = false;
  for (; i < n; ++i) {
    char c = text[i];
    if (c == '.') {
      if (point) return DEC_E_BADTEXT;
      point = true;
      continue;
    }
    if (!is_digit(c)) break;
    any = true;
    if (!significant && c == '0') {
      if (point) ++zeros;
      continue;
    }
    significant = true;
    if (nfig < kFigures) fig[nfig++] = static_cast<unsigned char>(c - '0');
    if (!point) ++before;
  }
  if (!any) return DEC_E_BADTEXT;
  long long ex = 0;
  if (i < n && (text[i] == 'e' || text[i] == 'E')) {
    ++i;
    bool eneg = false;
    if (i < n && (text[i] == '-' || text[i] == '+')) eneg = text[i++] == '-';
    for (; i < n && is_digit(text[i]); ++i) {
      ex = ex * 10 + (text[i] - '0');
      if (ex > kExpLimit) return DEC_E_BADEXP;
    }
    if (eneg) ex = -ex;
  }
  for (; i < n; ++i)
    if (text[i] != ' ') return DEC_E_BADTEXT;

  t_DECIMAL_WORK w;
  std::memset(&w, 0, sizeof w);
  w.dec_pos = DEC_POS_POSITIVE;
  if (significant) {
    long long decpt = (before > 0 ? before : -zeros) + ex;
    long long e = decpt > 0 ? (decpt + 1) / 2 : decpt / 2;
    // Far outside the range only the direction matters to the range check.
    if (e > 1000) e = 1000;
    if (e < -1000) e = -1000;
    w.dec_exp = static_cast<int16_t>(e);
    int f = 0, place = 0;
    if (decpt % 2 != 0) w.dec_dgts[place++] = fig[f++];
    for (; f < nfig && place < 9; f += 2) {
      int units = f + 1 < nfig ? fig[f + 1] : 0;
      w.dec_dgts[place++] = static_cast<uint8_t>(fig[f] * 10 + units);
    }
    w.dec_ndgts = static_cast<int8_t>(place);
  }
  int rc = dec_round(&w, 0);
  qz::dec_from_work(result, &w);
  if (neg) result->dec_pos = DEC_POS_NEGATIVE;
  return rc;
}

namespace {

// Writes v's exponent form into the field (the integer part did not fit): mantissa
// digits, then "e", an optional "-" and the figures of decpt - 1 at the end.
void exponent_form(const t_DECIMAL *v, char *buf, int len, int decpt, int sign) {
  for (int attempt = 0; attempt < 4; ++attempt) {
    std::memset(buf, ' ', static_cast<size_t>(len));
    int ev = decpt - 1;
    unsigned aev = ev < 0 ? 0u - static_cast<unsigned>(ev) : static_cast<unsigned>(ev);
    char figs[12];
    int nf = 0;
    do {
      figs[nf++] = static_cast<char>('0' + aev % 10);
      aev /= 10;
    } while (aev != 0);
    int p = len;
    for (int k = 0; k < nf && p > 0; ++k)
      buf[--p] = figs[k];
    if (decpt <= 0 && p > 0) buf[--p] = '-';
    if (p > 0) buf[--p] = 'e';
    int r = p;  // room before the exponent text
    // The mantissa needs its sign and one digit.
    if (r < 1 + sign) {
      std::memset(buf, ' ', static_cast<size_t>(len));
      if (v->dec_exp < -1)
        buf[0] = '0';
      else
        std::memset(buf, '*', static_cast<size_t>(len));
      return;
    }
    int nm = r - 1 - sign;
    if (nm < 1) nm = 1;
    int dp2, sg2;
    char md[DEC_DIGIT_BUFSIZE];
    std::strcpy(md, qz::dec_digits(v, nm, &dp2, &sg2, 0));
    if (dp2 != decpt) {  // rounding carried into a new decimal place
      decpt = dp2;
      continue;
    }
    int q = 0;
    if (sign) buf[q++] = '-';
    int first = q;
    int mi = 0;
    buf[q++] = md[mi++];
    if (q < r) {
      buf[q++] = '.';
      while (q < r && md[mi])
        buf[q++] = md[mi++];
    }
    // Trailing zeros of the mantissa and then a bare point go; each removal moves the
    // exponent text one place left.
    auto remove_at = [&](int at) {
      std::memmove(buf + at, buf + at + 1, static_cast<size_t>(len - at - 1));
      buf[len - 1] = ' ';
    };
    bool has_point = q > first + 1;
    if (has_point) {
      while (q > first + 2 && buf[q - 1] == '0')
        remove_at(--q);
      if (buf[q - 1] == '.') remove_at(--q);
    }
    return;
  }
}

}  // namespace

int dectoasc(const t_DECIMAL *v, char *buffer, int length, int decimals) {
  if (length <= 0) return 0;
  std::memset(buffer, ' ', static_cast<size_t>(length));
  if (qz::dec_is_null(v)) return 0;
  if (decimals < 0) {  // enough decimals to show the value's digits
    int nd = v->dec_ndgts, e = v->dec_exp;
    if (e >= nd) {
      decimals = 0;
    } else {
      decimals = e >= 0 ? 2 * (nd - e) : 2 * nd;
      if (nd > 1 && v->dec_dgts[nd - 1] % 10 == 0) --decimals;
    }
  }
  int decpt = 0, sign = 0;
  char dg[DEC_DIGIT_BUFSIZE];
  std::strcpy(dg, qz::dec_digits(v, decimals, &decpt, &sign, 1));
  int nd = static_cast<int>(std::strlen(dg));
  int width = nd + (decpt != nd ? 1 : 0) + (sign ? 1 : 0);
  if (width > length && width - length <= decimals) {
    decimals -= width - length;
    std::strcpy(dg, qz::dec_digits(v, decimals, &decpt, &sign, 1));
    nd = static_cast<int>(std::strlen(dg));
  }

  int at = 0;
  auto put = [&](char c) {
    if (at < length) buffer[at++] = c;
  };
  if (sign) put('-');
  if (decpt <= 0) put('0');
  int e = decpt < -decimals ? -decimals : decpt;
  int di = 0;
  while (e > 0 && di < nd) {
    put(dg[di++]);
    --e;
  }
  if (e < 0 || di < nd) put('.');
  for (; e < 0; ++e)
    put('0');
  while (di < nd)
    put(dg[di++]);

  if (decpt > length - sign) exponent_form(v, buffer, length, decpt, sign);
  return 0;
}
