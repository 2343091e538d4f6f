// qzcall's pieces without a server: the call script parser (what each notation gives, and
// where and why a faulty line is refused), exact real text both ways, string quoting, the
// SQL statement splitter and the text conversion to and from Roman-8.
#include <gtest/gtest.h>

#include <cstring>

#include "qzmath.h"
#include "script.hpp"
#include "sql_shell.hpp"

namespace {

using qz::call::ArgSpec;
using qz::call::Encoding;
using qz::call::ParseError;
using qz::call::Script;
using qz::call::StatementSplitter;
using qz::client::Decimal;
using qz::client::kInteger;
using qz::client::kReal;
using qz::client::kString;

Script parse_ok(const std::string &text) {
  Script s;
  ParseError e;
  EXPECT_TRUE(qz::call::parse_script(text, s, e))
      << text << "\n-> " << e.line << ":" << e.col << ": " << e.message;
  return s;
}

// Each argument's kind and value, as the notation writes it back.
std::string describe(const Script &s, std::size_t call = 0) {
  std::string out;
  for (const ArgSpec &a : s.calls.at(call).args) {
    if (!out.empty()) out += " | ";
    if (a.kind == ArgSpec::Kind::literal) {
      out += "lit " + qz::call::format_value(a.literal);
    } else {
      const auto &v = s.vars.at(static_cast<std::size_t>(a.var));
      out += a.kind == ArgSpec::Kind::variable ? "var $" : "val $";
      out += v.name + " " + qz::call::format_value(v.initial);
      if (v.type == kString) out += " cap " + std::to_string(v.capacity);
      if (a.assign) out += " := " + qz::call::format_value(a.init);
    }
  }
  return out;
}

TEST(ScriptParse, ArgumentForms) {
  struct Case {
    const char *line;
    const char *args;
  } cases[] = {
      {"F 42 -7 +3", "lit 42 | lit -7 | lit 3"},
      {"F 2147483647 -2147483648", "lit 2147483647 | lit -2147483648"},
      {"F 2.5 0.1 -1e3 .5 1E-2", "lit 2.5 | lit 0.1 | lit -1000.0 | lit 0.5 | lit 0.01"},
      {"F \"a b\" \"\"", "lit \"a b\" | lit \"\""},
      {"F \"\\x41\\\\\\\"\\n\\t\\r\\0\\xc5\"", "lit \"A\\\\\\\"\\n\\t\\r\\x00\\xC5\""},
      {"F [1, 2,3] [1, 2.5] [\"a\",\"bc\"] [7]",
       "lit [1, 2, 3] | lit [1.0, 2.5] | lit [\"a\", \"bc\"] | lit [7]"},
      {"F $id", "var $id 0"},
      {"F $x=2.5", "var $x 2.5"},
      {"F $s:80", "var $s \"\" cap 80"},
      {"F $s:80=\"ab\" $t=\"xyz\"", "var $s \"ab\" cap 80 | var $t \"xyz\" cap 3"},
      {"F $a=[0,0,0] $n:4=[\"a\",\"b\"]", "var $a [0, 0, 0] | var $n [\"a\", \"b\"] cap 4"},
      {"F $id ($id), $id=5", "var $id 0 | val $id 0 | var $id 0 := 5"},
      {"F 1,2 , 3", "lit 1 | lit 2 | lit 3"},
      {"F $x=1.5 $x=2", "var $x 1.5 | var $x 1.5 := 2.0"},  // an integer into a real
  };
  for (const Case &c : cases) {
    Script s = parse_ok(c.line);
    ASSERT_EQ(s.calls.size(), 1u) << c.line;
    EXPECT_EQ(describe(s), c.args) << c.line;
  }
}

TEST(ScriptParse, LinesCommentsExpectationsAndEchoText) {
  Script s = parse_ok(
      "# a comment\n"
      "\n"
      "  VersionID $v:40   # trailing comment\r\n"
      "Disconnect 9 -> 8\n"
      "ReturnStatus -3 ->-3 # a negative status\n"
      "Nothing");
  ASSERT_EQ(s.calls.size(), 4u);
  EXPECT_EQ(s.calls[0].name, "VersionID");
  EXPECT_EQ(s.calls[0].text, "VersionID $v:40");
  EXPECT_EQ(s.calls[0].line, 3);
  EXPECT_FALSE(s.calls[0].has_expect);
  EXPECT_EQ(s.calls[0].expect, 0);
  EXPECT_EQ(s.calls[1].text, "Disconnect 9");
  EXPECT_TRUE(s.calls[1].has_expect);
  EXPECT_EQ(s.calls[1].expect, 8);
  EXPECT_EQ(s.calls[2].expect, -3);
  EXPECT_EQ(s.calls[3].args.size(), 0u);
  EXPECT_EQ(s.calls[3].line, 6);
}

TEST(ScriptParse, VariablesKeepTheirFirstUseAcrossLines) {
  Script s = parse_ok("A $conn\nB $conn $msg:10\nC ($conn) $msg=\"0123456789\"\n");
  ASSERT_EQ(s.vars.size(), 2u);
  EXPECT_EQ(s.vars[0].name, "conn");
  EXPECT_EQ(s.vars[0].line, 1);
  EXPECT_EQ(s.calls[1].args[0].var, 0);
  EXPECT_EQ(s.calls[2].args[0].var, 0);
  EXPECT_EQ(s.calls[2].args[1].var, 1);
  EXPECT_TRUE(s.calls[2].args[1].assign);
}

TEST(ScriptParse, ErrorsPointAtLineAndColumn) {
  struct Case {
    const char *text;
    int line, col;
    const char *says;  // a part of the message
  } cases[] = {
      {"42 F", 1, 1, "starts with a function name"},
      {"F \"abc", 1, 3, "no closing quote"},
      {"F \"a\\qb\"", 1, 5, "unknown escape \\q"},
      {"F \"\\x4\"", 1, 4, "exactly two hexadecimal digits"},
      {"F \"caf\xc3\xa9\"", 1, 7, "\\xNN"},
      {"F \"a\tb\"", 1, 5, "control character"},
      {"F 2147483648", 1, 3, "32-bit range"},
      {"F 1.2.3", 1, 3, "not a number"},
      {"F 1e999", 1, 3, "too large"},
      {"F 1e-999", 1, 3, "too small"},
      {"F []", 1, 3, "at least one element"},
      {"F [1, \"a\"]", 1, 7, "do not mix"},
      {"F [1 2]", 1, 6, "separated by commas"},
      {"F [1, 2", 1, 3, "no closing ]"},
      {"\nF $x=1\nG $x=\"a\"", 3, 6, "$x (line 2) is an integer variable"},
      {"F $s:3=\"abcd\"", 1, 8, "holds 3"},
      {"F $s:3\nG $s:4", 2, 5, "fixed where it is first used"},
      {"F $a=[1,2]\nG $a=[1]", 2, 6, "has 2 elements"},
      {"F $a=[1,2]\nG $a=3", 2, 6, "is an array"},
      {"F $n:5=3", 1, 5, "string variables only"},
      {"F ($y)", 1, 3, "has no value yet"},
      {"F ($y", 1, 6, "missing )"},
      {"F $", 1, 4, "variable name"},
      {"F $x= 3", 1, 6, "without blanks"},
      {"F $s:", 1, 6, "capacity"},
      {"F 1 -> x", 1, 8, "status the call should return"},
      {"F 1 -> 0 2", 1, 10, "nothing but a # comment"},
      {"F , 1", 1, 3, "between two arguments"},
      {"F \"a\"\"b\"", 1, 6, "blank or a comma"},
      {"F @", 1, 3, "unexpected '@'"},
  };
  for (const Case &c : cases) {
    Script s;
    ParseError e;
    EXPECT_FALSE(qz::call::parse_script(c.text, s, e)) << c.text;
    EXPECT_EQ(e.line, c.line) << c.text << ": " << e.message;
    EXPECT_EQ(e.col, c.col) << c.text << ": " << e.message;
    EXPECT_NE(e.message.find(c.says), std::string::npos) << c.text << ": " << e.message;
  }
}

Decimal dec(const char *text) {
  Decimal d;
  std::string why;
  EXPECT_TRUE(qz::call::parse_decimal(text, d, why)) << text << ": " << why;
  return d;
}

TEST(RealText, LiteralsReadBackAsWritten) {
  // Text -> record -> text is exact: no binary double in between.
  struct Case {
    const char *in, *out;
  } cases[] = {
      {"0.1", "0.1"},
      {"2.5", "2.5"},
      {"3", "3.0"},
      {"1234567890123456", "1234567890123456.0"},
      {"0.3333333333333333", "0.3333333333333333"},
      {"1.5e100", "1.5e+100"},
      {"-2e-10", "-2.0e-10"},
      {"0.000001", "0.000001"},
      {"0.0000001", "1.0e-7"},
      // Eight base-100 digits: 15 figures when the first digit is a single figure.
      {"123456789012345678901", "123456789012346000000.0"},
      {"0", "0.0"},
  };
  for (const Case &c : cases)
    EXPECT_EQ(qz::call::format_decimal(dec(c.in)), c.out) << c.in;
}

TEST(RealText, RecordsFromDoublesAndSpecialRecords) {
  EXPECT_EQ(qz::call::format_decimal(Decimal::from_double(0.1)), "0.1");
  t_DECIMAL t;
  std::memset(&t, 0, sizeof t);
  t.dec_pos = DEC_POS_NULL;
  Decimal d;
  std::memcpy(d.bytes, &t, sizeof d.bytes);
  EXPECT_EQ(qz::call::format_decimal(d), "null");
  t.dec_pos = DEC_POS_POSITIVE;
  t.dec_ndgts = 1;
  t.dec_dgts[0] = 150;  // no library operation makes a digit above 99
  std::memcpy(d.bytes, &t, sizeof d.bytes);
  EXPECT_EQ(qz::call::format_decimal(d).rfind("malformed(", 0), 0u);
}

TEST(Quote, EveryByteReadsBack) {
  std::string all;
  for (int b = 0; b < 256; ++b)
    all += static_cast<char>(b);
  std::string line = "F " + qz::call::quote(all);
  Script s = parse_ok(line);
  ASSERT_EQ(s.calls[0].args.size(), 1u);
  EXPECT_EQ(s.calls[0].args[0].literal.strings.at(0), all);
  EXPECT_EQ(qz::call::quote("a\"b\\c\x01\xff"), "\"a\\\"b\\\\c\\x01\\xFF\"");
}

TEST(Splitter, StatementsCommandsQuotesAndComments) {
  StatementSplitter sp;
  using V = std::vector<std::string>;
  EXPECT_EQ(sp.feed("\\commit  "), V{"\\commit"});
  EXPECT_EQ(sp.feed("select 1; select 2;"), (V{"select 1", "select 2"}));
  EXPECT_EQ(sp.feed("insert into t values ('a;b',"), V{});
  EXPECT_TRUE(sp.pending());
  EXPECT_EQ(sp.feed("\\x"), V{});  // inside a statement a backslash line is its text
  EXPECT_EQ(sp.feed("'x'); -- done; really"), V{"insert into t values ('a;b',\n\\x\n'x')"});
  EXPECT_FALSE(sp.pending());
  EXPECT_EQ(sp.feed("select \"a;\" -- c; d"), V{});
  EXPECT_EQ(sp.feed("from t"), V{});
  EXPECT_EQ(sp.finish(), "select \"a;\" -- c; d\nfrom t");
  EXPECT_EQ(sp.feed("   "), V{});
  EXPECT_FALSE(sp.pending());
  EXPECT_EQ(sp.finish(), "");
}

TEST(Encoding, Utf8AndLatin1ToRoman8AndBack) {
  // e acute: U+00E9, ISO 8859-1 0xE9, HP Roman-8 0xC5.
  EXPECT_EQ(qz::call::to_server("caf\xc3\xa9", Encoding::utf8), "caf\xc5");
  EXPECT_EQ(qz::call::to_server("caf\xe9", Encoding::latin1), "caf\xc5");
  EXPECT_EQ(qz::call::to_server("caf\xc5", Encoding::roman8), "caf\xc5");
  EXPECT_EQ(qz::call::from_server("caf\xc5", Encoding::utf8), "caf\xc3\xa9");
  EXPECT_EQ(qz::call::from_server("caf\xc5", Encoding::latin1), "caf\xe9");
  // Outside ISO 8859-1 (the euro sign) there is no Roman-8 form.
  EXPECT_EQ(qz::call::to_server("\xe2\x82\xac", Encoding::utf8), "?");
  // A byte that is no UTF-8 is taken as ISO 8859-1.
  EXPECT_EQ(qz::call::to_server("\xe9x", Encoding::utf8), "\xc5x");
}

}  // namespace
