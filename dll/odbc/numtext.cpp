// Reading goes through strtoll and strtod with errno cleared first. strtoll rather than
// strtol keeps the 32-bit range check the same in the 32-bit and the 64-bit build (a
// 64-bit long would not report 3000000000 as out of range).
#include "numtext.hpp"

#include <cassert>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace qz {
namespace {

constexpr std::int32_t kMin32 = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kMax32 = std::numeric_limits<std::int32_t>::max();

}  // namespace

int read_int32(const char *text, std::int32_t *value) {
  char *end = nullptr;
  errno = 0;
  long long v = std::strtoll(text, &end, 10);
  bool range = errno != 0;
  if (v < kMin32) {
    v = kMin32;
    range = true;
  } else if (v > kMax32) {
    v = kMax32;
    range = true;
  }
  *value = static_cast<std::int32_t>(v);
  if (range) return kNumRange;
  return *end != '\0' ? kNumTrailing : kNumOk;
}

int read_double(const char *text, double *value) {
  char *end = nullptr;
  errno = 0;
  *value = std::strtod(text, &end);
  if (errno != 0) return kNumRange;
  return *end != '\0' ? kNumTrailing : kNumOk;
}

int param_text_int32(const char *text, int len, std::int32_t *value) {
  assert(len >= 0);
  if (len > kParamIntTextMax) return kNumTooLong;
  char buf[kParamIntTextMax + 1];
  std::memcpy(buf, text, static_cast<std::size_t>(len));
  buf[len] = '\0';
  std::int32_t v;
  int rc = read_int32(buf, &v);
  if (rc == kNumOk) *value = v;
  return rc;
}

int param_text_double(const char *text, int len, double *value) {
  assert(len >= 0);
  if (len > kParamRealTextMax) return kNumTooLong;
  char buf[kParamRealTextMax + 1];
  std::memcpy(buf, text, static_cast<std::size_t>(len));
  buf[len] = '\0';
  double v;
  int rc = read_double(buf, &v);
  if (rc == kNumOk) *value = v;
  return rc;
}

std::int32_t trunc_to_int32(double d) {
  // Both limits are exact doubles; every value strictly between them truncates into
  // range, and a NaN fails both comparisons. Converting anything else would be undefined.
  if (d > -2147483649.0 && d < 2147483648.0) return static_cast<std::int32_t>(d);
  return kMin32;
}

}  // namespace qz
