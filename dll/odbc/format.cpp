// Integer, date and time digits come from a table of the hundred digit pairs, written
// backwards from the last digit; "%.14g" comes from the standard library's to_chars,
// whose general form with a precision is defined as printf's, after a fast path for
// whole numbers.
#include "format.hpp"

#include <bit>
#include <cassert>
#include <charconv>
#include <cmath>
#include <cstring>
#include <system_error>

namespace qz {
namespace {

// "00" "01" ... "99": two digits per entry.
constexpr char kPairs[] =
    "00010203040506070809"
    "10111213141516171819"
    "20212223242526272829"
    "30313233343536373839"
    "40414243444546474849"
    "50515253545556575859"
    "60616263646566676869"
    "70717273747576777879"
    "80818283848586878889"
    "90919293949596979899";

constexpr std::uint32_t kPow10[] = {1,      10,      100,      1000,      10000,
                                    100000, 1000000, 10000000, 100000000, 1000000000};

// Number of decimal digits of u, 1 for 0. The bit width estimates log10 from below
// (1233 / 4096 is just under log10(2)); one comparison corrects it.
int count_digits(std::uint32_t u) {
  int t = (std::bit_width(u | 1u) * 1233) >> 12;
  return t + ((u | 1u) >= kPow10[t] ? 1 : 0);
}

void put_pair(char *p, std::uint32_t two) {
  std::memcpy(p, kPairs + 2 * two, 2);
}

// The digits of u, zero-padded on the left to width digits ("%0*u"); returns the end.
char *put_uint(char *p, std::uint32_t u, int width) {
  if (u < 100 && width <= 2) {
    // One or two digits without a branch on which: both bytes of the pair are written
    // and the end moves back over the leading zero. The spare byte lies where the next
    // character or the NUL goes.
    int skip = u < 10 && width < 2;
    std::memcpy(p, kPairs + 2 * u + skip, 2);
    return p + 2 - skip;
  }
  int n = count_digits(u);
  if (n < width) {
    std::memset(p, '0', static_cast<std::size_t>(width - n));
    p += width - n;
  }
  char *end = p + n;
  char *q = end;
  while (u >= 100) {
    q -= 2;
    put_pair(q, u % 100);
    u /= 100;
  }
  if (u >= 10)
    put_pair(q - 2, u);
  else
    q[-1] = static_cast<char>('0' + u);
  return end;
}

// "%0*d": the sign counts towards the width, the zeros go between sign and digits.
char *put_int(char *p, std::int32_t v, int width) {
  if (v >= 0) return put_uint(p, static_cast<std::uint32_t>(v), width);
  *p++ = '-';
  // Negating in unsigned arithmetic keeps INT32_MIN defined.
  return put_uint(p, 0u - static_cast<std::uint32_t>(v), width - 1);
}

// Fields of two digits each, the straight path of the date and time forms: false (nothing
// written) when a field has more.
template <std::size_t N>
bool put_pairs(char *&p, const std::uint32_t (&fields)[N]) {
  for (std::uint32_t f : fields)
    if (f >= 100) return false;
  for (std::uint32_t f : fields) {
    put_pair(p, f);
    p += 2;
  }
  return true;
}

// Year, month and day as "%04d%02d%02d"; the usual four-digit year and two-digit month
// and day take the straight path without counting digits.
char *put_date(char *p, std::int16_t year, std::uint16_t month, std::uint16_t day) {
  const std::uint32_t y = static_cast<std::uint32_t>(year);
  if (year >= 0 && year <= 9999 && put_pairs(p, {y / 100, y % 100, month, day})) return p;
  p = put_int(p, year, 4);
  p = put_uint(p, month, 2);
  return put_uint(p, day, 2);
}

// Hour, minute and second as "%02d%02d%02d".
char *put_time(char *p, std::uint16_t hour, std::uint16_t minute, std::uint16_t second) {
  if (put_pairs(p, {hour, minute, second})) return p;
  p = put_uint(p, hour, 2);
  p = put_uint(p, minute, 2);
  return put_uint(p, second, 2);
}

int finish(char *out, char *end) {
  *end = '\0';
  return static_cast<int>(end - out);
}

}  // namespace

int format_int(char *out, std::int32_t v) {
  return finish(out, put_int(out, v, 1));
}

int format_g14(char *out, double d) {
  // A whole number below 1e14 has at most 14 digits, which "%.14g" prints in full with
  // no point; the conversions to and from int64 are exact in that range. Everything
  // else goes to the library.
  if (d > -1e14 && d < 1e14) {
    std::int64_t i = static_cast<std::int64_t>(d);
    if (static_cast<double>(i) == d) {
      char *p = out;
      if (std::signbit(d)) *p++ = '-';  // -0.0 prints as "-0"
      std::uint64_t u = i < 0 ? 0u - static_cast<std::uint64_t>(i) : static_cast<std::uint64_t>(i);
      // Two 32-bit halves keep the digit loop free of 64-bit division on i386.
      std::uint32_t high = static_cast<std::uint32_t>(u / 100000000u);
      std::uint32_t low = static_cast<std::uint32_t>(u % 100000000u);
      p = high ? put_uint(put_uint(p, high, 1), low, 8) : put_uint(p, low, 1);
      return finish(out, p);
    }
  }
  // libstdc++ writes the sign of a NaN as glibc's printf does ("-nan"); the unit test
  // holds it to that, payloads included.
  std::to_chars_result r =
      std::to_chars(out, out + kFormatDoubleSize - 1, d, std::chars_format::general, 14);
  assert(r.ec == std::errc());
  return finish(out, r.ptr);
}

int format_date(char *out, std::int16_t year, std::uint16_t month, std::uint16_t day) {
  return finish(out, put_date(out, year, month, day));
}

int format_time(char *out, std::uint16_t hour, std::uint16_t minute, std::uint16_t second) {
  return finish(out, put_time(out, hour, minute, second));
}

int format_timestamp(char *out, std::int16_t year, std::uint16_t month, std::uint16_t day,
                     std::uint16_t hour, std::uint16_t minute, std::uint16_t second) {
  char *p = put_date(out, year, month, day);
  *p++ = ' ';
  return finish(out, put_time(p, hour, minute, second));
}

int format_xpack_header(char *out, std::int32_t number, std::int32_t value_len) {
  char *p = out;
  *p++ = '~';
  p = put_int(p, number, 1);
  *p++ = '~';
  p = put_int(p, value_len, 1);
  *p++ = '~';
  return finish(out, p);
}

}  // namespace qz
