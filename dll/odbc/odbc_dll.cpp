// The callable functions of the ODBC function set: connections, transactions and
// connection options, the diagnostics queue, the settings and the version texts. The
// statement functions share the table; dll_setup is the function set's start-up hook.
#include "odbc_dll.hpp"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bridge.hpp"
#include "connection.hpp"
#include "util.hpp"

int text_column_def_size = 1024;
int text_column_max_size = 1024;

namespace {

constexpr int kMaxTextColumnSize = 32767;

// The build date as the compiler gives it, "Mmm dd yyyy": always 11 characters, with a
// blank before a one-digit day ("Feb  3 2019"), so that the day stands in fixed columns.
constexpr const char kBuildId[] = __DATE__;
constexpr const char kVersionId[] = "$Id: odbc_dll.cpp,v 27.1 2011/02/10 13:57:22 qzdev Exp $";
constexpr const char kRevision[] = "1.8";

// A real truncated toward zero; NaN and values outside the int range give INT_MIN, the
// x86 processor's "integer indefinite" that a plain conversion produces there.
int truncate_to_int(double d) {
  if (!(d > static_cast<double>(INT_MIN) - 1.0 && d < static_cast<double>(INT_MAX) + 1.0))
    return INT_MIN;
  return static_cast<int>(d);
}

}  // namespace

void dll_setup() {}

int Connect(const char *ConnSpec, int *ConnId) {
  connection *conn = nullptr;
  if (int st = new_connection(&conn)) return st;
  int st = conn->methods->do_connect(conn, ConnSpec, static_cast<int>(std::strlen(ConnSpec)));
  if (st) {
    conn->methods->drop(&conn);  // frees the handles; ConnId stays as it was
    return st;
  }
  *ConnId = add_connection(conn);
  return qz::kOk;
}

int Disconnect(int ConnId) {
  connection *conn = remove_connection(ConnId);
  if (!conn) return qz::kBadArgument;
  // Statements still open on it hold references that keep it connected until they go.
  conn->methods->drop(&conn);
  return qz::kOk;
}

int GetConnection(int ConnId, QzStr *ConnSpec) {
  connection *conn = find_connection(ConnId);
  if (!conn) return qz::kBadArgument;
  return str2QzStr(conn->conn_spec, ConnSpec);
}

int SetConnectOption(int ConnId, int Option, QzVarArgs va) {
  connection *conn = find_connection(ConnId);
  if (!conn) return qz::kBadArgument;
  if (QzFuncInfo()->arg_cnt != 3) return qz::kArgCount;
  void *slot = va.slot[0];
  QzArgInfoRec *info = QzArgInfo(slot);
  if (!info || info->elcnt != 1) return qz::kBadArgument;
  // Integer values are handed on as the unsigned 32-bit number they are on the wire.
  SQLULEN value = 0;
  char *text = nullptr;  // a string value: its NUL-terminated copy, alive for the call
  switch (info->type) {
    case IntByReference:
      value = static_cast<std::uint32_t>(*static_cast<const int *>(slot));
      break;
    case RealByReference:
      value = static_cast<std::uint32_t>(truncate_to_int(*static_cast<const double *>(slot)));
      break;
    case String: {
      // ODBC takes a string-valued option as the address of NUL-terminated text.
      const QzStr *s = static_cast<const QzStr *>(slot);
      text = static_cast<char *>(dll_alloc(static_cast<std::size_t>(s->len) + 1));
      if (!text) {
        QZ_OLOG(1, "Memory allocation failed (%u bytes)", static_cast<unsigned>(s->len) + 1u);
        return qz::kNoMemory;
      }
      QzStr2str(s, text);
      value = reinterpret_cast<std::uintptr_t>(text);
      break;
    }
    default:
      return qz::kBadArgument;
  }
  int st = conn->methods->set_connect_option(conn, static_cast<SQLUSMALLINT>(Option), value);
  std::free(text);
  return st;
}

int SetAutocommit(int ConnId, int Mode) {
  connection *conn = find_connection(ConnId);
  if (!conn) return qz::kBadArgument;
  return conn->methods->set_connect_option(conn, SQL_AUTOCOMMIT,
                                           Mode ? SQL_AUTOCOMMIT_ON : SQL_AUTOCOMMIT_OFF);
}

