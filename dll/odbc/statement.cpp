// The statement's life and execution: creation, attaching to a connection (one
// reference), dropping, the connection check, allocating and emptying the handle,
// preparing with the parameter description, binding with its fall-back, direct execution,
// the catalog queries, execute, fetch and the row count; and the method table stmt_m.
#include "statement.hpp"

#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "bridge.hpp"
#include "qzcharset.hpp"
#include "sqltypes.hpp"
#include "statement_parts.hpp"

// The text buffer settings that SetTextColumnSize changes live beside their readers, so
// that the statement object links without the function table.
int text_column_def_size = 1024;
int text_column_max_size = 1024;

connection *stmt_connection(const stmt *s) {
  return s->conn;
}

SQLHSTMT stmt_handle(const stmt *s) {
  return s->hstmt;
}

void *volatile qz::stmt_in_driver = nullptr;

namespace {

constexpr unsigned kStateBits =
    STMT_PREPARED | STMT_FETCHED | STMT_END_OF_DATA | STMT_PENDING | STMT_SUMMED;

// Marks hstmt as inside the driver for the length of one ODBC call that may wait for the
// database, so that the termination signal can cancel it.
class InDriver {
 public:
  explicit InDriver(SQLHSTMT h) { qz::stmt_in_driver = h; }
  ~InDriver() { qz::stmt_in_driver = nullptr; }
  InDriver(const InDriver &) = delete;
  InDriver &operator=(const InDriver &) = delete;
};

// The connection check at the start of the execution methods: 0, or 1116 (logged) after
// verify_connection emptied the statement.
int check_connection(stmt *s) {
  if (verify_connection(s) == 0) return qz::kOk;
  QZ_OLOG(2, "ODBC connection has not been established");
  return qz::kNotConnected;
}

// The first steps of prepare and execdirect: the connection check, the handle, and a
// NUL-terminated copy of the SQL in ISO 8859-1 at *copy (the caller frees it).
int begin_sql(stmt *s, const char *sql, int sql_len, char **copy) {
  QZ_ASSERT(sql);
  QZ_ASSERT(sql_len >= 0);
  if (int st = check_connection(s)) return st;
  if (setup_statement(s) != 0) return qz::kHandleAlloc;
  std::size_t n = static_cast<std::size_t>(sql_len) + 1;
  *copy = static_cast<char *>(QZ_ALLOC(n));
  if (!*copy) {
    return qz::kNoMemory;
  }
  std::memcpy(*copy, sql, n - 1);
  (*copy)[sql_len] = '\0';
  qz__charset_map(qz::kRoman8, qz::kIso8859_1, *copy, static_cast<unsigned>(sql_len));
  return qz::kOk;
}

SQLCHAR *sqltext(char *text) {
  return reinterpret_cast<SQLCHAR *>(text);
}

// A catalog argument: a text of length 0 is passed as a null pointer, which the driver
// takes as no restriction.
SQLCHAR *catalog_arg(const char *text, int len) {
  QZ_ASSERT(text);
  QZ_ASSERT(len >= 0);
  return len ? reinterpret_cast<SQLCHAR *>(const_cast<char *>(text)) : nullptr;
}

// The parameter description of a freshly prepared statement: one record per marker, each
// described, given a buffer and bound, unless the driver cannot describe parameters.
int setup_params(stmt *s) {
  if (s->num_params != 0) {
    QZ_OLOG(2, "ODBC statement still has parameters attached");
    return qz::kOdbcFailed;
  }
  SQLSMALLINT count = 0;
  SQLRETURN rc = SQLNumParams(s->hstmt, &count);
  if (QZ_STMT_ERR(s, rc)) {
    drop_statement(s);
    return qz::kOdbcFailed;
  }
  if (count <= 0) return qz::kOk;
  std::size_t bytes = sizeof(column) * static_cast<std::size_t>(count);
  s->params = static_cast<column *>(QZ_ALLOC(bytes));
  if (!s->params) {
    drop_statement(s);
    return qz::kNoMemory;
  }
  std::memset(s->params, 0, bytes);
  s->num_params = count;
  // Undescribed parameters are bound by their first setter, or as null text at execute.
  if (!s->conn->describe_param_ok) return qz::kOk;
  for (int k = 1; k <= count; ++k) {
    column *p = &s->params[k - 1];
    SQLSMALLINT sql_type = 0, scale = 0, nullable = 0;
    SQLULEN precision = 0;
    rc = SQLDescribeParam(s->hstmt, static_cast<SQLUSMALLINT>(k), &sql_type, &precision, &scale,
                          &nullable);
    if (QZ_STMT_ERR(s, rc)) {
      const odbc_error *e = last_odbc_error();
      if (!e || !e->sqlstate || std::strcmp(e->sqlstate, "IM001") != 0) {
        drop_statement(s);
        return qz::kOdbcFailed;
      }
      QZ_OLOG(2, "working around unsupported SQLDescribeParam() function");
      s->conn->describe_param_ok = 0;
      return qz::kOk;
    }
    p->precision = static_cast<unsigned>(precision);
    p->scale = scale;
    p->nullable = nullable;
    qz::ColumnBuffer b = qz::buffer_for_sql_type(sql_type, p->precision, scale,
                                                 text_column_def_size, text_column_max_size);
    p->ctype = b.ctype;
    p->size = b.size;
    if (qz__IsLog('O', 3)) {
      char name[qz::kSqlTypeNameSize];
      QZ_OLOG(3, "param[%d] type=%s->%s precision=%u scale=%d nullable=%d", k - 1,
              qz::sql_type_name(sql_type, name), qz::c_type_name(p->ctype), p->precision, p->scale,
              p->nullable);
    }
    p->data = QZ_ALLOC(static_cast<std::size_t>(p->size));
    if (!p->data) {
      drop_statement(s);
      return qz::kNoMemory;
    }
    p->len_ind = SQL_NULL_DATA;
    if (qz::bind_with_fallback(s, k, sql_type)) {
      drop_statement(s);
      return qz::kOdbcFailed;
    }
  }
  return qz::kOk;
}

void attach(stmt *s, connection *conn) {
  QZ_ASSERT(!s->conn);
  QZ_ASSERT(conn);
  s->stmt_no = ++conn->stmt_count;
  s->conn = conn;
  s->conn_generation = conn->generation;
  ++conn->refcnt;
}

void drop(stmt **stmt_p) {
  QZ_ASSERT(stmt_p && *stmt_p);
  stmt *s = *stmt_p;
  QZ_ASSERT(s->refcnt);
  if (s->refcnt-- == 1) {
    connection *conn = s->conn;
    drop_statement(s);
    std::free(s);
    // The reference taken by attach; the last one closes the connection.
    if (conn) conn->methods->drop(&conn);
  }
  *stmt_p = nullptr;
}

int prepare(stmt *s, const char *sql, int sql_len) {
  char *copy = nullptr;
  if (int st = begin_sql(s, sql, sql_len, &copy)) return st;
  SQLRETURN rc;
  {
    InDriver guard(s->hstmt);
    rc = SQLPrepare(s->hstmt, sqltext(copy), sql_len);
  }
  std::free(copy);
  if (QZ_STMT_ERR(s, rc)) {
    drop_statement(s);
    return qz::kPrepareFailed;
  }
  s->flags |= STMT_PREPARED;
  if (int st = setup_result(s)) return st;
  return setup_params(s);
}

int execdirect(stmt *s, const char *sql, int sql_len) {
  char *copy = nullptr;
  if (int st = begin_sql(s, sql, sql_len, &copy)) return st;
  SQLRETURN rc;
  {
    InDriver guard(s->hstmt);
    rc = SQLExecDirect(s->hstmt, sqltext(copy), sql_len);
  }
  std::free(copy);
  if (QZ_STMT_ERR(s, rc)) {
    drop_statement(s);
    return qz::kExecuteFailed;
  }
  return setup_result(s);
}

int tables(stmt *s, const char *qual, int qual_len, const char *owner, int owner_len,
           const char *name, int name_len, const char *type, int type_len) {
  SQLCHAR *q = catalog_arg(qual, qual_len), *o = catalog_arg(owner, owner_len);
  SQLCHAR *n = catalog_arg(name, name_len), *t = catalog_arg(type, type_len);
  if (int st = check_connection(s)) return st;
  if (setup_statement(s) != 0) return qz::kHandleAlloc;
  SQLRETURN rc;
  {
    InDriver guard(s->hstmt);
    rc = SQLTables(s->hstmt, q, static_cast<SQLSMALLINT>(qual_len), o,
                   static_cast<SQLSMALLINT>(owner_len), n, static_cast<SQLSMALLINT>(name_len), t,
                   static_cast<SQLSMALLINT>(type_len));
  }
  if (QZ_STMT_ERR(s, rc)) {
    drop_statement(s);
    return qz::kExecuteFailed;
  }
  return setup_result(s);
}

int columns(stmt *s, const char *qual, int qual_len, const char *owner, int owner_len,
            const char *name, int name_len, const char *col_name, int col_name_len) {
  SQLCHAR *q = catalog_arg(qual, qual_len), *o = catalog_arg(owner, owner_len);
  SQLCHAR *n = catalog_arg(name, name_len), *c = catalog_arg(col_name, col_name_len);
  if (int st = check_connection(s)) return st;
  if (setup_statement(s) != 0) return qz::kHandleAlloc;
  SQLRETURN rc;
  {
    InDriver guard(s->hstmt);
    rc = SQLColumns(s->hstmt, q, static_cast<SQLSMALLINT>(qual_len), o,
                    static_cast<SQLSMALLINT>(owner_len), n, static_cast<SQLSMALLINT>(name_len), c,
                    static_cast<SQLSMALLINT>(col_name_len));
  }
  if (QZ_STMT_ERR(s, rc)) {
    drop_statement(s);
    return qz::kExecuteFailed;
  }
  return setup_result(s);
}

int execute(stmt *s) {
  if (int st = check_connection(s)) return st;
  if (!(s->flags & STMT_PREPARED)) {
    QZ_OLOG(2, "ODBC statement has not been prepared");
    return qz::kNotPrepared;
  }
  s->flags &= ~(STMT_FETCHED | STMT_END_OF_DATA | STMT_PENDING | STMT_SUMMED);
  // A parameter that was neither described nor given a value goes as null text.
  for (int k = 1; k <= s->num_params; ++k) {
    column *p = &s->params[k - 1];
    if (p->data) continue;
    p->ctype = SQL_C_CHAR;
    p->precision = static_cast<unsigned>(text_column_def_size);
    p->scale = 0;
    p->nullable = SQL_NULLABLE;
    p->size = text_column_def_size + 1;
    if (qz__IsLog('O', 3))
      QZ_OLOG(3, "param[%d] type=VARCHAR->C_CHAR precision=%u scale=%d nullable=%d", k - 1,
              p->precision, 0, 1);
    p->data = QZ_ALLOC(static_cast<std::size_t>(p->size));
    if (!p->data) {
      return qz::kNoMemory;
    }
    p->len_ind = SQL_NULL_DATA;
    if (qz::bind_with_fallback(s, k, SQL_VARCHAR)) return qz::kOdbcFailed;
  }
  SQLRETURN rc;
  {
    InDriver guard(s->hstmt);
    rc = SQLExecute(s->hstmt);
  }
  return QZ_STMT_ERR(s, rc) ? qz::kExecuteFailed : qz::kOk;
}

int fetch(stmt *s) {
  if (int st = check_connection(s)) return st;
  if (s->num_columns == 0) {
    QZ_OLOG(2, "ODBC statement has no result");
    return qz::kNoResult;
  }
  if (s->flags & STMT_PENDING) {
    // The row a FetchArray could not deliver: already sealed, and its texts keep the
    // character set they had.
    swap_held_row(s);
    s->flags = (s->flags & ~STMT_PENDING) | STMT_FETCHED;
    return qz::kOk;
  }
  if (s->flags & STMT_END_OF_DATA) return qz::kNoMoreRows;
  SQLRETURN rc;
  {
    InDriver guard(s->hstmt);
    rc = SQLFetch(s->hstmt);
  }
  if (rc == SQL_NO_DATA_FOUND) {
    s->flags |= STMT_END_OF_DATA;
    cleanup_odbc_errors();
    return qz::kNoMoreRows;
  }
  if (QZ_STMT_ERR(s, rc)) {
    drop_statement(s);
    return qz::kFetchFailed;
  }
  s->flags |= STMT_FETCHED;
  seal_fetched_text(s);
  return qz::kOk;
}

int rowcount(stmt *s, int *count) {
  if (int st = check_connection(s)) return st;
  if (s->flags & STMT_SUMMED) {
    *count = static_cast<int>(s->summed_rows);
    return qz::kOk;
  }
  SQLLEN n = 0;
  SQLRETURN rc = SQLRowCount(s->hstmt, &n);
  // The driver need not set n when the call fails; what it holds is passed on.
  *count = static_cast<int>(n);
  return QZ_STMT_ERR(s, rc);
}

}  // namespace

