// Tests of variable names derived from column titles: the documented examples, the
// 15-character limit, each allowed and refused character, and bytes above 127, which
// must stop the examination whatever the C library's locale tables say about them.
#include <cctype>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "varname.hpp"

namespace {

std::string varname(const std::string &title, int column_no) {
  char out[qz::kVarnameSize];
  std::memset(out, 'x', sizeof out);
  int len = qz::derive_varname(title.c_str(), column_no, out);
  EXPECT_EQ(len, static_cast<int>(std::strlen(out))) << title;
  return std::string(out);
}

// The documented examples, the 15-character limit, an empty title, the first character
// and column numbers of any size.
TEST(Varname, ExamplesLimitAndColumnNumbers) {
  const struct {
    std::string title;  // column title
    int column_no;      // its column
    const char *name;   // variable name derived
  } cases[] = {
      {"cust_no", 1, "Cust_no"},
      {"ORDER DATE", 2, "Order_date"},
      {"t.amount", 4, "T_amount"},
      {"SUM(x)", 3, "Column_3"},
      {"1st", 1, "Column_1"},
      {"abcdefghijklmno", 1, "Abcdefghijklmno"},
      {"ABCDEFGHIJKLMNOP", 2, "Column_2"},
      {"a.b c_d1e2f3g4h", 3, "A_b_c_d1e2f3g4h"},
      {"a.b c_d1e2f3g4h5", 4, "Column_4"},
      {std::string(1023, 'a'), 9, "Column_9"},
      {"", 5, ""},
      {"a", 1, "A"},
      {"Z", 1, "Z"},
      {"x y z !", 10, "Column_10"},
      {"COUNT(*)", 2147483647, "Column_2147483647"},
      {"COUNT(*)", -2147483647 - 1, "Column_-2147483648"},
  };
  for (const auto &c : cases)
    EXPECT_EQ(varname(c.title, c.column_no), c.name) << c.title;
  for (const char *t : {"_id", ".x", " a", "9lives", "(x)", "\tname", "-a", "$a"})
    EXPECT_EQ(varname(t, 6), "Column_6") << t;
}

TEST(Varname, LaterCharactersAndTheirRewriting) {
  // Every white-space character and "." become "_"; "_" and digits stay; letters are
  // lowered.
  EXPECT_EQ(varname("a b\tc\nd\ve\ff\rg", 1), "A_b_c_d_e_f_g");
  EXPECT_EQ(varname("X.Y_Z09", 1), "X_y_z09");
  EXPECT_EQ(varname("mIxEd CaSe", 1), "Mixed_case");
  for (const char *t : {"a-b", "a(b", "a$", "a#1", "a,b", "a'b", "a\"b", "a@b", "a/b"})
    EXPECT_EQ(varname(t, 8), "Column_8") << t;
}

TEST(Varname, BytesAbove127StopTheExamination) {
  // In ISO 8859-1 these are letters (0xC9, 0xE9), a letter-like sign (0xB5) and a
  // non-breaking space (0xA0); in HP Roman-8 0xC5 is a letter too. None may count.
  for (unsigned char c : {0x80, 0xA0, 0xB5, 0xC5, 0xC9, 0xE9, 0xFF}) {
    std::string first(1, static_cast<char>(c));
    std::string later = std::string("ab") + static_cast<char>(c) + "d";
    EXPECT_EQ(varname(first, 3), "Column_3") << int(c);
    EXPECT_EQ(varname(first + "abc", 3), "Column_3") << int(c);
    EXPECT_EQ(varname(later, 4), "Column_4") << int(c);
  }
  // A high byte after 15 good characters is a 16th character all the same.
  EXPECT_EQ(varname(std::string(15, 'a') + "\xE9", 5), "Column_5");
}

void remove_dir(const std::string &dir) {
  if (std::system(("rm -rf " + dir).c_str()) != 0) ADD_FAILURE() << "cannot remove " << dir;
}

// Compiles a Latin-1 locale into a scratch folder with localedef, so that the C library's
// isalpha really accepts 0xE9; empty when the system cannot build one.
std::string make_latin1_locale_dir() {
  char dir[] = "/tmp/qz-varname-XXXXXX";
  if (!mkdtemp(dir)) return "";
  std::string cmd =
      std::string("localedef -i de_DE -f ISO-8859-1 ") + dir + "/de_DE.ISO-8859-1 >/dev/null 2>&1";
  if (std::system(cmd.c_str()) != 0) {
    remove_dir(dir);
    return "";
  }
  return dir;
}

TEST(Varname, BytesAbove127StayRefusedUnderALatin1Locale) {
  // The server never changes the C locale, but the derivation must not depend on it.
  std::string dir = make_latin1_locale_dir();
  if (dir.empty()) GTEST_SKIP() << "localedef cannot build a Latin-1 locale here";
  std::string keep = std::setlocale(LC_CTYPE, nullptr);
  setenv("LOCPATH", dir.c_str(), 1);
  bool switched = std::setlocale(LC_CTYPE, "de_DE.ISO-8859-1") != nullptr;
  bool e_acute_is_alpha = switched && std::isalpha(0xE9) != 0;
  std::string cafe = varname("caf\xE9", 1);
  std::string ete = varname("\xC9t\xE9", 2);
  std::string abc = varname("ABC", 3);
  std::setlocale(LC_CTYPE, keep.c_str());
  unsetenv("LOCPATH");
  remove_dir(dir);
  ASSERT_TRUE(e_acute_is_alpha) << "the Latin-1 locale did not take effect";
  EXPECT_EQ(cafe, "Column_1");
  EXPECT_EQ(ete, "Column_2");
  EXPECT_EQ(abc, "Abc");
}

}  // namespace
