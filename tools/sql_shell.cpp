// The SQL shell of qzcall: the connection, SQL through ExecDirect with its result fetched as
// packed rows, the table of backslash commands (catalog, format, transactions, trace, log,
// versions), the diagnostics of failures, and the batch and interactive loops.
#include "sql_shell.hpp"

#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <sstream>

#include "qzstatus.hpp"
#include "statements.hpp"

#ifdef QZ_HAVE_LIBEDIT
#include <editline/readline.h>
#endif

namespace qz::call {

using client::Arg;
using client::CallResult;

// ---- the shell -----------------------------------------------------------------------

namespace {

constexpr int kMessageCapacity = 4096;  // GetError's message variable
constexpr int kMaxDiagnostics = 100;    // records read after one failure, at most
constexpr int kTitleCapacity = 1024;    // GetColumnTitle's variable
constexpr int kRowCapacity = 1 << 18;   // Fetch's packed row buffer
constexpr int kValueCapacity = 32768;   // GetData's variable: above the longest column text

// Value type codes of GetColumnType whose values are numbers (shown to the right).
constexpr int kTypeInteger = 2;
constexpr int kTypeReal = 3;

// A command and the input line it began on (0: not from a file).
struct Command {
  std::string text;  // SQL without its ';', or a backslash command
  int line = 0;      // 1-based line of standard input
};

// A column of a catalog result that the catalog commands show.
struct Pick {
  int column;         // 1-based column of the catalog result
  const char *title;  // title shown instead of the catalog's
  bool yes_no;        // a nullability code
  bool optional;      // table format: left out when NULL in every row
};

const Pick kTablePicks[] = {
    {2, "schema", false, true}, {3, "name", false, false}, {4, "type", false, false}};
const Pick kColumnPicks[] = {{4, "column", false, false},
                             {6, "type", false, false},
                             {7, "size", false, false},
                             {11, "nullable", true, false}};

class Shell {
 public:
  Shell(client::Session &s, const SqlOptions &o)
      : s_(s), o_(o), format_(o.format), max_width_(o.max_width) {}

  int run() {
    if (!settings()) return 1;
    if (!connect()) return 1;
    int status = 0;
    if (!o_.execute.empty()) {
      bool go = true;
      for (std::size_t k = 0; go && k < o_.execute.size(); ++k) {
        StatementSplitter sp;
        std::vector<Command> cmds;
        std::istringstream in(o_.execute[k]);
        for (std::string line; std::getline(in, line);)
          for (Command &c : feed(sp, line, 0))
            cmds.push_back(std::move(c));
        std::string rest = sp.finish();
        if (!rest.empty()) cmds.push_back({rest, 0});
        go = batch(cmds, status);
      }
    } else if (isatty(0)) {
      interactive();
    } else {
      StatementSplitter sp;
      std::string line;
      bool go = true;
      for (int n = 1; go && read_line(line); ++n)
        go = batch(feed(sp, line, n), status);
      if (go) {
        std::string rest = sp.finish();
        if (!rest.empty()) batch({{rest, begun_}}, status);
      }
    }
    disconnect();
    return quit_failed_ ? 1 : status;
  }

 private:
  // Feeds one input line; the commands it completes, each with the line it began on.
  std::vector<Command> feed(StatementSplitter &sp, std::string_view line, int n) {
    bool was_pending = sp.pending();
    std::vector<std::string> done = sp.feed(line);
    std::vector<Command> out;
    for (std::size_t k = 0; k < done.size(); ++k)
      out.push_back({std::move(done[k]), k == 0 && was_pending ? begun_ : n});
    if (sp.pending() && (!was_pending || !out.empty())) begun_ = n;
    return out;
  }

  // Runs commands until one fails (unless going on); false: stop reading.
  bool batch(const std::vector<Command> &cmds, int &status) {
    for (const Command &c : cmds) {
      if (quit_) return false;
      where_ = c.line > 0 ? "line " + std::to_string(c.line) + ": " : "";
      bool ok = command(c.text);
      where_.clear();
      if (!ok) {
        status = 1;
        if (!o_.keep_going) return false;
      }
      if (quit_) return false;
    }
    return !quit_;
  }

