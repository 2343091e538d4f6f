// The prototypes of the ODBC function set's 40 rows, in row order: each function's name
// and its arguments' names and types. Data only: qzcall shows them to a script's author,
// and odbc_functions.hpp pairs each row with its implementation.
#pragma once

#include <array>

#include "qzfuncs.hpp"

namespace qz {

using fn::proto;

inline constexpr std::array kOdbcPrototypes{
    proto("Connect", {{"ConnSpec", zString}, {"ConnId", IntByReference}}),
    proto("Disconnect", {{"ConnId", IntByValue}}),
    proto("GetConnection", {{"ConnId", IntByValue}, {"ConnSpec", String}}),
    proto("SetConnectOption", {{"ConnId", IntByValue}, {"Option", IntByValue}, {"...", VarArg}}),
    proto("SetAutocommit", {{"ConnId", IntByValue}, {"Mode", IntByValue}}),
    proto("Commit", {{"ConnId", IntByValue}}),
    proto("Rollback", {{"ConnId", IntByValue}}),
    proto("Prepare", {{"ConnId", IntByValue}, {"Sql", zString}, {"StmtId", IntByReference}}),
    proto("ExecDirect", {{"ConnId", IntByValue}, {"Sql", zString}, {"StmtId", IntByReference}}),
    proto("Tables", {{"ConnId", IntByValue},
                     {"Qual", zString},
                     {"Owner", zString},
                     {"Name", zString},
                     {"Type", zString},
                     {"StmtId", IntByReference}}),
    proto("Columns", {{"ConnId", IntByValue},
                      {"Qual", zString},
                      {"Owner", zString},
                      {"Name", zString},
                      {"Column", zString},
                      {"StmtId", IntByReference}}),
    proto("DropStatement", {{"StmtId", IntByValue}}),
    proto("GetNumColumns", {{"StmtId", IntByValue}, {"NumColumns", IntByReference}}),
    proto("GetColumnTitle",
          {{"StmtId", IntByValue}, {"ColNumber", IntByValue}, {"ColTitle", String}}),
    proto("GetColumnVarName",
          {{"StmtId", IntByValue}, {"ColNumber", IntByValue}, {"ColName", String}}),
    proto("GetColumnType",
          {{"StmtId", IntByValue}, {"ColNumber", IntByValue}, {"ColType", IntByReference}}),
    proto("SetColumnType",
          {{"StmtId", IntByValue}, {"ColNumber", IntByValue}, {"ColType", IntByValue}}),
    proto("GetColumnPrecision",
          {{"StmtId", IntByValue}, {"ColNumber", IntByValue}, {"ColPrec", IntByReference}}),
    proto("GetColumnScale",
          {{"StmtId", IntByValue}, {"ColNumber", IntByValue}, {"ColScale", IntByReference}}),
    proto("GetColumnNullable",
          {{"StmtId", IntByValue}, {"ColNumber", IntByValue}, {"ColNull", IntByReference}}),
    proto("Execute", {{"StmtId", IntByValue}, {"...", VarArg}}),
    proto("SetParam", {{"StmtId", IntByValue}, {"...", VarArg}}),
    proto("GetParamType",
          {{"StmtId", IntByValue}, {"ParNumber", IntByValue}, {"ParType", IntByReference}}),
    proto("GetParamPrecision",
          {{"StmtId", IntByValue}, {"ParNumber", IntByValue}, {"ParPrec", IntByReference}}),
    proto("GetParamScale",
          {{"StmtId", IntByValue}, {"ParNumber", IntByValue}, {"ParScale", IntByReference}}),
    proto("GetParamNullable",
          {{"StmtId", IntByValue}, {"ParNumber", IntByValue}, {"ParNull", IntByReference}}),
    proto("Fetch", {{"StmtId", IntByValue}, {"...", VarArg}}),
    proto("IsNull",
          {{"StmtId", IntByValue}, {"ColNumber", IntByValue}, {"IsNull", IntByReference}}),
    proto("GetData", {{"StmtId", IntByValue}, {"ColNumber", IntByValue}, {"...", VarArg}}),
    proto("RowCount", {{"StmtId", IntByValue}, {"NumRows", IntByReference}}),
    proto("GetError", {{"Message", String},
                       {"SqlState", String},
                       {"NativeCode", IntByReference},
                       {"HasData", IntByReference}}),
    proto("SetTextColumnSize", {{"DefaultSize", IntByValue}, {"MaxSize", IntByValue}}),
    proto("LogFlags", {{"LogFlags", zString}}),
    proto("LogFile", {{"LogFile", zString}}),
    proto("DllDebug", {{"DebugLevel", IntByValue}}),
    proto("BuildID", {{"Str", String}}),
    proto("VersionID", {{"Str", String}}),
    proto("Revision", {{"Str", String}}),
    proto("FetchArray",
          {{"StmtId", IntByValue}, {"Rows", IntByReference}, {"RowBuffers", StringArray, 1}}),
    proto(
        "ExecuteArray",
        {{"StmtId", IntByValue}, {"Rows", IntByValue}, {"Done", IntByReference}, {"...", VarArg}}),
};

}  // namespace qz
