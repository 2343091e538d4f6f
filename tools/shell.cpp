// The SQL shell's loops and its hold on the server: input from -c texts, files, standard
// input or a terminal (line editing, Ctrl-C discarding the line), the connection with the
// driver's reasons when it fails, the diagnostics of a failed call, and recovery: a lost
// database connection is reset, a server that ended is replaced (at a terminal).
#include <langinfo.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <fstream>
#include <regex>
#include <sstream>

#include "qzstatus.hpp"
#include "shell.hpp"

#ifdef QZ_HAVE_LIBEDIT
#include <editline/readline.h>
#endif

namespace qz::call {

using client::CallResult;

PromptInterrupt prompt_interrupt{0, 0};

namespace {

constexpr int kMessageCapacity = 4096;  // GetError's message variable
constexpr int kMaxDiagnostics = 100;    // records read after one failure, at most

sigset_t waiting_mask;  // the signal mask while the shell waits for a key: SIGINT open

// One byte typed at the terminal; EOF at the end of input or on Ctrl-C. The shell keeps
// SIGINT blocked at the prompt except while this waits, so a Ctrl-C pressed as the prompt
// appears is not lost in the moment before the wait begins.
int typed_byte(FILE *) {
  for (;;) {
    pollfd p{0, POLLIN, 0};
    int ready = ppoll(&p, 1, nullptr, &waiting_mask);
    if (ready < 0 && (errno != EINTR || prompt_interrupt.hit)) return EOF;
    unsigned char c;
    if (ready > 0) return read(0, &c, 1) == 1 ? c : EOF;
  }
}

#ifdef QZ_HAVE_LIBEDIT
// For the line editor, which takes whole characters: the terminal's UTF-8 decoded (a byte
// that is not UTF-8 reads as U+FFFD, as a terminal would show it).
int typed_char(FILE *in) {
  std::mbstate_t state{};
  for (int b; (b = typed_byte(in)) != EOF;) {
    char c = static_cast<char>(b);
    wchar_t w;
    std::size_t n = std::mbrtowc(&w, &c, 1, &state);
    if (n == static_cast<std::size_t>(-1)) return 0xFFFD;
    if (n != static_cast<std::size_t>(-2)) return static_cast<int>(w);
  }
  return EOF;
}
#endif

// Diagnostics of a connection the database ended: the SQLSTATE connection class, and the
// server shutting down or refusing the session; MariaDB's and MySQL's drivers say it with
// native codes: the session killed (1927), the server gone or lost (2006, 2013), and a
// write to the closed connection (5014, Connector/ODBC).
bool connection_lost(const std::string &state, int native) {
  return state.rfind("08", 0) == 0 || state == "57P01" || state == "57P02" || state == "57P03" ||
         native == 1927 || native == 2006 || native == 2013 || native == 5014;
}

}  // namespace

int run_sql(client::Session &session, const SqlOptions &options, std::function<bool()> restart) {
  Shell shell(session, options, std::move(restart));
  return shell.run();
}

int Shell::run() {
  if (!settings() || !connect()) return 1;
  int status = 0;
  bool go = true;
  for (std::size_t k = 0; go && k < o_.inputs.size(); ++k)
    go = o_.inputs[k].file ? run_file(o_.inputs[k].text, status)
                           : run_text(o_.inputs[k].text, status);
  if (o_.inputs.empty()) {
    if (isatty(0))
      interactive();
    else
      run_stream(stdin, "", status);
  }
  disconnect();
  return quit_failed_ ? 1 : status;
}

// ---- input ---------------------------------------------------------------------------

std::vector<Command> Shell::feed(StatementSplitter &sp, std::string_view line, int n) {
  bool was_pending = sp.pending();
  std::vector<std::string> done = sp.feed(line);
  std::vector<Command> out;
  for (std::size_t k = 0; k < done.size(); ++k)
    out.push_back({std::move(done[k]), k == 0 && was_pending ? begun_ : n});
  if (sp.pending() && (!was_pending || !out.empty())) begun_ = n;
  return out;
}

// Runs commands until one fails (unless going on); false: stop reading.
bool Shell::batch(const std::vector<Command> &cmds, int &status) {
  for (const Command &c : cmds) {
    if (quit_) return false;
    where_ = c.line > 0 ? source_ + "line " + std::to_string(c.line) + ": " : "";
    bool ok = command(c.text);
    where_.clear();
    if (!ok) {
      status = 1;
      recover();
      if (!o_.keep_going) return false;
    }
    if (quit_) return false;
  }
  return !quit_;
}

// A -c text: no input lines; its statements split at ';' all the same.
bool Shell::run_text(const std::string &text, int &status) {
  StatementSplitter sp;
  std::vector<Command> cmds;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);)
    for (Command &c : feed(sp, line, 0))
      cmds.push_back(std::move(c));
  std::string rest = sp.finish();
  if (!rest.empty()) cmds.push_back({rest, 0});
  return batch(cmds, status);
}

