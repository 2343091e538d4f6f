// The tables a function set derives from its one declaration: rows, prototypes and
// QzCall agree, are terminated as the dispatcher expects, and QzCall refuses rows it
// does not have.
#include <gtest/gtest.h>

#include <string>

#include "qzhost.hpp"

namespace {

TEST(FunctionTable, RowsAndPrototypesAreConsecutiveAndTerminated) {
  int rows = 0, next = 0;
  for (const QzFuncDesc *f = QzFuncList; f->name; ++f, ++rows) {
    EXPECT_EQ(f->first_arg, next) << f->name;
    for (int a = 0; a < f->arg_cnt; ++a) {
      const QzArgDesc &p = QzArgList[f->first_arg + a];
      ASSERT_NE(p.name, nullptr) << f->name;
      EXPECT_GE(p.type, VarArg);
      EXPECT_LE(p.type, StringArray);
      if (p.type == VarArg) {
        EXPECT_EQ(a, f->arg_cnt - 1) << "VarArg must be last in " << f->name;
        EXPECT_STREQ(p.name, "...");
      }
    }
    next += f->arg_cnt;
  }
  EXPECT_GT(rows, 0);
  const QzArgDesc &end = QzArgList[next];
  EXPECT_EQ(end.name, nullptr);
  EXPECT_EQ(end.type, 0);
  EXPECT_EQ(end.min_elcnt, 0);
  // The test set takes every prototype type at least once.
  bool seen[10] = {};
  for (int i = 0; i < next; ++i)
    seen[QzArgList[i].type] = true;
  for (int t = 0; t < 10; ++t)
    EXPECT_TRUE(seen[t]) << "type " << t;

  void *av[50] = {};
  EXPECT_EQ(QzCall(-1, av), -1);
  EXPECT_EQ(QzCall(rows, av), -1);
  int status = 1234;
  av[0] = &status;
  int row = 0;
  while (std::string(QzFuncList[row].name) != "ReturnStatus")
    ++row;
  EXPECT_EQ(QzCall(row, av), 1234);
}

TEST(FunctionTable, TypeNamesForTheTrace) {
  const char *names[] = {"VarArg",      "IntByValue",      "IntByReference", "IntArray",
                         "RealByValue", "RealByReference", "RealArray",      "zString",
                         "String",      "StringArray"};
  for (int t = 0; t < 10; ++t) {
    EXPECT_EQ(QzArgTypeNames[t].type, t);
    EXPECT_STREQ(QzArgTypeNames[t].name, names[t]);
  }
  EXPECT_EQ(QzArgTypeNames[10].type, -1);
  EXPECT_STREQ(QzArgTypeNames[10].name, "Unknown");
}

}  // namespace
