// Test helpers for the decimal library: building records from digits or text, comparing
// their meaningful content and printing them in failure messages.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <ostream>
#include <string>

#include "qzmath.h"

// The record 0.d0 d1 ... (base 100) x 100^exp; negative when neg.
inline t_DECIMAL R(int exp, std::initializer_list<int> digits, bool neg = false) {
  t_DECIMAL v;
  std::memset(&v, 0, sizeof v);
  v.dec_exp = static_cast<int16_t>(exp);
  v.dec_pos = neg ? DEC_POS_NEGATIVE : DEC_POS_POSITIVE;
  int n = 0;
  for (int d : digits)
    v.dec_dgts[n++] = static_cast<uint8_t>(d);
  v.dec_ndgts = static_cast<int8_t>(n);
  return v;
}

inline t_DECIMAL null_record() {
  t_DECIMAL v;
  std::memset(&v, 0x5A, sizeof v);  // digit bytes of a null record carry nothing
  v.dec_pos = DEC_POS_NULL;
  v.dec_ndgts = 0;
  v.dec_exp = 0;
  return v;
}

// A record from text through deccvasc (which has its own tests).
inline t_DECIMAL P(const char *text) {
  t_DECIMAL v;
  int rc = deccvasc(text, static_cast<int>(std::strlen(text)), &v);
  EXPECT_EQ(rc, 0) << "parsing " << text;
  return v;
}

inline std::string show(const t_DECIMAL &v) {
  std::string s = "{exp " + std::to_string(v.dec_exp) + ", pos " + std::to_string(v.dec_pos) +
                  ", n " + std::to_string(v.dec_ndgts) + ":";
  for (int i = 0; i < v.dec_ndgts && i < 8; ++i)
    s += " " + std::to_string(v.dec_dgts[i]);
  return s + "}";
}

inline std::ostream &operator<<(std::ostream &os, const t_DECIMAL &v) {
  return os << show(v);
}

// Same meaning: exponent, sign, count and the counted digits (a null record is the null
// record whatever its digit bytes).
inline bool same(const t_DECIMAL &a, const t_DECIMAL &b) {
  if (a.dec_pos == DEC_POS_NULL || b.dec_pos == DEC_POS_NULL)
    return a.dec_pos == b.dec_pos && a.dec_ndgts == b.dec_ndgts && a.dec_exp == b.dec_exp;
  if (a.dec_exp != b.dec_exp || a.dec_pos != b.dec_pos || a.dec_ndgts != b.dec_ndgts) return false;
  return a.dec_ndgts < 0 || a.dec_ndgts > 8 ||
         std::memcmp(a.dec_dgts, b.dec_dgts, static_cast<size_t>(a.dec_ndgts)) == 0;
}

inline bool bytes_equal(const t_DECIMAL &a, const t_DECIMAL &b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

#define EXPECT_DEC(actual, expected) EXPECT_PRED2(same, actual, expected)

// A small deterministic generator (xorshift) of numbers and of records in normal form.
struct Rng {
  uint64_t s;  // xorshift state
  uint64_t next() {
    s ^= s << 13;
    s ^= s >> 7;
    s ^= s << 17;
    return s;
  }
  int below(int n) { return static_cast<int>(next() % static_cast<uint64_t>(n)); }
  t_DECIMAL record(int lo, int hi) {
    t_DECIMAL v;
    std::memset(&v, 0, sizeof v);
    int n = 1 + below(8);
    for (int i = 0; i < n; ++i)
      v.dec_dgts[i] = static_cast<uint8_t>(below(3) == 0 ? 99 : below(100));
    if (v.dec_dgts[0] == 0) v.dec_dgts[0] = 1;
    if (v.dec_dgts[n - 1] == 0) v.dec_dgts[n - 1] = 7;
    v.dec_ndgts = static_cast<int8_t>(n);
    v.dec_exp = static_cast<int16_t>(lo + below(hi - lo + 1));
    v.dec_pos = static_cast<uint8_t>(below(2));
    return v;
  }
};
