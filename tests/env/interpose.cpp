// Test-only interposer over libodbc, preloaded (LD_PRELOAD) into a server under test. It
// wraps every ODBC 2.x call the server makes; without rules it passes each one on.
// QZ_ODBC_TRACE=FILE appends a line "FUNCTION RC" per call, in order. QZ_ODBC_INTERPOSE
// holds rules separated by ';':
//
//   RULE   = FUNC[@N]:ACTION     on the N-th call of FUNC only (counted per rule), else on every
//   ACTION = RC[:SQLSTATE[:NATIVE[:MESSAGE]]] | unsupported | unterminated | block | crash
//
// - RC (a number: -1 SQL_ERROR, 1 SQL_SUCCESS_WITH_INFO, -2 SQL_INVALID_HANDLE, ...): the call
//   is not made (for 1 it is made first) and answers RC with one record on its handle
//   (SQLSTATE HY000, native 0, "Injected failure of FUNC" unless given), which the server
//   reads with SQLError; the next call on that handle discards it. A rule on SQLError makes
//   SQLError itself answer RC.
// - unsupported: SQL_ERROR with IM001 "Driver does not support this function".
// - unterminated: the call is made; every text it cut (SQLFetch into bound text columns),
//   the column name of SQLDescribeCol and the message of SQLError then fill their buffer to
//   the last byte with no terminator, as some drivers leave them.
// - block: the call never returns; crash: the process gets SIGSEGV inside it.
// A rule that does not parse aborts the process: a test whose faults silently do not
// happen would pass for the wrong reason. The interposer maps no SQLSTATE; the driver
// manager hands an ODBC 2.x application the 2.x spellings (HY000 -> S1000, ...).
#include <dlfcn.h>
#include <signal.h>
#include <sql.h>
#include <sqlext.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <string_view>
#include <vector>

