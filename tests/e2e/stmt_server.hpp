// What the ODBC server tests share: a running qzodbc (or qzodbc-test) with the calls they
// make (connections, statements, fetches, data, diagnostics), the two real back ends with
// their SQL dialects and an independent look at what they stored (psql, python's sqlite3),
// a SQLite database behind the fault driver, and packed-row entries.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <ostream>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "bridge.hpp"
#include "e2e_env.hpp"
#include "odbc_env.hpp"

namespace qz::test::stmt {

using client::Arg;
using client::CallResult;
using client::ExitInfo;
using client::Layout;
using client::Options;
using client::Session;
namespace odbc = qz::test::odbc;

inline constexpr Layout kNative = sizeof(void *) == 8 ? Layout::bits64 : Layout::bits32;

// One diagnostic record as GetError delivers it.
struct Diag {
  std::string message;  // message text
  std::string state;    // SQLSTATE
  int native;           // native error code
  bool operator==(const Diag &) const = default;
};

inline std::ostream &operator<<(std::ostream &os, const Diag &d) {
  return os << "{\"" << d.message << "\", " << d.state << ", " << d.native << "}";
}

// Options of a server (qzodbc, or qzodbc-test with QZ_SERVER_ODBC_TEST), optionally with
// words before the launcher (e.g. env TZ=).
inline Options server_options(const std::vector<std::string> &pre = {},
                              const char *var = "QZ_SERVER_ODBC") {
  Options o = qz::test::server_options(var, kNative);
  o.launcher.insert(o.launcher.begin(), pre.begin(), pre.end());
  return o;
}
inline Options test_server() {
  return server_options({}, "QZ_SERVER_ODBC_TEST");
}
// qzodbc-test started with the libodbc interposer failing what `rules` say.
inline Options interposed(const std::string &rules) {
  Options o = test_server();
  o.launcher = odbc::interposer_launcher(rules, o.launcher, odbc::interposer_preload());
  return o;
}

// Whether `log` has a line matching `re`; the log line of a driver diagnostic as the
// connection object writes it at level 2 (the source line varies).
inline bool has_line(const std::string &log, const std::string &re) {
  return std::regex_search(log, std::regex(re));
}
inline std::string diag_line(const std::string &message, const std::string &state,
                             const std::string &nat) {
  const std::string esc =
      std::regex_replace(message, std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)");
  return "O2: connection\\.cpp\\(\\d+\\): " + esc + " SQLState=" + state + " \\[" + nat + "\\]\n";
}

// A running server and the calls of the tests; every call is expected to be answered.
class Server {
 public:
  explicit Server(const Options &o = server_options()) { started_ = s.start(o); }
  ~Server() {
    if (s.running()) s.stop();
  }
  bool started() const { return started_; }

  int call(std::string_view name, std::vector<Arg> args) {
    CallResult r = s.call(name, std::span<Arg>(args));
    EXPECT_TRUE(r.ok()) << name << ": " << r.error << "\n" << s.stderr_text();
    r.args = std::move(args);
    last = r;
    return r.status;
  }

  // Connect; id is updated from the variable (unchanged by a failure).
  int connect(const std::string &spec, int &id) {
    int st = call("Connect", {Arg::string(spec), Arg::int_var(id)});
    if (last.ok()) id = last.args[1].as_int();
    return st;
  }
  int connect(const std::string &spec) {
    int id = 0;
    EXPECT_EQ(connect(spec, id), qz::kOk) << spec << "\n" << s.stderr_text();
    return id;
  }

  // Prepare, ExecDirect (one text) or Tables, Columns (four texts); id is read and updated.
  int make(const char *fn, int conn, const std::vector<std::string> &texts, int &id) {
    std::vector<Arg> args{Arg::integer(conn)};
    for (const std::string &t : texts)
      args.push_back(Arg::string(t));
    args.push_back(Arg::int_var(id));
    int st = call(fn, args);
    id = last.args.back().as_int();
    return st;
  }
  int prepare(int conn, const std::string &sql, int &id) {
    return make("Prepare", conn, {sql}, id);
  }
  int prepared(int conn, const std::string &sql) {
    int id = 0;
    EXPECT_EQ(prepare(conn, sql, id), qz::kOk) << sql << "\n" << s.stderr_text();
    return id;
  }
  int direct(int conn, const std::string &sql, int &id) {
    return make("ExecDirect", conn, {sql}, id);
  }
  // Runs SQL that returns no rows and drops its statement.
  void run(int conn, const std::string &sql) {
    int id = 0;
    ASSERT_EQ(direct(conn, sql, id), qz::kOk) << sql << "\n" << s.stderr_text();
    EXPECT_EQ(drop(id), qz::kOk);
  }
  // SetParam of statement `stmt` with the further arguments `rest`; DropStatement.
  int set_param(int stmt, std::vector<Arg> rest) {
    rest.insert(rest.begin(), Arg::integer(stmt));
    return call("SetParam", rest);
  }
  int drop(int stmt) { return call("DropStatement", {Arg::integer(stmt)}); }
  int set_type(int stmt, int col, int type) {
    return call("SetColumnType", {Arg::integer(stmt), Arg::integer(col), Arg::integer(type)});
  }
  // Executes with the given values bound as parameters 1..n.
  int execute(int stmt, std::vector<Arg> values = {}) {
    values.insert(values.begin(), Arg::integer(stmt));
    return call("Execute", values);
  }

