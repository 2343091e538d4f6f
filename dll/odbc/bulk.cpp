// Many rows per call: FetchArray's loop of fetching and packing with the row that does not
// fit kept for the next call; ExecuteArray's loop of binding and executing, one row at a
// time or a batch at a time through the driver's parameter arrays, with the row count
// summed and the failing row named; and the binding of one value they share with Execute
// and SetParam.
#include "bulk.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "bridge.hpp"
#include "connection.hpp"
#include "qzfuncs.hpp"
#include "statement.hpp"
#include "xpack.hpp"

namespace {

// Fetches one row and packs it into buf. When it does not fit, the row is parked: the
// column buffers get back the row delivered before it (when there was one, else no row
// reads as fetched) and the fetch method hands the parked row out next time.
int fetch_one(stmt *s, QzStr *buf) {
  bool had_row = (s->flags & STMT_FETCHED) != 0;
  bool pending = (s->flags & STMT_PENDING) != 0;
  // A pending row is swapped in rather than fetched over the buffers, which keeps the
  // delivered row in the held copy without a copy.
  if (had_row && !pending)
    if (int st = hold_row(s)) return st;
  if (int st = s->methods->fetch(s)) return st;
  int st = qz::pack_row(s, buf);
  if (st != qz::kNoRoom) return st;
  buf->len = 0;
  swap_held_row(s);
  s->flags |= STMT_PENDING;
  if (!had_row) s->flags &= ~STMT_FETCHED;
  return st;
}

// Binds row r of every parameter array and executes; adds the rows it affected to *total.
// The queue then holds this execution's diagnostics only, as after Execute.
int execute_row(stmt *s, int r, void *const *slots, const int *kinds, long long *total) {
  cleanup_odbc_errors();
  for (int j = 0; j < s->num_params; ++j)
    if (int st = qz::set_param_element(s, j + 1, kinds[j], slots[j], r)) return st;
  if (int st = s->methods->execute(s)) return st;
  SQLLEN n = 0;
  SQLRETURN rc = SQLRowCount(s->hstmt, &n);
  // Quiet: a count the driver cannot give must not replace the execution's diagnostics.
  if (s->conn->methods->err(nullptr, s, rc, 1, __FILE__, __LINE__) == 0 && n > 0) *total += n;
  return qz::kOk;
}

// ---- parameter arrays ------------------------------------------------------------------

// Rows one array execution takes at most, and the bytes its arrays may fill: a load of any
// size runs in batches, so the server's memory stays flat.
constexpr int kBatchRows = 1000;
constexpr std::size_t kBatchBytes = std::size_t{4} << 20;

// The outcome of a batch that had no effect: its rows go again one at a time, which finds
// the failing row and leaves what executing row by row would have left.
constexpr int kUndone = -2;

// The savepoint a batch runs under inside the program's own transaction.
constexpr const char *kSavepoint = "qzodbc_batch";

// Whether ExecuteArray may hand this statement's rows to the driver as arrays: a driver
// that reports row counts for parameter arrays (asked once a connect), parameters bound
// with SQLBindParameter (SQLSetParam has no element size), and no result columns, whose
// executions would leave a result for each row.
bool use_param_arrays(stmt *s, int rows) {
  connection *c = s->conn;
  if (rows < 2 || s->num_params == 0 || s->num_columns != 0 || !c->bind_parameter_ok) return false;
  if (c->param_arrays == 0) {
    SQLUINTEGER counts = 0;
    SQLRETURN rc = SQLGetInfo(c->hdbc, SQL_PARAM_ARRAY_ROW_COUNTS, &counts, sizeof counts, nullptr);
    c->param_arrays = SQL_SUCCEEDED(rc) && counts != 0 ? 1 : -1;
  }
  return c->param_arrays > 0;
}

// The column-wise arrays of one batch in one allocation: for each parameter n length
// indicators and n elements of its buffer's size.
struct Batch {
  void *block = nullptr;             // the allocation
  SQLLEN *ind[qz::fn::kSlots] = {};  // length/indicator array of each parameter
  char *data[qz::fn::kSlots] = {};   // value array of each parameter
  ~Batch() { std::free(block); }
};

std::size_t round8(std::size_t n) {
  return (n + 7) & ~std::size_t{7};
}

// Allocates the arrays for up to n rows, fewer when they would pass kBatchBytes; the rows
// they hold. 0 when the memory cannot be had.
int make_batch(const stmt *s, int n, Batch *b) {
  std::size_t row = 0;
  for (int j = 0; j < s->num_params; ++j)
    row += sizeof(SQLLEN) + static_cast<std::size_t>(s->params[j].size);
  n = std::min(n, static_cast<int>(std::max<std::size_t>(1, kBatchBytes / row)));
  const auto rows = static_cast<std::size_t>(n);
  std::size_t bytes = 0;
  for (int j = 0; j < s->num_params; ++j)
    bytes += rows * sizeof(SQLLEN) + round8(rows * static_cast<std::size_t>(s->params[j].size));
  char *at = static_cast<char *>(QZ_ALLOC(bytes));
  if (!at) return 0;
  b->block = at;
  for (int j = 0; j < s->num_params; ++j) {
    b->ind[j] = reinterpret_cast<SQLLEN *>(at);
    at += rows * sizeof(SQLLEN);
    b->data[j] = at;
    at += round8(rows * static_cast<std::size_t>(s->params[j].size));
  }
  return n;
}

// Copies the value each parameter holds now into element k of its array.
void copy_row(const stmt *s, Batch *b, int k) {
  for (int j = 0; j < s->num_params; ++j) {
    const column &p = s->params[j];
    std::size_t n = static_cast<std::size_t>(p.size);
    if (p.len_ind == SQL_NULL_DATA) n = 0;
    if (p.ctype == SQL_C_CHAR && p.len_ind == SQL_NTS)
      n = std::strlen(static_cast<const char *>(p.data)) + 1;
    std::memcpy(b->data[j] + static_cast<std::size_t>(k) * static_cast<std::size_t>(p.size), p.data,
                n);
    b->ind[j][k] = p.len_ind;
  }
}

// Binds every parameter to its array (b) or back to its own buffer (null), with the
// number of rows to execute.
int bind_batch(stmt *s, const Batch *b, int n) {
  for (int j = 0; j < s->num_params; ++j) {
    column *p = &s->params[j];
    SQLRETURN rc = SQLBindParameter(s->hstmt, static_cast<SQLUSMALLINT>(j + 1), SQL_PARAM_INPUT,
                                    p->ctype, p->sql_type, p->precision, p->scale,
                                    b ? static_cast<void *>(b->data[j]) : p->data, p->size,
                                    b ? b->ind[j] : &p->len_ind);
    if (QZ_STMT_ERR(s, rc)) return qz::kOdbcFailed;
  }
  SQLRETURN rc = SQLParamOptions(s->hstmt, static_cast<SQLULEN>(n), nullptr);
  return QZ_STMT_ERR(s, rc) ? qz::kOdbcFailed : qz::kOk;
}

// The rows every execution of the last SQLExecute affected: a driver that reports a count
// per row of an array hands out the next one with each SQLMoreResults.
long long affected_rows(stmt *s) {
  long long total = 0;
  SQLRETURN rc;
  do {
    SQLLEN n = 0;
    if (SQL_SUCCEEDED(SQLRowCount(s->hstmt, &n)) && n > 0) total += n;
    rc = SQLMoreResults(s->hstmt);
  } while (SQL_SUCCEEDED(rc));
  return total;
}

// One statement of the server's own on the statement's connection; true when it succeeded
// (a failure is logged, never queued: the program did not ask for it).
bool own_statement(stmt *s, const char *verb) {
  char sql[64];
  std::snprintf(sql, sizeof sql, "%s%s", verb, kSavepoint);
  SQLHSTMT h = nullptr;
  SQLRETURN rc = SQLAllocStmt(s->conn->hdbc, &h);
  if (SQL_SUCCEEDED(rc)) rc = SQLExecDirect(h, reinterpret_cast<SQLCHAR *>(sql), SQL_NTS);
  if (h) SQLFreeStmt(h, SQL_DROP);
  if (!SQL_SUCCEEDED(rc)) QZ_OLOG(2, "ExecuteArray: %s failed", sql);
  return SQL_SUCCEEDED(rc);
}

// SQLExecute of the arrays bound for n rows, undone whole when it fails: in autocommit mode
// the batch runs in a transaction of its own, inside the program's transaction under a
// savepoint (a driver that runs an array's rows as separate statements may have executed
// some of them before the failing one). 0, or kUndone: nothing of the batch took effect.
int run_batch(stmt *s, Batch *b, int n, long long *total) {
  connection *c = s->conn;
  SQLULEN autocommit = SQL_AUTOCOMMIT_OFF;
  SQLGetConnectOption(c->hdbc, SQL_AUTOCOMMIT, &autocommit);
  const bool own = autocommit == SQL_AUTOCOMMIT_ON;
  if (own ? c->methods->set_connect_option(c, SQL_AUTOCOMMIT, SQL_AUTOCOMMIT_OFF) != 0
          : !own_statement(s, "SAVEPOINT ")) {
    c->param_arrays = -1;  // no transaction of the batch's own here: rows from now on
    return kUndone;
  }
  QZ_OLOG(3, "ExecuteArray: %d rows as one array execution", n);
  int st = bind_batch(s, b, n);
  if (st == qz::kOk) st = s->methods->execute(s);
  if (st == qz::kOk) *total += affected_rows(s);
  if (own) {
    if (st == qz::kOk && c->methods->commit(c)) st = qz::kOdbcFailed;
    if (st != qz::kOk) c->methods->rollback(c);
    c->methods->set_connect_option(c, SQL_AUTOCOMMIT, SQL_AUTOCOMMIT_ON);
  } else if (!own_statement(s, st == qz::kOk ? "RELEASE SAVEPOINT " : "ROLLBACK TO SAVEPOINT ") &&
             st != qz::kOk) {
    return st;  // what the batch left could not be undone: its failure stands as it is
  }
  // Back to one row and the parameters' own buffers (unless a lost connection emptied the
  // statement), with nothing left of the array's results for the next execution to find.
  if (s->hstmt) {
    SQLFreeStmt(s->hstmt, SQL_CLOSE);
    if (int restored = bind_batch(s, nullptr, 1); st == qz::kOk) st = restored;
  }
  return st == qz::kOk ? st : kUndone;
}

// Up to n rows from row first as one array execution. Each row's values are converted as
// Execute converts them, through the parameters' own buffers (which keep the last row's
// values bound afterwards, as one execution per row leaves them); a value that does not
// convert ends the batch before its row and is that row's failure, with nothing queued.
// *covered is the rows the batch took; 0 (*ran = *covered), kUndone, or the failure of
// the row after the *ran executed ones.
int execute_batch(stmt *s, int first, int n, void *const *slots, const int *kinds, int *ran,
                  int *covered, long long *total) {
  *ran = *covered = 0;
  cleanup_odbc_errors();
  // The first row binds any parameter without a buffer, which fixes every element's size.
  for (int j = 0; j < s->num_params; ++j)
    if (int st = qz::set_param_element(s, j + 1, kinds[j], slots[j], first)) return st;
  Batch b;
  n = make_batch(s, std::min(n, kBatchRows), &b);
  if (n == 0) return qz::kNoMemory;
  int rows = 0, bad = qz::kOk;
  for (copy_row(s, &b, rows++); rows < n && bad == qz::kOk;) {
    for (int j = 0; j < s->num_params && bad == qz::kOk; ++j)
      bad = qz::set_param_element(s, j + 1, kinds[j], slots[j], first + rows);
    if (bad == qz::kOk) copy_row(s, &b, rows++);
  }
  *covered = rows;
  int st = run_batch(s, &b, rows, total);
  if (st != qz::kOk) return st;
  *ran = rows;
  if (bad == qz::kOk) return st;
  cleanup_odbc_errors();
  return bad;
}
}  // namespace