// The calls wrapped by forwarding alone: name, parameters (the first one is the handle
// that owns the call's diagnostics), arguments.
#define QZ_FORWARDED(X)                                                                       \
  X(SQLAllocStmt, (SQLHDBC h, SQLHSTMT * a1), (h, a1))                                        \
  X(SQLBindParameter,                                                                         \
    (SQLHSTMT h, SQLUSMALLINT a1, SQLSMALLINT a2, SQLSMALLINT a3, SQLSMALLINT a4, SQLULEN a5, \
     SQLSMALLINT a6, SQLPOINTER a7, SQLLEN a8, SQLLEN * a9),                                  \
    (h, a1, a2, a3, a4, a5, a6, a7, a8, a9))                                                  \
  X(SQLCancel, (SQLHSTMT h), (h))                                                             \
  X(SQLColumns,                                                                               \
    (SQLHSTMT h, SQLCHAR * a1, SQLSMALLINT a2, SQLCHAR * a3, SQLSMALLINT a4, SQLCHAR * a5,    \
     SQLSMALLINT a6, SQLCHAR * a7, SQLSMALLINT a8),                                           \
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
  X(SQLFreeConnect, (SQLHDBC h), (h))                                                         \
  X(SQLFreeEnv, (SQLHENV h), (h))                                                             \
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

enum class Action { fail, unsupported, unterminated, block, crash };

struct Rule {
  std::string function;  // as the application calls it, e.g. "SQLFetch"
  int only = 0;          // the one call (1-based, counted per rule) that fires; 0: every call
  Action action = Action::fail;
  int rc = SQL_ERROR;              // return code of a failure
  std::string sqlstate = "HY000";  // its record
  int native = 0;                  //
  std::string message;             //
  int calls = 0;                   // calls of `function` seen so far
};

struct Record {
  std::string sqlstate, message;  // the injected record of a handle's last call
  int native = 0;
  bool drained = false;  // handed out: the handle has no more records
};

struct BoundText {
  SQLCHAR *buf;  // an SQL_C_CHAR column buffer bound by SQLBindCol
  SQLLEN size;   // its size
  SQLLEN *ind;   // its length/indicator
};

std::vector<Rule> *rules;                          // parsed at the first call
std::map<void *, Record> records;                  // handle -> injected record
std::map<void *, std::map<int, BoundText>> bound;  // statement -> column -> text buffer
std::FILE *trace;                                  // QZ_ODBC_TRACE, or null

[[noreturn]] void refuse(const std::string &what) {
  std::fprintf(stderr, "qzodbcinterpose: QZ_ODBC_INTERPOSE: %s\n", what.c_str());
  std::abort();  // a test whose faults silently do not happen would pass for the wrong reason
}

Rule parse(const std::string &text) {
  Rule r;
  std::size_t colon = text.find(':'), at = text.find('@');
  if (colon == std::string::npos) refuse("no ':' in '" + text + "'");
  r.function = text.substr(0, std::min(at, colon));
  if (at < colon && (r.only = std::atoi(text.c_str() + at + 1)) <= 0)
    refuse("bad call number in '" + text + "'");
  const std::string rest = text.substr(colon + 1);
  static const std::pair<const char *, Action> words[] = {{"unsupported", Action::unsupported},
                                                          {"unterminated", Action::unterminated},
                                                          {"block", Action::block},
                                                          {"crash", Action::crash}};
  for (auto [word, action] : words)
    if (rest == word) r.action = action;
  if (r.action == Action::unsupported) {
    r.sqlstate = "IM001";
    r.message = "Driver does not support this function";
  }
  if (r.action != Action::fail) return r;
  char state[16] = "HY000", message[256] = "";
  int n = std::sscanf(rest.c_str(), "%d:%15[^:]:%d:%255[^\n]", &r.rc, state, &r.native, message);
  r.sqlstate = state;
  if (n < 1 || r.sqlstate.size() != 5) refuse("bad action '" + rest + "'");
  r.message = n == 4 ? message : "Injected failure of " + r.function;
  return r;
}

std::vector<Rule> &active_rules() {
  if (!rules) {
    rules = new std::vector<Rule>;
    std::string_view text =
        std::getenv("QZ_ODBC_INTERPOSE") ? std::getenv("QZ_ODBC_INTERPOSE") : "";
    while (!text.empty()) {
      std::size_t semi = text.find(';');
      if (semi > 0) rules->push_back(parse(std::string(text.substr(0, semi))));
      text = semi == std::string_view::npos ? std::string_view() : text.substr(semi + 1);
    }
    if (const char *path = std::getenv("QZ_ODBC_TRACE")) trace = std::fopen(path, "a");
  }
  return *rules;
}

// Counts the call against every rule of `fn` and returns the first that fires, or null.
// A call on `handle` discards the record injected into its last call.
Rule *fires(const char *fn, void *handle) {
  if (handle) records.erase(handle);
  Rule *fired = nullptr;
  for (Rule &r : active_rules()) {
    if (r.function != fn) continue;
    ++r.calls;
    if (!fired && (r.only == 0 || r.calls == r.only)) fired = &r;
  }
  return fired;
}

void *next_symbol(const char *name) {
  void *sym = dlsym(RTLD_NEXT, name);
  if (!sym) refuse(std::string("no ") + name + " after this library");
  return sym;
}
#define QZ_NEXT(name) reinterpret_cast<decltype(&name)>(next_symbol(#name))

// Pads a text the driver returned in buf (size bytes) to the buffer's last byte, with its
// own last character and no terminator, and reports its length as longer than the buffer.
template <class Len>
void unterminate(SQLCHAR *buf, SQLLEN size, Len *len) {
  if (!buf || size < 2) return;
  std::size_t n = strnlen(reinterpret_cast<char *>(buf), static_cast<std::size_t>(size));
  std::memset(buf + n, n ? buf[n - 1] : '_', static_cast<std::size_t>(size) - n);
  if (len) *len = static_cast<Len>(size + 10);
}

// The call through the rules: `real` makes the real call, `fill` unterminates its texts.
template <class Call, class Fill>
SQLRETURN apply(const char *fn, void *handle, Call real, Fill fill) {
  Rule *r = fires(fn, handle);
  SQLRETURN rc;
  if (!r) {
    rc = real();
  } else if (r->action == Action::unterminated) {
    rc = real();
    if (SQL_SUCCEEDED(rc)) fill();
  } else if (r->action == Action::block) {
    for (;;)
      pause();
  } else if (r->action == Action::crash) {
    raise(SIGSEGV);
    rc = SQL_ERROR;
  } else {
    rc = SQL_SUCCESS;
    if (r->rc == SQL_SUCCESS_WITH_INFO) rc = real();
    if (SQL_SUCCEEDED(rc)) {
      if (handle) records[handle] = Record{r->sqlstate, r->message, r->native, false};
      rc = static_cast<SQLRETURN>(r->rc);
    }
  }
  if (trace) std::fprintf(trace, "%s %d\n", fn, rc), std::fflush(trace);
  return rc;
}

template <class Call>
SQLRETURN apply(const char *fn, void *handle, Call real) {
  return apply(fn, handle, real, [] {});
}

void copy_text(const std::string &text, SQLCHAR *buf, SQLSMALLINT size, SQLSMALLINT *len) {
  if (len) *len = static_cast<SQLSMALLINT>(text.size());
  if (!buf || size <= 0) return;
  std::size_t n = std::min(text.size(), static_cast<std::size_t>(size - 1));
  std::memcpy(buf, text.data(), n);
  buf[n] = 0;
}

}  // namespace

