// The SQL shell's \copy: a table or a query's rows to a CSV file through FetchArray, and a
// CSV file into a table through a prepared INSERT and ExecuteArray, in batches that commit
// one by one when the connection is in autocommit; a progress line on a terminal.
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "qzstatus.hpp"
#include "shell.hpp"

namespace qz::call {

using client::CallResult;

namespace {

constexpr std::size_t kLoadRows = 1000;         // ExecuteArray: rows a call, at most
constexpr std::size_t kLoadBytes = 512 * 1024;  // ExecuteArray: the arrays' bytes, at most
constexpr double kProgressAfter = 1.0;          // seconds before the progress line shows
constexpr double kProgressEvery = 0.2;          // seconds between its updates

double seconds() {
  using namespace std::chrono;
  return duration<double>(steady_clock::now().time_since_epoch()).count();
}

// CSV records of a file: fields separated by commas, a field in double quotes may hold
// commas, quotes (doubled) and line ends; an empty unquoted field is NULL, "" empty text.
class CsvReader {
 public:
  explicit CsvReader(std::FILE *in) : in_(in) {}
  // 1 with the next record in `fields` and the line it begins on; 0 at the end of the file;
  // -1 for a quote that is not closed (`problem` says so).
  int next(Row &fields, int &line, std::string &problem);

