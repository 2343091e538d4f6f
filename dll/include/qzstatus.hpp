// The statuses a call returns to the interpreter: one table of code, name and meaning,
// shared by the call host, the ODBC function set, qzcall and the tests. Codes the host and
// the bridge both return carry one meaning that covers both.
#pragma once

namespace qz {

enum Status : int {
  kOk = 0,                   // success
  kNoMoreRows = 1,           // fetch: no more rows
  kNoMemory = 2,             // memory allocation failed
  kNoSuchFunction = 7,       // no function of that name (host)
  kBadArgument = 8,          // unknown identifier, unusable argument, wrong argument kind
  kArgCount = 9,             // wrong number of arguments
  kArrayTooShort = 17,       // an array has fewer elements than its prototype asks (host)
  kNoRoom = 18,              // a text does not fit its string variable or buffer
  kLogFileOpen = 56,         // the log file cannot be opened
  kTooManyArgs = 606,        // more than 50 arguments (host)
  kInternal = -1,            // host: internal dispatch error
  kNotConvertible = -1,      // bridge: a fetched value cannot be converted to a number
  kHandleAlloc = 1110,       // an ODBC handle could not be allocated
  kOdbcFailed = 1111,        // commit, rollback, option, describe, count or bind failed
  kNotReady = 1112,          // parameter of an unprepared statement, data before a fetch
  kConnectFailed = 1113,     // SQLDriverConnect failed
  kDisconnectFailed = 1114,  // SQLDisconnect failed
  kAlreadyConnected = 1115,  // the connection is already established
  kNotConnected = 1116,      // the connection is not (or no longer) established
  kPrepareFailed = 1117,     // SQLPrepare failed
  kExecuteFailed = 1118,     // SQLExecDirect, SQLTables, SQLColumns or SQLExecute failed
  kNotPrepared = 1119,       // execute of a statement that is not prepared
  kNoResult = 1120,          // fetch from a statement without result columns
  kFetchFailed = 1121,       // SQLFetch failed
  kNoSuchColumn = 1122,      // the column or parameter number does not exist
};

struct StatusInfo {
  int code;             // the status
  const char *name;     // its name in the code, without the k
  const char *meaning;  // what a person is told
};

inline constexpr StatusInfo kStatuses[] = {
    {kOk, "Ok", "success"},
    {kNoMoreRows, "NoMoreRows", "no more rows"},
    {kNoMemory, "NoMemory", "out of memory"},
    {kNoSuchFunction, "NoSuchFunction", "no function of that name"},
    {kBadArgument, "BadArgument", "unknown identifier or unusable argument"},
    {kArgCount, "ArgCount", "wrong number of arguments"},
    {kArrayTooShort, "ArrayTooShort", "array too short"},
    {kNoRoom, "NoRoom", "string variable too small"},
    {kLogFileOpen, "LogFileOpen", "log file cannot be opened"},
    {kTooManyArgs, "TooManyArgs", "more than 50 arguments"},
    {kInternal, "Internal", "internal error, or a fetched value that does not convert"},
    {kHandleAlloc, "HandleAlloc", "no ODBC handle could be had"},
    {kOdbcFailed, "OdbcFailed", "the ODBC call failed"},
    {kNotReady, "NotReady", "not prepared, or no row fetched yet"},
    {kConnectFailed, "ConnectFailed", "the driver refused the connection"},
    {kDisconnectFailed, "DisconnectFailed", "disconnecting failed"},
    {kAlreadyConnected, "AlreadyConnected", "already connected"},
    {kNotConnected, "NotConnected", "the connection is closed"},
    {kPrepareFailed, "PrepareFailed", "the driver refused to prepare the statement"},
    {kExecuteFailed, "ExecuteFailed", "the statement failed"},
    {kNotPrepared, "NotPrepared", "the statement is not prepared"},
    {kNoResult, "NoResult", "the statement has no result"},
    {kFetchFailed, "FetchFailed", "fetching a row failed"},
    {kNoSuchColumn, "NoSuchColumn", "no such column or parameter"},
};

// The meaning of a status, or null for a code not in the table.
constexpr const char *status_meaning(int code) {
  for (const StatusInfo &s : kStatuses)
    if (s.code == code) return s.meaning;
  return nullptr;
}

}  // namespace qz