const struct stmt_m stmt_m = {
    attach,           drop,           prepare,         execute,
    execdirect,       tables,         columns,         fetch,
    column_TITLE,     column_VARNAME, column_TYPE,     column_SETTYPE,
    column_PRECISION, column_SCALE,   column_NULLABLE, param_TYPE,
    param_PRECISION,  param_SCALE,    param_NULLABLE,  isnull,
    getdata_STRING,   getdata_INT,    getdata_DOUBLE,  setparam_NULL,
    setparam_STRING,  setparam_INT,   setparam_DOUBLE, rowcount,
};

int qz::bind_with_fallback(stmt *s, int par_no, SQLSMALLINT sql_type) {
  column *p = &s->params[par_no - 1];
  connection *conn = s->conn;
  p->sql_type = sql_type;
  while (conn->bind_parameter_ok) {
    SQLRETURN rc =
        SQLBindParameter(s->hstmt, static_cast<SQLUSMALLINT>(par_no), SQL_PARAM_INPUT, p->ctype,
                         sql_type, p->precision, p->scale, p->data, p->size, &p->len_ind);
    if (!QZ_STMT_ERR(s, rc)) return 0;
    const odbc_error *e = last_odbc_error();
    if (!e || !e->sqlstate || std::strcmp(e->sqlstate, "IM001") != 0) return -1;
    QZ_OLOG(2, "working around unsupported SQLBindParameter() function");
    conn->bind_parameter_ok = 0;
  }
  SQLRETURN rc = SQLSetParam(s->hstmt, static_cast<SQLUSMALLINT>(par_no), p->ctype, sql_type,
                             p->precision, p->scale, p->data, &p->len_ind);
  return QZ_STMT_ERR(s, rc) ? -1 : 0;
}

