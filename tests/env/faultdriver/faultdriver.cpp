// The fault-injecting ODBC driver for tests: unixODBC loads it like any driver; it forwards
// every call to the SQLite ODBC driver of the same architecture and fails the calls that the
// QzFault attributes of the connection string name. Attribute grammar: fault_rules.hpp and
// tests/env/README.md.
#include <dlfcn.h>
#include <sql.h>
#include <sqlext.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "fault_rules.hpp"

// The driver functions that take a statement handle first and need nothing but forwarding,
// with their SQL_API_ numbers.
#define QZ_STMT_FUNCTIONS(X)                                                                       \
  X(SQLBindCol, SQL_API_SQLBINDCOL,                                                                \
    (SQLHSTMT h, SQLUSMALLINT a1, SQLSMALLINT a2, SQLPOINTER a3, SQLLEN a4, SQLLEN * a5),          \
    (h, a1, a2, a3, a4, a5))                                                                       \
  X(SQLBindParam, SQL_API_SQLBINDPARAM,                                                            \
    (SQLHSTMT h, SQLUSMALLINT a1, SQLSMALLINT a2, SQLSMALLINT a3, SQLULEN a4, SQLSMALLINT a5,      \
     SQLPOINTER a6, SQLLEN * a7),                                                                  \
    (h, a1, a2, a3, a4, a5, a6, a7))                                                               \
  X(SQLBindParameter, SQL_API_SQLBINDPARAMETER,                                                    \
    (SQLHSTMT h, SQLUSMALLINT a1, SQLSMALLINT a2, SQLSMALLINT a3, SQLSMALLINT a4, SQLULEN a5,      \
     SQLSMALLINT a6, SQLPOINTER a7, SQLLEN a8, SQLLEN * a9),                                       \
    (h, a1, a2, a3, a4, a5, a6, a7, a8, a9))                                                       \
  X(SQLBulkOperations, SQL_API_SQLBULKOPERATIONS, (SQLHSTMT h, SQLSMALLINT a1), (h, a1))           \
  X(SQLCancel, SQL_API_SQLCANCEL, (SQLHSTMT h), (h))                                               \
  X(SQLCloseCursor, SQL_API_SQLCLOSECURSOR, (SQLHSTMT h), (h))                                     \
  X(SQLColAttribute, SQL_API_SQLCOLATTRIBUTE,                                                      \
    (SQLHSTMT h, SQLUSMALLINT a1, SQLUSMALLINT a2, SQLPOINTER a3, SQLSMALLINT a4,                  \
     SQLSMALLINT * a5, SQLLEN * a6),                                                               \
    (h, a1, a2, a3, a4, a5, a6))                                                                   \
  X(SQLColAttributes, SQL_API_SQLCOLATTRIBUTES,                                                    \
    (SQLHSTMT h, SQLUSMALLINT a1, SQLUSMALLINT a2, SQLPOINTER a3, SQLSMALLINT a4,                  \
     SQLSMALLINT * a5, SQLLEN * a6),                                                               \
    (h, a1, a2, a3, a4, a5, a6))                                                                   \
  X(SQLColumnPrivileges, SQL_API_SQLCOLUMNPRIVILEGES,                                              \
    (SQLHSTMT h, SQLCHAR * a1, SQLSMALLINT a2, SQLCHAR * a3, SQLSMALLINT a4, SQLCHAR * a5,         \
     SQLSMALLINT a6, SQLCHAR * a7, SQLSMALLINT a8),                                                \
    (h, a1, a2, a3, a4, a5, a6, a7, a8))                                                           \
  X(SQLColumns, SQL_API_SQLCOLUMNS,                                                                \
    (SQLHSTMT h, SQLCHAR * a1, SQLSMALLINT a2, SQLCHAR * a3, SQLSMALLINT a4, SQLCHAR * a5,         \
     SQLSMALLINT a6, SQLCHAR * a7, SQLSMALLINT a8),                                                \
    (h, a1, a2, a3, a4, a5, a6, a7, a8))                                                           \
  X(SQLDescribeCol, SQL_API_SQLDESCRIBECOL,                                                        \
    (SQLHSTMT h, SQLUSMALLINT a1, SQLCHAR * a2, SQLSMALLINT a3, SQLSMALLINT * a4,                  \
     SQLSMALLINT * a5, SQLULEN * a6, SQLSMALLINT * a7, SQLSMALLINT * a8),                          \
    (h, a1, a2, a3, a4, a5, a6, a7, a8))                                                           \
  X(SQLDescribeParam, SQL_API_SQLDESCRIBEPARAM,                                                    \
    (SQLHSTMT h, SQLUSMALLINT a1, SQLSMALLINT * a2, SQLULEN * a3, SQLSMALLINT * a4,                \
     SQLSMALLINT * a5),                                                                            \
    (h, a1, a2, a3, a4, a5))                                                                       \
  X(SQLExecDirect, SQL_API_SQLEXECDIRECT, (SQLHSTMT h, SQLCHAR * a1, SQLINTEGER a2), (h, a1, a2))  \
  X(SQLExecute, SQL_API_SQLEXECUTE, (SQLHSTMT h), (h))                                             \
  X(SQLExtendedFetch, SQL_API_SQLEXTENDEDFETCH,                                                    \
    (SQLHSTMT h, SQLUSMALLINT a1, SQLLEN a2, SQLULEN * a3, SQLUSMALLINT * a4),                     \
    (h, a1, a2, a3, a4))                                                                           \
  X(SQLFetch, SQL_API_SQLFETCH, (SQLHSTMT h), (h))                                                 \
  X(SQLFetchScroll, SQL_API_SQLFETCHSCROLL, (SQLHSTMT h, SQLSMALLINT a1, SQLLEN a2), (h, a1, a2))  \
  X(SQLForeignKeys, SQL_API_SQLFOREIGNKEYS,                                                        \
    (SQLHSTMT h, SQLCHAR * a1, SQLSMALLINT a2, SQLCHAR * a3, SQLSMALLINT a4, SQLCHAR * a5,         \
     SQLSMALLINT a6, SQLCHAR * a7, SQLSMALLINT a8, SQLCHAR * a9, SQLSMALLINT a10, SQLCHAR * a11,   \
     SQLSMALLINT a12),                                                                             \
    (h, a1, a2, a3, a4, a5, a6, a7, a8, a9, a10, a11, a12))                                        \
  X(SQLGetCursorName, SQL_API_SQLGETCURSORNAME,                                                    \
    (SQLHSTMT h, SQLCHAR * a1, SQLSMALLINT a2, SQLSMALLINT * a3), (h, a1, a2, a3))                 \
  X(SQLGetData, SQL_API_SQLGETDATA,                                                                \
    (SQLHSTMT h, SQLUSMALLINT a1, SQLSMALLINT a2, SQLPOINTER a3, SQLLEN a4, SQLLEN * a5),          \
    (h, a1, a2, a3, a4, a5))                                                                       \
  X(SQLGetStmtAttr, SQL_API_SQLGETSTMTATTR,                                                        \
    (SQLHSTMT h, SQLINTEGER a1, SQLPOINTER a2, SQLINTEGER a3, SQLINTEGER * a4),                    \
    (h, a1, a2, a3, a4))                                                                           \
  X(SQLGetStmtOption, SQL_API_SQLGETSTMTOPTION, (SQLHSTMT h, SQLUSMALLINT a1, SQLPOINTER a2),      \
    (h, a1, a2))                                                                                   \
  X(SQLGetTypeInfo, SQL_API_SQLGETTYPEINFO, (SQLHSTMT h, SQLSMALLINT a1), (h, a1))                 \
  X(SQLMoreResults, SQL_API_SQLMORERESULTS, (SQLHSTMT h), (h))                                     \
  X(SQLNumParams, SQL_API_SQLNUMPARAMS, (SQLHSTMT h, SQLSMALLINT * a1), (h, a1))                   \
  X(SQLNumResultCols, SQL_API_SQLNUMRESULTCOLS, (SQLHSTMT h, SQLSMALLINT * a1), (h, a1))           \
  X(SQLParamData, SQL_API_SQLPARAMDATA, (SQLHSTMT h, SQLPOINTER * a1), (h, a1))                    \
  X(SQLParamOptions, SQL_API_SQLPARAMOPTIONS, (SQLHSTMT h, SQLULEN a1, SQLULEN * a2), (h, a1, a2)) \
  X(SQLPrepare, SQL_API_SQLPREPARE, (SQLHSTMT h, SQLCHAR * a1, SQLINTEGER a2), (h, a1, a2))        \
  X(SQLPrimaryKeys, SQL_API_SQLPRIMARYKEYS,                                                        \
    (SQLHSTMT h, SQLCHAR * a1, SQLSMALLINT a2, SQLCHAR * a3, SQLSMALLINT a4, SQLCHAR * a5,         \
     SQLSMALLINT a6),                                                                              \
    (h, a1, a2, a3, a4, a5, a6))                                                                   \
  X(SQLProcedureColumns, SQL_API_SQLPROCEDURECOLUMNS,                                              \
    (SQLHSTMT h, SQLCHAR * a1, SQLSMALLINT a2, SQLCHAR * a3, SQLSMALLINT a4, SQLCHAR * a5,         \
     SQLSMALLINT a6, SQLCHAR * a7, SQLSMALLINT a8),                                                \
    (h, a1, a2, a3, a4, a5, a6, a7, a8))                                                           \
  X(SQLProcedures, SQL_API_SQLPROCEDURES,                                                          \
    (SQLHSTMT h, SQLCHAR * a1, SQLSMALLINT a2, SQLCHAR * a3, SQLSMALLINT a4, SQLCHAR * a5,         \
     SQLSMALLINT a6),                                                                              \
    (h, a1, a2, a3, a4, a5, a6))                                                                   \
  X(SQLPutData, SQL_API_SQLPUTDATA, (SQLHSTMT h, SQLPOINTER a1, SQLLEN a2), (h, a1, a2))           \
  X(SQLRowCount, SQL_API_SQLROWCOUNT, (SQLHSTMT h, SQLLEN * a1), (h, a1))                          \
  X(SQLSetCursorName, SQL_API_SQLSETCURSORNAME, (SQLHSTMT h, SQLCHAR * a1, SQLSMALLINT a2),        \
    (h, a1, a2))                                                                                   \
  X(SQLSetParam, SQL_API_SQLSETPARAM,                                                              \
    (SQLHSTMT h, SQLUSMALLINT a1, SQLSMALLINT a2, SQLSMALLINT a3, SQLULEN a4, SQLSMALLINT a5,      \
     SQLPOINTER a6, SQLLEN * a7),                                                                  \
    (h, a1, a2, a3, a4, a5, a6, a7))                                                               \
  X(SQLSetPos, SQL_API_SQLSETPOS,                                                                  \
    (SQLHSTMT h, SQLSETPOSIROW a1, SQLUSMALLINT a2, SQLUSMALLINT a3), (h, a1, a2, a3))             \
  X(SQLSetScrollOptions, SQL_API_SQLSETSCROLLOPTIONS,                                              \
    (SQLHSTMT h, SQLUSMALLINT a1, SQLLEN a2, SQLUSMALLINT a3), (h, a1, a2, a3))                    \
  X(SQLSetStmtAttr, SQL_API_SQLSETSTMTATTR,                                                        \
    (SQLHSTMT h, SQLINTEGER a1, SQLPOINTER a2, SQLINTEGER a3), (h, a1, a2, a3))                    \
  X(SQLSetStmtOption, SQL_API_SQLSETSTMTOPTION, (SQLHSTMT h, SQLUSMALLINT a1, SQLULEN a2),         \
    (h, a1, a2))                                                                                   \
  X(SQLSpecialColumns, SQL_API_SQLSPECIALCOLUMNS,                                                  \
    (SQLHSTMT h, SQLUSMALLINT a1, SQLCHAR * a2, SQLSMALLINT a3, SQLCHAR * a4, SQLSMALLINT a5,      \
     SQLCHAR * a6, SQLSMALLINT a7, SQLUSMALLINT a8, SQLUSMALLINT a9),                              \
    (h, a1, a2, a3, a4, a5, a6, a7, a8, a9))                                                       \
  X(SQLStatistics, SQL_API_SQLSTATISTICS,                                                          \
    (SQLHSTMT h, SQLCHAR * a1, SQLSMALLINT a2, SQLCHAR * a3, SQLSMALLINT a4, SQLCHAR * a5,         \
     SQLSMALLINT a6, SQLUSMALLINT a7, SQLUSMALLINT a8),                                            \
    (h, a1, a2, a3, a4, a5, a6, a7, a8))                                                           \
  X(SQLTablePrivileges, SQL_API_SQLTABLEPRIVILEGES,                                                \
    (SQLHSTMT h, SQLCHAR * a1, SQLSMALLINT a2, SQLCHAR * a3, SQLSMALLINT a4, SQLCHAR * a5,         \
     SQLSMALLINT a6),                                                                              \
    (h, a1, a2, a3, a4, a5, a6))                                                                   \
  X(SQLTables, SQL_API_SQLTABLES,                                                                  \
    (SQLHSTMT h, SQLCHAR * a1, SQLSMALLINT a2, SQLCHAR * a3, SQLSMALLINT a4, SQLCHAR * a5,         \
     SQLSMALLINT a6, SQLCHAR * a7, SQLSMALLINT a8),                                                \
    (h, a1, a2, a3, a4, a5, a6, a7, a8))

