// Test-only interposer over libodbc, loaded with LD_PRELOAD into a process under test: it
// fails the application's own ODBC calls that the driver manager serves without any driver
// (SQLAllocEnv, SQLAllocConnect) or whose failure no driver can reach (SQLError itself).
// Its rules come from the environment variable QZ_ODBC_INTERPOSE, read by nothing else.
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

// The ODBC 2.x calls an application makes through the driver manager: name, parameters
// (the first one is the handle that owns the call's diagnostics), arguments.
#define QZ_INTERPOSED(X)                                                                      \
  X(SQLAllocStmt, (SQLHDBC h, SQLHSTMT * a1), (h, a1))                                        \
  X(SQLBindCol,                                                                               \
    (SQLHSTMT h, SQLUSMALLINT a1, SQLSMALLINT a2, SQLPOINTER a3, SQLLEN a4, SQLLEN * a5),     \
    (h, a1, a2, a3, a4, a5))                                                                  \
  X(SQLBindParameter,                                                                         \
    (SQLHSTMT h, SQLUSMALLINT a1, SQLSMALLINT a2, SQLSMALLINT a3, SQLSMALLINT a4, SQLULEN a5, \
     SQLSMALLINT a6, SQLPOINTER a7, SQLLEN a8, SQLLEN * a9),                                  \
    (h, a1, a2, a3, a4, a5, a6, a7, a8, a9))                                                  \
  X(SQLColumns,                                                                               \
    (SQLHSTMT h, SQLCHAR * a1, SQLSMALLINT a2, SQLCHAR * a3, SQLSMALLINT a4, SQLCHAR * a5,    \
     SQLSMALLINT a6, SQLCHAR * a7, SQLSMALLINT a8),                                           \
    (h, a1, a2, a3, a4, a5, a6, a7, a8))                                                      \
  X(SQLDescribeCol,                                                                           \
    (SQLHSTMT h, SQLUSMALLINT a1, SQLCHAR * a2, SQLSMALLINT a3, SQLSMALLINT * a4,             \
     SQLSMALLINT * a5, SQLULEN * a6, SQLSMALLINT * a7, SQLSMALLINT * a8),                     \
    (h, a1, a2, a3, a4, a5, a6, a7, a8))                                                      \
  X(SQLDescribeParam,                                                                         \
    (SQLHSTMT h, SQLUSMALLINT a1, SQLSMALLINT * a2, SQLULEN * a3, SQLSMALLINT * a4,           \
     SQLSMALLINT * a5),                                                                       \
    (h, a1, a2, a3, a4, a5))                                                                  \
  X(SQLDisconnect, (SQLHDBC h), (h))                                                          \
  X(SQLDriverConnect,                                                                         \
    (SQLHDBC h, SQLHWND a1, SQLCHAR * a2, SQLSMALLINT a3, SQLCHAR * a4, SQLSMALLINT a5,       \
     SQLSMALLINT * a6, SQLUSMALLINT a7),                                                      \
    (h, a1, a2, a3, a4, a5, a6, a7))                                                          \
  X(SQLExecDirect, (SQLHSTMT h, SQLCHAR * a1, SQLINTEGER a2), (h, a1, a2))                    \
  X(SQLExecute, (SQLHSTMT h), (h))                                                            \
  X(SQLFetch, (SQLHSTMT h), (h))                                                              \
  X(SQLFreeConnect, (SQLHDBC h), (h))                                                         \
  X(SQLFreeEnv, (SQLHENV h), (h))                                                             \
  X(SQLFreeStmt, (SQLHSTMT h, SQLUSMALLINT a1), (h, a1))                                      \
  X(SQLNumParams, (SQLHSTMT h, SQLSMALLINT * a1), (h, a1))                                    \
  X(SQLNumResultCols, (SQLHSTMT h, SQLSMALLINT * a1), (h, a1))                                \
  X(SQLPrepare, (SQLHSTMT h, SQLCHAR * a1, SQLINTEGER a2), (h, a1, a2))                       \
  X(SQLRowCount, (SQLHSTMT h, SQLLEN * a1), (h, a1))                                          \
  X(SQLSetConnectOption, (SQLHDBC h, SQLUSMALLINT a1, SQLULEN a2), (h, a1, a2))               \
  X(SQLSetParam,                                                                              \
    (SQLHSTMT h, SQLUSMALLINT a1, SQLSMALLINT a2, SQLSMALLINT a3, SQLULEN a4, SQLSMALLINT a5, \
     SQLPOINTER a6, SQLLEN * a7),                                                             \
    (h, a1, a2, a3, a4, a5, a6, a7))                                                          \
  X(SQLTables,                                                                                \
    (SQLHSTMT h, SQLCHAR * a1, SQLSMALLINT a2, SQLCHAR * a3, SQLSMALLINT a4, SQLCHAR * a5,    \
     SQLSMALLINT a6, SQLCHAR * a7, SQLSMALLINT a8),                                           \
    (h, a1, a2, a3, a4, a5, a6, a7, a8))

