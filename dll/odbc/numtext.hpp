// Numbers read from text and doubles narrowed to integers, as the data readers and the
// parameter setters need them: base-10 signed 32-bit integers and doubles read the way
// strtol and strtod read them, and a double truncated toward zero to a 32-bit integer.
#pragma once

#include <cstdint>

namespace qz {

// Outcome of reading a number from text.
constexpr int kNumOk = 0;        // the whole text is one number in range
constexpr int kNumRange = 1;     // the number overflows (or a double underflows)
constexpr int kNumTrailing = 2;  // characters follow the number, or no number at all
constexpr int kNumTooLong = 3;   // a setter's text is longer than its parse buffer takes

// Longest texts the parameter setters read, in bytes (the parse buffer holds one more).
constexpr int kParamIntTextMax = 15;        // integer parameter
constexpr int kParamRealTextMax = 511;      // real parameter
constexpr int kParamDateTextMax = 15;       // date parameter
constexpr int kParamTimeTextMax = 15;       // time parameter
constexpr int kParamTimestampTextMax = 31;  // timestamp parameter

// Reads the NUL-terminated text as a base-10 signed 32-bit integer as strtol does on a
// 32-bit system: leading white space and a sign allowed, then digits. *value always
// receives the value read so far (0 when no digits were read; the nearest 32-bit limit
// on overflow), whatever the outcome. Returns kNumOk, kNumRange or kNumTrailing (any
// character after the number; text without digits is trailing text from its start,
// except the empty text, which reads as 0).
int read_int32(const char *text, std::int32_t *value);

// Reads the NUL-terminated text as a double as strtod does (white space, sign, decimal
// or hexadecimal forms, inf and nan, in the C locale). *value always receives the value
// read so far. Returns kNumOk, kNumRange (strtod set errno: overflow or underflow) or
// kNumTrailing, under the same rules as read_int32.
int read_double(const char *text, double *value);

// The setters' forms: the text of len bytes, not NUL-terminated, copied into a parse
// buffer first. A text longer than kParamIntTextMax, respectively kParamRealTextMax,
// gives kNumTooLong without being read. *value is written only when kNumOk is returned.
int param_text_int32(const char *text, int len, std::int32_t *value);
int param_text_double(const char *text, int len, double *value);

// d truncated toward zero; a value outside the signed 32-bit range, an infinity or a NaN
// gives -2147483648.
std::int32_t trunc_to_int32(double d);

}  // namespace qz
