// The statement's life: creation, attaching to a connection (one reference), dropping,
// the connection check, allocating the ODBC statement handle and emptying a statement.
// The execution, column and parameter methods fill the other slots of stmt_m.
#include "statement.hpp"

#include <cstdlib>
#include <cstring>

#include "bridge.hpp"
#include "dllmain.hpp"

namespace {

constexpr unsigned kStateBits = STMT_PREPARED | STMT_FETCHED | STMT_END_OF_DATA;

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

}  // namespace

// Slots 2 to 27 (execution, columns, parameters, data) are filled by the statement
// methods when they land; until then nothing calls them: the callable functions that
// would reach them refuse the call before any statement exists.
const struct stmt_m stmt_m = {
    attach,  drop,    nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
    nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
    nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
};

int new_statement(connection *conn, stmt **stmt_p) {
  QZ_ASSERT(stmt_p);
  auto *s = static_cast<stmt *>(dll_alloc(sizeof(stmt)));
  if (!s) {
    QZ_OLOG(1, "Memory allocation failed (%u bytes)", static_cast<unsigned>(sizeof(stmt)));
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
