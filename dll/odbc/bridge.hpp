// What every module of the ODBC bridge shares: the status codes its callable functions
// and objects return, the log call that prefixes a message with the source file's base
// name and line, and the stop on an allocation failure that has no recovery path.
#pragma once

#include <cstddef>

#include "qzlog.hpp"

namespace qz {

// Status codes of the bridge; the callable functions hand them to the interpreter.
enum OdbcStatus : int {
  kOk = 0,                   // success
  kNoMoreRows = 1,           // fetch: no more rows
  kNoMemory = 2,             // memory allocation failed
  kBadArgument = 8,          // unknown identifier, unusable argument, string too long
  kArgCount = 9,             // wrong number of arguments
  kNoRoom = 18,              // a text does not fit its string variable or buffer
  kLogFileOpen = 56,         // the log file cannot be opened
  kNotConvertible = -1,      // a fetched value cannot be converted to a number
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

// Logs "%s(%d): Memory allocation failed (%u bytes)" at level 1 for `file` and `line`,
// then stops the process with the assertion text "memory allocation failed". Used where
// an allocation failure has no recovery path: the registries and the diagnostics queue.
[[noreturn]] void fatal_no_memory(const char *file, int line, std::size_t size);

// Terminates text that a driver wrote into a buffer of `size` bytes (size >= 1) and whose
// full length it reported as `reported`, and returns the text's length. A driver may fill
// the buffer to its last byte and leave no terminator when it cuts a text, so the length
// comes from the report and the buffer alone: a cut text keeps size - 1 bytes.
inline std::size_t terminate_driver_text(void *buf, std::size_t size, long long reported) {
  const std::size_t n = reported >= 0 && static_cast<unsigned long long>(reported) < size - 1
                            ? static_cast<std::size_t>(reported)
                            : size - 1;
  static_cast<char *>(buf)[n] = '\0';
  return n;
}

}  // namespace qz

// A message of category O whose text starts with "<base name of this file>(<line>): ".
#define QZ_OLOG(level, fmt, ...)                                    \
  qz__Log('O', (level), "%s(%d): " fmt, extract_filename(__FILE__), \
          __LINE__ __VA_OPT__(, ) __VA_ARGS__)
