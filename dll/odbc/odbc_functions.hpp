// The function table of the ODBC function set: each row of odbc_prototypes.hpp with its
// implementation, whose parameters the compiler checks against the prototypes.
// QZ_FUNCTION_SET (qzfuncs.hpp) derives QzFuncList, QzArgList and QzCall from it; a test
// server may append rows of its own.
#pragma once

#include <array>
#include <string_view>

#include "odbc_dll.hpp"
#include "odbc_prototypes.hpp"
#include "qzfuncs.hpp"

namespace qz {

// The prototypes of the row named `name`.
consteval const fn::Proto &row(const char *name) {
  for (const fn::Proto &p : kOdbcPrototypes)
    if (std::string_view(p.name) == name) return p;
  throw "no such row";
}

inline constexpr std::array kOdbcFunctions{
    fn::func<Connect>(row("Connect")),
    fn::func<Disconnect>(row("Disconnect")),
    fn::func<GetConnection>(row("GetConnection")),
    fn::func<SetConnectOption>(row("SetConnectOption")),
    fn::func<SetAutocommit>(row("SetAutocommit")),
    fn::func<Commit>(row("Commit")),
    fn::func<Rollback>(row("Rollback")),
    fn::func<Prepare>(row("Prepare")),
    fn::func<ExecDirect>(row("ExecDirect")),
    fn::func<Tables>(row("Tables")),
    fn::func<Columns>(row("Columns")),
    fn::func<DropStatement>(row("DropStatement")),
    fn::func<GetNumColumns>(row("GetNumColumns")),
    fn::func<GetColumnTitle>(row("GetColumnTitle")),
    fn::func<GetColumnVarName>(row("GetColumnVarName")),
    fn::func<GetColumnType>(row("GetColumnType")),
    fn::func<SetColumnType>(row("SetColumnType")),
    fn::func<GetColumnPrecision>(row("GetColumnPrecision")),
    fn::func<GetColumnScale>(row("GetColumnScale")),
    fn::func<GetColumnNullable>(row("GetColumnNullable")),
    fn::func<Execute>(row("Execute")),
    fn::func<SetParam>(row("SetParam")),
    fn::func<GetParamType>(row("GetParamType")),
    fn::func<GetParamPrecision>(row("GetParamPrecision")),
    fn::func<GetParamScale>(row("GetParamScale")),
    fn::func<GetParamNullable>(row("GetParamNullable")),
    fn::func<Fetch>(row("Fetch")),
    fn::func<IsNull>(row("IsNull")),
    fn::func<GetData>(row("GetData")),
    fn::func<RowCount>(row("RowCount")),
    fn::func<GetError>(row("GetError")),
    fn::func<SetTextColumnSize>(row("SetTextColumnSize")),
    fn::func<LogFlags>(row("LogFlags")),
    fn::func<LogFile>(row("LogFile")),
    fn::func<DllDebug>(row("DllDebug")),
    fn::func<BuildID>(row("BuildID")),
    fn::func<VersionID>(row("VersionID")),
    fn::func<Revision>(row("Revision")),
    fn::func<FetchArray>(row("FetchArray")),
    fn::func<ExecuteArray>(row("ExecuteArray")),
};

// The rows stand in the order of the prototypes, which is the order of the table.
static_assert([] {
  for (std::size_t i = 0; i < kOdbcFunctions.size(); ++i)
    if (std::string_view(kOdbcFunctions[i].name) != kOdbcPrototypes[i].name) return false;
  return kOdbcFunctions.size() == kOdbcPrototypes.size();
}());

}  // namespace qz
