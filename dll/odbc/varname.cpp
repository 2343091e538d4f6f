// Variable names from column titles. The character tests are spelled out in ASCII
// rather than taken from <cctype>, whose answers for bytes above 127 depend on the locale
// and whose arguments must be unsigned char values.
#include "varname.hpp"

#include <cstdio>

namespace qz {
namespace {

constexpr int kMaxTitleChars = 15;  // longer titles are not used as names

bool is_letter(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

bool is_digit(unsigned char c) {
  return c >= '0' && c <= '9';
}

// Space, tab, line feed, vertical tab, form feed, carriage return.
bool is_white(unsigned char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

bool may_follow(unsigned char c) {
  return is_letter(c) || is_digit(c) || is_white(c) || c == '_' || c == '.';
}

char to_upper(unsigned char c) {
  return static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
}

char to_lower(unsigned char c) {
  return static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
}

}  // namespace

int derive_varname(const char *title, int column_no, char (&out)[kVarnameSize]) {
  const auto *t = reinterpret_cast<const unsigned char *>(title);
  int n = 0;
  bool usable = true;
  for (; t[n] != 0; ++n) {
    // Bytes of 128 and above fail both tests, so examination stops on them.
    bool ok = n < kMaxTitleChars && (n == 0 ? is_letter(t[n]) : may_follow(t[n]));
    if (!ok) {
      usable = false;
      break;
    }
  }
  if (!usable) return std::snprintf(out, sizeof out, "Column_%d", column_no);
  for (int i = 0; i < n; ++i) {
    if (i == 0)
      out[i] = to_upper(t[i]);
    else if (t[i] == '.' || is_white(t[i]))
      out[i] = '_';
    else
      out[i] = to_lower(t[i]);
  }
  out[n] = '\0';
  return n;
}

}  // namespace qz