// Lines of a file or standard input; `name` goes before line numbers in messages.
bool Shell::run_stream(std::FILE *in, const std::string &name, int &status) {
  std::string outer = source_;
  source_ = name.empty() ? "" : name + ": ";
  StatementSplitter sp;
  bool go = true;
  char *buf = nullptr;
  std::size_t cap = 0;
  int n = 1;
  for (ssize_t len; go && (len = getline(&buf, &cap, in)) >= 0; ++n) {
    std::string_view line(buf, static_cast<std::size_t>(len));
    if (!line.empty() && line.back() == '\n') line.remove_suffix(1);
    go = batch(feed(sp, line, n), status);
  }
  std::free(buf);
  if (go) {
    std::string rest = sp.finish();
    if (!rest.empty()) go = batch({{rest, begun_}}, status);
  }
  source_ = outer;
  return go;
}

bool Shell::run_file(const std::string &path, int &status) {
  std::FILE *in = std::fopen(path.c_str(), "r");
  if (!in) {
    error("cannot read " + path + ": " + std::strerror(errno));
    status = 1;
    return o_.keep_going;
  }
  ++depth_;
  bool go = run_stream(in, path, status);
  --depth_;
  std::fclose(in);
  return go;
}

// One line typed at the terminal; false at the end of input. Ctrl-C discards what was
// typed (the line comes back empty, prompt_interrupt.hit set).
bool Shell::read_line(const char *prompt, std::string &line) {
  line.clear();
  prompt_interrupt.hit = 0;
  prompt_interrupt.at_prompt = 1;
  sigset_t intr;
  sigemptyset(&intr);
  sigaddset(&intr, SIGINT);
  sigprocmask(SIG_BLOCK, &intr, &waiting_mask);  // SIGINT comes only inside typed_byte
  bool more = false;
#ifdef QZ_HAVE_LIBEDIT
  if (o_.encoding == Encoding::utf8) {  // the line editor takes UTF-8 only
    char *l = readline(prompt);
    if (l) line = l;
    std::free(l);
    more = l != nullptr;
    if (more && !prompt_interrupt.hit && line.find_first_not_of(" \t") != std::string::npos)
      add_history(line.c_str());
  } else
#endif
  {
    std::fputs(prompt, stdout);
    std::fflush(stdout);
    int c;
    while ((c = typed_byte(stdin)) != EOF && c != '\n')
      line += static_cast<char>(c);
    more = c == '\n' || !line.empty();
  }
  sigprocmask(SIG_SETMASK, &waiting_mask, nullptr);
  prompt_interrupt.at_prompt = 0;
  if (prompt_interrupt.hit) line.clear();
  return more || prompt_interrupt.hit;
}

void Shell::interactive() {
#ifdef QZ_HAVE_LIBEDIT
  // What the terminal sends reaches the database as it is: the line editor must read the
  // terminal's UTF-8 as such, whatever locale the environment names.
  std::setlocale(LC_CTYPE, "");
  if (std::strcmp(nl_langinfo(CODESET), "UTF-8") != 0) std::setlocale(LC_CTYPE, "C.UTF-8");
  rl_getc_function = typed_char;  // keys come through the wait that takes Ctrl-C
  rl_catch_signals = 0;
#endif
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
  std::string line;
  while (!quit_ && read_line(sp.pending() ? "qz-> " : "qz=> ", line)) {
    if (prompt_interrupt.hit) {  // Ctrl-C: the line and a statement begun go
      std::putchar('\n');
      sp = StatementSplitter();
      continue;
    }
    for (const std::string &c : sp.feed(line)) {
      if (!command(c)) recover();
      std::fflush(stdout);
      if (quit_) break;
    }
  }
  if (!quit_) std::putchar('\n');
#ifdef QZ_HAVE_LIBEDIT
  if (!history.empty()) write_history(history.c_str());
#endif
}

// ---- the server and the connection -----------------------------------------------------

// Prints one message line on standard error, after the input line it concerns.
void Shell::error(const std::string &text) {
  std::fflush(stdout);  // results so far come first
  std::fprintf(stderr, "qzcall: %s%s\n", where_.c_str(), text.c_str());
}