  static bool read_line(std::string &line) {
    line.clear();
    int c;
    while ((c = std::getchar()) != EOF && c != '\n')
      line += static_cast<char>(c);
    return c != EOF || !line.empty();
  }

  void interactive() {
    std::printf("qzcall %s: connected (connection %d). \\? lists the commands, \\q quits.\n",
                QZ_VERSION, conn_);
    std::fflush(stdout);
    std::string history;
#ifdef QZ_HAVE_LIBEDIT
    const char *home = std::getenv("HOME");
    if (o_.history && home && *home) {
      history = std::string(home) + "/.qzcall_history";
      read_history(history.c_str());
    }
#endif
    StatementSplitter sp;
    while (!quit_) {
      const char *prompt = sp.pending() ? "qz-> " : "qz=> ";
      std::string line;
#ifdef QZ_HAVE_LIBEDIT
      char *l = readline(prompt);
      if (!l) break;
      line = l;
      std::free(l);
      if (line.find_first_not_of(" \t") != std::string::npos) add_history(line.c_str());
#else
      std::fputs(prompt, stdout);
      std::fflush(stdout);
      if (!read_line(line)) break;
#endif
      for (const std::string &c : sp.feed(line)) {
        command(c);
        std::fflush(stdout);
        if (quit_) break;
      }
    }
    if (!quit_) std::putchar('\n');
#ifdef QZ_HAVE_LIBEDIT
    if (!history.empty()) write_history(history.c_str());
#endif
  }

  // Prints one message line on standard error, after the input line it concerns.
  void error(const std::string &text) {
    std::fflush(stdout);  // results so far come first
    std::fprintf(stderr, "qzcall: %s%s\n", where_.c_str(), text.c_str());
  }

  // Reports a failed call of the server: its status, then every diagnostic record.
  void failed(const std::string &what, const CallResult &r) {
    if (!r.ok()) {
      error(what + ": " + r.error);
      lost_ = r.kind != CallResult::Kind::failed;
      return;
    }
    const char *m = status_meaning(r.status);
    error(what + " failed with status " + std::to_string(r.status) +
          (m ? std::string(" (") + m + ")" : ""));
    diagnostics();
  }

  void diagnostics() {
    for (int n = 0; n < kMaxDiagnostics && !lost_; ++n) {
      std::vector<Arg> a{Arg::string_var("", kMessageCapacity), Arg::string_var("", 16),
                         Arg::int_var(0), Arg::int_var(0)};
      CallResult r = s_.call("GetError", std::span<Arg>(a));
      if (!r.ok()) {
        std::fprintf(stderr, "qzcall: GetError: %s\n", r.error.c_str());
        lost_ = r.kind != CallResult::Kind::failed;
        return;
      }
      if (r.status == 18) {
        std::fprintf(stderr, "  (a diagnostic longer than %d bytes, skipped)\n", kMessageCapacity);
        continue;
      }
      if (r.status != 0) {
        std::fprintf(stderr, "qzcall: GetError failed with status %d\n", r.status);
        return;
      }
      if (a[3].as_int() == 0) return;
      // A message of several lines keeps them, indented under the first.
      std::string message = from_server(a[0].as_string(), o_.encoding);
      for (std::size_t p = 0; (p = message.find('\n', p)) != std::string::npos; p += 5)
        message.insert(p + 1, "    ");
      std::fprintf(stderr, "  %s (native %d): %s\n",
                   from_server(a[1].as_string(), o_.encoding).c_str(), a[2].as_int(),
                   message.c_str());
    }
  }

  // One call whose failure is reported; true when it returned 0.
  bool call(const std::string &what, const char *name, std::vector<Arg> &args) {
    if (lost_) {
      error(what + ": the server is gone");
      return false;
    }
    CallResult r = s_.call(name, std::span<Arg>(args));
    if (r.ok() && r.status == 0) return true;
    failed(what, r);
    return false;
  }

