// Randomized cross-check of the decimal library against vectors that an independent
// oracle (decimal_oracle.py, exact arithmetic from the documented rules) writes at test
// time: addition, subtraction, multiplication, division, rounding and truncation to
// places, text parsing, double to record and record to double.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "decimal_test_util.hpp"

namespace {

enum Tag : unsigned char {
  kAdd = 1,
  kSub,
  kMul,
  kDiv,
  kRound,
  kTrunc,
  kCvAsc,
  kCvDbl,
  kToDbl,
};

const char *tag_name(int tag) {
  static const char *names[] = {"?",        "decadd",   "decsub",   "decmul",   "decdiv",
                                "decround", "dectrunc", "deccvasc", "deccvdbl", "m_to_dbl"};
  return tag >= 1 && tag <= 9 ? names[tag] : "?";
}

struct Reader {
  const std::vector<unsigned char> &buf;  // the whole vector file
  size_t at;                              // read position
  bool ok;                                // false once a read ran past the end

  void take(void *to, size_t n) {
    if (at + n > buf.size()) {
      ok = false;
      std::memset(to, 0, n);
      return;
    }
    std::memcpy(to, buf.data() + at, n);
    at += n;
  }
  template <class T>
  T get() {
    T v;
    take(&v, sizeof v);
    return v;
  }
  t_DECIMAL rec() { return get<t_DECIMAL>(); }
  int32_t i32() { return get<int32_t>(); }
};

std::string hex(const void *p, size_t n) {
  std::string s;
  char b[4];
  for (size_t i = 0; i < n; ++i) {
    std::snprintf(b, sizeof b, "%02x", static_cast<const unsigned char *>(p)[i]);
    s += b;
  }
  return s;
}

// decround may leave zero digits at the end where its carry cleared them; the oracle
// states values in normal form.
t_DECIMAL without_trailing_zeros(t_DECIMAL v) {
  if (v.dec_pos == DEC_POS_NULL) return v;
  while (v.dec_ndgts > 0 && v.dec_dgts[v.dec_ndgts - 1] == 0)
    --v.dec_ndgts;
  return v;
}

struct Tally {
  long count = 0;                    // vectors checked
  long failed = 0;                   // vectors whose result differed
  std::vector<std::string> samples;  // the first few differences
  void fail(const std::string &what) {
    if (++failed <= 8) samples.push_back(what);
  }
  // Counts a difference in code or record, described from `input`.
  void check(const std::string &input, int rc, const t_DECIMAL &got, int code,
             const t_DECIMAL &want) {
    if (rc != code || !same(got, want))
      fail(input + ": got " + show(got) + " code " + std::to_string(rc) + ", want " + show(want) +
           " code " + std::to_string(code));
  }
};

TEST(DecimalOracle, LibraryAgreesWithTheOracleOnEveryVector) {
  const char *path = std::getenv("QZ_MATH_VECTORS");
  ASSERT_NE(path, nullptr) << "QZ_MATH_VECTORS names the oracle's vector file";
  std::ifstream file(path, std::ios::binary);
  ASSERT_TRUE(file) << path;
  const std::vector<unsigned char> buf{std::istreambuf_iterator<char>(file), {}};

  std::map<int, Tally> tally;
  Reader in{buf, 0, true};
  while (in.ok && in.at < buf.size()) {
    unsigned char tag;
    in.take(&tag, 1);
    Tally &t = tally[tag];
    ++t.count;
    switch (tag) {
      case kAdd:
      case kSub:
      case kMul:
      case kDiv: {
        t_DECIMAL a = in.rec(), b = in.rec(), want = in.rec(), got;
        int code = in.i32();
        int (*fn)(const t_DECIMAL *, const t_DECIMAL *, t_DECIMAL *) = tag == kAdd   ? decadd
                                                                       : tag == kSub ? decsub
                                                                       : tag == kMul ? decmul
                                                                                     : decdiv;
        int rc = fn(&a, &b, &got);
        t.check(hex(&a, 12) + " " + hex(&b, 12), rc, got, code, want);
        break;
      }
      case kRound:
      case kTrunc: {
        t_DECIMAL v = in.rec();
        int places = in.i32();
        t_DECIMAL want = in.rec();
        int code = in.i32();
        t_DECIMAL got = v;
        int rc = tag == kRound ? decround(&got, places) : dectrunc(&got, places);
        t.check(hex(&v, 12) + " places " + std::to_string(places), rc,
                tag == kRound ? without_trailing_zeros(got) : got, code, want);
        break;
      }
      case kCvAsc: {
        int len = in.i32();
        std::string text(static_cast<size_t>(len > 0 ? len : 0), '\0');
        in.take(text.data(), text.size());
        t_DECIMAL want = in.rec(), got;
        int code = in.i32();
        int rc = deccvasc(text.data(), len, &got);
        t.check("\"" + text + "\"", rc, got, code, want);
        break;
      }
      case kCvDbl: {
        double d = in.get<double>();
        t_DECIMAL want = in.rec(), got;
        int code = in.i32();
        int rc = deccvdbl(d, &got);
        char text[40];
        std::snprintf(text, sizeof text, "%.17g", d);
        t.check(text, rc, got, code, want);
        break;
      }
      case kToDbl: {
        t_DECIMAL v = in.rec();
        double want = in.get<double>(), got = -1;
        m_to_dbl(&v, &got);
        if (std::memcmp(&got, &want, sizeof got) != 0) {
          char text[80];
          std::snprintf(text, sizeof text, ": got %.17g want %.17g", got, want);
          t.fail(show(v) + text);
        }
        break;
      }
      default:
        FAIL() << "unknown vector tag " << int(tag) << " at byte " << in.at - 1;
    }
  }
  ASSERT_TRUE(in.ok) << "vector file ends in the middle of a vector";
  for (int tag = kAdd; tag <= kToDbl; ++tag) {
    const Tally &t = tally[tag];
    EXPECT_GE(t.count, 100000) << tag_name(tag) << ": too few vectors";
    std::string samples;
    for (const std::string &x : t.samples)
      samples += "\n  " + x;
    EXPECT_EQ(t.failed, 0) << tag_name(tag) << ": " << t.failed << " of " << t.count
                           << " differ, for example:" << samples;
    std::printf("%-9s %ld vectors, %ld differ\n", tag_name(tag), t.count, t.failed);
  }
}

}  // namespace
