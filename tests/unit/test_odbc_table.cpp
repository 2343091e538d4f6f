// The function table of qzodbc: its 38 rows in order with their 92 prototypes, as the
// interpreter's programs call them, and QzCall refusing rows it does not have.
#include <gtest/gtest.h>

#include <string>

#include "qzhost.hpp"

namespace {

std::string type_name(int type) {
  for (const QzArgTypeName *t = QzArgTypeNames;; ++t)
    if (t->type == type || t->type == -1) return t->name;
}

TEST(OdbcFunctionTable, RowsAndPrototypesInOrder) {
  const char *const expected[] = {
      "Connect(ConnSpec zString, ConnId IntByReference)",
      "Disconnect(ConnId IntByValue)",
      "GetConnection(ConnId IntByValue, ConnSpec String)",
      "SetConnectOption(ConnId IntByValue, Option IntByValue, ... VarArg)",
      "SetAutocommit(ConnId IntByValue, Mode IntByValue)",
      "Commit(ConnId IntByValue)",
      "Rollback(ConnId IntByValue)",
      "Prepare(ConnId IntByValue, Sql zString, StmtId IntByReference)",
      "ExecDirect(ConnId IntByValue, Sql zString, StmtId IntByReference)",
      "Tables(ConnId IntByValue, Qual zString, Owner zString, Name zString, Type zString, StmtId "
      "IntByReference)",
      "Columns(ConnId IntByValue, Qual zString, Owner zString, Name zString, Column zString, "
      "StmtId IntByReference)",
      "DropStatement(StmtId IntByValue)",
      "GetNumColumns(StmtId IntByValue, NumColumns IntByReference)",
      "GetColumnTitle(StmtId IntByValue, ColNumber IntByValue, ColTitle String)",
      "GetColumnVarName(StmtId IntByValue, ColNumber IntByValue, ColName String)",
      "GetColumnType(StmtId IntByValue, ColNumber IntByValue, ColType IntByReference)",
      "SetColumnType(StmtId IntByValue, ColNumber IntByValue, ColType IntByValue)",
      "GetColumnPrecision(StmtId IntByValue, ColNumber IntByValue, ColPrec IntByReference)",
      "GetColumnScale(StmtId IntByValue, ColNumber IntByValue, ColScale IntByReference)",
      "GetColumnNullable(StmtId IntByValue, ColNumber IntByValue, ColNull IntByReference)",
      "Execute(StmtId IntByValue, ... VarArg)",
      "SetParam(StmtId IntByValue, ... VarArg)",
      "GetParamType(StmtId IntByValue, ParNumber IntByValue, ParType IntByReference)",
      "GetParamPrecision(StmtId IntByValue, ParNumber IntByValue, ParPrec IntByReference)",
      "GetParamScale(StmtId IntByValue, ParNumber IntByValue, ParScale IntByReference)",
      "GetParamNullable(StmtId IntByValue, ParNumber IntByValue, ParNull IntByReference)",
      "Fetch(StmtId IntByValue, ... VarArg)",
      "IsNull(StmtId IntByValue, ColNumber IntByValue, IsNull IntByReference)",
      "GetData(StmtId IntByValue, ColNumber IntByValue, ... VarArg)",
      "RowCount(StmtId IntByValue, NumRows IntByReference)",
      "GetError(Message String, SqlState String, NativeCode IntByReference, HasData "
      "IntByReference)",
      "SetTextColumnSize(DefaultSize IntByValue, MaxSize IntByValue)",
      "LogFlags(LogFlags zString)",
      "LogFile(LogFile zString)",
      "DllDebug(DebugLevel IntByValue)",
      "BuildID(Str String)",
      "VersionID(Str String)",
      "Revision(Str String)",
  };
  int row = 0, next = 0;
  for (const QzFuncDesc *f = QzFuncList; f->name; ++f, ++row) {
    ASSERT_LT(row, 38);
    EXPECT_EQ(f->first_arg, next) << f->name;
    std::string sig = std::string(f->name) + "(";
    for (int a = 0; a < f->arg_cnt; ++a) {
      const QzArgDesc &p = QzArgList[f->first_arg + a];
      EXPECT_EQ(p.min_elcnt, 0);
      sig += (a ? ", " : "") + std::string(p.name) + " " + type_name(p.type);
    }
    EXPECT_EQ(sig + ")", expected[row]) << "row " << row;
    next += f->arg_cnt;
  }
  EXPECT_EQ(row, 38);
  EXPECT_EQ(next, 92);
  EXPECT_EQ(QzArgList[92].name, nullptr);
  EXPECT_EQ(QzArgList[92].type, 0);

  void *av[50] = {};
  EXPECT_EQ(QzCall(38, av), -1);
  EXPECT_EQ(QzCall(-1, av), -1);
  // Rows 7 to 29 look their identifier up before anything else: with nothing registered,
  // connection and statement 0 are unknown (every argument reads as 0 or the empty text).
  int ints[50] = {};
  for (int k = 0; k < 50; ++k)
    av[k] = &ints[k];
  for (int r = 7; r <= 29; ++r)
    EXPECT_EQ(QzCall(r, av), 8) << QzFuncList[r].name;
}

}  // namespace