extern "C" {

#define QZ_DEFINE(name, params, args)                           \
  SQLRETURN SQL_API name params {                               \
    return apply(#name, h, [&] { return QZ_NEXT(name) args; }); \
  }
QZ_FORWARDED(QZ_DEFINE)

// A failed allocation makes no handle: the record of a failed SQLAllocConnect belongs to
// the environment, as the driver manager's own would; SQLAllocEnv has nowhere to put one.
SQLRETURN SQL_API SQLAllocEnv(SQLHENV *env) {
  *env = SQL_NULL_HENV;
  return apply("SQLAllocEnv", nullptr, [&] { return QZ_NEXT(SQLAllocEnv)(env); });
}

SQLRETURN SQL_API SQLAllocConnect(SQLHENV env, SQLHDBC *dbc) {
  *dbc = SQL_NULL_HDBC;
  return apply("SQLAllocConnect", env, [&] { return QZ_NEXT(SQLAllocConnect)(env, dbc); });
}

SQLRETURN SQL_API SQLTransact(SQLHENV env, SQLHDBC dbc, SQLUSMALLINT type) {
  return apply("SQLTransact", dbc ? dbc : env,
               [&] { return QZ_NEXT(SQLTransact)(env, dbc, type); });
}

SQLRETURN SQL_API SQLBindCol(SQLHSTMT h, SQLUSMALLINT col, SQLSMALLINT type, SQLPOINTER buf,
                             SQLLEN size, SQLLEN *ind) {
  SQLRETURN rc =
      apply("SQLBindCol", h, [&] { return QZ_NEXT(SQLBindCol)(h, col, type, buf, size, ind); });
  if (SQL_SUCCEEDED(rc)) {
    if (type == SQL_C_CHAR)
      bound[h][col] = BoundText{static_cast<SQLCHAR *>(buf), size, ind};
    else
      bound[h].erase(col);
  }
  return rc;
}

SQLRETURN SQL_API SQLFreeStmt(SQLHSTMT h, SQLUSMALLINT option) {
  if (option == SQL_DROP || option == SQL_UNBIND) bound.erase(h);
  return apply("SQLFreeStmt", h, [&] { return QZ_NEXT(SQLFreeStmt)(h, option); });
}

// unterminated: every text value the fetch cut fills its buffer to the last byte.
SQLRETURN SQL_API SQLFetch(SQLHSTMT h) {
  return apply(
      "SQLFetch", h, [&] { return QZ_NEXT(SQLFetch)(h); },
      [&] {
        for (auto &[col, t] : bound[h])
          if (t.ind && (*t.ind >= t.size || *t.ind == SQL_NO_TOTAL))
            unterminate(t.buf, t.size, t.ind);
      });
}

// unterminated: the column name fills its buffer.
SQLRETURN SQL_API SQLDescribeCol(SQLHSTMT h, SQLUSMALLINT col, SQLCHAR *name, SQLSMALLINT size,
                                 SQLSMALLINT *len, SQLSMALLINT *type, SQLULEN *prec,
                                 SQLSMALLINT *scale, SQLSMALLINT *nullable) {
  return apply(
      "SQLDescribeCol", h,
      [&] { return QZ_NEXT(SQLDescribeCol)(h, col, name, size, len, type, prec, scale, nullable); },
      [&] { unterminate(name, size, len); });
}

// The record injected into the handle's last call, if any; unterminated: the message fills
// its buffer; a failure: SQLError itself answers that code and touches nothing.
SQLRETURN SQL_API SQLError(SQLHENV env, SQLHDBC dbc, SQLHSTMT stmt, SQLCHAR *state,
                           SQLINTEGER *native, SQLCHAR *msg, SQLSMALLINT msg_max,
                           SQLSMALLINT *msg_len) {
  void *h = stmt ? stmt : dbc ? dbc : env;
  auto it = records.find(h);
  return apply(
      "SQLError", nullptr,
      [&]() -> SQLRETURN {
        if (it == records.end())
          return QZ_NEXT(SQLError)(env, dbc, stmt, state, native, msg, msg_max, msg_len);
        // The injected call never reached the driver manager, whose records for this
        // handle, if any, belong to an older call.
        if (it->second.drained) return SQL_NO_DATA_FOUND;
        copy_text(it->second.sqlstate, state, 6, nullptr);
        if (native) *native = it->second.native;
        copy_text(it->second.message, msg, msg_max, msg_len);
        it->second.drained = true;
        return SQL_SUCCESS;
      },
      [&] { unterminate(msg, msg_max, msg_len); });
}

}  // extern "C"
