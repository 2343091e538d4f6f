// The 40 callable functions of the ODBC function set, each reaching the registries and the
// connection and statement objects: connections and transactions, statements, columns,
// parameters and data, many rows per call, the diagnostics queue, the settings and the
// version texts; and dll_setup, the function set's start-up hook.
#include "odbc_dll.hpp"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bridge.hpp"
#include "bulk.hpp"
#include "connection.hpp"
#include "numtext.hpp"
#include "registry.hpp"
#include "xpack.hpp"

namespace {

constexpr int kMaxTextColumnSize = 32767;

// The build date as the compiler gives it, "Mmm dd yyyy": always 11 characters, with a
// blank before a one-digit day ("Feb  3 2019"), so that the day stands in fixed columns.
constexpr const char kBuildId[] = __DATE__;
constexpr const char kVersionId[] = "$Id: odbc_dll.cpp,v 27.1 2011/02/10 13:57:22 qzdev Exp $";
constexpr const char kRevision[] = "1.8";

}  // namespace

void dll_setup() {}

void dll_interrupt() {
  qz::cancel_statement_in_driver();
}

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
      value = static_cast<std::uint32_t>(qz::trunc_to_int32(*static_cast<const double *>(slot)));
      break;
    case String: {
      // ODBC takes a string-valued option as the address of NUL-terminated text.
      const QzStr *s = static_cast<const QzStr *>(slot);
      text = static_cast<char *>(QZ_ALLOC(static_cast<std::size_t>(s->len) + 1));
      if (!text) {
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

namespace {

// Which statement method makes the statement of Prepare, ExecDirect, Tables and Columns.
enum class Make { prepare, execdirect, tables, columns };

int text_len(const char *text) {
  return static_cast<int>(std::strlen(text));
}

// The common steps of the statement-creating functions: the statement that StmtId names
// (if any) is dropped and its identifier reused; a failed method leaves no statement and
// StmtId 0. texts holds the SQL, or the four catalog arguments.
int make_statement(int ConnId, int *StmtId, Make how, const char *const *texts) {
  StmtDesc *desc = nullptr;
  if (*StmtId != 0) {
    if (stmt *old = find_statement(*StmtId, &desc)) old->methods->drop(&old);
  }
  stmt *s = nullptr;
  if (int st = create_statement(ConnId, &s, StmtId, desc)) return st;
  int st = 0;
  switch (how) {
    case Make::prepare:
      st = s->methods->prepare(s, texts[0], text_len(texts[0]));
      break;
    case Make::execdirect:
      st = s->methods->execdirect(s, texts[0], text_len(texts[0]));
      break;
    case Make::tables:
      st = s->methods->tables(s, texts[0], text_len(texts[0]), texts[1], text_len(texts[1]),
                              texts[2], text_len(texts[2]), texts[3], text_len(texts[3]));
      break;
    case Make::columns:
      st = s->methods->columns(s, texts[0], text_len(texts[0]), texts[1], text_len(texts[1]),
                               texts[2], text_len(texts[2]), texts[3], text_len(texts[3]));
      break;
  }
  if (st == 0) return qz::kOk;
  remove_statement(*StmtId);
  *StmtId = 0;
  s->methods->drop(&s);
  return st;
}

// The functions that hand their arguments on to one method of the statement: 8 for an
// unknown StmtId, else the method's status.
template <auto Slot, typename... Args>
int to_statement(int StmtId, Args... args) {
  stmt *s = find_statement(StmtId);
  if (!s) return qz::kBadArgument;
  return (s->methods->*Slot)(s, args...);
}

// The kind of a variable argument: its resolved prototype type when it is a single value,
// 0 for an array or an argument the dispatcher cannot describe.
int single_kind(void *slot) {
  const QzArgInfoRec *info = QzArgInfo(slot);
  if (!info || info->elcnt != 1) return 0;
  return info->type;
}

// Binds one value argument as parameter par with the setter its kind calls for; 8 for an
// array or any other kind.
int set_value(stmt *s, int par, void *slot) {
  return qz::set_param_element(s, par, single_kind(slot), slot, 0);
}

// The kind of one ExecuteArray argument: an integer, real or string, single or array, by
// its resolved type; 0 for anything else.
int array_kind(void *slot) {
  const QzArgInfoRec *info = QzArgInfo(slot);
  if (!info) return 0;
  switch (info->type) {
    case IntByReference:
    case IntArray:
    case RealByReference:
    case RealArray:
    case String:
    case StringArray:
      return info->type;
    default:
      return 0;
  }
}

}  // namespace

int Prepare(int ConnId, const char *Sql, int *StmtId) {
  return make_statement(ConnId, StmtId, Make::prepare, &Sql);
}

int ExecDirect(int ConnId, const char *Sql, int *StmtId) {
  return make_statement(ConnId, StmtId, Make::execdirect, &Sql);
}

int Tables(int ConnId, const char *Qual, const char *Owner, const char *Name, const char *Type,
           int *StmtId) {
  const char *texts[] = {Qual, Owner, Name, Type};
  return make_statement(ConnId, StmtId, Make::tables, texts);
}

int Columns(int ConnId, const char *Qual, const char *Owner, const char *Name, const char *Column,
            int *StmtId) {
  const char *texts[] = {Qual, Owner, Name, Column};
  return make_statement(ConnId, StmtId, Make::columns, texts);
}

int DropStatement(int StmtId) {
  stmt *s = remove_statement(StmtId);
  if (!s) return qz::kBadArgument;
  s->methods->drop(&s);
  return qz::kOk;
}

int GetNumColumns(int StmtId, int *NumColumns) {
  stmt *s = find_statement(StmtId);
  if (!s) return qz::kBadArgument;
  *NumColumns = s->num_columns;
  return qz::kOk;
}

int GetColumnTitle(int StmtId, int ColNumber, QzStr *ColTitle) {
  stmt *s = find_statement(StmtId);
  if (!s) return qz::kBadArgument;
  char *text = nullptr;
  if (int st = s->methods->column_TITLE(s, ColNumber, &text)) return st;
  return str2QzStr(text, ColTitle);
}

int GetColumnVarName(int StmtId, int ColNumber, QzStr *ColName) {
  stmt *s = find_statement(StmtId);
  if (!s) return qz::kBadArgument;
  char *text = nullptr;
  if (int st = s->methods->column_VARNAME(s, ColNumber, &text)) return st;
  return str2QzStr(text, ColName);
}

int GetColumnType(int StmtId, int ColNumber, int *ColType) {
  return to_statement<&stmt_m::column_TYPE>(StmtId, ColNumber, ColType);
}

int SetColumnType(int StmtId, int ColNumber, int ColType) {
  return to_statement<&stmt_m::column_SETTYPE>(StmtId, ColNumber, ColType);
}

int GetColumnPrecision(int StmtId, int ColNumber, int *ColPrec) {
  return to_statement<&stmt_m::column_PRECISION>(StmtId, ColNumber, ColPrec);
}

int GetColumnScale(int StmtId, int ColNumber, int *ColScale) {
  return to_statement<&stmt_m::column_SCALE>(StmtId, ColNumber, ColScale);
}

int GetColumnNullable(int StmtId, int ColNumber, int *ColNull) {
  return to_statement<&stmt_m::column_NULLABLE>(StmtId, ColNumber, ColNull);
}

int Execute(int StmtId, QzVarArgs va) {
  stmt *s = find_statement(StmtId);
  if (!s) return qz::kBadArgument;
  int n = QzFuncInfo()->arg_cnt - 1;
  // Values are bound in order; a bad one stops there, leaving the earlier ones bound.
  for (int k = 1; k <= n; ++k)
    if (int st = set_value(s, k, va.slot[k - 1])) return st;
  return s->methods->execute(s);
}

int SetParam(int StmtId, QzVarArgs va) {
  stmt *s = find_statement(StmtId);
  if (!s) return qz::kBadArgument;
  int argc = QzFuncInfo()->arg_cnt;
  if (argc < 2) return qz::kArgCount;
  void *number = va.slot[0];
  int par = 0;
  switch (single_kind(number)) {
    case IntByReference:
      par = *static_cast<const int *>(number);
      break;
    case RealByReference:
      par = qz::trunc_to_int32(*static_cast<const double *>(number));
      break;
    default:
      return qz::kBadArgument;
  }
  if (argc == 2) return s->methods->setparam_NULL(s, par);
  if (argc > 3) return qz::kArgCount;
  return set_value(s, par, va.slot[1]);
}

int GetParamType(int StmtId, int ParNumber, int *ParType) {
  return to_statement<&stmt_m::param_TYPE>(StmtId, ParNumber, ParType);
}

int GetParamPrecision(int StmtId, int ParNumber, int *ParPrec) {
  return to_statement<&stmt_m::param_PRECISION>(StmtId, ParNumber, ParPrec);
}

int GetParamScale(int StmtId, int ParNumber, int *ParScale) {
  return to_statement<&stmt_m::param_SCALE>(StmtId, ParNumber, ParScale);
}

int GetParamNullable(int StmtId, int ParNumber, int *ParNull) {
  return to_statement<&stmt_m::param_NULLABLE>(StmtId, ParNumber, ParNull);
}

int Fetch(int StmtId, QzVarArgs va) {
  stmt *s = find_statement(StmtId);
  if (!s) return qz::kBadArgument;
  int argc = QzFuncInfo()->arg_cnt;
  if (argc < 2) return qz::kArgCount;
  int *status = static_cast<int *>(va.slot[0]);
  if (single_kind(status) != IntByReference) return qz::kBadArgument;
  int st = s->methods->fetch(s);
  if (st == qz::kNoMoreRows) {
    *status = 0;
    return qz::kOk;
  }
  if (st) return st;
  *status = 1;
  if (argc == 2) return qz::kOk;
  if (argc > 3) return qz::kArgCount;  // the row stays fetched
  void *buffer = va.slot[1];
  const QzArgInfoRec *info = QzArgInfo(buffer);
  if (!info || info->elcnt != 1) return qz::kBadArgument;
  if (info->type != String) return qz::kArgCount;
  return qz::pack_row(s, static_cast<QzStr *>(buffer));
}

int IsNull(int StmtId, int ColNumber, int *IsNull) {
  return to_statement<&stmt_m::isnull>(StmtId, ColNumber, IsNull);
}

int GetData(int StmtId, int ColNumber, QzVarArgs va) {
  stmt *s = find_statement(StmtId);
  if (!s) return qz::kBadArgument;
  if (QzFuncInfo()->arg_cnt != 3) return qz::kArgCount;
  void *value = va.slot[0];
  switch (single_kind(value)) {
    case IntByReference: {
      int v = 0;
      int st = s->methods->getdata_INT(s, ColNumber, &v);
      if (st == 0) *static_cast<int *>(value) = v;
      return st;
    }
    case RealByReference:
      return s->methods->getdata_DOUBLE(s, ColNumber, static_cast<double *>(value));
    case String: {
      char *text = nullptr;
      if (int st = s->methods->getdata_STRING(s, ColNumber, &text)) return st;
      return str2QzStr(text, static_cast<QzStr *>(value));
    }
    default:
      return qz::kBadArgument;
  }
}

int RowCount(int StmtId, int *NumRows) {
  return to_statement<&stmt_m::rowcount>(StmtId, NumRows);
}

// ---- many rows per call ------------------------------------------------------------

int FetchArray(int StmtId, int *Rows, QzStr *RowBuffers) {
  stmt *s = find_statement(StmtId);
  if (!s) return qz::kBadArgument;
  if (single_kind(Rows) != IntByReference) return qz::kBadArgument;
  const QzArgInfoRec *info = QzArgInfo(RowBuffers);
  if (!info) return qz::kBadArgument;
  return qz::fetch_rows(s, RowBuffers, info->elcnt, Rows);
}

int ExecuteArray(int StmtId, int Rows, int *Done, QzVarArgs va) {
  stmt *s = find_statement(StmtId);
  if (!s) return qz::kBadArgument;
  if (single_kind(Done) != IntByReference) return qz::kBadArgument;
  *Done = 0;
  if (!(s->flags & STMT_PREPARED)) {
    QZ_OLOG(2, "ODBC statement has not been prepared");
    return qz::kNotPrepared;
  }
  // Everything is checked before the first row is bound: bad input executes nothing.
  int n = QzFuncInfo()->arg_cnt - 3;
  if (n != s->num_params) return qz::kArgCount;
  if (Rows < 0) return qz::kArrayTooShort;
  int kinds[qz::fn::kSlots] = {};
  for (int j = 0; j < n; ++j) {
    kinds[j] = array_kind(va.slot[j]);
    if (!kinds[j]) return qz::kBadArgument;
    if (QzArgInfo(va.slot[j])->elcnt < Rows) return qz::kArrayTooShort;
  }
  return qz::execute_rows(s, Rows, va.slot, kinds, Done);
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
