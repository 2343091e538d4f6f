// qzcall: the command line (options anywhere, -- ending them; the commands run and sql),
// a call script read twice from a file (checked whole before any call runs, then run a
// call at a time, so that memory does not grow with its length). Exit status: 0; 1 for a
// failed call or SQL; 2 for bad usage.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "qzclient.hpp"
#include "runner.hpp"
#include "script.hpp"
#include "server.hpp"
#include "sql_shell.hpp"

namespace {

using qz::client::Layout;
using qz::client::Options;
using qz::client::Session;

constexpr int kExitUsage = 2;

constexpr const char *kUsage =
    "Usage: qzcall [OPTIONS] run FILE|-\n"
    "       qzcall [OPTIONS] sql [SQL-OPTIONS] CONNSTR|DSN\n"
    "Options may stand anywhere on the line; -- ends them.\n"
    "\n"
    "Starts the qzodbc server and talks to it as the interpreter does.\n"
    "\n"
    "  run FILE    runs a script of calls (- reads standard input)\n"
    "  sql CONN    connects and runs SQL and backslash commands\n"
    "\n"
    "Options:\n"
    "  --server PATH      the server to start (default: qzodbc next to qzcall, then PATH)\n"
    "  --layout 32|64     call block layout (default: this build's word size)\n"
    "  --timeout SECONDS  longest wait for one call (default 30; 0: no limit)\n"
    "  --launcher CMD     start the server through CMD, e.g. qemu-i386\n"
    "  -h, --help         this text\n"
    "  -V, --version      qzcall's version\n"
    "\n"
    "SQL options:\n"
    "  -c, -e, --execute TEXT   run TEXT (SQL or a \\command) instead of reading input;\n"
    "                           may be repeated\n"
    "  -f, --file FILE          run the statements and commands of FILE instead\n"
    "  -F, --format table|csv|packed   how result rows print (default table)\n"
    "  -w, --width N            widest column of a table, in characters (default 40;\n"
    "                           0: no limit)\n"
    "  -k, --keep-going         go on after a failing command (batch input)\n"
    "  --encoding utf-8|latin1|roman8  the terminal's text (default utf-8)\n"
    "  --log FILE               the server's log to FILE (console: standard error)\n"
    "  --log-flags FLAGS        log flags (default O2 with --log)\n"
    "  --trace N                the server's call trace level on standard error\n"
    "  --no-history             do not read or write ~/.qzcall_history\n"
    "\n"
    "Script notation (run): one call a line, # starts a comment.\n"
    "  NAME ARG ARG ...  [-> STATUS]\n"
    "  42  -7            integers (32-bit)\n"
    "  2.5  0.1  1e-3    reals, exact as written (15 or 16 significant\n"
    "                    figures)\n"
    "  \"text\"            strings; escapes \\\\ \\\" \\n \\t \\r \\0 \\xNN (any byte,\n"
    "                    e.g. Roman-8 \\xC5)\n"
    "  [1, 2, 3]         arrays of one type (by value)\n"
    "  $id               a variable, passed by reference; first use fixes its type:\n"
    "                    $id (integer 0), $x=2.5 (real), $a=[0,0] (array),\n"
    "                    $s:80 (string of capacity 80), $s:80=\"ab\", $s=\"ab\" (capacity 2)\n"
    "  $id=5             assigns before the call (the type stays)\n"
    "  ($id)             passes the variable's value instead of the variable\n"
    "  -> 8              the status the call should return (0 when not given)\n"
    "Each call prints \"CALL -> STATUS\" and the variables it changed; packed rows are\n"
    "also shown entry by entry. The exit status is 1 when a call returned another status\n"
    "than expected.\n";

int usage_error(const std::string &message) {
  std::fprintf(stderr, "qzcall: %s\nTry 'qzcall --help' for more information.\n", message.c_str());
  return kExitUsage;
}

// What the command line says.
struct CommandLine {
  std::string command;            // run or sql
  std::vector<std::string> args;  // the words after it that are no options
  std::string server;             // --server
  Options opt;                    // how the server starts
  qz::call::SqlOptions sql;       // the options of sql
  std::string sql_option;         // the first of them given, for a refusal under run
};

// An option's value: the next word, or after '=' in --name=value.
struct Cursor {
  int argc;
  char **argv;
  int i;
  bool value(const std::string &name, std::string &out) {
    std::string a = argv[i];
    if (a == name) {
      if (i + 1 >= argc) return false;
      out = argv[++i];
      return true;
    }
    out = a.substr(name.size() + 1);
    return true;
  }
};

bool is_option(const std::string &a, const std::string &name) {
  return a == name || a.rfind(name + "=", 0) == 0;
}

bool number(const std::string &v, double lo, double hi, double &out) {
  char *end = nullptr;
  out = std::strtod(v.c_str(), &end);
  return !v.empty() && !*end && out >= lo && out <= hi;
}

// An option of the server: true when `a` was one, with `status` set (>= 0) on an error.
bool global_option(Cursor &c, const std::string &a, CommandLine &cl, int &status) {
  std::string v;
  double d = 0;
  auto bad = [&](const std::string &m) {
    status = usage_error(m);
    return true;
  };
  if (is_option(a, "--server")) {
    if (!c.value("--server", cl.server)) return bad("--server needs a path");
  } else if (is_option(a, "--launcher")) {
    if (!c.value("--launcher", v))
      return bad("--launcher needs a command, e.g. --launcher qemu-i386");
    std::istringstream in(v);
    cl.opt.launcher.clear();
    for (std::string word; in >> word;)
      cl.opt.launcher.push_back(word);
  } else if (is_option(a, "--layout")) {
    if (!c.value("--layout", v) || (v != "32" && v != "64")) return bad("--layout takes 32 or 64");
    cl.opt.layout = v == "64" ? Layout::bits64 : Layout::bits32;
  } else if (is_option(a, "--timeout")) {
    if (!c.value("--timeout", v) || !number(v, 0, 1e7, d))
      return bad("--timeout takes a number of seconds (0: wait without limit)");
    cl.opt.timeout = std::chrono::milliseconds(d == 0 ? 1000LL * 3600 * 24 * 365
                                                      : static_cast<long long>(d * 1000 + 0.5));
  } else {
    return false;
  }
  return true;
}

// An option of sql, as global_option.
bool sql_option(Cursor &c, const std::string &a, qz::call::SqlOptions &so, int &status) {
  std::string v;
  double d = 0;
  auto bad = [&](const std::string &m) {
    status = usage_error(m);
    return true;
  };
  if (a == "-e" || a == "-c" || is_option(a, "--execute")) {
    if (!c.value(a.size() == 2 ? a : "--execute", v)) return bad(a + " needs the text to run");
    so.inputs.push_back({false, v});
  } else if (a == "-f" || is_option(a, "--file")) {
    if (!c.value(a == "-f" ? "-f" : "--file", v) || v.empty()) return bad(a + " needs a file name");
    so.inputs.push_back({true, v});
  } else if (a == "-F" || is_option(a, "--format")) {
    if (!c.value(a == "-F" ? "-F" : "--format", v) || (v != "table" && v != "csv" && v != "packed"))
      return bad("--format takes table, csv or packed");
    so.format = v == "table" ? qz::call::OutputFormat::table
                : v == "csv" ? qz::call::OutputFormat::csv
                             : qz::call::OutputFormat::packed;
  } else if (a == "-w" || is_option(a, "--width")) {
    if (!c.value(a == "-w" ? "-w" : "--width", v) || !number(v, 0, 100000, d) ||
        d != static_cast<int>(d))
      return bad("--width takes a number of characters (0: no limit)");
    so.max_width = static_cast<int>(d);
  } else if (a == "-k" || a == "--keep-going") {
    so.keep_going = true;
  } else if (a == "--no-history") {
    so.history = false;
  } else if (is_option(a, "--encoding")) {
    if (!c.value("--encoding", v) ||
        (v != "utf-8" && v != "utf8" && v != "latin1" && v != "roman8"))
      return bad("--encoding takes utf-8, latin1 or roman8");
    so.encoding = v == "latin1"   ? qz::call::Encoding::latin1
                  : v == "roman8" ? qz::call::Encoding::roman8
                                  : qz::call::Encoding::utf8;
  } else if (is_option(a, "--log")) {
    if (!c.value("--log", so.log_file) || so.log_file.empty())
      return bad("--log needs a file name (console for standard error)");
  } else if (is_option(a, "--log-flags")) {
    if (!c.value("--log-flags", so.log_flags)) return bad("--log-flags needs flags, e.g. O2");
  } else if (is_option(a, "--trace")) {
    if (!c.value("--trace", v) || !number(v, 0, 100, d) || d != static_cast<int>(d))
      return bad("--trace takes a level, 0 to 4");
    so.trace = static_cast<int>(d);
  } else {
    return false;
  }
  return true;
}

// Reads the whole command line. -1 to go on, else the exit status (help, version, errors).
int parse(int argc, char **argv, CommandLine &cl) {
  bool options = true;
  for (Cursor c{argc, argv, 1}; c.i < argc; ++c.i) {
    std::string a = argv[c.i];
    if (!options || a.size() < 2 || a[0] != '-') {
      (cl.command.empty() ? cl.command : cl.args.emplace_back()) = a;
      continue;
    }
    int status = -1;
    if (a == "--") {
      options = false;
    } else if (a == "-h" || a == "--help") {
      std::fputs(kUsage, stdout);
      return 0;
    } else if (a == "-V" || a == "--version") {
      std::printf("qzcall %s\n", QZ_VERSION);
      return 0;
    } else if (global_option(c, a, cl, status)) {
    } else if (sql_option(c, a, cl.sql, status)) {
      if (cl.sql_option.empty()) cl.sql_option = a;
    } else {
      return usage_error("unknown option " + a);
    }
    if (status >= 0) return status;
  }
  return -1;
}

// A script that does not parse: where, what, the line and a caret under the column.
void parse_error(const std::string &file, const std::string &line,
                 const qz::call::ParseError &err) {
  std::fprintf(stderr, "%s:%d:%d: error: %s\n", file == "-" ? "<stdin>" : file.c_str(), err.line,
               err.col, err.message.c_str());
  std::string caret;
  for (int k = 0; k + 1 < err.col && k < static_cast<int>(line.size()); ++k)
    caret += line[static_cast<std::size_t>(k)] == '\t' ? '\t' : ' ';
  std::fprintf(stderr, "  %s\n  %s^\n", line.c_str(), caret.c_str());
}

// Each call of the script in `in`, from its start, to `each`; false (said) at a line that
// does not parse.
template <class Each>
bool read_calls(std::FILE *in, const std::string &file, Each each) {
  std::rewind(in);
  qz::call::ScriptReader reader;
  qz::call::ParseError err;
  char *buf = nullptr;
  std::size_t cap = 0;
  bool ok = true, go = true;
  for (int n = 1; ok && go; ++n) {
    ssize_t len = getline(&buf, &cap, in);
    if (len < 0) break;
    std::string line(buf, static_cast<std::size_t>(len));
    if (!line.empty() && line.back() == '\n') line.pop_back();
    ok = reader.line(line, n, err);
    if (!ok) parse_error(file, line, err);
    for (const qz::call::CallSpec &c : reader.script.calls)
      go = go && each(c, reader.script.vars);
    reader.script.calls.clear();
  }
  std::free(buf);
  return ok;
}

int run_command(CommandLine &cl) {
  if (!cl.sql_option.empty())
    return usage_error(cl.sql_option + " is an option of sql, not of run");
  if (cl.args.empty()) return usage_error("run needs a script file (- for standard input)");
  if (cl.args.size() > 1) return usage_error("run takes one script file; unexpected " + cl.args[1]);
  const std::string &file = cl.args[0];
  std::FILE *in = file == "-" ? std::tmpfile() : std::fopen(file.c_str(), "r");
  if (in && file == "-") {  // read twice: standard input goes to a file first
    char buf[65536];
    for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, stdin)) > 0;)
      std::fwrite(buf, 1, n, in);
  }
  if (!in) {
    std::fprintf(stderr, "qzcall: cannot read %s: %s\n", file.c_str(), std::strerror(errno));
    return kExitUsage;
  }
  std::size_t most = 0;
  bool ok = read_calls(in, file, [&](const qz::call::CallSpec &c, const auto &vars) {
    most = std::max(most, qz::call::call_bytes(c, vars));
    return true;
  });
  int status = kExitUsage;
  cl.opt.segment_size = std::max<std::size_t>(1 << 20, most + 4096);
  Session s;
  if (ok && qz::call::find_server(cl.server, cl.opt.server)) {
    status = 1;
    if (qz::call::start_server(s, cl.opt)) {
      qz::call::Runner runner(s, stdout);
      read_calls(in, file, [&](const qz::call::CallSpec &c, const auto &vars) {
        return runner.run(c, vars);
      });
      status = runner.finish();
      std::fflush(stdout);
      if (!qz::call::stop_server(s)) status = 1;
    }
  }
  std::fclose(in);
  return status;
}