void qz::cancel_statement_in_driver() {
  SQLHSTMT h = qz::stmt_in_driver;
  if (h) SQLCancel(h);
}

void qz::cancel_statement_before_exit() {
  SQLHSTMT h = qz::stmt_in_driver;
  if (!h) return;
  pid_t child = _Fork();  // unlike fork, safe in a signal handler
  if (child == 0) {
    SQLCancel(h);
    _exit(0);
  }
  bool reaped = child < 0;
  for (int i = 0; i < 50 && !reaped; ++i) {
    reaped = waitpid(child, nullptr, WNOHANG) != 0;
    timespec pause{0, 10000000};
    if (!reaped) nanosleep(&pause, nullptr);
  }
  if (!reaped) {  // stuck on a lock copied from this process: the cancel is given up
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }
}

int new_statement(connection *conn, stmt **stmt_p) {
  QZ_ASSERT(stmt_p);
  auto *s = static_cast<stmt *>(QZ_ALLOC(sizeof(stmt)));
  if (!s) {
    return qz::kNoMemory;
  }
  std::memset(s, 0, sizeof *s);
  s->refcnt = 1;
  s->methods = &stmt_m;
  if (conn) s->methods->attach(s, conn);
  *stmt_p = s;
  return qz::kOk;
}

int verify_connection(stmt *s) {
  const connection *conn = s->conn;
  if (conn && s->conn_generation == conn->generation && (conn->flags & CONN_CONNECTED)) return 0;
  drop_statement(s);
  return -1;
}