  bool settings() {
    std::vector<Arg> a;
    if (o_.trace >= 0) {
      a = {Arg::integer(o_.trace)};
      if (!call("DllDebug", "DllDebug", a)) return false;
    }
    if (!o_.log_file.empty()) {
      a = {Arg::string(o_.log_file)};
      if (!call("LogFile " + o_.log_file, "LogFile", a)) return false;
      a = {Arg::string(o_.log_flags.empty() ? "O2" : o_.log_flags)};
      if (!call("LogFlags", "LogFlags", a)) return false;
    } else if (!o_.log_flags.empty()) {
      a = {Arg::string(o_.log_flags)};
      if (!call("LogFlags", "LogFlags", a)) return false;
    }
    return true;
  }

  bool connect() {
    std::string spec = o_.connstr;
    if (spec.find('=') == std::string::npos) spec = "DSN=" + spec;  // a data source name
    std::vector<Arg> a{Arg::string(to_server(spec, o_.encoding)), Arg::int_var(0)};
    if (!call("Connect", "Connect", a)) {
      if (o_.log_file.empty())
        std::fprintf(stderr,
                     "  (the server logs the driver's reasons; --log console shows them)\n");
      return false;
    }
    conn_ = a[1].as_int();
    return true;
  }

  void disconnect() {
    if (conn_ <= 0 || lost_) return;
    std::vector<Arg> a{Arg::integer(conn_)};
    if (!call("Disconnect", "Disconnect", a)) quit_failed_ = true;
    conn_ = 0;
  }

  bool usage(const std::string &text) {
    error(text);
    return false;
  }

  // ---- statements and results ----

  // Runs SQL with ExecDirect and shows its result or its row count.
  bool statement(const std::string &sql) {
    std::vector<Arg> a{Arg::integer(conn_), Arg::string(to_server(sql, o_.encoding)),
                       Arg::int_var(0)};
    if (!call("ExecDirect", "ExecDirect", a)) return false;
    int stmt = a[2].as_int();
    bool ok = result(stmt, sql, {});
    return drop(stmt) && ok;
  }

  bool drop(int stmt) {
    std::vector<Arg> a{Arg::integer(stmt)};
    return call("DropStatement", "DropStatement", a);
  }

