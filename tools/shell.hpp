// The SQL shell's state and its parts, shared by its three source files and nothing else:
// input and the connection (shell.cpp), statements and results (shell_results.cpp), the
// backslash commands (shell_commands.cpp).
#pragma once

#include <cstdio>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "qzclient.hpp"
#include "result_view.hpp"
#include "sql_shell.hpp"
#include "statements.hpp"

namespace qz::call {

// A command and the input line it began on (0: not from a file).
struct Command {
  std::string text;  // SQL without its ';', or a backslash command
  int line = 0;      // 1-based line of the input
};

// A result's rows as FetchArray brings them: many a call where no column can be NULL (a
// packed row shows NULL as empty text or 0, and IsNull reads only the last row delivered),
// else one a call.
struct Rows {
  int stmt = 0;                     // the statement
  int columns = 0;                  // its result columns
  int batch = 1;                    // rows asked for a call
  std::vector<std::string> packed;  // the rows the last call filled
  std::size_t next = 0;             // index of the next row in packed
  std::size_t got = 0;              // rows the last call filled
  bool long_row = false;            // a row did not fit its element: Fetch reads it next
  bool end = false;                 // the end of the result is seen
};

struct Batch;  // \copy FROM: rows waiting for ExecuteArray (shell_copy.cpp)

// A column of a catalog result that the catalog commands show.
struct Pick {
  int column;         // 1-based column of the catalog result
  const char *title;  // title shown instead of the catalog's
  bool yes_no;        // a nullability code
  bool optional;      // table format: left out when NULL in every row
};

class Shell {
 public:
  Shell(client::Session &s, const SqlOptions &o, std::function<bool()> restart)
      : s_(s), o_(o), restart_(std::move(restart)), format_(o.format), max_width_(o.max_width) {}
  int run();

 private:
  using Arg = client::Arg;
  using Words = std::vector<std::string>;

  // ---- input (shell.cpp) ----
  std::vector<Command> feed(StatementSplitter &sp, std::string_view line, int n);
  bool batch(const std::vector<Command> &cmds, int &status);
  bool run_text(const std::string &text, int &status);
  bool run_stream(std::FILE *in, const std::string &name, int &status);
  bool run_file(const std::string &path, int &status);
  void interactive();
  bool read_line(const char *prompt, std::string &line);

  // ---- the server and the connection (shell.cpp) ----
  void error(const std::string &text);
  void failed(const std::string &what, const client::CallResult &r);
  void diagnostics();
  bool call(const std::string &what, const char *name, std::vector<Arg> &args);
  bool settings();
  bool connect();
  void disconnect();
  void recover();
  bool usage(const std::string &text);

  // ---- statements and results (shell_results.cpp) ----
  bool command(const std::string &text);
  bool statement(const std::string &sql);
  bool drop(int stmt);
  bool result(int stmt, const std::string &sql, std::span<const Pick> picks);
  bool describe(int stmt, const std::vector<int> &cols, std::span<const Pick> picks,
                ResultView &view);
  void show(ResultView &view, std::size_t count, std::span<const Pick> picks);
  bool row_count(int stmt, const std::string &sql);
  bool open_rows(int stmt, int n, Rows &rows);
  int fetch(Rows &rows, bool decode, std::string &packed, Row &row);
  int fetch_one(int stmt, int n, bool decode, std::string &packed, Row &row);
  bool unpack(int stmt, int n, bool ask, const std::string &packed, Row &row);
  bool is_null(int stmt, int col, int &null);
  bool column_values(int stmt, int n, Row &row);
  bool catalog(const char *what, bool columns, const std::string &name);

  // ---- \copy (shell_copy.cpp) ----
  bool copy(const Words &words);
  bool copy_to(const std::string &query, const std::string &file, bool header);
  bool copy_rows(int stmt, int n, std::FILE *out, std::size_t &count);
  bool copy_from(const std::string &table, const std::string &file, bool header);
  bool load(std::FILE *in, const std::string &file, int ins, int n, bool header,
            std::size_t &count);
  bool flush(Batch &b, const std::string &file);
  bool insert_one(Batch &b, const Row &row, int line, const std::string &file);
  bool end_batch(bool ok);
  bool column_count(const std::string &table, int &n);
  void progress(std::size_t count, bool done);

  // ---- backslash commands (shell_commands.cpp) ----
  struct Backslash {
    std::vector<const char *> names;  // the first is the one \? shows
    const char *usage;                // e.g. "\\tables [PATTERN]"
    const char *help;                 // one line, or two separated by '\n'
    bool (Shell::*run)(const Words &words);
  };
  static const std::vector<Backslash> &backslash_commands();
  bool backslash(const std::string &text);
  bool help(const Words &words);
  bool quit(const Words &words);
  bool tables(const Words &words);
  bool columns(const Words &words);
  bool describe_command(const Words &words);
  bool include(const Words &words);
  bool timing(const Words &words);
  bool expanded(const Words &words);
  bool autocommit(const Words &words);
  bool commit(const Words &words);
  bool rollback(const Words &words);
  bool transact(const char *name, const char *fn, const char *done, const Words &words);
  bool trace(const Words &words);
  bool log(const Words &words);
  bool conninfo(const Words &words);
  bool version(const Words &words);
  bool format(const Words &words);
  bool width(const Words &words);
  bool on_off(const char *name, bool &flag, const Words &words);

  client::Session &s_;
  const SqlOptions &o_;
  std::function<bool()> restart_;  // starts a fresh server after the last one ended
  OutputFormat format_;            // current output format (\format changes it)
  int max_width_;                  // current widest table column (\width changes it)
  bool expanded_ = false;          // \x: one column a line
  bool autocommit_ = true;         // the connection commits every statement by itself
  std::string raw_;                // a backslash command's text after its name
  double progress_start_ = 0;      // \copy: when it began (steady clock, seconds)
  double progress_last_ = 0;       // \copy: when its progress line was last written
  bool timing_ = false;            // \timing: the time of each command
  int conn_ = 0;                   // connection identifier, 0 before Connect
  int begun_ = 0;                  // input line on which the pending statement began
  int depth_ = 0;                  // files read through \i within one another
  std::string source_;             // "FILE: " while reading a file (-f, \i), else ""
  std::string where_;              // source_ and "line N: " while running a command of it
  bool quit_ = false;              // \q seen
  bool lost_ = false;              // the server gave no answer: no further calls
  bool conn_lost_ = false;         // the database ended the connection: reconnect
  bool quit_failed_ = false;       // the closing Disconnect failed
};

}  // namespace qz::call