int setup_statement(stmt *s) {
  QZ_ASSERT(s->conn);
  s->flags &= ~kStateBits;
  // Only a fresh statement gets a handle: the callable functions make a new object for
  // every statement they prepare or execute directly.
  QZ_ASSERT(!s->hstmt && !s->rset && s->num_columns == 0 && !s->params && s->num_params == 0);
  SQLHSTMT hstmt = SQL_NULL_HSTMT;
  SQLRETURN rc = SQLAllocStmt(s->conn->hdbc, &hstmt);
  if (s->conn->methods->err(nullptr, s, rc, 0, __FILE__, __LINE__)) return -1;
  s->hstmt = hstmt;
  return 0;
}

void drop_statement(stmt *s) {
  s->flags &= ~kStateBits;
  if (!s->hstmt) return;  // without a handle there are no columns and no parameters
  QZ_ASSERT(s->conn);
  SQLRETURN rc = SQLFreeStmt(s->hstmt, SQL_DROP);
  s->hstmt = SQL_NULL_HSTMT;
  // Quiet: the queue keeps the diagnostics of the failure that led here.
  s->conn->methods->err(nullptr, s, rc, 1, __FILE__, __LINE__);
  cleanup_result(s);
  cleanup_params(s);
}

void cleanup_result(stmt *s) {
  for (int i = 0; i < s->num_columns; ++i) {
    std::free(s->rset[i].title);
    std::free(s->rset[i].varname);
    std::free(s->rset[i].data);
    std::free(s->rset[i].held);
  }
  std::free(s->rset);
  s->rset = nullptr;
  s->num_columns = 0;
}

void cleanup_params(stmt *s) {
  for (int i = 0; i < s->num_params; ++i)
    std::free(s->params[i].data);
  std::free(s->params);
  s->params = nullptr;
  s->num_params = 0;
}