  // Shows what a statement produced: its rows (only the columns of `picks`, if any), or
  // for a statement without result columns its row count.
  bool result(int stmt, const std::string &sql, std::span<const Pick> picks) {
    std::vector<Arg> a{Arg::integer(stmt), Arg::int_var(0)};
    if (!call("GetNumColumns", "GetNumColumns", a)) return false;
    const int n = a[1].as_int();
    if (n == 0) return row_count(stmt, sql);

    // The columns shown, in the order shown.
    std::vector<int> cols;
    for (const Pick &p : picks)
      if (p.column <= n) cols.push_back(p.column);
    if (cols.size() != picks.size()) cols.clear();  // not the catalog's layout: show all
    const bool picked = !cols.empty();
    if (!picked)
      for (int c = 1; c <= n; ++c)
        cols.push_back(c);

    ResultView view;
    if (format_ != OutputFormat::packed) {
      for (std::size_t k = 0; k < cols.size(); ++k) {
        a = {Arg::integer(stmt), Arg::integer(cols[k]), Arg::string_var("", kTitleCapacity)};
        if (!call("GetColumnTitle", "GetColumnTitle", a)) return false;
        view.titles.push_back(picked ? picks[k].title : from_server(a[2].as_string(), o_.encoding));
        a = {Arg::integer(stmt), Arg::integer(cols[k]), Arg::int_var(0)};
        if (!call("GetColumnType", "GetColumnType", a)) return false;
        const bool number = a[2].as_int() == kTypeInteger || a[2].as_int() == kTypeReal;
        view.right.push_back(number && !(picked && picks[k].yes_no));
      }
    }
    if (format_ == OutputFormat::csv)
      std::fputs(csv_line(Row(view.titles.begin(), view.titles.end())).c_str(), stdout);

    std::size_t count = 0;
    std::string packed;
    Row row;
    for (;;) {
      int got = fetch(stmt, n, packed, row);
      if (got < 0) return false;
      if (got == 0) break;
      ++count;
      if (format_ == OutputFormat::packed) {
        std::printf("%s\n", from_server(packed, o_.encoding).c_str());
        continue;
      }
      Row shown;
      for (std::size_t k = 0; k < cols.size(); ++k) {
        Cell c = row[static_cast<std::size_t>(cols[k] - 1)];
        if (picked && picks[k].yes_no && c) c = *c == "0" ? "no" : *c == "1" ? "yes" : "unknown";
        shown.push_back(std::move(c));
      }
      if (format_ == OutputFormat::csv)
        std::fputs(csv_line(shown).c_str(), stdout);
      else
        view.rows.push_back(std::move(shown));
    }
    if (format_ == OutputFormat::packed) std::printf("%s\n\n", rows_footer(count).c_str());
    if (format_ != OutputFormat::table) return true;
    // Optional catalog columns that are NULL in every row are left out.
    for (std::size_t k = cols.size(); picked && k-- > 0;) {
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
    std::printf("%s\n", format_table(view, o_.encoding, max_width_).c_str());
    return true;
  }

  bool row_count(int stmt, const std::string &sql) {
    std::vector<Arg> a{Arg::integer(stmt), Arg::int_var(-1)};
    if (!call("RowCount", "RowCount", a)) return false;
    int n = a[1].as_int();
    if (n > 0 || (n == 0 && changes_rows(sql)))
      std::printf("%d row%s affected\n", n, n == 1 ? "" : "s");
    else
      std::printf("OK\n");
    return true;
  }

  // The next row of `stmt` (`n` columns): 1 with `packed` as the server packed it and,
  // unless the format is packed, `row` holding its values; 0 at the end; -1 after a
  // failure that has been reported.
  int fetch(int stmt, int n, std::string &packed, Row &row) {
    if (lost_) {
      error("Fetch: the server is gone");
      return -1;
    }
    std::vector<Arg> a{Arg::integer(stmt), Arg::int_var(0), Arg::string_var("", kRowCapacity)};
    CallResult r = s_.call("Fetch", std::span<Arg>(a));
    const bool full = r.ok() && r.status == 18;  // fetched, but the row did not fit
    if (!full && (!r.ok() || r.status != 0)) {
      failed("Fetch", r);
      return -1;
    }
    if (a[1].as_int() == 0) return 0;
    packed = a[2].as_string();
    row.clear();
    if (full) {
      if (format_ == OutputFormat::packed) {
        error("a row longer than " + std::to_string(kRowCapacity) +
              " bytes does not fit the packed row buffer; \\format table or csv shows it");
        return -1;
      }
      return column_values(stmt, n, row) ? 1 : -1;
    }
    if (format_ == OutputFormat::packed) return 1;
    client::PackedRow pr = client::read_packed_row(packed);
    if (!pr.ok() || pr.entries.size() != static_cast<std::size_t>(n)) {
      error("the server's packed row does not read as " + std::to_string(n) + " columns" +
            (pr.ok() ? "" : ": " + pr.error));
      return -1;
    }
    for (int k = 0; k < n; ++k) {
      const client::PackedEntry &e = pr.entries[static_cast<std::size_t>(k)];
      // A packed row shows NULL as empty text, or as "0" for a number: IsNull tells.
      if ((e.value.empty() || (e.numeric && e.value == "0"))) {
        int null = 0;
        if (!is_null(stmt, k + 1, null)) return -1;
        if (null) {
          row.emplace_back();
          continue;
        }
      }
      row.emplace_back(from_server(e.value, o_.encoding));
    }
    return 1;
  }

  bool is_null(int stmt, int col, int &null) {
    std::vector<Arg> a{Arg::integer(stmt), Arg::integer(col), Arg::int_var(0)};
    if (!call("IsNull", "IsNull", a)) return false;
    null = a[2].as_int();
    return true;
  }

  // The current row's values one by one, for a row too long to come packed.
  bool column_values(int stmt, int n, Row &row) {
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

  // \tables [PATTERN] and \columns TABLE: the catalog query, then its chosen columns.
  bool catalog(const std::string &name, const std::vector<std::string> &words) {
    const bool tables = name == "tables";
    if (tables ? words.size() > 1 : words.size() != 1)
      return usage(tables ? "\\tables takes at most one pattern, e.g. \\tables cust%"
                          : "\\columns takes a table name, e.g. \\columns customer");
    std::string owner, object = words.empty() ? "" : words[0];
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
    if (!call("\\" + name, tables ? "Tables" : "Columns", a)) return false;
    int stmt = a[5].as_int();
    bool ok = tables ? result(stmt, "", kTablePicks) : result(stmt, "", kColumnPicks);
    return drop(stmt) && ok;
  }

  // ---- backslash commands ----

  using Words = std::vector<std::string>;

  // One backslash command: its names, how it is written, what it does (for \?; a second
  // line after '\n'), and its handler, which gets the words after the name.
  struct Backslash {
    std::vector<const char *> names;  // the first is the one \? shows
    const char *usage;                // e.g. "\\tables [PATTERN]"
    const char *help;                 // one line, or two separated by '\n'
    bool (Shell::*run)(const Words &words);
  };

  static const std::vector<Backslash> &backslash_commands() {
    static const std::vector<Backslash> table{
        {{"tables"},
         "\\tables [PATTERN]",
         "tables and views (PATTERN: name or schema.name, % and _\nas wildcards)",
         &Shell::tables},
        {{"columns"},
         "\\columns TABLE",
         "columns of a table (TABLE: name or schema.name)",
         &Shell::columns},
        {{"format"},
         "\\format [table|csv|packed]",
         "how result rows print (without: the one in use)",
         &Shell::format},
        {{"width"},
         "\\width [N]",
         "widest column of a table, in characters (0: no limit)",
         &Shell::width},
        {{"autocommit"},
         "\\autocommit on|off",
         "commit every statement by itself, or not",
         &Shell::autocommit},
        {{"commit"}, "\\commit", "commit the open transaction", &Shell::commit},
        {{"rollback"}, "\\rollback", "roll the open transaction back", &Shell::rollback},
        {{"trace"},
         "\\trace N",
         "the server's call trace on standard error (0 off, 1 to 4)",
         &Shell::trace},
        {{"log"},
         "\\log FILE [FLAGS]",
         "the server's log to FILE (console: standard error); FLAGS\nas LogFlags takes them, O2 "
         "when not given",
         &Shell::log},
        {{"conninfo"}, "\\conninfo", "the completed connection string", &Shell::conninfo},
        {{"version"}, "\\version", "the server's version texts", &Shell::version},
        {{"?", "help"}, "\\?", "this list", &Shell::help},
        {{"q", "quit"}, "\\q", "quit", &Shell::quit},
    };
    return table;
  }

  // Runs one command; false when it failed.
  bool command(const std::string &text) {
    if (text.empty() || text[0] != '\\') return statement(text);
    std::istringstream in(text.substr(1));
    std::string name;
    in >> name;
    Words words;
    for (std::string w; in >> w;)
      words.push_back(w);
    for (const Backslash &c : backslash_commands())
      for (const char *n : c.names)
        if (name == n) return (this->*c.run)(words);
    return usage("unknown command \\" + name + "; \\? lists the commands");
  }

  bool help(const Words &) {
    std::puts("SQL statements end with ';' (outside quotes and -- comments) or with the input.");
    std::puts("Backslash commands (one a line):");
    for (const Backslash &c : backslash_commands()) {
      std::string_view h = c.help;
      std::size_t nl = h.find('\n');
      std::printf("  %-20s %.*s\n", c.usage, static_cast<int>(h.substr(0, nl).size()), h.data());
      if (nl != std::string_view::npos) std::printf("%23s%s\n", "", c.help + nl + 1);
    }
    return true;
  }

  bool quit(const Words &) {
    quit_ = true;
    return true;
  }

  bool tables(const Words &words) {
    return catalog("tables", words);
  }
  bool columns(const Words &words) {
    return catalog("columns", words);
  }

  bool autocommit(const Words &words) {
    if (words.size() != 1 || (words[0] != "on" && words[0] != "off"))
      return usage("\\autocommit takes on or off");
    std::vector<Arg> a{Arg::integer(conn_), Arg::integer(words[0] == "on" ? 1 : 0)};
    if (!call("\\autocommit " + words[0], "SetAutocommit", a)) return false;
    std::printf("autocommit %s\n", words[0].c_str());
    return true;
  }

  bool commit(const Words &words) {
    return transact("commit", "Commit", "committed", words);
  }
  bool rollback(const Words &words) {
    return transact("rollback", "Rollback", "rolled back", words);
  }

  bool transact(const char *name, const char *fn, const char *done, const Words &words) {
    if (!words.empty()) return usage(std::string("\\") + name + " takes no argument");
    std::vector<Arg> a{Arg::integer(conn_)};
    if (!call(std::string("\\") + name, fn, a)) return false;
    std::printf("%s\n", done);
    return true;
  }

  bool trace(const Words &words) {
    char *end = nullptr;
    long level = words.size() == 1 ? std::strtol(words[0].c_str(), &end, 10) : -1;
    if (words.size() != 1 || *end || level < 0 || level > 100)
      return usage("\\trace takes a level: 0 (off) to 4 (the call block too)");
    std::vector<Arg> a{Arg::integer(static_cast<std::int32_t>(level))};
    if (!call("\\trace", "DllDebug", a)) return false;
    std::printf("trace level %ld\n", level);
    return true;
  }

  bool log(const Words &words) {
    if (words.empty() || words.size() > 2)
      return usage(
          "\\log takes a file (console for standard error) and optionally flags, "
          "e.g. \\log console O2");
    std::vector<Arg> a{Arg::string(words[0])};
    if (!call("\\log " + words[0], "LogFile", a)) return false;
    std::string flags = words.size() == 2 ? words[1] : "O2";
    a = {Arg::string(flags)};
    if (!call("\\log", "LogFlags", a)) return false;
    std::printf("logging %s to %s\n", flags.c_str(), words[0].c_str());
    return true;
  }

  bool conninfo(const Words &) {
    std::vector<Arg> a{Arg::integer(conn_), Arg::string_var("", 32767)};
    if (!call("\\conninfo", "GetConnection", a)) return false;
    std::printf("connection %d: %s\n", conn_, from_server(a[1].as_string(), o_.encoding).c_str());
    return true;
  }

  bool version(const Words &) {
    for (const char *f : {"VersionID", "BuildID", "Revision"}) {
      std::vector<Arg> a{Arg::string_var("", 256)};
      if (!call(std::string("\\version: ") + f, f, a)) return false;
      std::printf("%-9s %s\n", f, from_server(a[0].as_string(), o_.encoding).c_str());
    }
    return true;
  }

  bool format(const Words &words) {
    static const char *names[] = {"table", "csv", "packed"};
    if (words.empty()) {  // the format in use
      std::printf("format %s\n", names[static_cast<int>(format_)]);
      return true;
    }
    for (int k = 0; k < 3 && words.size() == 1; ++k) {
      if (words[0] != names[k]) continue;
      format_ = static_cast<OutputFormat>(k);
      std::printf("format %s\n", names[k]);
      return true;
    }
    return usage("\\format takes table, csv or packed");
  }

  bool width(const Words &words) {
    if (words.size() > 1) return usage("\\width takes a number of characters (0: no limit)");
    if (words.size() == 1) {
      char *end = nullptr;
      long w = std::strtol(words[0].c_str(), &end, 10);
      if (*end || words[0].empty() || w < 0 || w > 100000)
        return usage("\\width takes a number of characters (0: no limit)");
      max_width_ = static_cast<int>(w);
    }
    if (max_width_ == 0)
      std::printf("width unlimited\n");
    else
      std::printf("width %d\n", max_width_);
    return true;
  }

  client::Session &s_;
  const SqlOptions &o_;
  OutputFormat format_;       // current output format (\format changes it)
  int max_width_;             // current widest table column (\width changes it)
  int conn_ = 0;              // connection identifier, 0 before Connect
  int begun_ = 0;             // input line on which the pending statement began
  std::string where_;         // "line N: " while running a command read from a file
  bool quit_ = false;         // \q seen
  bool lost_ = false;         // the server gave no answer: no further calls
  bool quit_failed_ = false;  // the closing Disconnect failed
};

}  // namespace

int run_sql(client::Session &session, const SqlOptions &options) {
  Shell shell(session, options);
  return shell.run();
}

}  // namespace qz::call
