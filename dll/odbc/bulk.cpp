// Many rows per call: FetchArray's loop of fetching and packing with the row that does not
// fit kept for the next call, ExecuteArray's loop of binding and executing with the row
// count summed and the failing row named, and the binding of one value they share with
// Execute and SetParam.
#include "bulk.hpp"

#include <cstdio>

#include "bridge.hpp"
#include "connection.hpp"
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

// One execution per row. The program sees the same rows stored, the same row count and
// the same diagnostics as with the driver's parameter arrays, which can take their place
// for the drivers that have them.
int execute_rows(stmt *s, int rows, void *const *slots, const int *kinds, int *done) {
  *done = 0;
  long long total = 0;
  int st = kOk;
  for (int r = 0; r < rows && st == kOk; ++r) {
    st = execute_row(s, r, slots, kinds, &total);
    if (st == kOk) ++*done;
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
