// The fault rule text form and the connection string splitting that the fault driver and
// the interposer rely on.
#include <gtest/gtest.h>

#include "fault_rules.hpp"

namespace {

using qz::fault::Rule;

const std::vector<std::string_view> known = {"SQLFetch", "SQLExecute", "SQLError"};

Rule parse(const std::string &text) {
  Rule r;
  std::string error;
  EXPECT_TRUE(qz::fault::parse_rule(text, known, r, error)) << text << ": " << error;
  return r;
}

std::string refusal(const std::string &text) {
  Rule r;
  std::string error;
  EXPECT_FALSE(qz::fault::parse_rule(text, known, r, error)) << text;
  return error;
}

TEST(FaultRules, FieldsDefaultsAndRanges) {
  Rule r = parse("SQLFetch@2..3+:SUCCESS_WITH_INFO:01004:-7:cut: at byte 5");
  EXPECT_EQ(r.function, "SQLFetch");
  EXPECT_EQ(r.first, 2u);
  EXPECT_EQ(r.last, 3u);
  EXPECT_TRUE(r.ranged);
  EXPECT_TRUE(r.after);
  EXPECT_EQ(r.rc, 1);
  EXPECT_EQ(r.sqlstate, "01004");
  EXPECT_EQ(r.native, -7);
  EXPECT_EQ(r.message, "cut: at byte 5");

  r = parse("SQLExecute:SQL_INVALID_HANDLE");
  EXPECT_EQ(r.rc, -2);
  EXPECT_FALSE(r.ranged);
  EXPECT_EQ(r.sqlstate, "HY000");
  EXPECT_EQ(r.native, 0);
  EXPECT_EQ(r.message, "Injected failure of SQLExecute");

  r = parse("SQLExecute@4..:unsupported");
  EXPECT_TRUE(r.unsupported);
  EXPECT_EQ(r.first, 4u);
  EXPECT_EQ(r.last, 0u);
  EXPECT_EQ(r.sqlstate, "IM001");
}

TEST(FaultRules, MalformedRulesAreRefused) {
  EXPECT_EQ(refusal("SQLFetchh:-1"), "unknown function 'SQLFetchh' in fault rule");
  EXPECT_NE(refusal("SQLFetch").find("no ':'"), std::string::npos);
  EXPECT_NE(refusal("SQLFetch@0:-1").find("bad call number"), std::string::npos);
  EXPECT_NE(refusal("SQLFetch@3..2:-1").find("bad call range"), std::string::npos);
  EXPECT_NE(refusal("SQLFetch:OOPS").find("bad return code"), std::string::npos);
  EXPECT_NE(refusal("SQLFetch:-1:HY00").find("not five characters"), std::string::npos);
  EXPECT_NE(refusal("SQLFetch:-1:HY000:x").find("bad native code"), std::string::npos);
  EXPECT_NE(refusal("SQLFetch:unsupported:HY000").find("nothing may follow"), std::string::npos);
}

TEST(FaultRules, CallsAreCountedPerRule) {
  std::vector<Rule> rules;
  std::string error;
  ASSERT_TRUE(
      qz::fault::parse_rules("SQLFetch@2:-1; ;SQLFetch@4..:-2;SQLError:-1", known, rules, error));
  ASSERT_EQ(rules.size(), 3u);
  std::vector<int> fired;
  for (int i = 0; i < 5; i++) {
    Rule *r = qz::fault::match(rules, "SQLFetch");
    fired.push_back(r ? r->rc : 0);
  }
  EXPECT_EQ(fired, (std::vector<int>{0, -1, 0, -2, -2}));
  EXPECT_EQ(qz::fault::match(rules, "SQLExecute"), nullptr);
}

TEST(FaultRules, ConnectionStringsSplitOutsideBraces) {
  auto attrs = qz::fault::split_attributes(
      "Driver={QZ Fault};QzFault={SQLFetch:-1;SQLExecute:-1};ConnSettings={SET x TO '}}'};PWD=;"
      "Flag");
  ASSERT_EQ(attrs.size(), 5u);
  EXPECT_EQ(attrs[0].value, "{QZ Fault}");
  EXPECT_EQ(qz::fault::unbrace(attrs[1].value), "SQLFetch:-1;SQLExecute:-1");
  EXPECT_EQ(qz::fault::unbrace(attrs[2].value), "SET x TO '}'");
  EXPECT_EQ(attrs[3].key, "PWD");
  EXPECT_TRUE(attrs[3].assigned);
  EXPECT_FALSE(attrs[4].assigned);
  attrs.erase(attrs.begin() + 1);
  EXPECT_EQ(qz::fault::join_attributes(attrs),
            "Driver={QZ Fault};ConnSettings={SET x TO '}}'};PWD=;Flag");
}

}  // namespace
