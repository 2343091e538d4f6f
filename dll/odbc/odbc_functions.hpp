// The function table of the ODBC function set, declared once: the 38 rows in row order,
// each with its implementation and its prototypes. QZ_FUNCTION_SET (qzfuncs.hpp) derives
// QzFuncList, QzArgList and QzCall from it; a test server may append rows of its own.
#pragma once

#include <array>

#include "odbc_dll.hpp"
#include "qzfuncs.hpp"

namespace qz {

using fn::func;

inline constexpr std::array kOdbcFunctions{
    func<Connect>("Connect", {{"ConnSpec", zString}, {"ConnId", IntByReference}}),
    func<Disconnect>("Disconnect", {{"ConnId", IntByValue}}),
    func<GetConnection>("GetConnection", {{"ConnId", IntByValue}, {"ConnSpec", String}}),
    func<SetConnectOption>("SetConnectOption",
                           {{"ConnId", IntByValue}, {"Option", IntByValue}, {"...", VarArg}}),
    func<SetAutocommit>("SetAutocommit", {{"ConnId", IntByValue}, {"Mode", IntByValue}}),
    func<Commit>("Commit", {{"ConnId", IntByValue}}),
    func<Rollback>("Rollback", {{"ConnId", IntByValue}}),
    func<Prepare>("Prepare",
                  {{"ConnId", IntByValue}, {"Sql", zString}, {"StmtId", IntByReference}}),
    func<ExecDirect>("ExecDirect",
                     {{"ConnId", IntByValue}, {"Sql", zString}, {"StmtId", IntByReference}}),
    func<Tables>("Tables", {{"ConnId", IntByValue},
                            {"Qual", zString},
                            {"Owner", zString},
                            {"Name", zString},
                            {"Type", zString},
                            {"StmtId", IntByReference}}),
    func<Columns>("Columns", {{"ConnId", IntByValue},
                              {"Qual", zString},
                              {"Owner", zString},
                              {"Name", zString},
                              {"Column", zString},
                              {"StmtId", IntByReference}}),
    func<DropStatement>("DropStatement", {{"StmtId", IntByValue}}),
    func<GetNumColumns>("GetNumColumns", {{"StmtId", IntByValue}, {"NumColumns", IntByReference}}),
    func<GetColumnTitle>("GetColumnTitle",
                         {{"StmtId", IntByValue}, {"ColNumber", IntByValue}, {"ColTitle", String}}),
    func<GetColumnVarName>(
        "GetColumnVarName",
        {{"StmtId", IntByValue}, {"ColNumber", IntByValue}, {"ColName", String}}),
    func<GetColumnType>(
        "GetColumnType",
        {{"StmtId", IntByValue}, {"ColNumber", IntByValue}, {"ColType", IntByReference}}),
    func<SetColumnType>(
        "SetColumnType",
        {{"StmtId", IntByValue}, {"ColNumber", IntByValue}, {"ColType", IntByValue}}),
    func<GetColumnPrecision>(
        "GetColumnPrecision",
        {{"StmtId", IntByValue}, {"ColNumber", IntByValue}, {"ColPrec", IntByReference}}),
    func<GetColumnScale>(
        "GetColumnScale",
        {{"StmtId", IntByValue}, {"ColNumber", IntByValue}, {"ColScale", IntByReference}}),
    func<GetColumnNullable>(
        "GetColumnNullable",
        {{"StmtId", IntByValue}, {"ColNumber", IntByValue}, {"ColNull", IntByReference}}),
    func<Execute>("Execute", {{"StmtId", IntByValue}, {"...", VarArg}}),
    func<SetParam>("SetParam", {{"StmtId", IntByValue}, {"...", VarArg}}),
    func<GetParamType>(
        "GetParamType",
        {{"StmtId", IntByValue}, {"ParNumber", IntByValue}, {"ParType", IntByReference}}),
    func<GetParamPrecision>(
        "GetParamPrecision",
        {{"StmtId", IntByValue}, {"ParNumber", IntByValue}, {"ParPrec", IntByReference}}),
    func<GetParamScale>(
        "GetParamScale",
        {{"StmtId", IntByValue}, {"ParNumber", IntByValue}, {"ParScale", IntByReference}}),
    func<GetParamNullable>(
        "GetParamNullable",
        {{"StmtId", IntByValue}, {"ParNumber", IntByValue}, {"ParNull", IntByReference}}),
    func<Fetch>("Fetch", {{"StmtId", IntByValue}, {"...", VarArg}}),
    func<IsNull>("IsNull",
                 {{"StmtId", IntByValue}, {"ColNumber", IntByValue}, {"IsNull", IntByReference}}),
    func<GetData>("GetData", {{"StmtId", IntByValue}, {"ColNumber", IntByValue}, {"...", VarArg}}),
    func<RowCount>("RowCount", {{"StmtId", IntByValue}, {"NumRows", IntByReference}}),
    func<GetError>("GetError", {{"Message", String},
                                {"SqlState", String},
                                {"NativeCode", IntByReference},
                                {"HasData", IntByReference}}),
    func<SetTextColumnSize>("SetTextColumnSize",
                            {{"DefaultSize", IntByValue}, {"MaxSize", IntByValue}}),
    func<LogFlags>("LogFlags", {{"LogFlags", zString}}),
    func<LogFile>("LogFile", {{"LogFile", zString}}),
    func<DllDebug>("DllDebug", {{"DebugLevel", IntByValue}}),
    func<BuildID>("BuildID", {{"Str", String}}),
    func<VersionID>("VersionID", {{"Str", String}}),
    func<Revision>("Revision", {{"Str", String}}),
};

}  // namespace qz
