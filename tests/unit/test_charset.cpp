// Tests of the character set mapping: both tables against glibc's iconv conversion
// between HP-ROMAN8 and ISO-8859-1 with every intended difference listed, the name
// lookups and the unsupported pairs.
#include <errno.h>
#include <iconv.h>
#include <sys/stat.h>

#include <cstring>
#include <map>
#include <string>

#include <gtest/gtest.h>

#include "qzcharset.hpp"

namespace {

constexpr int kRoman8 = 0;
constexpr int kLatin1 = 1;
constexpr int kNone = -1;  // iconv has no counterpart for the byte

// The whole table of one direction, read by mapping all 256 bytes at once.
std::string table(int from, int to) {
  std::string all(256, '\0');
  for (int c = 0; c < 256; ++c)
    all[c] = static_cast<char>(c);
  EXPECT_EQ(qz__charset_map(from, to, all.data(), 256), 0);
  return all;
}

// iconv's conversion of every single byte, kNone where it has no counterpart.
bool iconv_table(const char *to, const char *from, int (&out)[256]) {
  iconv_t cd = iconv_open(to, from);
  if (cd == reinterpret_cast<iconv_t>(-1)) return false;
  for (int c = 0; c < 256; ++c) {
    char in = static_cast<char>(c);
    char res[8];
    char *ip = &in;
    char *op = res;
    std::size_t il = 1, ol = sizeof res;
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    std::size_t r = iconv(cd, &ip, &il, &op, &ol);
    out[c] = r == static_cast<std::size_t>(-1) || op - res != 1
                 ? kNone
                 : static_cast<unsigned char>(res[0]);
  }
  iconv_close(cd);
  return true;
}

// Where the conversion modules should be; a missing module is a reason to skip, any other
// failure of iconv_open is a fault of the machine that the test reports.
bool gconv_module_present() {
  struct stat st;
  const char *dirs[] = {"/usr/lib/x86_64-linux-gnu/gconv/HP-ROMAN8.so",
                        "/usr/lib/i386-linux-gnu/gconv/HP-ROMAN8.so"};
  const char *mine = sizeof(void *) == 8 ? dirs[0] : dirs[1];
  return stat(mine, &st) == 0;
}

// Compares our table of one direction with iconv's, byte by byte: the bytes listed in
// `intended` (source code -> our code) must differ from iconv and hold the listed value,
// every other byte must agree with iconv. Skipped where glibc lacks the conversion.
void expect_iconv_except(int from, int to, const char *from_name, const char *to_name,
                         const std::map<int, int> &intended) {
  int ref[256];
  if (!iconv_table(to_name, from_name, ref)) {
    if (!gconv_module_present()) GTEST_SKIP() << "glibc's HP-ROMAN8 gconv module is absent";
    FAIL() << "iconv_open(" << to_name << ", " << from_name << "): " << std::strerror(errno);
  }
  std::string ours = table(from, to);
  for (int c = 0; c < 256; ++c) {
    int got = static_cast<unsigned char>(ours[c]);
    auto it = intended.find(c);
    if (it == intended.end()) {
      EXPECT_EQ(got, ref[c]) << from_name << " 0x" << std::hex << c;
    } else {
      EXPECT_EQ(got, it->second) << from_name << " 0x" << std::hex << c;
      EXPECT_NE(got, ref[c]) << "listed as a difference, but iconv agrees: 0x" << std::hex << c;
    }
  }
}

TEST(Charset, Roman8ToLatin1AgreesWithIconvExceptWhereIntended) {
  // Roman-8 code -> our ISO 8859-1 code, where iconv says otherwise (iconv's value after).
  expect_iconv_except(kRoman8, kLatin1, "HP-ROMAN8", "ISO-8859-1",
                      {
                          {0xA0, 0x20},  // iconv 0xA0: our space
                          {0xA8, 0x27},  // acute accent (iconv 0xB4): ASCII apostrophe
                          {0xA9, 0x60},  // grave accent (iconv none): ASCII grave accent
                          {0xAA, 0x88},  // circumflex accent (iconv none): C1 position
                          {0xAC, 0x98},  // tilde accent (iconv none): C1 position
                          {0xAF, 0xA3},  // lira sign (iconv none): pound sign, the collision
                          {0xBE, 0x83},  // florin (iconv none): C1 position
                          {0xEB, 0x8A},  // S caron (iconv none): C1 position
                          {0xEC, 0x9A},  // s caron (iconv none): C1 position
                          {0xEE, 0x9F},  // Y diaeresis (iconv none): C1 position
                          {0xF6, 0x2D},  // long dash (iconv none): hyphen
                          {0xFC, 0x20},  // solid box (iconv none): space
                          {0xFF, 0x20},  // unassigned (iconv none): space
                      });
}

TEST(Charset, Latin1ToRoman8AgreesWithIconvExceptWhereIntended) {
  // ISO 8859-1 code -> our Roman-8 code, where iconv says otherwise: the C1 positions
  // carry the Roman-8 characters that ISO 8859-1 lacks; the codes without a Roman-8
  // source in our table give space (iconv maps 0xA0 and 0xB4, not the others).
  std::map<int, int> intended = {{0x83, 0xBE}, {0x88, 0xAA}, {0x8A, 0xEB},
                                 {0x98, 0xAC}, {0x9A, 0xEC}, {0x9F, 0xEE}};
  for (int c : {0xA0, 0xA6, 0xA9, 0xAC, 0xAD, 0xAE, 0xB2, 0xB3, 0xB4, 0xB8, 0xB9, 0xD7, 0xF7})
    intended[c] = 0x20;
  expect_iconv_except(kLatin1, kRoman8, "ISO-8859-1", "HP-ROMAN8", intended);
  // The collision: both Roman-8 0xAF and 0xBB give 0xA3, which goes back to 0xBB (as
  // iconv has it too, so it is not in the list above).
  EXPECT_EQ(static_cast<unsigned char>(table(kLatin1, kRoman8)[0xA3]), 0xBB);
}

// Every byte of both tables is fixed by the two tests above; here only the length.
TEST(Charset, MappingChangesOnlyTheFirstLengthBytes) {
  unsigned char part[] = {0xC8, 0xC8, 0xC8};
  ASSERT_EQ(qz__charset_map(kRoman8, kLatin1, part, 2), 0);
  EXPECT_EQ(std::string(reinterpret_cast<char *>(part), 3), "\xE0\xE0\xC8");
  ASSERT_EQ(qz__charset_map(kRoman8, kLatin1, part, 0), 0);
  EXPECT_EQ(part[2], 0xC8);
}

TEST(Charset, UnsupportedPairs) {
  unsigned char buf[] = {0xC8, 0x83};
  errno = 0;
  EXPECT_EQ(qz__charset_map(kRoman8, kRoman8, buf, sizeof buf), 0);
  EXPECT_EQ(qz__charset_map(5, 5, buf, sizeof buf), 0);  // equal ids: nothing to do
  EXPECT_EQ(qz__charset_map(-1, -1, buf, sizeof buf), 0);
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(buf[0], 0xC8);
  EXPECT_EQ(buf[1], 0x83);

  const int pairs[][2] = {{kRoman8, 2}, {2, kLatin1}, {kLatin1, -1}, {-1, kRoman8}};
  for (const auto &p : pairs) {
    errno = 0;
    EXPECT_EQ(qz__charset_map(p[0], p[1], buf, sizeof buf), -1) << p[0] << " -> " << p[1];
    EXPECT_EQ(errno, EINVAL);
  }
  EXPECT_EQ(buf[0], 0xC8);
  EXPECT_EQ(buf[1], 0x83);
}

TEST(Charset, NameLookups) {
  const std::pair<const char *, int> names[] = {{"iso-8859-1", kLatin1}, {"Roman8", kRoman8},
                                                {"hp-roman8", kRoman8},  {"HPROMAN8", kRoman8},
                                                {"iso8859/1", kLatin1},  {"Iso88591", kLatin1},
                                                {"ISO8859-1", kLatin1},  {"utf-8", -1},
                                                {"latin1", -1},          {"", -1},
                                                {"ROMAN8 ", -1}};
  for (const auto &[name, id] : names)
    EXPECT_EQ(qz__charset(name), id) << name;

  EXPECT_STREQ(qz__charset_def_name("ISO8859/1"), "iso88591");
  EXPECT_STREQ(qz__charset_def_name("iSo8859/1"), "iso88591");
  EXPECT_STREQ(qz__charset_def_name("hproman8"), "roman8");
  EXPECT_EQ(qz__charset_def_name("latin1"), nullptr);

  const char *want[2][3] = {{"roman8", "hp-roman8", "HPROMAN8"},
                            {"iso88591", "iso-8859-1", "ISO8859/1"}};
  for (int id : {kRoman8, kLatin1}) {
    EXPECT_STREQ(qz__charset_name(id), want[id][0]);
    EXPECT_STREQ(qz__charset_long_name(id), want[id][1]);
    EXPECT_STREQ(qz__charset_old_name(id), want[id][2]);
    // Every short and long name is accepted as a name too.
    EXPECT_EQ(qz__charset(qz__charset_name(id)), id);
    EXPECT_EQ(qz__charset(qz__charset_long_name(id)), id);
  }
  for (int bad : {2, -1, 7}) {
    EXPECT_EQ(qz__charset_name(bad), nullptr) << bad;
    EXPECT_EQ(qz__charset_long_name(bad), nullptr) << bad;
    EXPECT_EQ(qz__charset_old_name(bad), nullptr) << bad;
  }
}

}  // namespace
