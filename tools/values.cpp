// The text forms of the interpreter's values in call scripts and in what qzcall prints:
// string literals with escapes, reals exact through the decimal library (no binary double
// in between, so 0.1 stays 0.1), arrays.
#include <cstring>

#include "qzmath.h"
#include "values.hpp"

namespace qz::call {

using client::Decimal;
using client::kInteger;
using client::kReal;
using client::kString;

std::size_t Value::count() const {
  return type == kInteger ? ints.size() : type == kReal ? reals.size() : strings.size();
}

bool Value::operator==(const Value &o) const {
  if (type != o.type || array != o.array || count() != o.count()) return false;
  if (type == kInteger) return ints == o.ints;
  if (type == kString) return strings == o.strings;
  for (std::size_t k = 0; k < reals.size(); ++k)
    if (std::memcmp(reals[k].bytes, o.reals[k].bytes, sizeof reals[k].bytes) != 0) return false;
  return true;
}

std::string quote(std::string_view bytes) {
  static const char hex[] = "0123456789ABCDEF";
  std::string out = "\"";
  for (unsigned char c : bytes) {
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\r':
        out += "\\r";
        break;
      default:
        if (c >= 0x20 && c < 0x7f) {
          out += static_cast<char>(c);
        } else {
          out += "\\x";
          out += hex[c >> 4];
          out += hex[c & 15];
        }
    }
  }
  return out + "\"";
}

std::string format_decimal(const Decimal &d) {
  t_DECIMAL t;
  std::memcpy(&t, d.bytes, sizeof t);
  if (t.dec_pos == DEC_POS_NULL) return "null";
  std::string sign = t.dec_pos == DEC_POS_NEGATIVE ? "-" : "";
  if (t.dec_ndgts == 0) return sign + "0.0";
  bool malformed = t.dec_pos > DEC_POS_POSITIVE || t.dec_ndgts < 0 ||
                   t.dec_ndgts > DEC_MAX_DIGITS || t.dec_dgts[0] == 0;
  for (int k = 0; !malformed && k < t.dec_ndgts; ++k)
    malformed = t.dec_dgts[k] > 99;
  if (malformed) {
    // Not a record the library makes: show its bytes rather than a made-up number.
    std::string out = "malformed(";
    static const char hex[] = "0123456789ABCDEF";
    for (unsigned char b : d.bytes) {
      out += hex[b >> 4];
      out += hex[b & 15];
    }
    return out + ")";
  }
  // Value = 0.D x 10^point, D the decimal figures of the base-100 digits.
  std::string digits;
  for (int k = 0; k < t.dec_ndgts; ++k) {
    digits += static_cast<char>('0' + t.dec_dgts[k] / 10);
    digits += static_cast<char>('0' + t.dec_dgts[k] % 10);
  }
  int point = 2 * t.dec_exp;
  if (digits[0] == '0') {
    digits.erase(0, 1);
    --point;
  }
  while (digits.size() > 1 && digits.back() == '0')
    digits.pop_back();
  int n = static_cast<int>(digits.size());
  std::string out;
  if (point > 0 && point <= 21) {
    if (n <= point)
      out = digits + std::string(static_cast<std::size_t>(point - n), '0') + ".0";
    else
      out = digits.substr(0, static_cast<std::size_t>(point)) + "." +
            digits.substr(static_cast<std::size_t>(point));
  } else if (point <= 0 && point > -6) {
    out = "0." + std::string(static_cast<std::size_t>(-point), '0') + digits;
  } else {
    int e = point - 1;
    out = digits.substr(0, 1) + "." + (n > 1 ? digits.substr(1) : "0") + "e" + (e < 0 ? "-" : "+") +
          std::to_string(e < 0 ? -e : e);
  }
  return sign + out;
}

namespace {

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

// The literal forms the notation accepts for reals: sign, figures with at most one point,
// an optional exponent with figures.
bool real_form(std::string_view s) {
  std::size_t i = 0, n = s.size();
  if (i < n && (s[i] == '+' || s[i] == '-')) ++i;
  std::size_t figures = 0;
  while (i < n && is_digit(s[i]))
    ++i, ++figures;
  if (i < n && s[i] == '.') {
    ++i;
    while (i < n && is_digit(s[i]))
      ++i, ++figures;
  }
  if (figures == 0) return false;
  if (i < n && (s[i] == 'e' || s[i] == 'E')) {
    ++i;
    if (i < n && (s[i] == '+' || s[i] == '-')) ++i;
    std::size_t e = 0;
    while (i < n && is_digit(s[i]))
      ++i, ++e;
    if (e == 0) return false;
  }
  return i == n;
}

}  // namespace

bool parse_decimal(std::string_view text, Decimal &out, std::string &why) {
  if (!real_form(text)) {
    why = "not a number";
    return false;
  }
  t_DECIMAL t;
  int rc = deccvasc(text.data(), static_cast<int>(text.size()), &t);
  if (rc == DEC_E_OVERFLOW || rc == DEC_E_BADEXP) {
    why = "too large for a real (the largest is about 1e126)";
    return false;
  }
  if (rc == DEC_E_UNDERFLOW) {
    why = "too small for a real (the smallest is about 1e-128); write 0.0 for zero";
    return false;
  }
  if (rc != 0) {
    why = "not a number";
    return false;
  }
  std::memcpy(out.bytes, &t, sizeof out.bytes);
  return true;
}

std::string format_value(const Value &v) {
  std::string out;
  for (std::size_t k = 0; k < v.count(); ++k) {
    if (k) out += ", ";
    if (v.type == kInteger)
      out += std::to_string(v.ints[k]);
    else if (v.type == kReal)
      out += format_decimal(v.reals[k]);
    else
      out += quote(v.strings[k]);
  }
  return v.array ? "[" + out + "]" : out;
}

}  // namespace qz::call
