// Interpreter string operations: views, capacity-checked stores, comparison, conversion
// to NUL-terminated text.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "qzhost.hpp"

namespace {

constexpr int kNoRoom = 18;

struct Buf {
  explicit Buf(const std::string &init, int cap) : bytes(static_cast<std::size_t>(cap) + 8, '#') {
    bytes.replace(0, init.size(), init);
    s = QzStr{cap, static_cast<int>(init.size()), bytes.data()};
  }
  std::string text() const { return std::string(s.text, static_cast<std::size_t>(s.len)); }
  std::string bytes;
  QzStr s;
};

TEST(QzStr, SubstrViewsWithoutCopying) {
  Buf h("HELLO", 5);
  QzStr *v = QzSubstr(&h.s, 2, 3);
  ASSERT_NE(v, nullptr);
  EXPECT_EQ(std::string(v->text, 3), "ELL");
  EXPECT_EQ(v->text, h.s.text + 1);
  v = QzSubstr(&h.s, 4, 10);
  EXPECT_EQ(v->len, 2);
  EXPECT_EQ(v->maxlen, 2);
  EXPECT_EQ(std::string(v->text, 2), "LO");
  EXPECT_EQ(QzSubstr(&h.s, 1, 0)->len, 0);
  EXPECT_EQ(QzSubstr(&h.s, 6, 1), nullptr);
  EXPECT_EQ(QzSubstr(&h.s, 0, 1), nullptr);
  EXPECT_EQ(QzSubstr(&h.s, 1, -1), nullptr);
  // The view is one static descriptor: a second call overwrites the first.
  QzStr *first = QzSubstr(&h.s, 1, 1);
  QzStr *second = QzSubstr(&h.s, 5, 1);
  EXPECT_EQ(first, second);
  EXPECT_EQ(first->text[0], 'O');
  EXPECT_EQ(QzStrlen(&h.s), 5);
  EXPECT_EQ(QzMaxStrlen(&h.s), 5);
}

TEST(QzStr, StoresFitOrChangeNothing) {
  Buf fits("xy", 10), tight("old", 9);
  EXPECT_EQ(str2QzStr("0123456789", &fits.s), 0);
  EXPECT_EQ(fits.text(), "0123456789");
  EXPECT_EQ(fits.bytes[10], '#');  // no terminator written
  EXPECT_EQ(str2QzStr("0123456789", &tight.s), kNoRoom);
  EXPECT_EQ(tight.text(), "old");
  EXPECT_EQ(tight.bytes.substr(3, 6), "######");

  Buf dst("ab", 5), src("cde", 3), more("f", 1);
  EXPECT_EQ(QzStrcat(&dst.s, &src.s), 0);  // fills the capacity exactly
  EXPECT_EQ(dst.text(), "abcde");
  EXPECT_EQ(QzStrcat(&dst.s, &more.s), kNoRoom);
  EXPECT_EQ(dst.text(), "abcde");
  Buf small("zz", 2);
  EXPECT_EQ(QzStrcpy(&small.s, &src.s), kNoRoom);
  EXPECT_EQ(small.text(), "zz");
  Buf big("", 8);
  EXPECT_EQ(QzStrcpy(&big.s, &src.s), 0);
  EXPECT_EQ(big.text(), "cde");
}

TEST(QzStr, CompareIsUnsignedAndReturnsLengthDifference) {
  Buf abc("ABC", 3), abd("ABD", 3), ab("AB", 2), abcd("ABCD", 4), hi("\xE9", 1), lo("z", 1);
  EXPECT_EQ(QzStrcmp(&abc.s, &abd.s), -1);
  EXPECT_EQ(QzStrcmp(&abd.s, &abc.s), 1);
  EXPECT_EQ(QzStrcmp(&abc.s, &ab.s), 1);
  EXPECT_EQ(QzStrcmp(&ab.s, &abcd.s), -2);
  EXPECT_EQ(QzStrcmp(&abc.s, &abc.s), 0);
  EXPECT_EQ(QzStrcmp(&hi.s, &lo.s), 1);
}

TEST(QzStr, ToTextStopsAtLengthOrNul) {
  Buf b(std::string("AB\0CD", 5), 5);
  char out[8];
  EXPECT_EQ(QzStr2str(&b.s, out), 2);
  EXPECT_STREQ(out, "AB");
  b.s.len = 0;
  EXPECT_EQ(QzStr2str(&b.s, out), 0);
  EXPECT_STREQ(out, "");
  b.s.len = -3;
  EXPECT_EQ(QzStr2str(&b.s, out), 0);
}

TEST(QzStr, MkstrGivesAnEmptyOwnedBuffer) {
  QzStr *m = QzMkstr(16);
  ASSERT_NE(m, nullptr);
  EXPECT_EQ(m->maxlen, 16);
  EXPECT_EQ(m->len, 0);
  char *owned = m->text;
  EXPECT_EQ(str2QzStr("sixteen-bytes!!!", m), 0);
  std::free(owned);
  dll_alloc_fail_at(1);
  EXPECT_EQ(QzMkstr(4), nullptr);
}

}  // namespace