// The driver functions that take a connection handle first and need nothing but forwarding,
// with their SQL_API_ numbers.
#define QZ_DBC_FUNCTIONS(X)                                                                        \
  X(SQLBrowseConnect, SQL_API_SQLBROWSECONNECT,                                                    \
    (SQLHDBC h, SQLCHAR * a1, SQLSMALLINT a2, SQLCHAR * a3, SQLSMALLINT a4, SQLSMALLINT * a5),     \
    (h, a1, a2, a3, a4, a5))                                                                       \
  X(SQLConnect, SQL_API_SQLCONNECT,                                                                \
    (SQLHDBC h, SQLCHAR * a1, SQLSMALLINT a2, SQLCHAR * a3, SQLSMALLINT a4, SQLCHAR * a5,          \
     SQLSMALLINT a6),                                                                              \
    (h, a1, a2, a3, a4, a5, a6))                                                                   \
  X(SQLDisconnect, SQL_API_SQLDISCONNECT, (SQLHDBC h), (h))                                        \
  X(SQLGetConnectAttr, SQL_API_SQLGETCONNECTATTR,                                                  \
    (SQLHDBC h, SQLINTEGER a1, SQLPOINTER a2, SQLINTEGER a3, SQLINTEGER * a4),                     \
    (h, a1, a2, a3, a4))                                                                           \
  X(SQLGetConnectOption, SQL_API_SQLGETCONNECTOPTION, (SQLHDBC h, SQLUSMALLINT a1, SQLPOINTER a2), \
    (h, a1, a2))                                                                                   \
  X(SQLGetInfo, SQL_API_SQLGETINFO,                                                                \
    (SQLHDBC h, SQLUSMALLINT a1, SQLPOINTER a2, SQLSMALLINT a3, SQLSMALLINT * a4),                 \
    (h, a1, a2, a3, a4))                                                                           \
  X(SQLNativeSql, SQL_API_SQLNATIVESQL,                                                            \
    (SQLHDBC h, SQLCHAR * a1, SQLINTEGER a2, SQLCHAR * a3, SQLINTEGER a4, SQLINTEGER * a5),        \
    (h, a1, a2, a3, a4, a5))                                                                       \
  X(SQLSetConnectAttr, SQL_API_SQLSETCONNECTATTR,                                                  \
    (SQLHDBC h, SQLINTEGER a1, SQLPOINTER a2, SQLINTEGER a3), (h, a1, a2, a3))                     \
  X(SQLSetConnectOption, SQL_API_SQLSETCONNECTOPTION, (SQLHDBC h, SQLUSMALLINT a1, SQLULEN a2),    \
    (h, a1, a2))

