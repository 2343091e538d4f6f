// The SQL shell's statements and results: SQL through ExecDirect, its rows fetched packed
// (a row too long for the buffer column by column), NULLs told apart through IsNull, shown
// as a table, one column a line (\x), CSV or packed rows; row counts; the catalog queries.
#include <chrono>
#include <cstdio>

#include "qzstatus.hpp"
#include "shell.hpp"

namespace qz::call {

using client::CallResult;

namespace {

constexpr int kTitleCapacity = 1024;     // GetColumnTitle's variable
constexpr int kRowCapacity = 1 << 18;    // Fetch's packed row buffer
constexpr int kBatchRows = 100;          // FetchArray: rows a call, where NULL cannot be
constexpr int kBatchRowCapacity = 4096;  // FetchArray: an element (a longer row: Fetch)
constexpr int kValueCapacity = 32768;    // GetData's variable: above the longest column text

// Value type codes of GetColumnType whose values are numbers (shown to the right).
constexpr int kTypeInteger = 2;
constexpr int kTypeReal = 3;

}  // namespace

// Runs one command; false when it failed. With \timing, its time follows.
bool Shell::command(const std::string &text) {
  auto t0 = std::chrono::steady_clock::now();
  bool ok = text.empty() || text[0] != '\\' ? statement(text) : backslash(text);
  if (timing_ && (text.empty() || text[0] != '\\')) {
    std::chrono::duration<double, std::milli> ms = std::chrono::steady_clock::now() - t0;
    std::printf("Time: %.3f ms\n", ms.count());
  }
  return ok;
}

// Runs SQL with ExecDirect and shows its result or its row count.
bool Shell::statement(const std::string &sql) {
  std::vector<Arg> a{Arg::integer(conn_), Arg::string(to_server(sql, o_.encoding)),
                     Arg::int_var(0)};
  if (!call("ExecDirect", "ExecDirect", a)) return false;
  int stmt = a[2].as_int();
  bool ok = result(stmt, sql, {});
  return drop(stmt) && ok;
}

bool Shell::drop(int stmt) {
  std::vector<Arg> a{Arg::integer(stmt)};
  return call("DropStatement", "DropStatement", a);
}

// Titles and number alignment of the columns shown.
bool Shell::describe(int stmt, const std::vector<int> &cols, std::span<const Pick> picks,
                     ResultView &view) {
  for (std::size_t k = 0; k < cols.size(); ++k) {
    std::vector<Arg> a{Arg::integer(stmt), Arg::integer(cols[k]),
                       Arg::string_var("", kTitleCapacity)};
    if (!call("GetColumnTitle", "GetColumnTitle", a)) return false;
    view.titles.push_back(!picks.empty() ? picks[k].title
                                         : from_server(a[2].as_string(), o_.encoding));
    a = {Arg::integer(stmt), Arg::integer(cols[k]), Arg::int_var(0)};
    if (!call("GetColumnType", "GetColumnType", a)) return false;
    const bool number = a[2].as_int() == kTypeInteger || a[2].as_int() == kTypeReal;
    view.right.push_back(number && !(!picks.empty() && picks[k].yes_no));
  }
  return true;
}

// Shows what a statement produced: its rows (only the columns of `picks`, if any), or for
// a statement without result columns its row count.
bool Shell::result(int stmt, const std::string &sql, std::span<const Pick> picks) {
  std::vector<Arg> a{Arg::integer(stmt), Arg::int_var(0)};
  if (!call("GetNumColumns", "GetNumColumns", a)) return false;
  const int n = a[1].as_int();
  if (n == 0) return row_count(stmt, sql);
  // The columns shown, in the order shown.
  std::vector<int> cols;
  for (const Pick &p : picks)
    if (p.column <= n) cols.push_back(p.column);
  if (cols.size() != picks.size()) picks = {};  // not the catalog's layout: show all
  if (picks.empty()) {
    cols.clear();
    for (int c = 1; c <= n; ++c)
      cols.push_back(c);
  }
  ResultView view;
  if (format_ != OutputFormat::packed && !describe(stmt, cols, picks, view)) return false;
  if (format_ == OutputFormat::csv)
    std::fputs(csv_line(Row(view.titles.begin(), view.titles.end())).c_str(), stdout);
  std::size_t count = 0;
  std::string packed;
  Rows rows;
  if (!open_rows(stmt, n, rows)) return false;
  for (Row row;; ++count) {
    int got = fetch(rows, format_ != OutputFormat::packed, packed, row);
    if (got < 0) return false;
    if (got == 0) break;
    if (format_ == OutputFormat::packed) {
      std::printf("%s\n", from_server(packed, o_.encoding).c_str());
      continue;
    }
    Row shown;
    for (std::size_t k = 0; k < cols.size(); ++k) {
      Cell c = row[static_cast<std::size_t>(cols[k] - 1)];
      if (!picks.empty() && picks[k].yes_no && c)
        c = *c == "0" ? "no" : *c == "1" ? "yes" : "unknown";
      shown.push_back(std::move(c));
    }
    if (format_ == OutputFormat::csv)
      std::fputs(csv_line(shown).c_str(), stdout);
    else
      view.rows.push_back(std::move(shown));
  }
  show(view, count, picks);
  return true;
}

// The rows kept for the table (or \x) format, or the footer of packed rows.
void Shell::show(ResultView &view, std::size_t count, std::span<const Pick> picks) {
  if (format_ == OutputFormat::packed) std::printf("%s\n\n", rows_footer(count).c_str());
  if (format_ != OutputFormat::table) return;
  // Optional catalog columns that are NULL in every row are left out.
  for (std::size_t k = picks.size(); k-- > 0;) {
    if (!picks[k].optional) continue;
    bool all_null = true;
    for (const Row &r : view.rows)
      all_null = all_null && !r[k];
    if (!all_null) continue;
    view.titles.erase(view.titles.begin() + static_cast<std::ptrdiff_t>(k));
    view.right.erase(view.right.begin() + static_cast<std::ptrdiff_t>(k));
    for (Row &r : view.rows)
      r.erase(r.begin() + static_cast<std::ptrdiff_t>(k));
  }
  if (expanded_)
    std::printf("%s\n", format_expanded(view, o_.encoding, max_width_).c_str());
  else
    std::printf("%s\n", format_table(view, o_.encoding, max_width_).c_str());
}

bool Shell::row_count(int stmt, const std::string &sql) {
  std::vector<Arg> a{Arg::integer(stmt), Arg::int_var(-1)};
  if (!call("RowCount", "RowCount", a)) return false;
  int n = a[1].as_int();
  if (n > 0 || (n == 0 && changes_rows(sql)))
    std::printf("%d row%s affected\n", n, n == 1 ? "" : "s");
  else
    std::printf("OK\n");
  return true;
}

// Readies `rows` for the result of `stmt` (`n` columns): many rows a call when the driver
// says that no column can be NULL.
bool Shell::open_rows(int stmt, int n, Rows &rows) {
  rows = Rows{};
  rows.stmt = stmt;
  rows.columns = n;
  rows.batch = kBatchRows;
  for (int k = 1; k <= n && rows.batch > 1; ++k) {
    std::vector<Arg> a{Arg::integer(stmt), Arg::integer(k), Arg::int_var(1)};
    if (!call("GetColumnNullable", "GetColumnNullable", a)) return false;
    if (a[2].as_int() != 0) rows.batch = 1;  // nullable, or not known
  }
  return true;
}

// The next row of `rows`: 1 with `packed` as the server packed it and, with `decode`,
// `row` holding its values; 0 at the end; -1 after a failure that has been reported.
int Shell::fetch(Rows &rows, bool decode, std::string &packed, Row &row) {
  if (rows.next == rows.got) {
    if (rows.long_row) {  // the row that did not fit its element comes by itself
      rows.long_row = false;
      return fetch_one(rows.stmt, rows.columns, decode, packed, row);
    }
    if (rows.end) return 0;
    if (lost_) {
      error("FetchArray: the server is gone");
      return -1;
    }
    const int capacity = rows.batch > 1 ? kBatchRowCapacity : kRowCapacity;
    std::vector<Arg> a{Arg::integer(rows.stmt), Arg::int_var(0),
                       Arg::string_array(std::vector<std::string>(rows.batch), capacity)};
    CallResult r = s_.call("FetchArray", std::span<Arg>(a));
    rows.long_row = r.ok() && r.status == kNoRoom;  // the rows before it came
    if (!rows.long_row && (!r.ok() || r.status != 0)) {
      failed("FetchArray", r);
      return -1;
    }
    rows.got = static_cast<std::size_t>(a[1].as_int());
    rows.next = 0;
    rows.packed = std::move(a[2].strings);
    rows.end = rows.got < static_cast<std::size_t>(rows.batch) && !rows.long_row;
    if (rows.got == 0 && rows.end) return 0;
    return fetch(rows, decode, packed, row);
  }
  packed = rows.packed[rows.next++];
  row.clear();
  // One row a call: it is the last one delivered, which IsNull reads.
  if (decode && !unpack(rows.stmt, rows.columns, rows.batch == 1, packed, row)) return -1;
  return 1;
}

// The next row through Fetch, for a row too long for an element of FetchArray; a row too
// long for Fetch's buffer too comes column by column.
int Shell::fetch_one(int stmt, int n, bool decode, std::string &packed, Row &row) {
  if (lost_) {
    error("Fetch: the server is gone");
    return -1;
  }
  std::vector<Arg> a{Arg::integer(stmt), Arg::int_var(0), Arg::string_var("", kRowCapacity)};
  CallResult r = s_.call("Fetch", std::span<Arg>(a));
  const bool full = r.ok() && r.status == kNoRoom;  // fetched, but the row did not fit
  if (!full && (!r.ok() || r.status != 0)) {
    failed("Fetch", r);
    return -1;
  }
  if (a[1].as_int() == 0) return 0;
  packed = a[2].as_string();
  row.clear();
  if (full) {
    if (decode) return column_values(stmt, n, row) ? 1 : -1;
    error("a row longer than " + std::to_string(kRowCapacity) +
          " bytes does not fit the packed row buffer; \\format table or csv shows it");
    return -1;
  }
  return !decode || unpack(stmt, n, true, packed, row) ? 1 : -1;
}

// The values of a packed row of `n` columns. A packed row shows NULL as empty text, or as
// "0" for a number: with `ask`, IsNull tells; without, no column can be NULL.
bool Shell::unpack(int stmt, int n, bool ask, const std::string &packed, Row &row) {
  client::PackedRow pr = client::read_packed_row(packed);
  if (!pr.ok() || pr.entries.size() != static_cast<std::size_t>(n)) {
    error("the server's packed row does not read as " + std::to_string(n) + " columns" +
          (pr.ok() ? "" : ": " + pr.error));
    return false;
  }
  for (int k = 0; k < n; ++k) {
    const client::PackedEntry &e = pr.entries[static_cast<std::size_t>(k)];
    int null = 0;
    if (ask && (e.value.empty() || (e.numeric && e.value == "0")) && !is_null(stmt, k + 1, null))
      return false;
    if (null)
      row.emplace_back();
    else
      row.emplace_back(from_server(e.value, o_.encoding));
  }
  return true;
}

bool Shell::is_null(int stmt, int col, int &null) {
  std::vector<Arg> a{Arg::integer(stmt), Arg::integer(col), Arg::int_var(0)};
  if (!call("IsNull", "IsNull", a)) return false;
  null = a[2].as_int();
  return true;
}

// The current row's values one by one, for a row too long to come packed.
bool Shell::column_values(int stmt, int n, Row &row) {
  for (int k = 1; k <= n; ++k) {
    std::vector<Arg> a{Arg::integer(stmt), Arg::integer(k), Arg::string_var("", kValueCapacity)};
    if (!call("GetData", "GetData", a)) return false;
    int null = 0;
    if (a[2].as_string().empty() && !is_null(stmt, k, null)) return false;
    if (null)
      row.emplace_back();
    else
      row.emplace_back(from_server(a[2].as_string(), o_.encoding));
  }
  return true;
}

// The tables matching a pattern (name or schema.name, % and _ as wildcards), or the
// columns of a table: the catalog query, then its chosen columns.
bool Shell::catalog(const char *what, bool columns, const std::string &name) {
  static const Pick kTablePicks[] = {
      {2, "schema", false, true}, {3, "name", false, false}, {4, "type", false, false}};
  static const Pick kColumnPicks[] = {{4, "column", false, false},
                                      {6, "type", false, false},
                                      {7, "size", false, false},
                                      {11, "nullable", true, false}};
  std::string owner, object = name;
  if (std::size_t dot = object.find('.'); dot != std::string::npos) {
    owner = object.substr(0, dot);
    object.erase(0, dot + 1);
  }
  std::vector<Arg> a{Arg::integer(conn_),
                     Arg::string(""),
                     Arg::string(to_latin1(owner, o_.encoding)),
                     Arg::string(to_latin1(object, o_.encoding)),
                     Arg::string(""),
                     Arg::int_var(0)};
  if (!call(what, columns ? "Columns" : "Tables", a)) return false;
  int stmt = a[5].as_int();
  bool ok = columns ? result(stmt, "", kColumnPicks) : result(stmt, "", kTablePicks);
  return drop(stmt) && ok;
}

}  // namespace qz::call