namespace qz {

int set_param_element(stmt *s, int par, int kind, void *slot, int k) {
  switch (kind) {
    case IntByReference:
    case IntArray:
      return s->methods->setparam_INT(s, par, static_cast<const int *>(slot)[k]);
    case RealByReference:
    case RealArray:
      return s->methods->setparam_DOUBLE(s, par, static_cast<const double *>(slot)[k]);
    case String:
    case StringArray: {
      const QzStr &str = static_cast<const QzStr *>(slot)[k];
      return s->methods->setparam_STRING(s, par, str.text, str.len);
    }
    default:
      return kBadArgument;
  }
}

int fetch_rows(stmt *s, QzStr *bufs, int n, int *rows) {
  *rows = 0;
  // Each fetch empties the queue before it reports; what every row reported is set aside
  // here and queued again at the end, so that a truncation in any row is seen.
  Llist kept;
  Llist_Init(&kept);
  int st = kOk;
  for (int k = 0; k < n; ++k) {
    st = fetch_one(s, &bufs[k]);
    move_odbc_errors(&odbc_errors, &kept);
    if (st) break;
    ++*rows;
  }
  move_odbc_errors(&kept, &odbc_errors);
  return st == kNoMoreRows ? kOk : st;
}

// One execution per row, or batches through the driver's parameter arrays where it has
// them. Either way the program sees the same rows stored, the same row count and the same
// failing row: a batch that fails without effect goes again one row at a time.
int execute_rows(stmt *s, int rows, void *const *slots, const int *kinds, int *done) {
  *done = 0;
  long long total = 0;
  int st = kOk;
  int by_row = use_param_arrays(s, rows) ? 0 : rows;  // rows left to run one at a time
  for (int r = 0; r < rows && st == kOk;) {
    int ran = 0;
    if (by_row > 0) {
      st = execute_row(s, r, slots, kinds, &total);
      ran = st == kOk;
      --by_row;
    } else {
      st = execute_batch(s, r, rows - r, slots, kinds, &ran, &by_row, &total);
      if (st == kUndone)
        st = kOk;
      else
        by_row = 0;
    }
    r += ran;
    *done += ran;
  }
  s->summed_rows = total;
  s->flags |= STMT_SUMMED;
  if (st == kOk) return st;
  char text[160];
  std::snprintf(text, sizeof text,
                "ExecuteArray: row %d (counting from 0) failed with status %d; the rows before "
                "it were executed, none after it",
                *done, st);
  QZ_OLOG(2, "%s", text);
  queue_own_error(text);
  return st;
}

}  // namespace qz