// Functions written out below because they create, free or describe handles.
#define QZ_OTHER_FUNCTIONS(X) \
  X(SQLAllocConnect)          \
  X(SQLAllocEnv)              \
  X(SQLAllocHandle)           \
  X(SQLAllocStmt)             \
  X(SQLCopyDesc)              \
  X(SQLDriverConnect)         \
  X(SQLEndTran)               \
  X(SQLError)                 \
  X(SQLFreeConnect)           \
  X(SQLFreeEnv)               \
  X(SQLFreeHandle)            \
  X(SQLFreeStmt)              \
  X(SQLGetDescField)          \
  X(SQLGetDescRec)            \
  X(SQLGetDiagField)          \
  X(SQLGetDiagRec)            \
  X(SQLGetEnvAttr)            \
  X(SQLGetFunctions)          \
  X(SQLSetDescField)          \
  X(SQLSetDescRec)            \
  X(SQLSetEnvAttr)            \
  X(SQLTransact)

namespace {

using qz::fault::copy_text;
using qz::fault::Pending;
using qz::fault::Rule;

// State of one driver connection handle.
struct Conn {
  std::vector<Rule> rules;  // faults from the connection string
  std::string trace;        // file that gets one line per driver call; empty: none
};

std::mutex state_mutex;                   // guards the three maps
std::map<void *, Conn> conns;             // driver connection handle -> its state
std::map<void *, void *> stmt_conn;       // statement handle -> connection handle
std::map<void *, Pending> pending_diags;  // handle -> injected diagnostic not yet read

#define QZ_NAME_STMT(name, api, params, args) #name,
#define QZ_NAME_OTHER(name) #name,
const std::vector<std::string_view> function_names = {QZ_STMT_FUNCTIONS(
    QZ_NAME_STMT) QZ_DBC_FUNCTIONS(QZ_NAME_STMT) QZ_OTHER_FUNCTIONS(QZ_NAME_OTHER)};

// ODBC function numbers (SQL_API_...) of the functions an "unsupported" rule may hide.
struct ApiId {
  const char *name;  // function name
  int id;            // its SQL_API_ number
};
#define QZ_API_ID(name, api, params, args) {#name, api},
const ApiId api_ids[] = {
    QZ_STMT_FUNCTIONS(QZ_API_ID)  // the forwarded functions
    QZ_DBC_FUNCTIONS(QZ_API_ID)   // and two written out below
    {"SQLEndTran", SQL_API_SQLENDTRAN},
    {"SQLTransact", SQL_API_SQLTRANSACT},
};

// SQL_API_ numbers of the functions that "unsupported" rules without a call range hide on
// connection `dbc`.
std::vector<int> hidden_functions(void *dbc) {
  std::vector<int> out;
  std::lock_guard<std::mutex> lock(state_mutex);
  auto it = conns.find(dbc);
  if (it == conns.end()) return out;
  for (const Rule &r : it->second.rules) {
    if (!r.unsupported || r.ranged) continue;
    for (const ApiId &a : api_ids) {
      if (r.function == a.name) out.push_back(a.id);
    }
  }
  return out;
}

// The SQLite driver's entry point `name`. A driver that cannot load its target stops the
// process: every test through it would be meaningless.
void *target_symbol(const char *name) {
  static void *lib = [] {
    void *l = dlopen(QZ_FAULT_TARGET, RTLD_NOW | RTLD_LOCAL);
    if (!l) {
      std::fprintf(stderr, "qzfaultodbc: cannot load %s: %s\n", QZ_FAULT_TARGET, dlerror());
      std::abort();
    }
    return l;
  }();
  void *sym = dlsym(lib, name);
  if (!sym) {
    std::fprintf(stderr, "qzfaultodbc: %s has no %s\n", QZ_FAULT_TARGET, name);
    std::abort();
  }
  return sym;
}

#define QZ_TARGET(name) reinterpret_cast<decltype(&name)>(target_symbol(#name))

void *conn_of_stmt(void *stmt) {
  std::lock_guard<std::mutex> lock(state_mutex);
  auto it = stmt_conn.find(stmt);
  return it == stmt_conn.end() ? nullptr : it->second;
}

// Looks up the rule that fires for this call of `fn` on connection `dbc` (copied to `out`)
// and forgets any unread injected diagnostic of `handle` when `clears` (a new call on a
// handle discards its diagnostics).
bool find_fault(const char *fn, void *handle, void *dbc, bool clears, Rule &out) {
  std::lock_guard<std::mutex> lock(state_mutex);
  if (clears) pending_diags.erase(handle);
  auto it = dbc ? conns.find(dbc) : conns.end();
  if (it == conns.end()) return false;
  Rule *r = qz::fault::match(it->second.rules, fn);
  if (!r) return false;
  out = *r;
  return true;
}

void trace(void *dbc, const char *fn, SQLRETURN rc, bool injected) {
  std::string path;
  {
    std::lock_guard<std::mutex> lock(state_mutex);
    auto it = dbc ? conns.find(dbc) : conns.end();
    if (it == conns.end() || it->second.trace.empty()) return;
    path = it->second.trace;
  }
  if (FILE *f = std::fopen(path.c_str(), "a")) {
    std::fprintf(f, "%s %d%s\n", fn, static_cast<int>(rc), injected ? " injected" : "");
    std::fclose(f);
  }
}

SQLRETURN inject(void *handle, const Rule &r) {
  std::lock_guard<std::mutex> lock(state_mutex);
  pending_diags[handle] = Pending{r.rc, r.sqlstate, r.native, r.message, false};
  return static_cast<SQLRETURN>(r.rc);
}

// Traces a call of `fn` that was not injected and returns its code.
SQLRETURN traced(void *dbc, const char *fn, SQLRETURN rc) {
  trace(dbc, fn, rc, false);
  return rc;
}

// A rule on a diagnostics function: its code is answered without touching the outputs.
bool diag_fault(const char *fn, void *handle, void *dbc, SQLRETURN &rc) {
  Rule r;
  if (!find_fault(fn, handle, dbc, false, r)) return false;
  rc = static_cast<SQLRETURN>(r.rc);
  trace(dbc, fn, rc, true);
  return true;
}

// Writes the injected record into a caller's SQLSTATE, native code and message buffers.
SQLRETURN hand_out(const Pending &p, SQLCHAR *state, SQLINTEGER *native, SQLCHAR *msg,
                   SQLSMALLINT msg_max, SQLSMALLINT *msg_len) {
  copy_text(p.sqlstate, state, 6, nullptr);
  if (native) *native = p.native;
  copy_text(p.message, msg, msg_max, msg_len);
  return SQL_SUCCESS;
}

// One forwarded call of `fn` on `handle` (belonging to connection `dbc`): a rule that fires
// answers instead of the target, or (with '+' or SUCCESS_WITH_INFO) after a successful
// target call.
template <class Call>
SQLRETURN forward(const char *fn, void *handle, void *dbc, Call target_call) {
  Rule r;
  if (!find_fault(fn, handle, dbc, true, r)) return traced(dbc, fn, target_call());
  if (!r.unsupported && (r.after || r.rc == SQL_SUCCESS_WITH_INFO)) {
    SQLRETURN rc = target_call();
    if (rc != SQL_SUCCESS && rc != SQL_SUCCESS_WITH_INFO) return traced(dbc, fn, rc);
  }
  SQLRETURN rc = inject(handle, r);
  trace(dbc, fn, rc, true);
  return rc;
}

// The injected record of `handle`, if its last call was failed by a rule; `consume` marks
// it as handed out (SQLError reads each record once).
bool take_pending(void *handle, bool consume, Pending &out) {
  std::lock_guard<std::mutex> lock(state_mutex);
  auto it = pending_diags.find(handle);
  if (it == pending_diags.end()) return false;
  out = it->second;
  if (consume) it->second.drained = true;
  return true;
}

void *conn_of(SQLSMALLINT type, SQLHANDLE h) {
  if (type == SQL_HANDLE_DBC) return h;
  if (type == SQL_HANDLE_STMT) return conn_of_stmt(h);
  return nullptr;
}

// Removes a connection handle or a statement handle from the maps after it was freed.
void forget(SQLSMALLINT type, SQLHANDLE h) {
  std::lock_guard<std::mutex> lock(state_mutex);
  pending_diags.erase(h);
  if (type == SQL_HANDLE_DBC) conns.erase(h);
  if (type == SQL_HANDLE_STMT) stmt_conn.erase(h);
}

void remember(SQLSMALLINT type, SQLHANDLE in, SQLHANDLE out) {
  std::lock_guard<std::mutex> lock(state_mutex);
  if (type == SQL_HANDLE_DBC) conns[out] = Conn{};
  if (type == SQL_HANDLE_STMT) stmt_conn[out] = in;
}

bool succeeded(SQLRETURN rc) {
  return rc == SQL_SUCCESS || rc == SQL_SUCCESS_WITH_INFO;
}

}  // namespace

