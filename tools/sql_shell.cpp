// The SQL shell of qzcall: connection, statement splitting, backslash commands for
// transactions, trace and log, the diagnostics of failures, and the interactive loop.
// Statements and the catalog commands need the server's statement functions, which this
// version does not use yet: they are refused with a message and a failure status.
#include "sql_shell.hpp"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "qzcharset.hpp"
#include "runner.hpp"

#ifdef QZ_HAVE_LIBEDIT
#include <editline/readline.h>
#endif

namespace qz::call {

using client::Arg;
using client::CallResult;

// ---- statement splitting -------------------------------------------------------------

std::vector<std::string> StatementSplitter::feed(std::string_view line) {
  std::vector<std::string> out;
  if (buf_.empty()) {
    std::size_t i = line.find_first_not_of(" \t");
    if (i == std::string_view::npos) return out;
    if (line[i] == '\\') {
      std::string cmd(line.substr(i));
      while (!cmd.empty() && (cmd.back() == ' ' || cmd.back() == '\t' || cmd.back() == '\r'))
        cmd.pop_back();
      out.push_back(cmd);
      return out;
    }
  }
  std::size_t start = 0, end = line.size();
  for (std::size_t i = 0; i < line.size(); ++i) {
    char c = line[i];
    if (quote_) {
      if (c == quote_) quote_ = 0;  // a doubled quote reopens at once: same effect
    } else if (c == '\'' || c == '"') {
      quote_ = c;
    } else if (c == '-' && i + 1 < line.size() && line[i + 1] == '-') {
      end = i;  // a comment to the end of the line: kept in the text, ';' inside ignored
      break;
    } else if (c == ';') {
      buf_.append(line.substr(start, i - start));
      std::size_t b = buf_.find_first_not_of(" \t\r\n");
      if (b != std::string::npos) out.push_back(buf_.substr(b));
      buf_.clear();
      start = i + 1;
    }
  }
  // Nothing begun and nothing but blanks or a comment left: no statement is pending.
  std::string_view code = line.substr(start, end - start);
  if (buf_.empty() && code.find_first_not_of(" \t\r") == std::string_view::npos) return out;
  std::string rest(line.substr(start));
  buf_ += rest;
  buf_ += '\n';
  return out;
}

std::string StatementSplitter::finish() {
  std::string s;
  std::size_t b = buf_.find_first_not_of(" \t\r\n");
  if (b != std::string::npos) {
    std::size_t e = buf_.find_last_not_of(" \t\r\n");
    s = buf_.substr(b, e - b + 1);
  }
  buf_.clear();
  quote_ = 0;
  return s;
}

bool StatementSplitter::pending() const {
  return buf_.find_first_not_of(" \t\r\n") != std::string::npos;
}

// ---- encodings -----------------------------------------------------------------------

std::string to_server(std::string_view text, Encoding e) {
  if (e == Encoding::roman8) return std::string(text);
  std::string latin1;
  if (e == Encoding::latin1) {
    latin1 = text;
  } else {
    // UTF-8 to ISO 8859-1; a character outside it becomes '?', a byte that is no UTF-8
    // is taken as the ISO 8859-1 character it is.
    for (std::size_t i = 0; i < text.size();) {
      unsigned char c = static_cast<unsigned char>(text[i]);
      int len = c < 0x80             ? 1
                : (c & 0xE0) == 0xC0 ? 2
                : (c & 0xF0) == 0xE0 ? 3
                : (c & 0xF8) == 0xF0 ? 4
                                     : 0;
      bool ok = len > 0 && i + static_cast<std::size_t>(len) <= text.size();
      unsigned cp = len == 1 ? c : len == 2 ? c & 0x1F : len == 3 ? c & 0x0F : c & 0x07;
      for (int k = 1; ok && k < len; ++k) {
        unsigned char d = static_cast<unsigned char>(text[i + static_cast<std::size_t>(k)]);
        ok = (d & 0xC0) == 0x80;
        cp = cp << 6 | (d & 0x3F);
      }
      if (!ok) {
        latin1 += static_cast<char>(c);
        ++i;
        continue;
      }
      latin1 += cp <= 0xFF ? static_cast<char>(cp) : '?';
      i += static_cast<std::size_t>(len);
    }
  }
  qz__charset_map(1, 0, latin1.data(), static_cast<unsigned>(latin1.size()));
  return latin1;
}

std::string from_server(std::string_view text, Encoding e) {
  if (e == Encoding::roman8) return std::string(text);
  std::string latin1(text);
  qz__charset_map(0, 1, latin1.data(), static_cast<unsigned>(latin1.size()));
  if (e == Encoding::latin1) return latin1;
  std::string out;
  for (unsigned char c : latin1) {
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else {
      out += static_cast<char>(0xC0 | c >> 6);
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

// ---- the shell -----------------------------------------------------------------------

namespace {

constexpr int kMessageCapacity = 4096;  // GetError's message variable
constexpr int kMaxDiagnostics = 100;    // records read after one failure, at most

constexpr const char *kHelp =
    "Backslash commands (one a line):\n"
    "  \\autocommit on|off   commit every statement by itself, or not\n"
    "  \\commit              commit the open transaction\n"
    "  \\rollback            roll the open transaction back\n"
    "  \\trace N             the server's call trace on standard error (0 off, 1 to 4)\n"
    "  \\log FILE [FLAGS]    the server's log to FILE (console: standard error); FLAGS\n"
    "                       as LogFlags takes them, O2 when not given\n"
    "  \\conninfo            the completed connection string\n"
    "  \\version             the server's version texts\n"
    "  \\format [table|csv|packed]   how result rows print (without: the one in use)\n"
    "  \\tables [PATTERN]    tables and views (not yet available)\n"
    "  \\columns TABLE       columns of a table (not yet available)\n"
    "  \\q                   quit\n"
    "SQL statements end with ';' (not yet available in this version).\n";

class Shell {
 public:
  Shell(client::Session &s, const SqlOptions &o) : s_(s), o_(o), format_(o.format) {}

  int run() {
    if (!settings()) return 1;
    if (!connect()) return 1;
    int status = 0;
    if (!o_.execute.empty()) {
      for (const std::string &text : o_.execute) {
        StatementSplitter sp;
        std::vector<std::string> cmds = sp.feed(text);
        std::string rest = sp.finish();
        if (!rest.empty()) cmds.push_back(rest);
        if (!batch(cmds, status)) break;
      }
    } else if (isatty(0)) {
      interactive();
    } else {
      StatementSplitter sp;
      std::string line;
      bool go = true;
      while (go && read_line(line))
        go = batch(sp.feed(line), status);
      if (go) {
        std::string rest = sp.finish();
        if (!rest.empty()) batch({rest}, status);
      }
    }
    disconnect();
    return quit_failed_ ? 1 : status;
  }

 private:
  // Runs commands until one fails (unless going on); false: stop reading.
  bool batch(const std::vector<std::string> &cmds, int &status) {
    for (const std::string &c : cmds) {
      if (quit_) return false;
      if (!command(c)) {
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
        if (quit_) break;
      }
    }
    if (!quit_) std::putchar('\n');
#ifdef QZ_HAVE_LIBEDIT
    if (!history.empty()) write_history(history.c_str());
#endif
  }

  // Reports a failed call of the server: its status, then every diagnostic record.
  void failed(const std::string &what, const CallResult &r) {
    if (!r.ok()) {
      std::fprintf(stderr, "qzcall: %s: %s\n", what.c_str(), r.error.c_str());
      lost_ = r.kind != CallResult::Kind::failed;
      return;
    }
    const char *m = status_meaning(r.status);
    std::fprintf(stderr, "qzcall: %s failed with status %d%s%s%s\n", what.c_str(), r.status,
                 m ? " (" : "", m ? m : "", m ? ")" : "");
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
      std::fprintf(stderr, "  %s (native %d): %s\n",
                   from_server(a[1].as_string(), o_.encoding).c_str(), a[2].as_int(),
                   from_server(a[0].as_string(), o_.encoding).c_str());
    }
  }

  // One call whose failure is reported; true when it returned 0.
  bool call(const std::string &what, const char *name, std::vector<Arg> &args) {
    if (lost_) {
      std::fprintf(stderr, "qzcall: %s: the server is gone\n", what.c_str());
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

  bool not_yet(const std::string &what) {
    std::fprintf(stderr,
                 "qzcall: %s: not available yet. This version of qzcall runs the connection "
                 "commands only (\\autocommit, \\commit, \\rollback, \\trace, \\log, "
                 "\\conninfo, \\version); SQL statements, \\tables and \\columns come with "
                 "the statement functions.\n",
                 what.c_str());
    return false;
  }

  bool usage(const std::string &text) {
    std::fprintf(stderr, "qzcall: %s\n", text.c_str());
    return false;
  }

  // Runs one command; false when it failed.
  bool command(const std::string &text) {
    if (text.empty() || text[0] != '\\') return not_yet("SQL statement");
    std::istringstream in(text.substr(1));
    std::string name;
    in >> name;
    std::vector<std::string> words;
    for (std::string w; in >> w;)
      words.push_back(w);
    std::vector<Arg> a;
    if (name == "q" || name == "quit") {
      quit_ = true;
      return true;
    }
    if (name == "?" || name == "help") {
      std::fputs(kHelp, stdout);
      return true;
    }
    if (name == "autocommit") {
      if (words.size() != 1 || (words[0] != "on" && words[0] != "off"))
        return usage("\\autocommit takes on or off");
      a = {Arg::integer(conn_), Arg::integer(words[0] == "on" ? 1 : 0)};
      if (!call("\\autocommit " + words[0], "SetAutocommit", a)) return false;
      std::printf("autocommit %s\n", words[0].c_str());
      return true;
    }
    if (name == "commit" || name == "rollback") {
      if (!words.empty()) return usage("\\" + name + " takes no argument");
      a = {Arg::integer(conn_)};
      if (!call("\\" + name, name == "commit" ? "Commit" : "Rollback", a)) return false;
      std::printf("%s\n", name == "commit" ? "committed" : "rolled back");
      return true;
    }
    if (name == "trace") {
      char *end = nullptr;
      long level = words.size() == 1 ? std::strtol(words[0].c_str(), &end, 10) : -1;
      if (words.size() != 1 || *end || level < 0 || level > 100)
        return usage("\\trace takes a level: 0 (off) to 4 (the call block too)");
      a = {Arg::integer(static_cast<std::int32_t>(level))};
      if (!call("\\trace", "DllDebug", a)) return false;
      std::printf("trace level %ld\n", level);
      return true;
    }
    if (name == "log") {
      if (words.empty() || words.size() > 2)
        return usage(
            "\\log takes a file (console for standard error) and optionally flags, "
            "e.g. \\log console O2");
      a = {Arg::string(words[0])};
      if (!call("\\log " + words[0], "LogFile", a)) return false;
      std::string flags = words.size() == 2 ? words[1] : "O2";
      a = {Arg::string(flags)};
      if (!call("\\log", "LogFlags", a)) return false;
      std::printf("logging %s to %s\n", flags.c_str(), words[0].c_str());
      return true;
    }
    if (name == "conninfo") {
      a = {Arg::integer(conn_), Arg::string_var("", 32767)};
      if (!call("\\conninfo", "GetConnection", a)) return false;
      std::printf("connection %d: %s\n", conn_, from_server(a[1].as_string(), o_.encoding).c_str());
      return true;
    }
    if (name == "version") {
      static const char *fns[] = {"VersionID", "BuildID", "Revision"};
      for (const char *f : fns) {
        a = {Arg::string_var("", 256)};
        if (!call(std::string("\\version: ") + f, f, a)) return false;
        std::printf("%-9s %s\n", f, from_server(a[0].as_string(), o_.encoding).c_str());
      }
      return true;
    }
    if (name == "format") {
      static const char *names[] = {"table", "csv", "packed"};
      if (words.empty()) {  // the format in use
        std::printf("format %s\n", names[static_cast<int>(format_)]);
        return true;
      }
      if (words.size() != 1) return usage("\\format takes table, csv or packed");
      if (words[0] == "table")
        format_ = OutputFormat::table;
      else if (words[0] == "csv")
        format_ = OutputFormat::csv;
      else if (words[0] == "packed")
        format_ = OutputFormat::packed;
      else
        return usage("\\format takes table, csv or packed");
      std::printf("format %s\n", words[0].c_str());
      return true;
    }
    if (name == "tables" || name == "columns") return not_yet("\\" + name);
    return usage("unknown command \\" + name + "; \\? lists the commands");
  }

  client::Session &s_;
  const SqlOptions &o_;
  OutputFormat format_;       // current output format (\format changes it)
  int conn_ = 0;              // connection identifier, 0 before Connect
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
