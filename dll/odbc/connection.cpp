// The connection object and its method table conn_m, and the diagnostics queue: err is
// the one place where an ODBC return code of the bridge becomes log lines and queued
// records for GetError.
#include "connection.hpp"

#include <cstdlib>
#include <cstring>

#include "bridge.hpp"
#include "qzcharset.hpp"
#include "qzhost.hpp"

Llist odbc_errors = {nullptr, nullptr, 0};
odbc_error *curr_odbc_error = nullptr;

namespace {

constexpr int kMessageBuffer = 256;  // SQLError's message buffer; longer texts arrive cut

// A heap copy of text through dll_alloc; the process stops when none can be had.
char *queue_copy(const char *text, const char *file, int line) {
  std::size_t n = std::strlen(text) + 1;
  auto *copy = static_cast<char *>(dll_alloc(n));
  if (!copy) qz::fatal_no_memory(file, line, n);
  std::memcpy(copy, text, n);
  return copy;
}

// Appends a record to the queue. file and line are the caller's (for the log line when
// memory runs out).
void queue_error(const char *message, const char *sqlstate, SQLINTEGER native, const char *file,
                 int line) {
  auto *e = static_cast<odbc_error *>(Llist_AddItem(&odbc_errors, sizeof(odbc_error)));
  if (!e) qz::fatal_no_memory(file, line, sizeof(odbc_error));
  *e = odbc_error{nullptr, nullptr, native};
  e->message = queue_copy(message, file, line);
  e->sqlstate = queue_copy(sqlstate, file, line);
}

SQLRETURN err(connection *conn, stmt *s, SQLRETURN rc, int quiet, const char *file, int line) {
  if (!quiet) cleanup_odbc_errors();
  if (rc == SQL_SUCCESS) return SQL_SUCCESS;
  SQLRETURN result = rc == SQL_SUCCESS_WITH_INFO ? SQL_SUCCESS : rc;
  if (!conn) {
    QZ_ASSERT(s);
    conn = stmt_connection(s);
  }
  QZ_ASSERT(conn);
  const char *base = extract_filename(file);
  SQLHSTMT hstmt = s ? stmt_handle(s) : SQL_NULL_HSTMT;
  SQLHDBC hdbc = conn->hdbc;
  // Statement level first, then connection, then environment: each level is read until
  // SQLError has no more for it.
  for (;;) {
    SQLCHAR state[6] = {0};
    SQLINTEGER native = 0;
    SQLCHAR message[kMessageBuffer] = {0};
    SQLSMALLINT len = 0;
    SQLRETURN e = SQLError(conn->henv, hdbc, hstmt, state, &native, message, kMessageBuffer, &len);
    if (e == SQL_NO_DATA_FOUND) {
      if (!hstmt && !hdbc) return result;
      if (hstmt)
        hstmt = SQL_NULL_HSTMT;
      else
        hdbc = SQL_NULL_HDBC;
      continue;
    }
    const char *text = reinterpret_cast<const char *>(message);
    const char *sqlstate = reinterpret_cast<const char *>(state);
    if (e == SQL_SUCCESS || e == SQL_SUCCESS_WITH_INFO) {
      qz::terminate_driver_text(message, kMessageBuffer, len);
      state[5] = '\0';  // five characters, however many the driver wrote
      // The native code is printed as the unsigned 32-bit value it is on the wire, so
      // that -1 reads the same in both word sizes.
      qz__Log('O', 2, "%s(%d): %s SQLState=%s [%lu]", base, line, text, sqlstate,
              static_cast<unsigned long>(static_cast<SQLUINTEGER>(native)));
      if (!quiet) queue_error(text, sqlstate, native, file, line);
      continue;
    }
    const char *own = e == SQL_INVALID_HANDLE ? "The handle is invalid" : "ODBC operation failed";
    qz__Log('O', 1, "%s(%d): %s", base, line, own);
    if (!quiet) queue_error(own, "00000", -1, file, line);
    return e;
  }
}

int can_connect(connection *conn) {
  if (conn->flags & CONN_CONNECTED) {
    QZ_OLOG(2, "ODBC connection already established");
    return qz::kAlreadyConnected;
  }
  return qz::kOk;
}

int can_disconnect(connection *conn) {
  if (conn->flags & CONN_CONNECTED) return qz::kOk;
  QZ_OLOG(2, "ODBC connection has not been established");
  return qz::kNotConnected;
}

int do_disconnect(connection *conn) {
  if (int st = conn->methods->can_disconnect(conn)) return st;
  conn->flags &= ~CONN_CONNECTED;
  std::free(conn->conn_spec);
  conn->conn_spec = nullptr;
  SQLRETURN rc = SQLDisconnect(conn->hdbc);
  if (conn->methods->err(conn, nullptr, rc, 0, __FILE__, __LINE__)) return qz::kDisconnectFailed;
  return qz::kOk;
}

int do_connect(connection *conn, const char *conn_spec, int conn_spec_len) {
  QZ_ASSERT(conn_spec);
  QZ_ASSERT(conn_spec_len >= 0);
  if (int st = conn->methods->can_connect(conn)) return st;
  QZ_ASSERT(!conn->conn_spec);
  if (!conn->henv) {
    SQLHENV henv = SQL_NULL_HENV;
    if (SQLAllocEnv(&henv) != SQL_SUCCESS) return qz::kHandleAlloc;
    conn->henv = henv;
  }
  if (!conn->hdbc) {
    SQLHDBC hdbc = SQL_NULL_HDBC;
    SQLRETURN rc = SQLAllocConnect(conn->henv, &hdbc);
    // With no connection handle yet, err reads the environment's records.
    if (conn->methods->err(conn, nullptr, rc, 0, __FILE__, __LINE__)) {
      SQLFreeEnv(conn->henv);
      conn->henv = SQL_NULL_HENV;
      return qz::kHandleAlloc;
    }
    conn->hdbc = hdbc;
  }
  if (conn_spec_len > kMaxConnSpec) {
    QZ_OLOG(1, "ODBC connection string too long (maximum is %u bytes)",
            static_cast<unsigned>(kMaxConnSpec));
    return qz::kBadArgument;
  }
  SQLCHAR in[kConnSpecBuffer];
  std::memcpy(in, conn_spec, static_cast<std::size_t>(conn_spec_len));
  in[conn_spec_len] = '\0';
  qz__charset_map(qz::kRoman8, qz::kIso8859_1, in, static_cast<unsigned>(conn_spec_len));
  SQLCHAR out[kConnSpecBuffer] = {0};
  SQLSMALLINT out_len = 0;
  SQLRETURN rc = SQLDriverConnect(conn->hdbc, nullptr, in, SQL_NTS, out, kConnSpecBuffer, &out_len,
                                  SQL_DRIVER_NOPROMPT);
  if (conn->methods->err(conn, nullptr, rc, 0, __FILE__, __LINE__)) return qz::kConnectFailed;
  conn->flags |= CONN_CONNECTED;
  std::size_t n = qz::terminate_driver_text(out, kConnSpecBuffer, out_len);
  qz__charset_map(qz::kIso8859_1, qz::kRoman8, out, static_cast<unsigned>(n));
  conn->conn_spec = static_cast<char *>(QZ_ALLOC(n + 1));
  if (!conn->conn_spec) {
    conn->methods->do_disconnect(conn);
    return qz::kNoMemory;
  }
  std::memcpy(conn->conn_spec, out, n + 1);
  conn->param_arrays = 0;  // another data source may have another driver
  ++conn->generation;
  return qz::kOk;
}

int set_connect_option(connection *conn, SQLUSMALLINT option, SQLULEN value) {
  if (!(conn->flags & CONN_CONNECTED)) {
    QZ_OLOG(2, "ODBC connection has not been established");
    return qz::kNotConnected;
  }
  SQLRETURN rc = SQLSetConnectOption(conn->hdbc, option, value);
  if (conn->methods->err(conn, nullptr, rc, 0, __FILE__, __LINE__)) return qz::kOdbcFailed;
  return qz::kOk;
}

int transact(connection *conn, SQLUSMALLINT completion) {
  if (!(conn->flags & CONN_CONNECTED)) {
    QZ_OLOG(2, "ODBC connection has not been established");
    return qz::kNotConnected;
  }
  SQLRETURN rc = SQLTransact(SQL_NULL_HENV, conn->hdbc, completion);
  if (conn->methods->err(conn, nullptr, rc, 0, __FILE__, __LINE__)) return qz::kOdbcFailed;
  return qz::kOk;
}

int commit(connection *conn) {
  return transact(conn, SQL_COMMIT);
}

int rollback(connection *conn) {
  return transact(conn, SQL_ROLLBACK);
}

void drop(connection **conn_p) {
  QZ_ASSERT(conn_p && *conn_p);
  connection *conn = *conn_p;
  QZ_ASSERT(conn->refcnt >= 1);
  if (--conn->refcnt == 0) {
    if (conn->flags & CONN_CONNECTED) conn->methods->do_disconnect(conn);
    // A release that fails leaves its handle alive, so its diagnostics are read before
    // the handle is forgotten.
    if (conn->hdbc) {
      SQLRETURN rc = SQLFreeConnect(conn->hdbc);
      conn->methods->err(conn, nullptr, rc, 0, __FILE__, __LINE__);
      conn->hdbc = SQL_NULL_HDBC;
    }
    if (conn->henv) {
      SQLRETURN rc = SQLFreeEnv(conn->henv);
      conn->methods->err(conn, nullptr, rc, 0, __FILE__, __LINE__);
      conn->henv = SQL_NULL_HENV;
    }
    std::free(conn);
  }
  *conn_p = nullptr;
}

}  // namespace