// Reports a failed call of the server: its status, then every diagnostic record.
void Shell::failed(const std::string &what, const CallResult &r) {
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

void Shell::diagnostics() {
  for (int n = 0; n < kMaxDiagnostics && !lost_; ++n) {
    std::vector<Arg> a{Arg::string_var("", kMessageCapacity), Arg::string_var("", 16),
                       Arg::int_var(0), Arg::int_var(0)};
    CallResult r = s_.call("GetError", std::span<Arg>(a));
    if (!r.ok()) {
      std::fprintf(stderr, "qzcall: GetError: %s\n", r.error.c_str());
      lost_ = r.kind != CallResult::Kind::failed;
      return;
    }
    if (r.status == kNoRoom) {
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
    std::string state = from_server(a[1].as_string(), o_.encoding);
    conn_lost_ = conn_lost_ || connection_lost(state, a[2].as_int());
    std::fprintf(stderr, "  %s (native %d): %s\n", state.c_str(), a[2].as_int(), message.c_str());
  }
}

// One call whose failure is reported; true when it returned 0.
bool Shell::call(const std::string &what, const char *name, std::vector<Arg> &args) {
  if (lost_) {
    error(what + ": the server is gone");
    return false;
  }
  CallResult r = s_.call(name, std::span<Arg>(args));
  if (r.ok() && r.status == 0) return true;
  failed(what, r);
  return false;
}

bool Shell::settings() {
  std::vector<Arg> a;
  if (o_.trace >= 0) {
    a = {Arg::integer(o_.trace)};
    if (!call("DllDebug", "DllDebug", a)) return false;
  }
  if (!o_.log_file.empty()) {
    a = {Arg::string(o_.log_file)};
    if (!call("LogFile " + o_.log_file, "LogFile", a)) return false;
  }
  if (!o_.log_file.empty() || !o_.log_flags.empty()) {
    a = {Arg::string(o_.log_flags.empty() ? "O2" : o_.log_flags)};
    if (!call("LogFlags", "LogFlags", a)) return false;
  }
  return true;
}

// Connects. Unless the log is the user's, the server logs the Connect into a file of ours,
// whose lines tell why the driver refused.
bool Shell::connect() {
  std::string spec = o_.connstr;
  if (spec.find('=') == std::string::npos) spec = "DSN=" + spec;  // a data source name
  char log[] = "/tmp/qzcall-connect.XXXXXX";
  int fd = o_.log_file.empty() && o_.log_flags.empty() ? mkstemp(log) : -1;
  std::vector<Arg> a;
  if (fd >= 0) {
    close(fd);
    a = {Arg::string(log)};
    if (s_.call("LogFile", std::span<Arg>(a)).status == 0) {
      a = {Arg::string("O2")};
      s_.call("LogFlags", std::span<Arg>(a));
    }
  }
  a = {Arg::string(to_server(spec, o_.encoding)), Arg::int_var(0)};
  bool ok = call("Connect", "Connect", a);
  if (ok) conn_ = a[1].as_int();
  // Text as long as the server's largest buffer (its start-up limit of 1,024 bytes would
  // show a longer value cut without a word); the setting is the server's, so once more
  // for every server the shell starts.
  a = {Arg::integer(1024), Arg::integer(32767)};
  if (ok) s_.call("SetTextColumnSize", std::span<Arg>(a));
  autocommit_ = true;  // a new connection commits every statement by itself
  if (fd >= 0) {
    std::vector<Arg> quiet{Arg::string("")};
    s_.call("LogFlags", std::span<Arg>(quiet));
    // The driver's records, as the server logged them: "...: MESSAGE SQLState=S [N]".
    static const std::regex record(R"(O\d: \S+\(\d+\): (.*) SQLState=(\S+) \[(\d+)\]$)");
    std::ifstream in(log);
    std::smatch m;
    for (std::string line; !ok && std::getline(in, line);)
      if (std::regex_search(line, m, record))
        std::fprintf(stderr, "  %s (native %d): %s\n", m[2].str().c_str(),
                     static_cast<int>(std::stoul(m[3].str())),
                     from_server(m[1].str(), o_.encoding).c_str());
    unlink(log);
  }
  return ok;
}

void Shell::disconnect() {
  if (conn_ <= 0 || lost_) return;
  std::vector<Arg> a{Arg::integer(conn_)};
  if (!call("Disconnect", "Disconnect", a)) quit_failed_ = true;
  conn_ = 0;
}

// After a failed command: a connection the database ended is made anew, with the same
// connection string; a server that ended is replaced when a person is at the terminal.
// Statements are not run again.
void Shell::recover() {
  if (lost_ && isatty(0) && o_.inputs.empty() && restart_) {
    std::fprintf(stderr, "qzcall: the server ended; starting a new one: ");
    lost_ = false;
    conn_ = 0;
    bool ok = restart_() && settings() && connect();
    lost_ = !ok;
    std::fprintf(stderr, "%s\n", ok ? "connected." : "failed.");
    return;
  }
  if (!conn_lost_ || lost_) return;
  conn_lost_ = false;
  std::fprintf(stderr, "The connection to the server was lost. Attempting reset: ");
  std::vector<Arg> a{Arg::integer(conn_)};
  s_.call("Disconnect", std::span<Arg>(a));
  conn_ = 0;
  bool ok = connect();
  std::fprintf(stderr, "%s\n", ok ? "Succeeded." : "Failed.");
}

bool Shell::usage(const std::string &text) {
  error(text);
  return false;
}

}  // namespace qz::call