int Commit(int ConnId) {
  connection *conn = find_connection(ConnId);
  if (!conn) return qz::kBadArgument;
  return conn->methods->commit(conn);
}

int Rollback(int ConnId) {
  connection *conn = find_connection(ConnId);
  if (!conn) return qz::kBadArgument;
  return conn->methods->rollback(conn);
}

// ---- statements, columns, parameters and data ----------------------------------------
// These rows are declared with their final prototypes so that the table is complete; the
// statement methods they call are not built yet, so every one of them refuses with -1
// (the status the dispatcher gives for a call it cannot make) and touches nothing.

int Prepare(int, const char *, int *) {
  return -1;
}
int ExecDirect(int, const char *, int *) {
  return -1;
}
int Tables(int, const char *, const char *, const char *, const char *, int *) {
  return -1;
}
int Columns(int, const char *, const char *, const char *, const char *, int *) {
  return -1;
}
int DropStatement(int) {
  return -1;
}
int GetNumColumns(int, int *) {
  return -1;
}
int GetColumnTitle(int, int, QzStr *) {
  return -1;
}
int GetColumnVarName(int, int, QzStr *) {
  return -1;
}
int GetColumnType(int, int, int *) {
  return -1;
}
int SetColumnType(int, int, int) {
  return -1;
}
int GetColumnPrecision(int, int, int *) {
  return -1;
}
int GetColumnScale(int, int, int *) {
  return -1;
}
int GetColumnNullable(int, int, int *) {
  return -1;
}
int Execute(int, QzVarArgs) {
  return -1;
}
int SetParam(int, QzVarArgs) {
  return -1;
}
int GetParamType(int, int, int *) {
  return -1;
}
int GetParamPrecision(int, int, int *) {
  return -1;
}
int GetParamScale(int, int, int *) {
  return -1;
}
int GetParamNullable(int, int, int *) {
  return -1;
}
int Fetch(int, QzVarArgs) {
  return -1;
}
int IsNull(int, int, int *) {
  return -1;
}
int GetData(int, int, QzVarArgs) {
  return -1;
}
int RowCount(int, int *) {
  return -1;
}

// ---- diagnostics, settings, version texts --------------------------------------------

int GetError(QzStr *Message, QzStr *SqlState, int *NativeCode, int *HasData) {
  // Frees the record handed out by the previous GetError: a record is read once, also
  // when it did not fit.
  odbc_error *e = next_odbc_error();
  if (!e) {
    *HasData = 0;
    return qz::kOk;
  }
  if (int st = str2QzStr(e->message, Message)) return st;
  if (int st = str2QzStr(e->sqlstate, SqlState)) return st;
  *NativeCode = e->native;
  *HasData = 1;
  return qz::kOk;
}

int SetTextColumnSize(int DefaultSize, int MaxSize) {
  if (DefaultSize < 1 || DefaultSize > kMaxTextColumnSize || MaxSize < 1 ||
      MaxSize > kMaxTextColumnSize || DefaultSize > MaxSize)
    return qz::kBadArgument;
  text_column_def_size = DefaultSize;
  text_column_max_size = MaxSize;
  return qz::kOk;
}

int LogFlags(const char *LogFlags) {
  qz__Log_SetFlags(LogFlags);
  return qz::kOk;
}

int LogFile(const char *LogFile) {
  if (std::strcmp(LogFile, "console") == 0) {
    qz__Log_SetFile(stderr);
    return qz::kOk;
  }
  FILE *fp = std::fopen(LogFile, "a");
  if (!fp) {
    int e = errno;
    QZ_OLOG(1, "Unable to open log file '%s': %s (errno=%d)", LogFile, std::strerror(e), e);
    return qz::kLogFileOpen;
  }
  qz__Log_SetFile(fp);  // the log owns the stream from now on
  return qz::kOk;
}

int DllDebug(int DebugLevel) {
  dll_debug = DebugLevel;
  return qz::kOk;
}

int BuildID(QzStr *Str) {
  return str2QzStr(kBuildId, Str);
}

int VersionID(QzStr *Str) {
  return str2QzStr(kVersionId, Str);
}

int Revision(QzStr *Str) {
  return str2QzStr(kRevision, Str);
}