const struct conn_m conn_m = {
    drop,           can_connect,   do_connect, set_connect_option, commit, rollback,
    can_disconnect, do_disconnect, err,
};

int new_connection(connection **conn_p) {
  auto *conn = static_cast<connection *>(QZ_ALLOC(sizeof(connection)));
  if (!conn) {
    return qz::kNoMemory;
  }
  std::memset(conn, 0, sizeof *conn);
  conn->refcnt = 1;
  conn->methods = &conn_m;
  conn->describe_param_ok = 1;
  conn->bind_parameter_ok = 1;
  *conn_p = conn;
  return qz::kOk;
}

odbc_error *next_odbc_error() {
  if (curr_odbc_error) cleanup_odbc_error(curr_odbc_error);
  curr_odbc_error =
      odbc_errors.first ? static_cast<odbc_error *>(qz::llist_data(odbc_errors.first)) : nullptr;
  return curr_odbc_error;
}

odbc_error *last_odbc_error() {
  return odbc_errors.last ? static_cast<odbc_error *>(qz::llist_data(odbc_errors.last)) : nullptr;
}

void cleanup_odbc_errors() {
  while (odbc_errors.first)
    cleanup_odbc_error(static_cast<odbc_error *>(qz::llist_data(odbc_errors.first)));
  curr_odbc_error = nullptr;
}

void cleanup_odbc_error(odbc_error *e) {
  if (e == curr_odbc_error) curr_odbc_error = nullptr;
  std::free(e->message);
  std::free(e->sqlstate);
  Llist_DeleteItem(e);
}

void qz::queue_own_error(const char *message) {
  queue_error(message, "00000", -1, __FILE__, __LINE__);
}

void qz::move_odbc_errors(Llist *from, Llist *to) {
  if (!from->first) return;
  for (Llist_Item *i = from->first; i; i = i->next)
    i->list = to;
  from->first->prev = to->last;
  if (to->last)
    to->last->next = from->first;
  else
    to->first = from->first;
  to->last = from->last;
  to->count += from->count;
  Llist_Init(from);
}