 private:
  std::FILE *in_;  // the file, read byte by byte
  int lines_ = 0;  // lines begun so far
};

int CsvReader::next(Row &fields, int &line, std::string &problem) {
  fields.clear();
  int c = std::getc(in_);
  if (c == EOF) return 0;
  line = ++lines_;
  std::string f;
  bool quoted = false;  // the field began with a quote
  for (;;) {
    if (c == '"' && f.empty() && !quoted) {
      quoted = true;
      for (;;) {
        c = std::getc(in_);
        if (c == EOF) {
          problem = "a quoted field is not closed";
          return -1;
        }
        if (c == '"' && (c = std::getc(in_)) != '"') break;
        if (c == '\n') ++lines_;
        f += static_cast<char>(c);
      }
      continue;  // c: what follows the closing quote
    }
    if (c == '\r') {  // a CRLF line end reads as a newline
      int d = std::getc(in_);
      if (d == '\n' || d == EOF)
        c = d;
      else
        std::ungetc(d, in_);
    }
    if (c == ',' || c == '\n' || c == EOF) {
      fields.push_back(quoted || !f.empty() ? Cell(f) : Cell());
      if (c != ',') return 1;
      f.clear();
      quoted = false;
    } else {
      f += static_cast<char>(c);
    }
    c = std::getc(in_);
  }
}

// A word of the command: up to a blank, or in single quotes (a file name with blanks).
std::string next_word(const std::string &s, std::size_t &i) {
  while (i < s.size() && std::isspace(static_cast<unsigned char>(s[i])))
    ++i;
  std::string w;
  if (i < s.size() && s[i] == '\'') {
    std::size_t end = s.find('\'', i + 1);
    w = s.substr(i + 1, end == std::string::npos ? std::string::npos : end - i - 1);
    i = end == std::string::npos ? s.size() : end + 1;
    return w;
  }
  while (i < s.size() && !std::isspace(static_cast<unsigned char>(s[i])))
    w += s[i++];
  return w;
}

std::string lower(std::string s) {
  for (char &c : s)
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

// The query of "(SELECT ...)" at the start of `s` (quotes respected); `i` after the ')'.
bool parenthesized(const std::string &s, std::size_t &i, std::string &query) {
  int depth = 0;
  char quote = 0;
  for (std::size_t k = 0; k < s.size(); ++k) {
    char c = s[k];
    if (quote) {
      if (c == quote) quote = 0;
    } else if (c == '\'' || c == '"') {
      quote = c;
    } else if (c == '(') {
      ++depth;
    } else if (c == ')' && --depth == 0) {
      query = s.substr(1, k - 1);
      i = k + 1;
      return true;
    }
  }
  return false;
}

}  // namespace

// \copy FROM's rows not yet sent, one array per column, in the server's encoding.
struct Batch {
  int stmt = 0;                                  // the prepared INSERT
  std::vector<std::vector<std::string>> values;  // per column: the rows' values
  std::vector<std::size_t> widest;               // per column: its longest value, in bytes
  std::vector<int> lines;                        // per row: the line it began on
  std::size_t loaded = 0;                        // rows inserted since \copy began
  std::size_t kept = 0;                          // of them, those committed or left to the user
  bool own = false;                              // \copy commits each batch itself
};

bool Shell::copy(const Words &) {
  static const char *kUsage =
      "\\copy takes TABLE FROM FILE, TABLE TO FILE or (SELECT ...) TO FILE, then "
      "optionally WITH CSV HEADER";
  std::size_t i = raw_.find_first_not_of(" \t");
  std::string source, rest = i == std::string::npos ? "" : raw_.substr(i);
  bool query = !rest.empty() && rest[0] == '(';
  i = 0;
  if (query ? !parenthesized(rest, i, source) : (source = next_word(rest, i)).empty())
    return usage(kUsage);
  std::string way = lower(next_word(rest, i)), file = next_word(rest, i);
  bool header = false;
  for (std::string w; !(w = lower(next_word(rest, i))).empty();) {
    if (w == "header")
      header = true;
    else if (w != "with" && w != "csv")
      return usage(kUsage);
  }
  if (file.empty() || (way != "from" && way != "to") || (query && way == "from"))
    return usage(kUsage);
  if (way == "to") return copy_to(query ? source : "SELECT * FROM " + source, file, header);
  return copy_from(source, file, header);
}

// ---- TO ------------------------------------------------------------------------------

bool Shell::copy_to(const std::string &query, const std::string &file, bool header) {
  std::vector<Arg> a{Arg::integer(conn_), Arg::string(to_server(query, o_.encoding)),
                     Arg::int_var(0)};
  if (!call("\\copy", "ExecDirect", a)) return false;
  const int stmt = a[2].as_int();
  a = {Arg::integer(stmt), Arg::int_var(0)};
  bool ok = call("\\copy", "GetNumColumns", a);
  const int n = ok ? a[1].as_int() : 0;
  if (ok && n == 0) ok = usage("\\copy: the statement gives no rows to copy");
  std::FILE *out = ok ? std::fopen(file.c_str(), "w") : nullptr;
  if (ok && !out) ok = usage("cannot write " + file + ": " + std::strerror(errno));
  std::size_t count = 0;
  if (ok && header) {
    std::vector<int> cols;
    for (int c = 1; c <= n; ++c)
      cols.push_back(c);
    ResultView view;
    ok = describe(stmt, cols, {}, view);
    if (ok) std::fputs(csv_line(Row(view.titles.begin(), view.titles.end())).c_str(), out);
  }
  ok = ok && copy_rows(stmt, n, out, count);
  if (out && std::fclose(out) != 0 && ok)
    ok = usage("cannot write " + file + ": " + std::strerror(errno));
  ok = drop(stmt) && ok;
  if (ok) std::printf("COPY %zu\n", count);
  return ok;
}

bool Shell::copy_rows(int stmt, int n, std::FILE *out, std::size_t &count) {
  Rows rows;
  if (!open_rows(stmt, n, rows)) return false;
  progress_start_ = seconds();
  progress_last_ = 0;
  std::string packed;
  for (Row row;;) {
    int got = fetch(rows, true, packed, row);
    if (got <= 0) {
      progress(count, true);
      return got == 0;
    }
    std::fputs(csv_line(row).c_str(), out);
    progress(++count, false);
  }
}

// ---- FROM ----------------------------------------------------------------------------

// The columns of `table`, from the description of a query that returns no row.
bool Shell::column_count(const std::string &table, int &n) {
  std::string sql = "SELECT * FROM " + table + " WHERE 1 = 0";
  std::vector<Arg> a{Arg::integer(conn_), Arg::string(to_server(sql, o_.encoding)),
                     Arg::int_var(0)};
  if (!call("\\copy", "ExecDirect", a)) return false;
  const int stmt = a[2].as_int();
  a = {Arg::integer(stmt), Arg::int_var(0)};
  bool ok = call("\\copy", "GetNumColumns", a);
  n = a[1].as_int();
  return drop(stmt) && ok;
}

bool Shell::copy_from(const std::string &table, const std::string &file, bool header) {
  int n = 0;
  if (!column_count(table, n)) return false;
  if (n == 0) return usage("\\copy: " + table + " has no columns");
  std::string sql = "INSERT INTO " + table + " VALUES (?";
  for (int k = 1; k < n; ++k)
    sql += ", ?";
  sql += ")";
  std::FILE *in = std::fopen(file.c_str(), "r");
  if (!in) return usage("cannot read " + file + ": " + std::strerror(errno));
  std::vector<Arg> a{Arg::integer(conn_), Arg::string(to_server(sql, o_.encoding)),
                     Arg::int_var(0)};
  bool ok = call("\\copy", "Prepare", a);
  const int ins = a[2].as_int();
  std::size_t count = 0;
  ok = ok && load(in, file, ins, n, header, count);
  std::fclose(in);
  if (ins) ok = drop(ins) && ok;
  if (ok) std::printf("COPY %zu\n", count);
  return ok;
}

// Reads the records of `in` into the table through the prepared INSERT `ins` (`n` markers).
// With `header`, the first record goes unread.
bool Shell::load(std::FILE *in, const std::string &file, int ins, int n, bool header,
                 std::size_t &count) {
  Batch b;
  b.stmt = ins;
  b.values.resize(static_cast<std::size_t>(n));
  b.widest.resize(static_cast<std::size_t>(n));
  std::vector<Arg> a{Arg::integer(conn_), Arg::integer(0)};
  if (autocommit_ && !call("\\copy", "SetAutocommit", a)) return false;
  b.own = autocommit_;
  progress_start_ = seconds();
  progress_last_ = 0;
  CsvReader csv(in);
  Row row;
  int line = 0, got;
  std::string problem;
  bool ok = !header || csv.next(row, line, problem) >= 0;
  if (!ok) error(file + ": line " + std::to_string(line) + ": " + problem);
  while (ok && (got = csv.next(row, line, problem)) != 0) {
    if (got > 0 && row.size() != static_cast<std::size_t>(n))
      problem = "expected " + std::to_string(n) + " fields, found " + std::to_string(row.size());
    if (got < 0 || row.size() != static_cast<std::size_t>(n)) {
      ok = false;
      // The rows before it: into the user's transaction, or rolled back with their batch.
      if (b.own || flush(b, file)) error(file + ": line " + std::to_string(line) + ": " + problem);
      break;
    }
    if (std::any_of(row.begin(), row.end(), [](const Cell &c) { return !c; })) {
      ok = flush(b, file) && insert_one(b, row, line, file);
    } else {
      std::size_t bytes = 0;
      for (std::size_t k = 0; k < row.size(); ++k) {
        b.values[k].push_back(to_server(*row[k], o_.encoding));
        b.widest[k] = std::max(b.widest[k], b.values[k].back().size());
        bytes += (b.widest[k] + 8) * (b.lines.size() + 1);
      }
      b.lines.push_back(line);
      if (b.lines.size() >= kLoadRows || bytes >= kLoadBytes) ok = flush(b, file);
    }
    progress(b.loaded + b.lines.size(), false);
  }
  ok = ok && flush(b, file);
  progress(b.loaded, true);
  ok = end_batch(ok) && ok;
  const std::size_t kept = b.own ? b.kept : b.loaded;  // committed, or in the transaction
  if (!ok)
    error("\\copy stopped: " + std::to_string(kept) + (kept == 1 ? " row " : " rows ") +
          (b.own ? "committed" : "inserted in the open transaction") + " before it");
  count = b.loaded;
  return ok;
}

// Sends the rows waiting in `b` through ExecuteArray; when \copy commits itself, commits.
bool Shell::flush(Batch &b, const std::string &file) {
  const std::size_t rows = b.lines.size();
  if (rows > 0) {
    if (lost_) return usage("ExecuteArray: the server is gone");
    std::vector<Arg> a{Arg::integer(b.stmt), Arg::integer(static_cast<std::int32_t>(rows)),
                       Arg::int_var(0)};
    for (std::size_t k = 0; k < b.values.size(); ++k)
      a.push_back(Arg::string_array(
          std::move(b.values[k]), static_cast<int>(std::max<std::size_t>(b.widest[k], 1)), false));
    CallResult r = s_.call("ExecuteArray", std::span<Arg>(a));
    const std::size_t done = static_cast<std::size_t>(std::max(a[2].as_int(), 0));
    b.loaded += std::min(done, rows);
    for (std::size_t k = 0; k < b.values.size(); ++k) {
      b.values[k].clear();
      b.widest[k] = 0;
    }
    int line = b.lines[std::min(done, rows - 1)];
    b.lines.clear();
    if (!r.ok() || r.status != 0) {
      failed(file + ": line " + std::to_string(line) + ": INSERT", r);
      return false;
    }
  }
  if (b.own) {
    std::vector<Arg> a{Arg::integer(conn_)};
    if (!call("\\copy", "Commit", a)) return false;
  }
  b.kept = b.loaded;
  return true;
}

// A row with a NULL, which the arrays cannot carry: SetParam without a value makes a
// parameter NULL, then Execute runs the INSERT for this row alone.
bool Shell::insert_one(Batch &b, const Row &row, int line, const std::string &file) {
  const std::string what = file + ": line " + std::to_string(line) + ": INSERT";
  for (std::size_t k = 0; k < row.size(); ++k) {
    std::vector<Arg> a{Arg::integer(b.stmt), Arg::integer(static_cast<std::int32_t>(k + 1))};
    if (row[k]) a.push_back(Arg::string(to_server(*row[k], o_.encoding)));
    if (!call(what, "SetParam", a)) return false;
  }
  std::vector<Arg> a{Arg::integer(b.stmt)};
  if (!call(what, "Execute", a)) return false;
  ++b.loaded;
  return true;
}

// After the load: when \copy commits itself, a failed batch is rolled back and the
// connection commits by itself again.
bool Shell::end_batch(bool ok) {
  if (!autocommit_ || lost_) return true;
  std::vector<Arg> a{Arg::integer(conn_)};
  bool done = ok || call("\\copy", "Rollback", a);
  a = {Arg::integer(conn_), Arg::integer(1)};
  return call("\\copy", "SetAutocommit", a) && done;
}

// The progress line, on a terminal only, once a \copy has run a second; `done` clears it.
void Shell::progress(std::size_t count, bool done) {
  if (!isatty(1)) return;
  const double now = seconds();
  if (done) {
    if (progress_last_ > 0) std::fputs("\r\033[K", stdout);
    return;
  }
  if (now - progress_start_ < kProgressAfter || now - progress_last_ < kProgressEvery) return;
  std::printf("\rCOPY %zu rows so far...", count);
  std::fflush(stdout);
  progress_last_ = now;
}

}  // namespace qz::call