int sql_command(CommandLine &cl) {
  if (cl.args.empty())
    return usage_error(
        "sql needs a connection string (e.g. \"Driver={SQLite3};Database=x.db\") "
        "or a data source name");
  if (cl.args.size() > 1)
    return usage_error("sql takes one connection string; put SQL after -c or on standard input");
  cl.sql.connstr = cl.args[0];
  if (!qz::call::find_server(cl.server, cl.opt.server)) return kExitUsage;
  Session s;
  if (!qz::call::start_server(s, cl.opt)) return 1;
  int status = qz::call::run_sql(s, cl.sql, [&] { return qz::call::restart_server(s); });
  std::fflush(stdout);
  if (!qz::call::stop_server(s)) status = 1;
  return status;
}

}  // namespace

int main(int argc, char **argv) {
  qz::client::block_call_signal();
  CommandLine cl;
  cl.opt.capture_stderr = false;  // the server's trace and log go to our standard error
  if (int status = parse(argc, argv, cl); status >= 0) return status;
  if (cl.command.empty()) return usage_error("say what to do: run FILE or sql CONNSTR");
  if (cl.command == "run") return run_command(cl);
  if (cl.command == "sql") return sql_command(cl);
  return usage_error("unknown command '" + cl.command + "': run FILE or sql CONNSTR");
}