  // Fetch without a buffer: the status, with the Status variable in *row.
  int fetch(int stmt, int *row = nullptr) {
    int st = call("Fetch", {Arg::integer(stmt), Arg::int_var(-7)});
    if (row) *row = last.args[1].as_int();
    return st;
  }
  // Fetch into a string variable of the given capacity; the packed text in *packed.
  int fetch_packed(int stmt, std::string *packed, int capacity = 4096, int *row = nullptr) {
    int st = call("Fetch", {Arg::integer(stmt), Arg::int_var(-7), Arg::string_var("", capacity)});
    *packed = last.args[2].as_string();
    if (row) *row = last.args[1].as_int();
    return st;
  }

  // GetData into a variable of each kind; the status, with the variable in *out.
  int get_string(int stmt, int col, std::string *out, int capacity = 40000) {
    int st = call("GetData",
                  {Arg::integer(stmt), Arg::integer(col), Arg::string_var("<old>", capacity)});
    *out = last.args[2].as_string();
    return st;
  }
  int get_int(int stmt, int col, int *out) {
    int st = call("GetData", {Arg::integer(stmt), Arg::integer(col), Arg::int_var(-99)});
    *out = last.args[2].as_int();
    return st;
  }
  int get_double(int stmt, int col, double *out) {
    int st = call("GetData", {Arg::integer(stmt), Arg::integer(col), Arg::real_var(-99.0)});
    *out = last.args[2].as_double();
    return st;
  }
  int int_data(int stmt, int col) {
    int v = 0;
    EXPECT_EQ(get_int(stmt, col, &v), qz::kOk) << "column " << col << "\n" << s.stderr_text();
    return v;
  }
  std::string text(int stmt, int col) {
    std::string v;
    EXPECT_EQ(get_string(stmt, col, &v), qz::kOk) << "column " << col << "\n" << s.stderr_text();
    return v;
  }
  // An integer out-variable of a function taking (StmtId, Number, var).
  int int_of(const char *fn, int stmt, int number, int *out) {
    int st = call(fn, {Arg::integer(stmt), Arg::integer(number), Arg::int_var(-99)});
    *out = last.args[2].as_int();
    return st;
  }
  // The same, or a string variable, from a call that must succeed.
  int value(const char *fn, int stmt, int number) {
    int v = 0;
    EXPECT_EQ(int_of(fn, stmt, number, &v), qz::kOk) << fn << " " << number;
    return v;
  }
  std::string str_of(const char *fn, int stmt, int number) {
    EXPECT_EQ(call(fn, {Arg::integer(stmt), Arg::integer(number), Arg::string_var("", 40)}),
              qz::kOk)
        << fn << " " << number;
    return last.args[2].as_string();
  }

  // GetError until HasData is 0.
  std::vector<Diag> errors() {
    std::vector<Diag> out;
    for (int guard = 0; guard < 20; ++guard) {
      int st = call("GetError", {Arg::string_var("", 300), Arg::string_var("", 10), Arg::int_var(0),
                                 Arg::int_var(-5)});
      EXPECT_EQ(st, qz::kOk);
      if (!last.ok() || st != 0 || last.args[3].as_int() == 0) break;
      EXPECT_EQ(last.args[3].as_int(), 1);
      out.push_back(
          Diag{last.args[0].as_string(), last.args[1].as_string(), last.args[2].as_int()});
    }
    return out;
  }
  std::vector<std::string> states() {
    std::vector<std::string> out;
    for (const Diag &d : errors())
      out.push_back(d.state);
    return out;
  }

  // Log lines of category O at the given levels go to standard error from now on.
  void log_to_stderr(const char *flags = "O2") {
    EXPECT_EQ(call("LogFile", {Arg::string("console")}), 0);
    EXPECT_EQ(call("LogFlags", {Arg::string(flags)}), 0);
  }
  std::string log() const { return s.stderr_text(); }

  void stop_cleanly() {
    ExitInfo e = s.stop();
    EXPECT_TRUE(e.exited && e.code == 0) << e.describe() << "\n" << s.stderr_text();
  }

  // Runs `step` with the n-th allocation of qzodbc-test failing, for n = 1, 2, ... until it
  // succeeds; each failure must give status 2. Returns how many failed.
  template <typename F>
  int failing_allocations(F step) {
    int failed = 0;
    for (int n = 1; n <= 40; ++n) {
      EXPECT_EQ(call("FailAlloc", {Arg::integer(n)}), 0);
      int st = step();
      EXPECT_EQ(call("FailAlloc", {Arg::integer(0)}), 0);
      if (st == qz::kOk) break;
      EXPECT_EQ(st, qz::kNoMemory) << "allocation " << n;
      ++failed;
    }
    return failed;
  }