extern "C" {

#define QZ_DEFINE_STMT(name, api, params, args)                                      \
  SQLRETURN SQL_API name params {                                                    \
    return forward(#name, h, conn_of_stmt(h), [&] { return QZ_TARGET(name) args; }); \
  }
#define QZ_DEFINE_DBC(name, api, params, args)                         \
  SQLRETURN SQL_API name params {                                      \
    return forward(#name, h, h, [&] { return QZ_TARGET(name) args; }); \
  }
QZ_STMT_FUNCTIONS(QZ_DEFINE_STMT)
QZ_DBC_FUNCTIONS(QZ_DEFINE_DBC)

SQLRETURN SQL_API SQLAllocEnv(SQLHENV *env) {
  return QZ_TARGET(SQLAllocEnv)(env);
}

SQLRETURN SQL_API SQLAllocConnect(SQLHENV env, SQLHDBC *dbc) {
  SQLRETURN rc = QZ_TARGET(SQLAllocConnect)(env, dbc);
  if (succeeded(rc)) remember(SQL_HANDLE_DBC, env, *dbc);
  return rc;
}

SQLRETURN SQL_API SQLAllocStmt(SQLHDBC dbc, SQLHSTMT *stmt) {
  SQLRETURN rc =
      forward("SQLAllocStmt", dbc, dbc, [&] { return QZ_TARGET(SQLAllocStmt)(dbc, stmt); });
  if (succeeded(rc)) remember(SQL_HANDLE_STMT, dbc, *stmt);
  return rc;
}

SQLRETURN SQL_API SQLAllocHandle(SQLSMALLINT type, SQLHANDLE in, SQLHANDLE *out) {
  SQLRETURN rc;
  if (type == SQL_HANDLE_STMT) {
    rc =
        forward("SQLAllocHandle", in, in, [&] { return QZ_TARGET(SQLAllocHandle)(type, in, out); });
  } else {
    rc = QZ_TARGET(SQLAllocHandle)(type, in, out);
  }
  if (succeeded(rc)) remember(type, in, *out);
  return rc;
}

SQLRETURN SQL_API SQLFreeEnv(SQLHENV env) {
  SQLRETURN rc = QZ_TARGET(SQLFreeEnv)(env);
  if (succeeded(rc)) forget(SQL_HANDLE_ENV, env);
  return rc;
}

SQLRETURN SQL_API SQLFreeConnect(SQLHDBC dbc) {
  SQLRETURN rc =
      forward("SQLFreeConnect", dbc, dbc, [&] { return QZ_TARGET(SQLFreeConnect)(dbc); });
  if (succeeded(rc)) forget(SQL_HANDLE_DBC, dbc);
  return rc;
}

SQLRETURN SQL_API SQLFreeStmt(SQLHSTMT stmt, SQLUSMALLINT option) {
  SQLRETURN rc = forward("SQLFreeStmt", stmt, conn_of_stmt(stmt),
                         [&] { return QZ_TARGET(SQLFreeStmt)(stmt, option); });
  if (option == SQL_DROP && succeeded(rc)) forget(SQL_HANDLE_STMT, stmt);
  return rc;
}

SQLRETURN SQL_API SQLFreeHandle(SQLSMALLINT type, SQLHANDLE h) {
  SQLRETURN rc = forward("SQLFreeHandle", h, conn_of(type, h),
                         [&] { return QZ_TARGET(SQLFreeHandle)(type, h); });
  if (succeeded(rc)) forget(type, h);
  return rc;
}

SQLRETURN SQL_API SQLDriverConnect(SQLHDBC dbc, SQLHWND hwnd, SQLCHAR *in, SQLSMALLINT in_len,
                                   SQLCHAR *out, SQLSMALLINT out_max, SQLSMALLINT *out_len,
                                   SQLUSMALLINT completion) {
  std::string conn_str = in_len == SQL_NTS ? std::string(reinterpret_cast<char *>(in))
                                           : std::string(reinterpret_cast<char *>(in), in_len);
  std::vector<qz::fault::Attribute> kept;
  std::vector<Rule> rules;
  std::string trace_path, error;
  bool ok = true;
  for (const auto &a : qz::fault::split_attributes(conn_str)) {
    if (a.key.size() >= 7 && qz::fault::iequals(std::string_view(a.key).substr(0, 7), "QzFault")) {
      ok = ok && qz::fault::parse_rules(qz::fault::unbrace(a.value), function_names, rules, error);
    } else if (qz::fault::iequals(a.key, "QzTrace")) {
      trace_path = qz::fault::unbrace(a.value);
    } else {
      kept.push_back(a);
    }
  }
  if (!ok) {
    Rule bad;
    bad.rc = SQL_ERROR;
    bad.sqlstate = "HY000";
    bad.message = "[qzfaultodbc]" + error;
    return inject(dbc, bad);
  }
  {
    std::lock_guard<std::mutex> lock(state_mutex);
    Conn &c = conns[dbc];
    c.rules = rules;
    c.trace = trace_path;
  }
  std::string passed = qz::fault::join_attributes(kept);
  return forward("SQLDriverConnect", dbc, dbc, [&] {
    return QZ_TARGET(SQLDriverConnect)(dbc, hwnd, reinterpret_cast<SQLCHAR *>(passed.data()),
                                       static_cast<SQLSMALLINT>(passed.size()), out, out_max,
                                       out_len, completion);
  });
}

SQLRETURN SQL_API SQLTransact(SQLHENV env, SQLHDBC dbc, SQLUSMALLINT type) {
  void *h = dbc ? dbc : env;
  return forward("SQLTransact", h, dbc, [&] { return QZ_TARGET(SQLTransact)(env, dbc, type); });
}

SQLRETURN SQL_API SQLEndTran(SQLSMALLINT type, SQLHANDLE h, SQLSMALLINT completion) {
  return forward("SQLEndTran", h, conn_of(type, h),
                 [&] { return QZ_TARGET(SQLEndTran)(type, h, completion); });
}

// The driver manager asks this right after connecting; a function named by an
// "unsupported" rule without a call range is reported as missing, so that the driver
// manager itself refuses it the way it refuses any function a driver lacks.
SQLRETURN SQL_API SQLGetFunctions(SQLHDBC dbc, SQLUSMALLINT id, SQLUSMALLINT *supported) {
  SQLRETURN rc = forward("SQLGetFunctions", dbc, dbc,
                         [&] { return QZ_TARGET(SQLGetFunctions)(dbc, id, supported); });
  if (!succeeded(rc)) return rc;
  for (int api : hidden_functions(dbc)) {
    if (id == SQL_API_ODBC3_ALL_FUNCTIONS) {
      supported[api >> 4] &= static_cast<SQLUSMALLINT>(~(1u << (api & 0xF)));
    } else if (id == SQL_API_ALL_FUNCTIONS) {
      if (api < 100) supported[api] = SQL_FALSE;
    } else if (id == api) {
      *supported = SQL_FALSE;
    }
  }
  return rc;
}

SQLRETURN SQL_API SQLError(SQLHENV env, SQLHDBC dbc, SQLHSTMT stmt, SQLCHAR *state,
                           SQLINTEGER *native, SQLCHAR *msg, SQLSMALLINT msg_max,
                           SQLSMALLINT *msg_len) {
  void *h = stmt ? stmt : dbc ? dbc : env;
  void *conn = stmt ? conn_of_stmt(stmt) : dbc;
  SQLRETURN rc;
  if (diag_fault("SQLError", h, conn, rc)) return rc;
  // Once handed out, the handle has no further records: the target's records, if any,
  // belong to an older call.
  Pending p;
  if (take_pending(h, true, p))
    return traced(conn, "SQLError",
                  p.drained ? SQL_NO_DATA : hand_out(p, state, native, msg, msg_max, msg_len));
  return traced(conn, "SQLError",
                QZ_TARGET(SQLError)(env, dbc, stmt, state, native, msg, msg_max, msg_len));
}

SQLRETURN SQL_API SQLGetDiagRec(SQLSMALLINT type, SQLHANDLE h, SQLSMALLINT rec, SQLCHAR *state,
                                SQLINTEGER *native, SQLCHAR *msg, SQLSMALLINT msg_max,
                                SQLSMALLINT *msg_len) {
  void *conn = conn_of(type, h);
  SQLRETURN rc;
  if (diag_fault("SQLGetDiagRec", h, conn, rc)) return rc;
  Pending p;
  if (take_pending(h, false, p))
    return traced(
        conn, "SQLGetDiagRec",
        rec != 1 || p.drained ? SQL_NO_DATA : hand_out(p, state, native, msg, msg_max, msg_len));
  return traced(conn, "SQLGetDiagRec",
                QZ_TARGET(SQLGetDiagRec)(type, h, rec, state, native, msg, msg_max, msg_len));
}

SQLRETURN SQL_API SQLGetDiagField(SQLSMALLINT type, SQLHANDLE h, SQLSMALLINT rec, SQLSMALLINT id,
                                  SQLPOINTER info, SQLSMALLINT info_max, SQLSMALLINT *info_len) {
  void *conn = conn_of(type, h);
  SQLRETURN rc;
  if (diag_fault("SQLGetDiagField", h, conn, rc)) return rc;
  Pending p;
  if (take_pending(h, false, p)) {
    rc = SQL_SUCCESS;
    auto text = [&](const std::string &t) {
      copy_text(t, static_cast<SQLCHAR *>(info), info_max, info_len);
    };
    if (id == SQL_DIAG_NUMBER) {
      *static_cast<SQLINTEGER *>(info) = p.drained ? 0 : 1;
    } else if (id == SQL_DIAG_RETURNCODE) {
      *static_cast<SQLRETURN *>(info) = static_cast<SQLRETURN>(p.rc);
    } else if (rec < 1) {
      rc = SQL_NO_DATA;  // other header fields: none recorded
    } else if (rec > 1 || p.drained) {
      rc = SQL_NO_DATA;
    } else if (id == SQL_DIAG_SQLSTATE) {
      text(p.sqlstate);
    } else if (id == SQL_DIAG_NATIVE) {
      *static_cast<SQLINTEGER *>(info) = p.native;
    } else if (id == SQL_DIAG_MESSAGE_TEXT) {
      text(p.message);
    } else if (id == SQL_DIAG_CLASS_ORIGIN || id == SQL_DIAG_SUBCLASS_ORIGIN) {
      text(p.sqlstate.compare(0, 2, "IM") == 0 ? "ODBC 3.0" : "ISO 9075");
    } else if (id == SQL_DIAG_CONNECTION_NAME || id == SQL_DIAG_SERVER_NAME) {
      text("");
    } else {
      rc = SQL_NO_DATA;
    }
    return traced(conn, "SQLGetDiagField", rc);
  }
  return traced(conn, "SQLGetDiagField",
                QZ_TARGET(SQLGetDiagField)(type, h, rec, id, info, info_max, info_len));
}

SQLRETURN SQL_API SQLGetEnvAttr(SQLHENV env, SQLINTEGER attr, SQLPOINTER value, SQLINTEGER max,
                                SQLINTEGER *len) {
  return QZ_TARGET(SQLGetEnvAttr)(env, attr, value, max, len);
}

SQLRETURN SQL_API SQLSetEnvAttr(SQLHENV env, SQLINTEGER attr, SQLPOINTER value, SQLINTEGER len) {
  return QZ_TARGET(SQLSetEnvAttr)(env, attr, value, len);
}

SQLRETURN SQL_API SQLCopyDesc(SQLHDESC from, SQLHDESC to) {
  return QZ_TARGET(SQLCopyDesc)(from, to);
}

SQLRETURN SQL_API SQLGetDescField(SQLHDESC d, SQLSMALLINT rec, SQLSMALLINT field, SQLPOINTER value,
                                  SQLINTEGER max, SQLINTEGER *len) {
  return QZ_TARGET(SQLGetDescField)(d, rec, field, value, max, len);
}

SQLRETURN SQL_API SQLGetDescRec(SQLHDESC d, SQLSMALLINT rec, SQLCHAR *name, SQLSMALLINT max,
                                SQLSMALLINT *len, SQLSMALLINT *type, SQLSMALLINT *subtype,
                                SQLLEN *length, SQLSMALLINT *precision, SQLSMALLINT *scale,
                                SQLSMALLINT *nullable) {
  return QZ_TARGET(SQLGetDescRec)(d, rec, name, max, len, type, subtype, length, precision, scale,
                                  nullable);
}

SQLRETURN SQL_API SQLSetDescField(SQLHDESC d, SQLSMALLINT rec, SQLSMALLINT field, SQLPOINTER value,
                                  SQLINTEGER len) {
  return QZ_TARGET(SQLSetDescField)(d, rec, field, value, len);
}

SQLRETURN SQL_API SQLSetDescRec(SQLHDESC d, SQLSMALLINT rec, SQLSMALLINT type, SQLSMALLINT subtype,
                                SQLLEN length, SQLSMALLINT precision, SQLSMALLINT scale,
                                SQLPOINTER data, SQLLEN *string_len, SQLLEN *indicator) {
  return QZ_TARGET(SQLSetDescRec)(d, rec, type, subtype, length, precision, scale, data, string_len,
                                  indicator);
}

}  // extern "C"
