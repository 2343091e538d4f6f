// What a call script cannot say, through libqzclient: start-up refusals and the process
// state a server starts in, an interpreter killed, SIGTERM during a call, an interpreter that is
// gone, data outside the segment, callbacks, every allocation failing in turn, what SIGTERM
// releases, also while a call waits in the driver or the database; and qzcall's shell on
// a terminal.
#include <dirent.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <set>
#include <sstream>
#include <thread>

#include "qzclient.hpp"

namespace {

using namespace std::chrono_literals;
using qz::client::Arg;
using qz::client::CallResult;
using qz::client::ExitInfo;
using qz::client::Layout;
using qz::client::Options;
using qz::client::Session;

std::string env(const char *name) {
  const char *v = std::getenv(name);
  return v ? v : "";
}
bool emulated() {
  return !env("QZ_LAUNCHER").empty();
}

// A server of this build (QZ_SERVER_<var>), through the emulator in the i386 build, with
// `vars` in its environment.
Options server(const char *var, Layout layout = Layout::bits32,
               const std::vector<std::string> &vars = {}) {
  Options o;
  o.server = env(var);
  o.layout = layout;
  o.timeout = 20s;
  if (emulated()) {
    o.launcher = {env("QZ_LAUNCHER")};
    for (const std::string &v : vars)
      o.launcher.insert(o.launcher.end(), {"-E", v});
  } else if (!vars.empty()) {
    o.launcher = {"/usr/bin/env"};
    o.launcher.insert(o.launcher.end(), vars.begin(), vars.end());
  }
  return o;
}

// A fresh directory, removed at the end.
struct TempDir {
  std::string path;
  TempDir() {
    char t[] = "/tmp/qz-process.XXXXXX";
    path = mkdtemp(t);
  }
  ~TempDir() { std::system(("rm -rf " + path).c_str()); }
  std::string file(const std::string &name) const { return path + "/" + name; }
};

std::string read_file(const std::string &path) {
  std::ifstream in(path);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

ExitInfo stop(Session &s) {
  ExitInfo e = s.stop();
  // In the sanitizer build a leak would be reported here, on standard error.
  EXPECT_TRUE(e.exited && e.code == 0) << e.describe() << "\n" << s.stderr_text();
  return e;
}

int status_of(Session &s, const char *name, std::initializer_list<Arg> args) {
  CallResult r = s.call(name, args);
  EXPECT_TRUE(r.ok()) << name << ": " << r.error << "\n" << s.stderr_text();
  return r.ok() ? r.status : -999;
}

// Connect's status; `fn` (ExecDirect or Prepare) of `sql` on connection `c`: its status
// (`stmt`, when it names a statement, is that statement made anew).
int connect(Session &s, const std::string &conn) {
  return status_of(s, "Connect", {Arg::string(conn), Arg::int_var(0)});
}
int run_sql(Session &s, const char *fn, int c, const std::string &sql, int stmt = 0) {
  return status_of(s, fn, {Arg::integer(c), Arg::string(sql), Arg::int_var(stmt)});
}

// ---- start-up ----------------------------------------------------------------------

TEST(StartUp, RefusalsExitWithStatus2AndSayWhy) {
  const std::string prog = server("QZ_SERVER_HOST_TEST").server;
  // An interpreter without standard input still gets the server's messages.
  int saved_stdin = dup(0);
  close(0);
  const struct {
    std::optional<std::vector<std::string>> argv;  // the command line; default if none
    void (*patch)(unsigned char *);                // changes the header before the start
    std::string err;
    int permissions = 0600;
  } cases[] = {
      {std::vector<std::string>{}, nullptr, prog + ": Illegal call\n"},
      {std::vector<std::string>{"{id}", "extra"}, nullptr, prog + ": Illegal call\n"},
      {std::vector<std::string>{"{id}:16"}, nullptr, prog + ": Illegal argument: "},
      {std::vector<std::string>{"999999999"}, nullptr, "shmat: Invalid argument\n"},
      {std::nullopt, [](unsigned char *b) { b[5] = 'X'; }, "Bad DLL_MAGIC\n"},
      {std::nullopt, [](unsigned char *b) { b[7] = 1; }, "Bad DLL_MAGIC\n"},
      {std::nullopt, [](unsigned char *b) { b[8] = 0x02; }, "Unsupported DLL_VERSION 102\n"},
      {std::nullopt, nullptr, "Call block writable by every user (mode 602)\n", 0602},
  };
  for (const auto &c : cases) {
    Options o = server("QZ_SERVER_HOST_TEST");
    o.argv = c.argv;
    o.permissions = c.permissions;
    if (c.patch) o.before_spawn = c.patch;
    Session s;
    ASSERT_TRUE(s.start(o)) << s.error();
    ExitInfo e = s.wait_exit(20s);
    EXPECT_TRUE(e.exited && e.code == 2) << e.describe() << " " << c.err;
    EXPECT_EQ(s.stderr_text().substr(0, c.err.size()), c.err);
    EXPECT_FALSE(s.ping());
    EXPECT_NE(s.error(), "");
    // Only a native program shows the kernel's record of who attached the segment last.
    struct shmid_ds ds;
    if (!emulated() && shmctl(s.shm_id(), IPC_STAT, &ds) == 0) {
      EXPECT_EQ(ds.shm_lpid == s.pid(), !c.argv) << c.err;
    }
    s.stop();
  }
  dup2(saved_stdin, 0);
  close(saved_stdin);
}

TEST(StartUp, SuffixesChooseTheLayoutIgnoredSignalsStayAndOnlyStandardErrorIsOpen) {
  for (auto [arg, layout] : {std::pair{"{id}", Layout::bits32},
                             {"{id}:32", Layout::bits32},
                             {"{id}:0", Layout::bits32},
                             {"{id}:", Layout::bits32},
                             {"{id}:x64", Layout::bits32},
                             {"{id}:64", Layout::bits64}}) {
    // The parent ignores SIGHUP (as under nohup) and SIGSEGV.
    struct sigaction ign {
    }, old_hup{}, old_segv{};
    ign.sa_handler = SIG_IGN;
    sigaction(SIGHUP, &ign, &old_hup);
    sigaction(SIGSEGV, &ign, &old_segv);
    Options o = server("QZ_SERVER_HOST_TEST", layout);
    o.argv = std::vector<std::string>{arg};
    o.permissions = 0660;  // the group's rights are the site's choice
    Session s;
    bool started = s.start(o);
    sigaction(SIGHUP, &old_hup, nullptr);
    sigaction(SIGSEGV, &old_segv, nullptr);
    ASSERT_TRUE(started) << s.error();
    CallResult r = s.call("SetInt", {Arg::int_var(0), Arg::integer(77)});
    ASSERT_TRUE(r.ok() && r.status == 0) << arg << ": " << r.error;
    EXPECT_EQ(r.args[0].as_int(), 77) << arg;
    if (!emulated()) {  // the emulator's own state is what /proc shows there
      std::ifstream status("/proc/" + std::to_string(s.pid()) + "/status");
      std::uint64_t ignored = 0;
      for (std::string line; std::getline(status, line);)
        if (line.rfind("SigIgn:", 0) == 0) ignored = std::stoull(line.substr(7), nullptr, 16);
      EXPECT_TRUE(ignored & (1ULL << (SIGHUP - 1)));
      EXPECT_FALSE(ignored & (1ULL << (SIGSEGV - 1)));
      std::set<std::string> fds;
      DIR *d = opendir(("/proc/" + std::to_string(s.pid()) + "/fd").c_str());
      while (dirent *e = d ? readdir(d) : nullptr)
        if (e->d_name[0] != '.') fds.insert(e->d_name);
      if (d) closedir(d);
      EXPECT_EQ(fds, std::set<std::string>{"2"});
    }
    kill(s.pid(), SIGHUP);  // ignored
    std::this_thread::sleep_for(20ms);
    EXPECT_TRUE(s.ping()) << s.error();
    stop(s);
    EXPECT_EQ(s.stderr_text(), "");
  }
}

// Whether process `pid` runs (a zombie does not: a container's first process may not reap).
bool alive(pid_t pid) {
  std::string stat = read_file("/proc/" + std::to_string(pid) + "/stat");
  std::size_t paren = stat.rfind(')');
  return paren != std::string::npos && stat.substr(paren + 2, 1) != "Z";
}

// An interpreter killed with SIGKILL, while its server waits or during a call, ends the
// server within a second, and the segment goes with it.
TEST(StartUp, AKilledInterpreterLeavesNoServerAndNoSegment) {
  for (bool in_call : {false, true}) {
    int ids[2];
    ASSERT_EQ(pipe(ids), 0);
    pid_t interpreter = fork();
    if (interpreter == 0) {
      Session s;
      if (!s.start(server("QZ_SERVER_HOST_TEST")) || !s.ping()) _exit(1);
      Arg ms = Arg::integer(30000);
      if (in_call &&
          (!s.write_call("Sleep", std::span<const Arg>(&ms, 1)) || kill(s.pid(), SIGUSR2) != 0))
        _exit(1);
      int sent[2] = {s.pid(), s.shm_id()};
      if (write(ids[1], sent, sizeof sent) != sizeof sent) _exit(1);
      pause();
    }
    close(ids[1]);
    int got[2] = {0, 0};
    ASSERT_EQ(read(ids[0], got, sizeof got), static_cast<ssize_t>(sizeof got));
    close(ids[0]);
    std::this_thread::sleep_for(100ms);
    kill(interpreter, SIGKILL);
    waitpid(interpreter, nullptr, 0);
    auto t0 = std::chrono::steady_clock::now();
    while (alive(got[0]) && std::chrono::steady_clock::now() - t0 < 3s)
      std::this_thread::sleep_for(5ms);
    EXPECT_LT(std::chrono::steady_clock::now() - t0, 1s) << in_call;
    struct shmid_ds ds;
    EXPECT_NE(shmctl(got[1], IPC_STAT, &ds), 0) << in_call;
    if (alive(got[0])) kill(got[0], SIGKILL);
  }
}

// ---- the call protocol ----------------------------------------------------------------

class Protocol : public ::testing::TestWithParam<Layout> {
 protected:
  void SetUp() override { ASSERT_TRUE(s.start(server("QZ_SERVER_HOST_TEST", GetParam()))); }
  Session s;
};

TEST_P(Protocol, TermDuringACallExitsZeroWithoutAnswering) {
  ASSERT_TRUE(s.ping());
  Arg ms = Arg::integer(10000);
  ASSERT_TRUE(s.write_call("Sleep", std::span<const Arg>(&ms, 1)));
  s.put32(s.layout().status, 12345);
  ASSERT_EQ(kill(s.pid(), SIGUSR2), 0);
  std::this_thread::sleep_for(200ms);
  kill(s.pid(), SIGTERM);
  ExitInfo e = s.wait_exit(5s);
  EXPECT_TRUE(e.exited && e.code == 0) << e.describe();
  EXPECT_EQ(s.get32(s.layout().status), 12345);  // no status stored
  sigset_t pending;
  sigpending(&pending);
  EXPECT_FALSE(sigismember(&pending, SIGUSR2));  // and no answer sent
}

TEST_P(Protocol, AnInterpreterThatIsGoneEndsTheServerAfterTheCall) {
  ASSERT_TRUE(s.ping());
  pid_t gone = fork();
  if (gone == 0) _exit(0);
  waitpid(gone, nullptr, 0);
  s.put32(s.layout().pid, gone);
  Arg args[] = {Arg::int_var(0), Arg::integer(3)};
  ASSERT_TRUE(s.write_call("SetInt", args));
  s.put32(s.layout().status, -77);
  ASSERT_EQ(kill(s.pid(), SIGUSR2), 0);
  ExitInfo e = s.wait_exit(10s);
  EXPECT_TRUE(e.exited && e.code == 0) << e.describe();
  EXPECT_EQ(s.get32(s.layout().status), 0);  // the status was stored before the signal
}

// Data that starts outside the segment, or an array that runs past its end, stops the
// server with the assertion's condition; data at the segment's first byte is inside.
TEST_P(Protocol, DataOutsideTheSegmentFailsTheAssertion) {
  const std::string outside = GetParam() == Layout::bits64
                                  ? "`ofs >= 0 && ofs < ((t_DLL_INFO64 *)dll_info)->shmsz' failed"
                                  : "`ofs >= 0 && ofs < dll_info->shmsz' failed";
  for (auto [from_end, elcnt, cond] :
       {std::tuple{64L, 1, outside},
        {-8L, 3, std::string("Assertion `end >= 0 && end <= ")},
        {0L, 1, std::string()}}) {  // no condition: the data starts at the segment's offset 0
    Session t;
    ASSERT_TRUE(t.start(server("QZ_SERVER_HOST_TEST", GetParam()))) << t.error();
    Arg args[] = {Arg::int_var(0), Arg::integer(3)};
    ASSERT_TRUE(t.write_call("SetInt", args));
    const auto &l = t.layout();
    t.put_address(l.args + l.arg_size + l.a_ptr,
                  cond.empty()
                      ? t.address_of(0)
                      : t.address_of(t.block_size()) + static_cast<std::uint64_t>(from_end));
    t.put32(l.args + l.arg_size + l.a_elcnt, elcnt);
    CallResult r = t.raw_call();
    if (cond.empty()) {  // the integer read and written back at offset 0
      EXPECT_TRUE(r.ok() && r.status == 0) << r.error;
      EXPECT_EQ(t.get32(0), 3);
      continue;
    }
    EXPECT_EQ(r.kind, CallResult::Kind::server_died) << r.error;
    EXPECT_EQ(t.exit_info().signal, SIGABRT);
    EXPECT_NE(t.stderr_text().find(cond), std::string::npos) << t.stderr_text();
  }
  stop(s);
}

TEST_P(Protocol, CallbacksGetTheirOwnAnswersEvenWhenTheyArriveEarly) {
  std::vector<int> seen;
  s.on_callback([&](int code) {
    seen.push_back(code);
    return code * 10 + 1;
  });
  CallResult r =
      s.call("CallbackTwice", {Arg::integer(7), Arg::integer(8), Arg::int_var(0), Arg::int_var(0)});
  ASSERT_TRUE(r.ok()) << r.error;
  EXPECT_EQ(r.args[2].as_int(), 71);
  EXPECT_EQ(r.args[3].as_int(), 81);
  EXPECT_EQ(seen, (std::vector<int>{7, 8}));
  EXPECT_EQ(status_of(s, "ReturnStatus", {Arg::integer(5)}), 5);  // the call handler is back
  // An answer sent while the server still sleeps, before it asks: pending, not lost.
  const auto &l = s.layout();
  Arg args[] = {Arg::integer(300), Arg::integer(4)};
  ASSERT_TRUE(s.write_call("CallbackAfter", args));
  ASSERT_EQ(kill(s.pid(), SIGUSR2), 0);
  std::this_thread::sleep_for(50ms);
  s.put32(l.status, 41);
  ASSERT_EQ(kill(s.pid(), SIGUSR2), 0);
  sigset_t usr2;
  sigemptyset(&usr2);
  sigaddset(&usr2, SIGUSR2);
  timespec limit{10, 0}, brief{0, 200000000};
  siginfo_t info;
  ASSERT_EQ(sigtimedwait(&usr2, &info, &limit), SIGUSR2);  // the request
  EXPECT_EQ(s.get32(l.callback), 4);
  // The end of the call may follow so closely that the two signals merge: watch the
  // status, which becomes the early answer plus one when the function returns.
  for (int i = 0; i < 10000 && s.get32(l.status) != 42; ++i)
    std::this_thread::sleep_for(1ms);
  EXPECT_EQ(s.get32(l.status), 42);
  sigtimedwait(&usr2, &info, &brief);  // the end-of-call signal, if it came apart
  EXPECT_EQ(status_of(s, "ReturnStatus", {Arg::integer(6)}), 6);
  stop(s);
}

INSTANTIATE_TEST_SUITE_P(Layouts, Protocol, ::testing::Values(Layout::bits32, Layout::bits64));

// ---- allocation failures ----------------------------------------------------------------

// `name` called with `args` and the n-th allocation failing, for n = 1, 2, ... until it
// succeeds (`before` runs ahead of each attempt): every failure is status 2 and leaves
// nothing behind (a leak fails the sanitizer build at the server's exit).
void every_allocation_fails(Session &s, const char *name, std::initializer_list<Arg> args,
                            const std::function<void()> &before = nullptr) {
  for (int n = 1; n < 100; ++n) {
    if (before) before();
    ASSERT_EQ(status_of(s, "FailAlloc", {Arg::integer(n)}), 0);
    int st = status_of(s, name, args);
    if (st == 0) {
      status_of(s, "FailAlloc", {Arg::integer(0)});
      return;
    }
    EXPECT_EQ(st, 2) << name << ", allocation " << n;
  }
  ADD_FAILURE() << name << " never succeeded";
}

TEST(AllocationFailures, EveryFailureIsStatus2AndLeavesNothing) {
  TempDir dir;
  const std::string db = "Driver={QZ SQLite};Database=" + dir.file("t.db");
  // Server b's driver cannot describe parameters (their buffers come from SetParam and
  // Execute) nor commit.
  Session a, b;
  ASSERT_TRUE(a.start(server("QZ_SERVER_ODBC_TEST"))) << a.error();
  ASSERT_TRUE(b.start(server("QZ_SERVER_ODBC_TEST", Layout::bits32,
                             {"LD_PRELOAD=" + env("QZ_INTERPOSER"),
                              "QZ_ODBC_INTERPOSE=SQLDescribeParam:unsupported;SQLTransact:-1"})))
      << b.error();
  every_allocation_fails(a, "Connect", {Arg::string(db), Arg::int_var(0)});
  ASSERT_EQ(status_of(a, "Disconnect", {Arg::integer(1)}), 0);
  for (Session *s : {&a, &b})
    ASSERT_EQ(connect(*s, db), 0);
  for (const char *sql : {"CREATE TABLE t (k, s)", "INSERT INTO t VALUES (1, 'one')"})
    ASSERT_EQ(run_sql(a, "ExecDirect", 1, sql), 0);
  every_allocation_fails(a, "SetConnectOption",
                         {Arg::integer(1), Arg::integer(105), Arg::string(dir.file("dm.trace"))});
  every_allocation_fails(
      a, "Prepare",
      {Arg::integer(1), Arg::string("SELECT k, s FROM t WHERE k = ?"), Arg::int_var(2)});
  every_allocation_fails(a, "Execute", {Arg::integer(2), Arg::integer(1)});
  every_allocation_fails(a, "Fetch", {Arg::integer(2), Arg::int_var(0), Arg::string_var("", 100)});
  every_allocation_fails(a, "SetColumnType", {Arg::integer(2), Arg::integer(2), Arg::integer(6)});
  // FetchArray holds a delivered row while it fetches the next: two rows, the statement
  // made afresh for each attempt.
  ASSERT_EQ(run_sql(a, "ExecDirect", 1, "INSERT INTO t VALUES (2, 'two')", 1), 0);
  every_allocation_fails(
      a, "FetchArray", {Arg::integer(3), Arg::int_var(0), Arg::string_array({"", ""}, 100)},
      [&] { ASSERT_EQ(run_sql(a, "ExecDirect", 1, "SELECT k, s FROM t", 3), 0); });
  ASSERT_EQ(run_sql(b, "Prepare", 1, "INSERT INTO t VALUES (?, ?)"), 0);
  every_allocation_fails(b, "SetParam", {Arg::integer(1), Arg::integer(1), Arg::integer(2)});
  every_allocation_fails(b, "Execute", {Arg::integer(1)});
  // ExecuteArray binds the parameters of a new statement with its first row.
  ASSERT_EQ(run_sql(b, "Prepare", 1, "INSERT INTO t VALUES (?, ?)", 2), 0);
  every_allocation_fails(b, "ExecuteArray",
                         {Arg::integer(2), Arg::integer(2), Arg::int_var(0), Arg::int_array({5, 6}),
                          Arg::string_array({"five", "six"}, 4)});
  // Memory for the diagnostics queue has no way back: the process stops, saying why.
  ASSERT_EQ(status_of(b, "FailAlloc", {Arg::integer(1)}), 0);
  CallResult r = b.call("Commit", {Arg::integer(1)});
  EXPECT_EQ(r.kind, CallResult::Kind::server_died) << r.error;
  EXPECT_EQ(b.exit_info().signal, SIGABRT);
  EXPECT_NE(b.stderr_text().find("Assertion `memory allocation failed' failed"), std::string::npos)
      << b.stderr_text();
  stop(a);
}

// ---- SIGTERM ---------------------------------------------------------------------------

// A database server of the run, PostgreSQL or MariaDB, from the record its script in
// tests/env wrote (KEY=VALUE lines): the run's own, or one a test started for itself.
struct Db {
  bool pg;
  std::map<std::string, std::string> v;
  Db(bool is_pg, const std::string &record) : pg(is_pg) {
    std::ifstream in(record);
    for (std::string line; std::getline(in, line);)
      if (auto eq = line.find('='); eq != std::string::npos)
        v[line.substr(0, eq)] = line.substr(eq + 1);
  }
  std::string name() const { return pg ? "PostgreSQL" : "MariaDB"; }
  std::string script() const { return env(pg ? "QZ_PG_CLUSTER" : "QZ_MARIADB_SERVER"); }
  static const char *record(bool pg) { return pg ? "pg-cluster.env" : "mariadb.env"; }
  std::string sleep(int s) const {
    return (pg ? "SELECT pg_sleep(" : "SELECT SLEEP(") + std::to_string(s) + ")";
  }
  // What the server's own client prints for `sql`.
  std::string client(const std::string &sql) const {
    std::string cmd = pg ? "/usr/lib/postgresql/15/bin/psql -X -A -t -q -h " + v.at("QZ_PG_DIR") +
                               " -p " + v.at("QZ_PG_PORT") + " -U " + v.at("QZ_PG_USER") + " -d " +
                               v.at("QZ_PG_DATABASE") + " -c \"" + sql + "\""
                         : "mariadb --no-defaults -N -B -S " + v.at("QZ_MARIADB_SOCKET") + " -u " +
                               v.at("QZ_MARIADB_USER") + " -e \"" + sql + "\"";
    std::string out;
    if (FILE *p = popen(cmd.c_str(), "r")) {
      for (char buf[256]; std::fgets(buf, sizeof buf, p);)
        out += buf;
      pclose(p);
    }
    return out;
  }
  // A connection string for the program `app`, whose sessions the server can then tell
  // apart: by their application name in PostgreSQL, by a database of their own in MariaDB.
  std::string conn(const std::string &app) const {
    if (pg)
      return "Driver={QZ PostgreSQL};Servername=" + v.at("QZ_PG_DIR") +
             ";Port=" + v.at("QZ_PG_PORT") + ";Database=" + v.at("QZ_PG_DATABASE") +
             ";Username=" + v.at("QZ_PG_USER") + ";ConnSettings={SET application_name TO '" + app +
             "'}";
    client("CREATE DATABASE IF NOT EXISTS " + app + " CHARACTER SET latin1");
    return "Driver={QZ MariaDB};Socket=" + v.at("QZ_MARIADB_SOCKET") +
           ";User=" + v.at("QZ_MARIADB_USER") + ";Database=" + app;
  }
  // Sessions of `app`, as the client prints the count; with `query`, only those running a
  // statement that begins so.
  std::string sessions(const std::string &app, const std::string &query = "") const {
    if (pg)
      return client("SELECT count(*) FROM pg_stat_activity WHERE application_name = '" + app + "'" +
                    (query.empty() ? "" : " AND state = 'active' AND query LIKE '" + query + "%'"));
    return client("SELECT count(*) FROM information_schema.processlist WHERE db = '" + app + "'" +
                  (query.empty() ? "" : " AND info LIKE '" + query + "%'"));
  }
  // Sessions of `app` left after a server ended: the database notices a client gone a
  // moment later.
  std::string sessions_left(const std::string &app) const {
    std::string n;
    for (int i = 0; i < 100 && (n = sessions(app)) != "0\n"; ++i)
      std::this_thread::sleep_for(20ms);
    return n;
  }
};

// The database servers this build reaches.
std::vector<Db> servers() {
  std::vector<Db> all;
  for (bool pg : {true, false})
    if (std::string path = env(pg ? "QZ_PG_ENV" : "QZ_MARIADB_ENV"); !path.empty())
      all.emplace_back(pg, path);
  return all;
}

// SIGTERM while waiting releases every statement before its connection, and a connection
// that Disconnect freed stays open for its statement and closes with it. SIGTERM while a
// call is inside the driver releases nothing (the driver manager is mid-call), and the
// process still ends with 0.
TEST(Shutdown, StatementsGoFirstAndNothingGoesWhileTheDriverIsInACall) {
  TempDir dir;
  const std::string db = "Driver={QZ SQLite};Database=" + dir.file("t.db");
  for (bool in_call : {false, true}) {
    const std::string calls = dir.file(in_call ? "calls-in-call" : "calls");
    Session s;
    ASSERT_TRUE(s.start(server("QZ_SERVER_ODBC", Layout::bits32,
                               {"LD_PRELOAD=" + env("QZ_INTERPOSER"), "QZ_ODBC_TRACE=" + calls,
                                "QZ_ODBC_INTERPOSE=SQLDriverConnect@4:block"})));
    for (int k = 0; k < 3; ++k)
      ASSERT_EQ(connect(s, db), 0);
    for (int k = 1; k <= 2; ++k)
      ASSERT_EQ(run_sql(s, "ExecDirect", k, "SELECT 1"), 0);
    ASSERT_EQ(status_of(s, "Disconnect", {Arg::integer(1)}), 0);
    EXPECT_EQ(read_file(calls).find("SQLDisconnect"), std::string::npos);  // still open
    if (in_call) {
      Arg args[] = {Arg::string(db), Arg::int_var(0)};
      ASSERT_TRUE(s.write_call("Connect", args));
      ASSERT_EQ(kill(s.pid(), SIGUSR2), 0);
      std::this_thread::sleep_for(300ms);
    }
    stop(s);
    std::istringstream trace(read_file(calls));
    std::vector<std::string> order;
    for (std::string fn, rc; trace >> fn >> rc;)
      if (fn == "SQLFreeStmt" || fn == "SQLDisconnect") order.push_back(fn);
    // Connection 1 goes with its last statement, the others after every statement.
    const std::vector<std::string> released{"SQLFreeStmt", "SQLDisconnect", "SQLFreeStmt",
                                            "SQLDisconnect", "SQLDisconnect"};
    EXPECT_EQ(order, in_call ? std::vector<std::string>{} : released);
  }
}

// ./run soak sets QZ_SOAK: the fault checks then run at full size and print their figures.
bool soak() {
  return !env("QZ_SOAK").empty();
}

double seconds_since(std::chrono::steady_clock::time_point t0) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

// SIGTERM at a random moment of a busy stream of calls (a recursive query, inserts,
// fetches), on every back end: every round the server exits with 0 within a second, and no
// session is left in the database.
TEST(Shutdown, TermAtRandomMomentsEndsTheServerPromptly) {
  TempDir dir;
  std::mt19937 rng(20261124);
  const char *sql[] = {"CREATE TABLE IF NOT EXISTS t (k INTEGER, s VARCHAR(20))",
                       "INSERT INTO t VALUES (1, 'one')", "SELECT k, s FROM t",
                       "WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c "
                       "WHERE x < 200000) SELECT count(*) FROM c"};
  const std::string app = "qz_random_" + std::to_string(getpid());
  std::vector<std::pair<std::string, std::string>> dbs{
      {"SQLite", "Driver={QZ SQLite};Database=" + dir.file("t.db")}};
  for (const Db &db : servers())
    dbs.emplace_back(db.name(), db.conn(app));
  for (const auto &[name, db] : dbs) {
    const int rounds = soak() ? 1000 : emulated() ? 5 : 20;
    int failed = 0;
    auto t_all = std::chrono::steady_clock::now();
    for (int round = 0; round < rounds; ++round) {
      Session s;
      ASSERT_TRUE(s.start(server("QZ_SERVER_ODBC"))) << s.error();
      ASSERT_EQ(connect(s, db), 0);
      std::thread busy([&] {
        for (int k = 0; k < 1000; ++k) {
          Arg args[] = {Arg::integer(1), Arg::string(sql[k % 4]), Arg::int_var(0)};
          if (!s.call("ExecDirect", args).ok()) return;  // the server has gone
        }
      });
      std::this_thread::sleep_for(std::chrono::microseconds(rng() % 50000));
      auto t0 = std::chrono::steady_clock::now();
      kill(s.pid(), SIGTERM);
      busy.join();
      ExitInfo e = s.wait_exit(2000ms);
      bool prompt = e.exited && e.code == 0 && seconds_since(t0) < 1;
      EXPECT_TRUE(prompt) << name << " " << round << ": " << e.describe() << s.stderr_text();
      failed += !prompt;
    }
    std::printf("soak: SIGTERM at random moments, %s: %d rounds, %d failures, %.1f s\n",
                name.c_str(), rounds, failed, seconds_since(t_all));
  }
  for (const Db &db : servers())
    EXPECT_EQ(db.sessions_left(app), "0\n") << db.name();
}

// PostgreSQL and MariaDB: sessions closed after SIGTERM while waiting; during a statement
// that runs in the database the statement is cancelled and the server ends at once; and
// when the driver manager serialises the cancel behind the very call it should cancel, the
// watchdog ends the server all the same.
TEST(Shutdown, DatabaseSessionsEndAlsoDuringAStatement) {
  for (const Db &db : servers()) {
    const std::string app = "qz_term_" + std::to_string(getpid()), conn = db.conn(app);
    TempDir sysini;  // the driver at the driver manager's highest thread protection
    {
      std::ifstream in(env("ODBCSYSINI") + "/odbcinst.ini");
      std::ofstream out(sysini.file("odbcinst.ini"));
      for (std::string line; std::getline(in, line);)
        out << line << (line == "[QZ " + db.name() + "]" ? "\nThreading = 3\n" : "\n");
    }
    for (int round = 0; round < 3; ++round) {
      Session s;
      std::vector<std::string> vars;
      if (round == 2) vars.push_back("ODBCSYSINI=" + sysini.path);
      ASSERT_TRUE(s.start(server("QZ_SERVER_ODBC", Layout::bits32, vars)));
      for (int k = 1; k <= 2; ++k)
        ASSERT_EQ(connect(s, conn), 0);
      ASSERT_EQ(run_sql(s, "Prepare", 1, db.sleep(30)), 0);
      ASSERT_EQ(status_of(s, "Disconnect", {Arg::integer(1)}), 0);  // kept open by its statement
      EXPECT_EQ(db.sessions(app), "2\n") << db.name();
      if (round > 0) {  // Execute without waiting for its answer, until the database runs it
        Arg args[] = {Arg::integer(1)};
        ASSERT_TRUE(s.write_call("Execute", args));
        ASSERT_EQ(kill(s.pid(), SIGUSR2), 0);
        std::string active;
        for (int i = 0; i < 200 && active != "1\n"; ++i) {
          std::this_thread::sleep_for(20ms);
          active = db.sessions(app, db.sleep(30));
        }
        ASSERT_EQ(active, "1\n") << db.name();
      }
      auto t0 = std::chrono::steady_clock::now();
      ASSERT_EQ(kill(s.pid(), SIGTERM), 0);
      ExitInfo e = s.wait_exit(2000ms);
      EXPECT_TRUE(e.exited && e.code == 0)
          << db.name() << " " << round << ": " << e.describe() << "\n"
          << s.stderr_text();
      EXPECT_LT(std::chrono::steady_clock::now() - t0, 2s) << db.name() << " " << round;
      if (round < 2) {
        EXPECT_EQ(db.sessions_left(app), "0\n") << db.name() << " " << round;
      }
    }
  }
}

// ---- faults around the server ---------------------------------------------------------

// `rounds` rounds of mixed calls by interpreter `me`, with a server of its own on `conn`: a
// row inserted with parameters and read back (an answer meant for another interpreter would
// show), every tenth round a failing statement and its diagnostics, a new connection every
// `cycle` rounds. The failures, then the server's growth in peak memory (kB) and in open
// descriptors from a tenth of the rounds on.
std::array<long, 3> mixed_calls(const std::string &conn, int me, long rounds, long cycle) {
  Session s;
  if (!s.start(server("QZ_SERVER_ODBC"))) return {1, 0, 0};
  long failures = 0;
  auto call = [&](const char *name, std::initializer_list<Arg> args, int want = 0) {
    CallResult r = s.call(name, args);
    failures += !r.ok() || r.status != want;
    return r.ok() ? r.args : std::vector<Arg>(args);
  };
  auto footprint = [&] {
    const std::string proc = "/proc/" + std::to_string(s.pid());
    std::string status = read_file(proc + "/status");
    long fds = std::distance(std::filesystem::directory_iterator(proc + "/fd"), {});
    return std::array<long, 2>{std::stol(status.substr(status.find("VmHWM:") + 6)), fds};
  };
  std::array<long, 2> settled{};
  int c = 0, ins = 0;
  for (long k = 0; k < rounds && failures == 0; ++k) {
    if (k % cycle == 0) {
      if (c) call("DropStatement", {Arg::integer(ins)});  // else the connection stays open
      if (c) call("Disconnect", {Arg::integer(c)});
      c = call("Connect", {Arg::string(conn), Arg::int_var()})[1].as_int();
      ins = call("Prepare", {Arg::integer(c), Arg::string("INSERT INTO many VALUES (?, ?)"),
                             Arg::int_var()})[2]
                .as_int();
    }
    const std::string text = std::to_string(me) + "/" + std::to_string(k);
    call("Execute", {Arg::integer(ins), Arg::integer(me), Arg::string(text)});
    int q = call("ExecDirect",
                 {Arg::integer(c), Arg::string("SELECT s FROM many WHERE s = '" + text + "'"),
                  Arg::int_var()})[2]
                .as_int();
    auto row = call("Fetch", {Arg::integer(q), Arg::int_var(), Arg::string_var("", 100)});
    auto got = call("GetData", {Arg::integer(q), Arg::integer(1), Arg::string_var("", 40)});
    failures += row[2].as_string() != "XS~0~" + std::to_string(text.size()) + "~" + text + "$" ||
                got[2].as_string() != text;
    call("DropStatement", {Arg::integer(q)});
    if (k % 10 == 9) {
      call("ExecDirect", {Arg::integer(c), Arg::string("SELEC 1"), Arg::int_var()}, 1118);
      failures += call("GetError", {Arg::string_var("", 300), Arg::string_var("", 5),
                                    Arg::int_var(), Arg::int_var()})[3]
                      .as_int() != 1;
    }
    if (k == rounds / 10) settled = footprint();
  }
  std::array<long, 2> end = footprint();
  return {failures + (stop(s).code != 0), end[0] - settled[0], end[1] - settled[1]};
}

// Many interpreters at once against one database (one SQLite file, one PostgreSQL
// cluster, one MariaDB server), each a process with a server of its own, then one for long: every
// answer its own, each server's memory flat (within 1 MiB of where it settled) and its descriptors
// constant, and no session left in the database.
TEST(Faults, ManyInterpretersAndLongRunsKeepEveryAnswerAndStayFlat) {
  if (emulated()) GTEST_SKIP() << "the emulator's memory is not the server's";
  TempDir dir;
  const std::string app = "qz_many_" + std::to_string(getpid());
  std::vector<std::string> dbs{"Driver={QZ SQLite};Database=" + dir.file("many.db")};
  for (const Db &db : servers())
    dbs.push_back(db.conn(app));
  for (const std::string &db : dbs) {
    Session admin;
    ASSERT_TRUE(admin.start(server("QZ_SERVER_ODBC")));
    ASSERT_EQ(connect(admin, db), 0);
    for (const char *sql :
         {"DROP TABLE IF EXISTS many", "CREATE TABLE many (who INT, s VARCHAR(20))",
          "CREATE INDEX many_s ON many (s)"})
      run_sql(admin, "ExecDirect", 1, sql);
    for (auto [n, rounds, cycle] : {std::array<long, 3>{soak() ? 32 : 4, soak() ? 2000 : 100, 500},
                                    {1, soak() ? 200000 : 1000, 20}}) {
      auto t0 = std::chrono::steady_clock::now();
      std::vector<std::pair<pid_t, int>> kids;
      for (int me = 0, fd[2]; me < n && pipe(fd) == 0; ++me) {
        pid_t pid = fork();
        if (pid == 0) {
          std::array<long, 3> seen = mixed_calls(db, me, rounds, cycle);
          _exit(write(fd[1], &seen, sizeof seen) != sizeof seen);
        }
        close(fd[1]);
        kids.emplace_back(pid, fd[0]);
      }
      std::array<long, 3> worst{};
      for (auto [pid, fd] : kids) {
        std::array<long, 3> seen{1, 0, 0};
        EXPECT_EQ(read(fd, &seen, sizeof seen), static_cast<ssize_t>(sizeof seen));
        for (int k = 0; k < 3; ++k)
          worst[k] = std::max(worst[k], std::abs(seen[k]));
        close(fd);
        waitpid(pid, nullptr, 0);
      }
      EXPECT_EQ(worst, (std::array<long, 3>{0, worst[1], 0})) << db << ", " << n;
      // The sanitizer's quarantine holds freed memory; its leak check at exit stands in.
      EXPECT_LE(env("LSAN_OPTIONS").empty() ? worst[1] : 0, 1024) << db << ", " << n;
      std::printf(
          "soak: %s: %ld interpreters x %ld rounds (5.3 calls each), %.1f s; worst of "
          "them: %ld failures, server memory %+ld kB after settling, descriptors %+ld\n",
          db.substr(8, db.find('}') - 8).c_str(), n, rounds, seconds_since(t0), worst[0], worst[1],
          worst[2]);
    }
  }
  for (const Db &db : servers())
    EXPECT_EQ(db.sessions_left(app), "0\n") << db.name();
}

// The database server restarts, between calls and during one: the next call on each
// connection fails with the driver's diagnostics (no hang, no crash), and Disconnect and
// Connect give working connections again. A server of its own: a restart ends every
// session in it.
TEST(Faults, ADatabaseRestartFailsTheCallsOfItsSessionsAndConnectWorksAgain) {
  for (const Db &run_db : servers()) {
    TempDir state;
    auto restart = [&](const std::string &verb) {
      return std::system(("exec " + run_db.script() + " " + verb + " " + state.path).c_str());
    };
    ASSERT_EQ(restart("start >/dev/null"), 0);
    const Db db(run_db.pg, state.file(Db::record(run_db.pg)));
    const std::string conn = db.conn("qz_restart");
    Session s;
    ASSERT_TRUE(s.start(server("QZ_SERVER_ODBC")));
    auto run = [&](int c, const std::string &sql) { return run_sql(s, "ExecDirect", c, sql); };
    auto reconnect = [&](int c) {
      EXPECT_EQ(c ? status_of(s, "Disconnect", {Arg::integer(c)}) : 0, 0);
      EXPECT_EQ(connect(s, conn), 0);
    };
    reconnect(0), reconnect(0);
    ASSERT_EQ(restart("restart"), 0);  // between calls
    for (int c : {1, 2}) {
      EXPECT_EQ(run(c, "SELECT 1"), 1118) << db.name();
      CallResult e = s.call("GetError", {Arg::string_var("", 300), Arg::string_var("", 5),
                                         Arg::int_var(), Arg::int_var()});
      EXPECT_TRUE(e.ok() && e.args[3].as_int() == 1 && e.args[1].as_string().size() == 5);
      reconnect(c);
    }
    std::thread later([&] {
      std::this_thread::sleep_for(500ms);
      restart("restart");
    });
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(run(1, db.sleep(20)), 1118) << db.name();  // during a call
    EXPECT_LT(seconds_since(t0), 10);
    later.join();
    reconnect(1);
    EXPECT_EQ(run(1, "SELECT 1"), 0) << db.name();
    stop(s);
    restart("stop");
  }
}

// ---- qzcall on a terminal -------------------------------------------------------------

// Reads from the terminal until `want` has appeared in `seen` at `from` or after (true),
// or the other side is gone or silent for long (false).
bool read_until(int fd, std::string &seen, const std::string &want, std::size_t from = 0) {
  for (;;) {
    if (!want.empty() && seen.find(want, from) != std::string::npos) return true;
    pollfd p{fd, POLLIN, 0};
    char buf[512];
    ssize_t n = poll(&p, 1, 30000) > 0 ? read(fd, buf, sizeof buf) : 0;
    if (n <= 0) return false;  // EIO: the shell has ended
    seen.append(buf, static_cast<std::size_t>(n));
  }
}

// qzcall's SQL shell on a pseudo-terminal, started with `options` before the connection
// string; what it printed collects in `seen`.
struct Terminal {
  TempDir dir;
  int fd = -1;
  pid_t pid = -1;
  std::string seen;
  std::size_t mark = 0;  // where the output after the keys typed last begins

  explicit Terminal(std::vector<std::string> options) {
    std::vector<std::string> argv{env("QZ_QZCALL"), "--server", env("QZ_SERVER_ODBC"), "sql"};
    argv.insert(argv.end(), options.begin(), options.end());
    argv.push_back("Driver={QZ SQLite};Database=" + dir.file("t.db"));
    if (emulated()) {
      argv.insert(argv.begin() + 3, {"--launcher", env("QZ_LAUNCHER")});
      argv.insert(argv.begin(), env("QZ_LAUNCHER"));
    }
    std::vector<char *> cargv;
    for (std::string &a : argv)
      cargv.push_back(a.data());
    cargv.push_back(nullptr);
    pid = forkpty(&fd, nullptr, nullptr, nullptr);
    if (pid == 0) {
      setenv("HOME", dir.path.c_str(), 1);
      setenv("TERM", "dumb", 1);
      execvp(cargv[0], cargv.data());
      _exit(127);
    }
  }
  // Types `keys` once `prompt` has appeared after the keys typed last.
  bool type(const std::string &keys, const std::string &prompt = "qz=> ") {
    if (!read_until(fd, seen, prompt, mark)) return false;
    mark = seen.size();
    return ::write(fd, keys.data(), keys.size()) == static_cast<ssize_t>(keys.size());
  }
  // Ends the shell with \q; its exit status.
  int quit() {
    type("\\q\n");
    read_until(fd, seen, "");  // to the end
    close(fd);
    int st = 0;
    waitpid(pid, &st, 0);
    return WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
  }
  bool saw(const std::string &text) const { return seen.find(text) != std::string::npos; }
};

// A prompt for each statement, another while one goes on; non-ASCII text typed reaches the
// database as the terminal sends it (UTF-8 here, with the line editor); Ctrl-C at the
// prompt drops the line typed and a statement begun, and during a statement cancels it
// and keeps the session; the history file.
TEST(Terminal, TheShellRunsWhatIsTypedAndCtrlCStopsOnlyTheStatement) {
  Terminal t({});
  const std::pair<const char *, const char *> keys[] = {
      {"\\autocommit off\n", "qz=> "},
      {"\\commit\n", "qz=> "},
      {"select\n", "qz=> "},
      {"1 AS one;\n", "qz-> "},
      {"SELECT 'h\xC3\xA9llo' AS w, hex('h\xC3\xA9llo') AS h;\n", "qz=> "},
      {"SELECT 'begun'\n", "qz=> "},
      {"AS never\x03", "qz-> "},
      {"SELECT 2 AS two;\n", "qz=> "},
      {"WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c) SELECT count(*) FROM c;\n",
       "qz=> "}};
  for (auto [typed, prompt] : keys)
    ASSERT_TRUE(t.type(typed, prompt)) << t.seen;
  std::this_thread::sleep_for(500ms);  // the statement runs
  ASSERT_EQ(::write(t.fd, "\x03", 1), 1);
  ASSERT_TRUE(t.type("SELECT 3 AS three;\n")) << t.seen;
  EXPECT_EQ(t.quit(), 0) << t.seen;
  for (const char *shown : {"connected (connection 1)", "autocommit off\r\n", "committed\r\n",
                            " one\r\n-----\r\n   1\r\n(1 row)\r\n",
                            " h\xC3\xA9llo | 68E96C6C6F\r\n",  // ISO 8859-1 in the database
                            " two\r\n-----\r\n   2\r\n", "[SQLite]interrupted (9)\r\n",
                            " three\r\n-------\r\n     3\r\n"})
    EXPECT_TRUE(t.saw(shown)) << shown << "\n" << t.seen;
  EXPECT_FALSE(t.saw("never")) << t.seen;
  if (!emulated()) {  // the i386 build has no line editor: it reads plain lines
    EXPECT_TRUE(std::filesystem::exists(t.dir.file(".qzcall_history")));
  }
}

// A server that crashes inside a call (a driver fault) is reported with its signal as the
// failure of that statement; the shell starts a new server, connects again and goes on.
TEST(Terminal, AServerThatCrashesIsReplaced) {
  if (emulated()) GTEST_SKIP() << "the launcher is the emulator's here";
  TempDir d;
  auto launch = [&](const std::string &vars) {
    std::ofstream(d.file("launch")) << "#!/bin/sh\nexec env " << vars << " \"$@\"\n";
    std::filesystem::permissions(d.file("launch"), std::filesystem::perms::owner_all);
  };
  launch("LD_PRELOAD=" + env("QZ_INTERPOSER") + " QZ_ODBC_INTERPOSE=SQLExecDirect:crash");
  Terminal t({"--launcher", d.file("launch")});
  ASSERT_TRUE(read_until(t.fd, t.seen, "qz=> ")) << t.seen;
  launch("");  // the next server's driver is sound
  ASSERT_TRUE(t.type("SELECT 1 AS one;\n")) << t.seen;
  ASSERT_TRUE(t.type("SELECT 2 AS two;\n")) << t.seen;
  EXPECT_EQ(t.quit(), 0) << t.seen;
  for (const char *shown :
       {"the server killed by signal 11 (Segmentation fault)",
        "the server ended; starting a new one: connected.", " two\r\n-----\r\n   2\r\n"})
    EXPECT_TRUE(t.saw(shown)) << shown << "\n" << t.seen;
}

// In the interpreter's character sets the terminal's bytes are read as they come: é as
// ISO 8859-1 (0xE9) and as HP Roman-8 (0xC5) is é in the database.
TEST(Terminal, EightBitEncodingsReadTheTerminalsBytes) {
  for (auto [encoding, e] : {std::pair{"latin1", "\xE9"}, {"roman8", "\xC5"}}) {
    Terminal t({"--encoding", encoding});
    ASSERT_TRUE(t.type(std::string("SELECT 'h") + e + "llo' AS w, hex('h" + e + "llo') AS h;\n"))
        << t.seen;
    EXPECT_EQ(t.quit(), 0) << t.seen;
    EXPECT_TRUE(t.saw(std::string(" h") + e + "llo | 68E96C6C6F\r\n")) << encoding << t.seen;
  }
}

}  // namespace