  Session s;
  CallResult last;

 private:
  bool started_ = false;
};

// The rows of a query on SQLite database `file` through python's sqlite3, as stored()
// gives them ('|' between fields, NULL as None).
inline odbc::RunResult sqlite_rows(const std::string &file, const std::string &sql) {
  const std::string py =
      "import sqlite3,sys\n"
      "c=sqlite3.connect(sys.argv[1]); c.text_factory=bytes\n"
      "for row in c.execute(sys.argv[2]):\n"
      "  sys.stdout.buffer.write(b'|'.join(v if isinstance(v,bytes) else "
      "str(v).encode() for v in row)+b'\\n')\n";
  return odbc::run_program({"python3", "-c", py, file, sql});
}

// A SQLite database in a temporary directory, plain or behind the fault driver with a
// trace of the driver calls.
struct Db {
  odbc::TempDir dir;                                 // removed with the database
  std::string file = dir.file("test.db");            // the database file
  std::string trace_file = dir.file("calls.trace");  // driver calls of fault()
  std::string sqlite() const { return odbc::sqlite_conn(file); }
  std::string fault(const std::string &rules, const std::string &trace = "") const {
    return odbc::fault_conn(file, rules, trace);
  }
  std::string traced(const std::string &rules) const { return fault(rules, trace_file); }
  long calls(const std::string &fn) const {
    std::vector<std::string> c = odbc::trace_calls(trace_file);
    return std::count(c.begin(), c.end(), fn);
  }
  std::string rows(const std::string &sql) const { return sqlite_rows(file, sql).out; }
};

// PostgreSQL sessions of the application name `app`: a connection string that names it,
// their count (with a further condition), and the count once none is left (a backend
// ends when it reads the client's goodbye or end of file), polled for up to 10 seconds.
inline std::string pg_app_conn(const std::string &app) {
  return odbc::pg_conn("pqopt={application_name=" + app + "}");
}
inline std::string pg_sessions(const std::string &app, const std::string &where = "") {
  return odbc::psql("SELECT count(*) FROM pg_stat_activity WHERE application_name = '" + app + "'" +
                    where)
      .out;
}
inline std::string pg_sessions_left(const std::string &app) {
  std::string left = pg_sessions(app);
  for (int i = 0; i < 200 && left != "0\n"; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    left = pg_sessions(app);
  }
  return left;
}

// The two real back ends.
enum class Kind { sqlite, postgres };

struct Backend {
  const char *name;  // test name suffix
  Kind kind;
};

// Per test: a database to connect to, table names of its own (the PostgreSQL database is
// shared by the whole run), and the dialect differences the tests need.
class BackendTest : public ::testing::TestWithParam<Backend> {
 protected:
  void SetUp() override {
    if (pg() && !odbc::pg_available()) GTEST_SKIP() << "no PostgreSQL in this build";
  }
  void TearDown() override {
    if (pg() && odbc::pg_available())
      for (const std::string &t : tables_)
        odbc::psql("DROP TABLE IF EXISTS " + t);
  }
  bool pg() const { return GetParam().kind == Kind::postgres; }
  std::string spec() const { return pg() ? odbc::pg_conn() : odbc::sqlite_conn(db_file_); }
  // A table name unique to this test and process.
  std::string table(const std::string &base) {
    std::string t = base + "_" + std::to_string(getpid()) + "_" + std::to_string(tables_.size());
    tables_.push_back(t);
    return t;
  }
  const char *double_type() const { return pg() ? "DOUBLE PRECISION" : "REAL"; }

  // The rows of a query, read without ODBC: fields separated by '|', rows ended by '\n';
  // text as the bytes stored (LATIN1 in PostgreSQL's database).
  std::string stored(const std::string &sql) {
    odbc::RunResult r = pg() ? odbc::psql(sql) : sqlite_rows(db_file_, sql);
    EXPECT_EQ(r.status, 0) << sql << "\n" << r.err;
    return r.out;
  }

  odbc::TempDir dir_;
  std::string db_file_ = dir_.file("test.db");

 private:
  std::vector<std::string> tables_;
};

inline std::string backend_name(const ::testing::TestParamInfo<Backend> &info) {
  return info.param.name;
}

#define QZ_ON_BOTH_BACKENDS(suite)                                                            \
  INSTANTIATE_TEST_SUITE_P(                                                                   \
      Drivers, suite,                                                                         \
      ::testing::Values(qz::test::stmt::Backend{"sqlite", qz::test::stmt::Kind::sqlite},      \
                        qz::test::stmt::Backend{"postgres", qz::test::stmt::Kind::postgres}), \
      qz::test::stmt::backend_name)

// One packed-row entry as Fetch writes it.
inline std::string entry(bool numeric, const std::string &name, const std::string &value) {
  return (numeric ? "N" : "X") + name + "~0~" + std::to_string(value.size()) + "~" + value;
}

}  // namespace qz::test::stmt
