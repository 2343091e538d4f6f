// qzcall: the command line (options, subcommands run and sql), finding the server next to
// this program, and starting it as the interpreter does. Exit status: 0, 1 for a failed
// call or SQL, 2 for bad usage.
#include <limits.h>
#include <signal.h>
#include <sys/shm.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "qzclient.hpp"
#include "runner.hpp"
#include "script.hpp"
#include "sql_shell.hpp"

namespace {

using qz::client::Layout;
using qz::client::Options;
using qz::client::Session;

constexpr int kExitUsage = 2;

constexpr const char *kUsage =
    "Usage: qzcall [OPTIONS] run FILE|-\n"
    "       qzcall [OPTIONS] sql [SQL-OPTIONS] CONNSTR|DSN\n"
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
    "  -e, --execute TEXT       run TEXT (SQL or a \\command) instead of reading input;\n"
    "                           may be repeated\n"
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

// The running server, for the signal handler: an interrupted qzcall must not leave the
// server waiting forever (it blocks SIGINT) nor the segment behind.
volatile sig_atomic_t g_server_pid = -1;
volatile sig_atomic_t g_shm_id = -1;

void on_interrupt(int sig) {
  if (g_server_pid > 0) kill(g_server_pid, SIGTERM);
  if (g_shm_id >= 0) shmctl(g_shm_id, IPC_RMID, nullptr);
  _exit(128 + sig);
}

// Starts the server; on failure says why. Interrupts stop it from then on.
bool start_server(Session &s, const Options &opt) {
  if (!s.start(opt)) {
    std::fprintf(stderr, "qzcall: %s\n", s.error().c_str());
    return false;
  }
  g_server_pid = s.pid();
  g_shm_id = s.shm_id();
  struct sigaction sa {};
  sa.sa_handler = on_interrupt;
  sigemptyset(&sa.sa_mask);
  for (int sig : {SIGINT, SIGTERM, SIGHUP})
    sigaction(sig, &sa, nullptr);
  return true;
}

int usage_error(const std::string &message) {
  std::fprintf(stderr, "qzcall: %s\nTry 'qzcall --help' for more information.\n", message.c_str());
  return kExitUsage;
}

bool executable(const std::string &path) {
  return access(path.c_str(), X_OK) == 0;
}

std::string self_dir() {
  char buf[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
  if (n <= 0) return "";
  std::string p(buf, static_cast<std::size_t>(n));
  return p.substr(0, p.rfind('/'));
}

std::string search_path(const std::string &name) {
  const char *path = std::getenv("PATH");
  std::istringstream in(path ? path : "");
  for (std::string dir; std::getline(in, dir, ':');) {
    std::string p = (dir.empty() ? "." : dir) + "/" + name;
    if (executable(p)) return p;
  }
  return "";
}

// The server: --server as given (searched in PATH without a '/'), else the qzodbc installed
// next to qzcall (bin/), else the one of the build tree (tools/../dll), else PATH.
bool find_server(const std::string &given, std::string &out) {
  if (!given.empty()) {
    out = given.find('/') == std::string::npos ? search_path(given) : given;
    if (out.empty() || !executable(out)) {
      std::fprintf(stderr,
                   "qzcall: the server '%s' is not an executable program; give the path of "
                   "qzodbc with --server PATH\n",
                   given.c_str());
      return false;
    }
    return true;
  }
  std::string dir = self_dir();
  for (const std::string &p : {dir + "/qzodbc", dir + "/../dll/qzodbc"}) {
    if (!dir.empty() && executable(p)) {
      out = p;
      return true;
    }
  }
  out = search_path("qzodbc");
  if (out.empty()) {
    std::fprintf(stderr,
                 "qzcall: cannot find the qzodbc server next to qzcall (%s) or in PATH; give "
                 "its path with --server PATH\n",
                 dir.c_str());
    return false;
  }
  return true;
}

bool read_all(const std::string &file, std::string &out) {
  if (file == "-") {
    out.assign(std::istreambuf_iterator<char>(std::cin.rdbuf()), {});
    return true;
  }
  std::ifstream in(file, std::ios::binary);
  if (!in) return false;
  out.assign(std::istreambuf_iterator<char>(in), {});
  return !in.bad();
}

// Reports a server that ended badly when stopped; true when it stopped cleanly.
bool stop_server(Session &s) {
  g_server_pid = -1;  // stopped and reaped below: the handler leaves it alone
  qz::client::ExitInfo e = s.stop();
  g_shm_id = -1;
  if (e.exited && e.code == 0) return true;
  std::fprintf(stderr, "qzcall: the server %s\n", e.describe().c_str());
  return false;
}

// An option's value: the next word, or after '=' in --name=value.
bool option_value(int argc, char **argv, int &i, const std::string &name, std::string &value) {
  std::string a = argv[i];
  if (a == name) {
    if (i + 1 >= argc) return false;
    value = argv[++i];
    return true;
  }
  value = a.substr(name.size() + 1);
  return true;
}

bool is_option(const std::string &a, const std::string &name) {
  return a == name || a.rfind(name + "=", 0) == 0;
}

// The command line, word by word.
struct Words {
  int argc;
  char **argv;
  int i = 1;  // the next word
  bool more() const { return i < argc; }
  bool option() const { return more() && argv[i][0] == '-' && argv[i][1]; }
  // An option's value: the next word, or after '=' in --name=value.
  bool value(const std::string &name, std::string &out) {
    return option_value(argc, argv, i, name, out);
  }
};

// Options before the command. -1 to go on, else the exit status (help, version, errors).
int global_options(Words &w, Options &opt, std::string &server) {
  std::string v;
  for (; w.option(); ++w.i) {
    std::string a = w.argv[w.i];
    if (a == "-h" || a == "--help") {
      std::fputs(kUsage, stdout);
      return 0;
    }
    if (a == "-V" || a == "--version") {
      std::printf("qzcall %s\n", QZ_VERSION);
      return 0;
    }
    if (is_option(a, "--server")) {
      if (!w.value("--server", server)) return usage_error("--server needs a path");
    } else if (is_option(a, "--launcher")) {
      if (!w.value("--launcher", v))
        return usage_error("--launcher needs a command, e.g. --launcher qemu-i386");
      std::istringstream in(v);
      opt.launcher.clear();
      for (std::string word; in >> word;)
        opt.launcher.push_back(word);
    } else if (is_option(a, "--layout")) {
      if (!w.value("--layout", v) || (v != "32" && v != "64"))
        return usage_error("--layout takes 32 or 64");
      opt.layout = v == "64" ? Layout::bits64 : Layout::bits32;
    } else if (is_option(a, "--timeout")) {
      char *end = nullptr;
      double secs = -1;
      if (w.value("--timeout", v)) secs = std::strtod(v.c_str(), &end);
      if (secs < 0 || !end || *end || v.empty() || secs > 1e7)
        return usage_error("--timeout takes a number of seconds (0: wait without limit)");
      opt.timeout = std::chrono::milliseconds(
          secs == 0 ? 1000LL * 3600 * 24 * 365 : static_cast<long long>(secs * 1000 + 0.5));
    } else {
      return usage_error("unknown option " + a);
    }
  }
  return -1;
}

// A script that does not parse: where, what, the line and a caret under the column.
void parse_error(const std::string &file, const std::string &text,
                 const qz::call::ParseError &err) {
  std::fprintf(stderr, "%s:%d:%d: error: %s\n", file == "-" ? "<stdin>" : file.c_str(), err.line,
               err.col, err.message.c_str());
  std::istringstream in(text);
  std::string line;
  for (int n = 0; n < err.line && std::getline(in, line); ++n) {
  }
  std::string caret;
  for (int k = 0; k + 1 < err.col && k < static_cast<int>(line.size()); ++k)
    caret += line[static_cast<std::size_t>(k)] == '\t' ? '\t' : ' ';
  std::fprintf(stderr, "  %s\n  %s^\n", line.c_str(), caret.c_str());
}

// Runs `work` on a server started with opt; the exit status.
template <class Work>
int with_server(const std::string &server, Options opt, Work work) {
  if (!find_server(server, opt.server)) return kExitUsage;
  Session s;
  if (!start_server(s, opt)) return 1;
  int status = work(s);
  std::fflush(stdout);
  if (!stop_server(s)) status = 1;
  return status;
}

int run_command(Words &w, const std::string &server, Options opt) {
  if (!w.more()) return usage_error("run needs a script file (- for standard input)");
  if (w.i + 1 < w.argc)
    return usage_error("run takes one script file; unexpected " + std::string(w.argv[w.i + 1]));
  std::string file = w.argv[w.i], text;
  if (!read_all(file, text)) {
    std::fprintf(stderr, "qzcall: cannot read %s: %s\n", file.c_str(), std::strerror(errno));
    return kExitUsage;
  }
  qz::call::Script script;
  qz::call::ParseError err;
  if (!qz::call::parse_script(text, script, err)) {
    parse_error(file, text, err);
    return kExitUsage;
  }
  opt.segment_size = qz::call::segment_bytes(script);
  return with_server(server, opt,
                     [&](Session &s) { return qz::call::run_script(s, script, stdout); });
}

// One option of sql: true when it was one, with `status` set to an exit status on an error.
bool sql_option(Words &w, qz::call::SqlOptions &so, int &status) {
  std::string a = w.argv[w.i], v;
  auto bad = [&](const std::string &m) {
    status = usage_error(m);
    return true;
  };
  if (a == "-e" || is_option(a, "--execute")) {
    if (!w.value(a == "-e" ? "-e" : "--execute", v)) return bad(a + " needs the text to run");
    so.execute.push_back(v);
  } else if (a == "-F" || is_option(a, "--format")) {
    if (!w.value(a == "-F" ? "-F" : "--format", v) || (v != "table" && v != "csv" && v != "packed"))
      return bad("--format takes table, csv or packed");
    so.format = v == "table" ? qz::call::OutputFormat::table
                : v == "csv" ? qz::call::OutputFormat::csv
                             : qz::call::OutputFormat::packed;
  } else if (a == "-w" || is_option(a, "--width")) {
    char *end = nullptr;
    long n = -1;
    if (w.value(a == "-w" ? "-w" : "--width", v)) n = std::strtol(v.c_str(), &end, 10);
    if (n < 0 || n > 100000 || !end || *end || v.empty())
      return bad("--width takes a number of characters (0: no limit)");
    so.max_width = static_cast<int>(n);
  } else if (a == "-k" || a == "--keep-going") {
    so.keep_going = true;
  } else if (a == "--no-history") {
    so.history = false;
  } else if (is_option(a, "--encoding")) {
    if (!w.value("--encoding", v) ||
        (v != "utf-8" && v != "utf8" && v != "latin1" && v != "roman8"))
      return bad("--encoding takes utf-8, latin1 or roman8");
    so.encoding = v == "latin1"   ? qz::call::Encoding::latin1
                  : v == "roman8" ? qz::call::Encoding::roman8
                                  : qz::call::Encoding::utf8;
  } else if (is_option(a, "--log")) {
    if (!w.value("--log", so.log_file) || so.log_file.empty())
      return bad("--log needs a file name (console for standard error)");
  } else if (is_option(a, "--log-flags")) {
    if (!w.value("--log-flags", so.log_flags)) return bad("--log-flags needs flags, e.g. O2");
  } else if (is_option(a, "--trace")) {
    char *end = nullptr;
    long n = -1;
    if (w.value("--trace", v)) n = std::strtol(v.c_str(), &end, 10);
    if (n < 0 || n > 100 || !end || *end || v.empty()) return bad("--trace takes a level, 0 to 4");
    so.trace = static_cast<int>(n);
  } else {
    return bad("unknown sql option " + a);
  }
  return true;
}

int sql_command(Words &w, const std::string &server, const Options &opt) {
  qz::call::SqlOptions so;
  for (; w.option(); ++w.i) {
    int status = 0;
    sql_option(w, so, status);
    if (status) return status;
  }
  if (!w.more())
    return usage_error(
        "sql needs a connection string (e.g. \"Driver={SQLite3};Database=x.db\") "
        "or a data source name");
  if (w.i + 1 < w.argc)
    return usage_error("sql takes one connection string; put SQL after -e or on standard input");
  so.connstr = w.argv[w.i];
  return with_server(server, opt, [&](Session &s) { return qz::call::run_sql(s, so); });
}

}  // namespace

int main(int argc, char **argv) {
  qz::client::block_call_signal();
  std::string server;
  Options opt;
  opt.capture_stderr = false;  // the server's trace and log go to our standard error
  Words w{argc, argv};
  if (int status = global_options(w, opt, server); status >= 0) return status;
  if (!w.more()) return usage_error("say what to do: run FILE or sql CONNSTR");
  std::string cmd = argv[w.i++];
  if (cmd == "run") return run_command(w, server, opt);
  if (cmd == "sql") return sql_command(w, server, opt);
  return usage_error("unknown command '" + cmd + "': run FILE or sql CONNSTR");
}