namespace {

using qz::fault::copy_text;
using qz::fault::Pending;
using qz::fault::Rule;

#define QZ_NAME(name, params, args) #name,
const std::vector<std::string_view> function_names = {QZ_INTERPOSED(QZ_NAME) "SQLAllocEnv",
                                                      "SQLAllocConnect", "SQLError", "SQLTransact"};

std::mutex state_mutex;                   // guards the rules and the pending records
std::vector<Rule> *rules;                 // parsed from QZ_ODBC_INTERPOSE at the first call
std::map<void *, Pending> pending_diags;  // handle -> injected record of its last call

// The rules, read once. A rule text that does not parse stops the process: a test whose
// faults silently do not happen would pass for the wrong reason.
std::vector<Rule> &active_rules() {
  if (!rules) {
    rules = new std::vector<Rule>;
    const char *text = std::getenv("QZ_ODBC_INTERPOSE");
    std::string error;
    if (text && !qz::fault::parse_rules(text, function_names, *rules, error)) {
      std::fprintf(stderr, "qzodbcinterpose: QZ_ODBC_INTERPOSE: %s\n", error.c_str());
      std::abort();
    }
  }
  return *rules;
}

void *next_symbol(const char *name) {
  void *sym = dlsym(RTLD_NEXT, name);
  if (!sym) {
    std::fprintf(stderr, "qzodbcinterpose: no %s after this library\n", name);
    std::abort();
  }
  return sym;
}

#define QZ_NEXT(name) reinterpret_cast<decltype(&name)>(next_symbol(#name))

// The rule that fires for this call of `fn`, copied to `out`; a call on `handle` (null:
// none) discards that handle's injected record.
bool find_fault(const char *fn, void *handle, Rule &out) {
  std::lock_guard<std::mutex> lock(state_mutex);
  if (handle) pending_diags.erase(handle);
  Rule *r = qz::fault::match(active_rules(), fn);
  if (!r) return false;
  out = *r;
  return true;
}

SQLRETURN inject(void *handle, const Rule &r) {
  if (handle) {
    std::lock_guard<std::mutex> lock(state_mutex);
    pending_diags[handle] = Pending{r.rc, r.sqlstate, r.native, r.message, false};
  }
  return static_cast<SQLRETURN>(r.rc);
}

template <class Call>
SQLRETURN forward(const char *fn, void *handle, Call next_call) {
  Rule r;
  if (!find_fault(fn, handle, r)) return next_call();
  if (r.after || r.rc == SQL_SUCCESS_WITH_INFO) {
    SQLRETURN rc = next_call();
    if (rc != SQL_SUCCESS && rc != SQL_SUCCESS_WITH_INFO) return rc;
  }
  return inject(handle, r);
}

}  // namespace

extern "C" {

#define QZ_DEFINE(name, params, args)                             \
  SQLRETURN SQL_API name params {                                 \
    return forward(#name, h, [&] { return QZ_NEXT(name) args; }); \
  }
QZ_INTERPOSED(QZ_DEFINE)

// A failed allocation makes no handle: the record of a failed SQLAllocConnect belongs to
// the environment, as the driver manager's own would; SQLAllocEnv has nowhere to put one.
SQLRETURN SQL_API SQLAllocEnv(SQLHENV *env) {
  Rule r;
  if (!find_fault("SQLAllocEnv", nullptr, r)) return QZ_NEXT(SQLAllocEnv)(env);
  *env = SQL_NULL_HENV;
  return static_cast<SQLRETURN>(r.rc);
}

SQLRETURN SQL_API SQLAllocConnect(SQLHENV env, SQLHDBC *dbc) {
  Rule r;
  if (!find_fault("SQLAllocConnect", env, r)) return QZ_NEXT(SQLAllocConnect)(env, dbc);
  *dbc = SQL_NULL_HDBC;
  return inject(env, r);
}

SQLRETURN SQL_API SQLTransact(SQLHENV env, SQLHDBC dbc, SQLUSMALLINT type) {
  return forward("SQLTransact", dbc ? dbc : env,
                 [&] { return QZ_NEXT(SQLTransact)(env, dbc, type); });
}

SQLRETURN SQL_API SQLError(SQLHENV env, SQLHDBC dbc, SQLHSTMT stmt, SQLCHAR *state,
                           SQLINTEGER *native, SQLCHAR *msg, SQLSMALLINT msg_max,
                           SQLSMALLINT *msg_len) {
  Rule r;
  if (find_fault("SQLError", nullptr, r)) return static_cast<SQLRETURN>(r.rc);
  void *h = stmt ? stmt : dbc ? dbc : env;
  {
    std::lock_guard<std::mutex> lock(state_mutex);
    auto it = pending_diags.find(h);
    if (it != pending_diags.end()) {
      // The injected call never reached the driver manager, whose records for this
      // handle, if any, belong to an older call.
      if (it->second.drained) return SQL_NO_DATA_FOUND;
      copy_text(it->second.sqlstate, state, 6, nullptr);
      if (native) *native = it->second.native;
      copy_text(it->second.message, msg, msg_max, msg_len);
      it->second.drained = true;
      return SQL_SUCCESS;
    }
  }
  return QZ_NEXT(SQLError)(env, dbc, stmt, state, native, msg, msg_max, msg_len);
}

}  // extern "C"
