// The ODBC server's connection functions as a process, through libqzclient: identifiers,
// connection strings, failed connects, the diagnostics queue read with GetError, options
// and transactions, the settings and version texts, allocation failures, and what SIGTERM
// releases. Real drivers: SQLite, PostgreSQL, the fault driver and the libodbc interposer.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <thread>

#include "bridge.hpp"
#include "e2e_env.hpp"
#include "odbc_env.hpp"

namespace {

using namespace std::chrono_literals;
using qz::client::Arg;
using qz::client::CallResult;
using qz::client::ExitInfo;
using qz::client::Layout;
using qz::client::Options;
using qz::client::Session;
namespace odbc = qz::test::odbc;

constexpr Layout kNative = sizeof(void *) == 8 ? Layout::bits64 : Layout::bits32;

constexpr int SQL_ACCESS_MODE_OPT = 101;  // connection option numbers of ODBC
constexpr int SQL_AUTOCOMMIT_OPT = 102;
constexpr int SQL_LOGIN_TIMEOUT_OPT = 103;
constexpr int SQL_OPT_TRACEFILE_OPT = 105;

// One diagnostic record as GetError delivers it.
struct Diag {
  std::string message;
  std::string state;
  int native;
  bool operator==(const Diag &) const = default;
};

std::ostream &operator<<(std::ostream &os, const Diag &d) {
  return os << "{\"" << d.message << "\", " << d.state << ", " << d.native << "}";
}

// A running server (qzodbc-test unless said otherwise) and the calls the tests make.
class Server {
 public:
  explicit Server(Options o) { started_ = s.start(o); }
  explicit Server(const char *var = "QZ_SERVER_ODBC_TEST")
      : Server(qz::test::server_options(var, kNative)) {}
  ~Server() {
    if (s.running()) s.stop();
  }
  bool started() const { return started_; }

  int status(std::string_view name, std::initializer_list<Arg> args) {
    CallResult r = s.call(name, args);
    EXPECT_TRUE(r.ok()) << name << ": " << r.error << "\n" << s.stderr_text();
    last = r;
    return r.status;
  }

  // Connect; id is updated from the variable (unchanged by a failure).
  int connect(const std::string &spec, int &id) {
    int st = status("Connect", {Arg::string(spec), Arg::int_var(id)});
    if (last.ok()) id = last.args[1].as_int();
    return st;
  }
  int connect_ok(const std::string &spec) {
    int id = 0;
    EXPECT_EQ(connect(spec, id), qz::kOk) << spec << "\n" << s.stderr_text();
    return id;
  }

  // GetError until HasData is 0.
  std::vector<Diag> errors() {
    std::vector<Diag> out;
    for (int guard = 0; guard < 20; ++guard) {
      int st = status("GetError", {Arg::string_var("", 300), Arg::string_var("", 10),
                                   Arg::int_var(0), Arg::int_var(-5)});
      EXPECT_EQ(st, qz::kOk);
      if (!last.ok() || st != 0 || last.args[3].as_int() == 0) break;
      EXPECT_EQ(last.args[3].as_int(), 1);
      out.push_back(
          Diag{last.args[0].as_string(), last.args[1].as_string(), last.args[2].as_int()});
    }
    return out;
  }

  // Log lines of category O at the given levels go to standard error from now on.
  void log_to_stderr(const char *flags = "O2") {
    EXPECT_EQ(status("LogFile", {Arg::string("console")}), 0);
    EXPECT_EQ(status("LogFlags", {Arg::string(flags)}), 0);
  }
  std::string log() const { return s.stderr_text(); }

  // SIGTERM while waiting: exit status 0 (under the sanitizer build: and nothing leaked).
  void stop_cleanly() {
    ExitInfo e = s.stop();
    EXPECT_TRUE(e.exited && e.code == 0) << e.describe() << "\n" << s.stderr_text();
  }

  Session s;
  CallResult last;

 private:
  bool started_ = false;
};

// A temporary directory with a SQLite database file in it.
struct Db {
  odbc::TempDir dir;
  std::string file = dir.file("test.db");
  std::string sqlite() const { return odbc::sqlite_conn(file); }
  std::string fault(const std::string &rules, const std::string &trace = "") const {
    return odbc::fault_conn(file, rules, trace);
  }
};

// A server started with the libodbc interposer failing what `rules` say.
Options interposed(const std::string &rules, const char *var = "QZ_SERVER_ODBC_TEST") {
  Options o = qz::test::server_options(var, kNative);
  o.launcher = odbc::interposer_launcher(rules, o.launcher, odbc::interposer_preload());
  return o;
}

// The log line of a diagnostic as err writes it (the source line varies).
std::regex diag_line(const std::string &message, const std::string &state, const std::string &nat) {
  auto esc = [](const std::string &t) {
    return std::regex_replace(t, std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)");
  };
  return std::regex("O2: connection\\.cpp\\(\\d+\\): " + esc(message) + " SQLState=" + state +
                    " \\[" + nat + "\\]\n");
}

bool has_line(const std::string &log, const std::regex &re) {
  return std::regex_search(log, re);
}

// ---- identifiers, connection strings, the table --------------------------------------

// The product server, on this build's architecture and (in the x86-64 build) the i386
// build's under the emulator.
struct Target {
  const char *name;
  const char *var;
  bool i386;
};

class Identifiers : public ::testing::TestWithParam<Target> {
 protected:
  Options options() {
    Options o = qz::test::server_options(GetParam().var, kNative);
    if (GetParam().i386) o.launcher = {"qemu-i386"};
    return o;
  }
  void SetUp() override {
    if (GetParam().i386 && (qz::test::emulated() || qz::test::env(GetParam().var).empty()))
      GTEST_SKIP() << "only in the x86-64 build configured with the i386 build's server";
  }
};

TEST_P(Identifiers, LowestFreeFirstAndUnknownIdentifiersRefused) {
  Db db;
  Server srv(options());
  ASSERT_TRUE(srv.started()) << srv.s.error();
  ASSERT_TRUE(srv.s.ping()) << srv.s.error() << srv.log();
  EXPECT_EQ(srv.connect_ok(db.sqlite()), 1);
  EXPECT_EQ(srv.connect_ok(db.sqlite()), 2);
  EXPECT_EQ(srv.connect_ok(db.sqlite()), 3);
  EXPECT_EQ(srv.status("Disconnect", {Arg::integer(2)}), qz::kOk);
  EXPECT_EQ(srv.connect_ok(db.sqlite()), 2);
  EXPECT_EQ(srv.connect_ok(db.sqlite()), 4);
  EXPECT_EQ(srv.status("Disconnect", {Arg::integer(3)}), qz::kOk);
  EXPECT_EQ(srv.status("Disconnect", {Arg::integer(3)}), qz::kBadArgument);
  for (int unknown : {0, -1, 5, 99}) {
    EXPECT_EQ(srv.status("Disconnect", {Arg::integer(unknown)}), qz::kBadArgument) << unknown;
    EXPECT_EQ(srv.status("GetConnection", {Arg::integer(unknown), Arg::string_var("", 9)}),
              qz::kBadArgument);
    EXPECT_EQ(srv.status("Commit", {Arg::integer(unknown)}), qz::kBadArgument);
    EXPECT_EQ(srv.status("Rollback", {Arg::integer(unknown)}), qz::kBadArgument);
    EXPECT_EQ(srv.status("SetAutocommit", {Arg::integer(unknown), Arg::integer(1)}),
              qz::kBadArgument);
    // The identifier is looked at before the argument count.
    EXPECT_EQ(srv.status("SetConnectOption", {Arg::integer(unknown), Arg::integer(1)}),
              qz::kBadArgument);
  }
  // The completed connection string names the database.
  EXPECT_EQ(srv.status("GetConnection", {Arg::integer(4), Arg::string_var("", 1024)}), 0);
  EXPECT_NE(srv.last.args[1].as_string().find("Database=" + db.file), std::string::npos)
      << srv.last.args[1].as_string();
  EXPECT_EQ(srv.errors(), std::vector<Diag>{});
  // The product has exactly its 38 rows: a test row is unknown. Statements have their own
  // number space.
  EXPECT_EQ(srv.status("FailAlloc", {Arg::integer(1)}), 7);
  EXPECT_EQ(srv.status("Prepare", {Arg::integer(4), Arg::string("SELECT 1"), Arg::int_var(0)}),
            qz::kOk);
  EXPECT_EQ(srv.last.args[2].as_int(), 1);
  EXPECT_EQ(srv.status("Fetch", {Arg::integer(2), Arg::int_var(0)}), qz::kBadArgument);
  srv.stop_cleanly();
}

INSTANTIATE_TEST_SUITE_P(Servers, Identifiers,
                         ::testing::Values(Target{"this_build", "QZ_SERVER_ODBC", false},
                                           Target{"i386_server", "QZ_SERVER_ODBC_I386", true}),
                         [](const auto &info) { return std::string(info.param.name); });

// The connection string crosses as ISO 8859-1 and comes back as HP Roman-8: a database
// named with Roman-8's e-acute (0xC5) is created under ISO 8859-1's (0xE9).
TEST(GetConnection, CharacterSetsAreMappedBothWays) {
  odbc::TempDir dir;
  Server srv;
  int id = srv.connect_ok(odbc::sqlite_conn(dir.file("caf\xC5.db")));
  EXPECT_TRUE(std::filesystem::exists(dir.file("caf\xE9.db")));
  EXPECT_FALSE(std::filesystem::exists(dir.file("caf\xC5.db")));
  ASSERT_EQ(srv.status("GetConnection", {Arg::integer(id), Arg::string_var("", 1024)}), 0);
  EXPECT_NE(srv.last.args[1].as_string().find("caf\xC5.db"), std::string::npos)
      << srv.last.args[1].as_string();
}

TEST(GetConnection, TooSmallVariableIsLeftUnchanged) {
  Db db;
  Server srv;
  int id = srv.connect_ok(db.sqlite());
  ASSERT_EQ(srv.status("GetConnection", {Arg::integer(id), Arg::string_var("", 1024)}), 0);
  const std::string spec = srv.last.args[1].as_string();
  int n = static_cast<int>(spec.size());
  EXPECT_EQ(srv.status("GetConnection", {Arg::integer(id), Arg::string_var("", n)}), 0);
  EXPECT_EQ(srv.last.args[1].as_string(), spec);
  EXPECT_EQ(srv.status("GetConnection", {Arg::integer(id), Arg::string_var("old", n - 1)}),
            qz::kNoRoom);
  EXPECT_EQ(srv.last.args[1].as_string(), "old");
}

TEST(ConnectionString, LongestAcceptedIs1023Bytes) {
  Db db;
  Server srv;
  srv.log_to_stderr("O1");
  // SQLite ignores an attribute it does not know: the padding only adds length.
  std::string base = db.sqlite() + ";Pad=";
  std::string ok = base + std::string(1023 - base.size(), 'x');
  ASSERT_EQ(ok.size(), 1023u);
  EXPECT_EQ(srv.connect_ok(ok), 1);
  int id = 55;
  EXPECT_EQ(srv.connect(ok + "x", id), qz::kBadArgument);
  EXPECT_EQ(id, 55);
  EXPECT_TRUE(has_line(srv.log(), std::regex("O1: connection\\.cpp\\(\\d+\\): ODBC connection "
                                             "string too long \\(maximum is 1023 bytes\\)\n")))
      << srv.log();
  EXPECT_EQ(srv.errors(), std::vector<Diag>{});
  EXPECT_EQ(srv.connect_ok(db.sqlite()), 2);
}

// ---- failed connects -------------------------------------------------------------------

TEST(FailedConnect, DiagnosticsAreLoggedNotQueuedAndNothingIsRegistered) {
  Db db;
  Server srv;
  srv.log_to_stderr();
  int id = 77;
  EXPECT_EQ(srv.connect("Driver={No Such Driver};Database=" + db.file, id), qz::kConnectFailed);
  EXPECT_EQ(id, 77);
  EXPECT_TRUE(has_line(srv.log(), diag_line("[unixODBC][Driver Manager]Can't open lib 'No Such "
                                            "Driver' : file not found",
                                            "01000", "0")))
      << srv.log();
  // Freeing the handles of the failed connection reported again and emptied the queue.
  EXPECT_EQ(srv.errors(), std::vector<Diag>{});

  // A driver's refusal through the fault driver: its record in the log, SQLSTATE as given.
  EXPECT_EQ(srv.connect(db.fault("SQLDriverConnect:-1:28000:7:login refused"), id),
            qz::kConnectFailed);
  EXPECT_TRUE(has_line(srv.log(), diag_line("login refused", "28000", "7"))) << srv.log();
  EXPECT_EQ(srv.errors(), std::vector<Diag>{});
  EXPECT_EQ(srv.connect_ok(db.sqlite()), 1);
}

TEST(FailedConnect, PostgresRefusesAnUnknownRole) {
  if (!odbc::pg_available()) GTEST_SKIP() << "no PostgreSQL in this build";
  Server srv;
  srv.log_to_stderr();
  int id = 0;
  EXPECT_EQ(srv.connect(odbc::pg_conn("Username=nobody"), id), qz::kConnectFailed);
  EXPECT_EQ(id, 0);
  // The server's text ends in a line break of its own.
  EXPECT_TRUE(has_line(srv.log(), std::regex("O2: connection\\.cpp\\(\\d+\\): [^\n]*role "
                                             "\"nobody\" does not exist\n SQLState=08001 "
                                             "\\[101\\]\n")))
      << srv.log();
  EXPECT_EQ(srv.errors(), std::vector<Diag>{});
  EXPECT_EQ(srv.connect_ok(odbc::pg_conn()), 1);
}

TEST(FailedConnect, HandleAllocationFailures) {
  Db db;
  {
    Server srv(interposed("SQLAllocEnv:-1"));
    int id = 3;
    EXPECT_EQ(srv.connect(db.sqlite(), id), qz::kHandleAlloc);
    EXPECT_EQ(id, 3);
    EXPECT_EQ(srv.errors(), std::vector<Diag>{});  // nothing to read: no environment
    srv.stop_cleanly();
  }
  {
    // The record of a failed SQLAllocConnect is on the environment, which is then freed:
    // the record stays queued.
    Server srv(interposed("SQLAllocConnect:-1:S1001:0:Memory allocation failure"));
    int id = 3;
    EXPECT_EQ(srv.connect(db.sqlite(), id), qz::kHandleAlloc);
    EXPECT_EQ(id, 3);
    EXPECT_EQ(srv.errors(), (std::vector<Diag>{{"Memory allocation failure", "S1001", 0}}));
    srv.stop_cleanly();
  }
}

// ---- the diagnostics queue -------------------------------------------------------------

// Statement records first, then the connection's, then the environment's, as the drivers
// and the driver manager deliver them.
TEST(GetError, ReadsEveryLevelInOrderThenReportsNoData) {
  struct Case {
    std::string spec;
    Diag stmt_diag;
    Diag conn_diag;
  };
  Db db;
  std::vector<Case> cases{{db.sqlite(),
                           {"[SQLite]near \"SELEC\": syntax error (1)", "S1000", 1},
                           {"[SQLite]unsupported connect option 9999", "S1C00", -1}}};
  if (odbc::pg_available())
    // psqlODBC keeps the connection's own text but reports it with the state and number
    // that the statement's failure left on the connection.
    cases.push_back(
        {odbc::pg_conn(), {"", "42601", 1}, {"Unknown connect option (Get)", "42601", 110}});
  const Diag env_diag{"[unixODBC][Driver Manager]Invalid transaction operation code", "S1012", 0};
  for (const Case &c : cases) {
    Server srv;
    int conn = srv.connect_ok(c.spec);
    int stmt = 0;
    ASSERT_EQ(srv.status("OpenStatement", {Arg::integer(conn), Arg::int_var(stmt)}), 0);
    stmt = srv.last.args[1].as_int();
    EXPECT_EQ(stmt, 1);
    EXPECT_EQ(srv.status("ThreeLevelError", {Arg::integer(stmt), Arg::string("SELEC 1")}), -1);
    std::vector<Diag> got = srv.errors();
    ASSERT_EQ(got.size(), 3u) << testing::PrintToString(got);
    if (c.stmt_diag.message.empty()) {  // the server's text is long; its start is enough
      EXPECT_EQ(got[0].message.rfind("ERROR: syntax error at or near \"SELEC\"", 0), 0u) << got[0];
      got[0].message.clear();
    }
    EXPECT_EQ(got[0], c.stmt_diag);
    EXPECT_EQ(got[1], c.conn_diag);
    EXPECT_EQ(got[2], env_diag);
    EXPECT_EQ(srv.errors(), std::vector<Diag>{});  // no data again, not the records again

    // A record that does not fit is consumed all the same.
    srv.status("ThreeLevelError", {Arg::integer(stmt), Arg::string("SELEC 1")});
    EXPECT_EQ(srv.status("GetError", {Arg::string_var("", 5), Arg::string_var("", 10),
                                      Arg::int_var(0), Arg::int_var(0)}),
              qz::kNoRoom);
    EXPECT_EQ(srv.status("GetError", {Arg::string_var("", 300), Arg::string_var("", 4),
                                      Arg::int_var(0), Arg::int_var(0)}),
              qz::kNoRoom);
    EXPECT_EQ(srv.last.args[0].as_string(), c.conn_diag.message);  // written before the state
    EXPECT_EQ(srv.errors(), std::vector<Diag>{env_diag});
    srv.stop_cleanly();
  }
}

TEST(GetError, FailingSQLErrorEndsTheRecordsWithTheBridgesOwn) {
  Db db;
  const std::string refused = db.fault("SQLTransact:-1:S1000:7:commit refused");
  const std::string info = db.fault("SQLTransact:SUCCESS_WITH_INFO:01000:3:committed with info");
  {
    Server srv(interposed("SQLError:-1"));
    int id = srv.connect_ok(refused);
    EXPECT_EQ(srv.status("Commit", {Arg::integer(id)}), qz::kOdbcFailed);
    EXPECT_EQ(srv.errors(), (std::vector<Diag>{{"ODBC operation failed", "00000", -1}}));
  }
  {
    Server srv(interposed("SQLError:INVALID_HANDLE"));
    int id = srv.connect_ok(refused);
    EXPECT_EQ(srv.status("Rollback", {Arg::integer(id)}), qz::kOdbcFailed);
    EXPECT_EQ(srv.errors(), (std::vector<Diag>{{"The handle is invalid", "00000", -1}}));
  }
  {
    // The driver's record comes first; the second SQLError fails.
    Server srv(interposed("SQLError@2:-1"));
    srv.log_to_stderr();
    int id = srv.connect_ok(refused);
    EXPECT_EQ(srv.status("Commit", {Arg::integer(id)}), qz::kOdbcFailed);
    EXPECT_EQ(srv.errors(), (std::vector<Diag>{{"commit refused", "S1000", 7},
                                               {"ODBC operation failed", "00000", -1}}));
    EXPECT_TRUE(has_line(srv.log(), diag_line("commit refused", "S1000", "7"))) << srv.log();
    EXPECT_TRUE(
        has_line(srv.log(), std::regex("O1: connection\\.cpp\\(\\d+\\): ODBC operation failed\n")))
        << srv.log();
  }
  {
    // An informational return counts as success, with its record queued ...
    Server srv;
    int id = srv.connect_ok(info);
    EXPECT_EQ(srv.status("Commit", {Arg::integer(id)}), qz::kOk);
    EXPECT_EQ(srv.errors(), (std::vector<Diag>{{"committed with info", "01000", 3}}));
  }
  {
    // ... unless reading its records fails: then the call has failed.
    Server srv(interposed("SQLError@2:-1"));
    int id = srv.connect_ok(info);
    EXPECT_EQ(srv.status("Commit", {Arg::integer(id)}), qz::kOdbcFailed);
    EXPECT_EQ(srv.errors(), (std::vector<Diag>{{"committed with info", "01000", 3},
                                               {"ODBC operation failed", "00000", -1}}));
  }
}

// ---- options and transactions ----------------------------------------------------------

TEST(SetConnectOption, ArgumentRules) {
  Db db;
  odbc::TempDir dir;
  Server srv;
  int id = srv.connect_ok(db.sqlite());
  auto set = [&](std::initializer_list<Arg> value) {
    std::vector<Arg> args{Arg::integer(id), Arg::integer(SQL_AUTOCOMMIT_OPT)};
    args.insert(args.end(), value);
    CallResult r = srv.s.call("SetConnectOption", args);
    EXPECT_TRUE(r.ok()) << r.error;
    return r.status;
  };
  auto get = [&](int option) {
    EXPECT_EQ(
        srv.status("GetConnectOption", {Arg::integer(id), Arg::integer(option), Arg::int_var(-99)}),
        0);
    return srv.last.args[2].as_int();
  };
  EXPECT_EQ(set({}), qz::kArgCount);
  EXPECT_EQ(set({Arg::integer(0), Arg::integer(0)}), qz::kArgCount);
  EXPECT_EQ(set({Arg::int_array({0, 1})}), qz::kBadArgument);
  EXPECT_EQ(set({Arg::real_array(std::vector<double>{0.0, 1.0})}), qz::kBadArgument);
  EXPECT_EQ(set({Arg::string_array({"a", "b"}, 4)}), qz::kBadArgument);
  EXPECT_EQ(get(SQL_AUTOCOMMIT_OPT), 1);  // none of these reached the driver
  // Reals are truncated toward zero: 0.9 switches autocommit off, 1.9 on again.
  EXPECT_EQ(set({Arg::real(0.9)}), qz::kOk);
  EXPECT_EQ(get(SQL_AUTOCOMMIT_OPT), 0);
  EXPECT_EQ(set({Arg::real(1.9)}), qz::kOk);
  EXPECT_EQ(get(SQL_AUTOCOMMIT_OPT), 1);
  EXPECT_EQ(set({Arg::int_var(0)}), qz::kOk);
  EXPECT_EQ(get(SQL_AUTOCOMMIT_OPT), 0);
  // SetAutocommit passes 1 for any non-zero mode.
  EXPECT_EQ(srv.status("SetAutocommit", {Arg::integer(id), Arg::integer(5)}), qz::kOk);
  EXPECT_EQ(get(SQL_AUTOCOMMIT_OPT), 1);
  EXPECT_EQ(srv.status("SetAutocommit", {Arg::integer(id), Arg::integer(0)}), qz::kOk);
  EXPECT_EQ(get(SQL_AUTOCOMMIT_OPT), 0);

  // A string value arrives as NUL-terminated text: the driver manager keeps the trace
  // file name it is given and hands it back.
  std::string trace = dir.file("dm-trace.log");
  CallResult r = srv.s.call(
      "SetConnectOption",
      {Arg::integer(id), Arg::integer(SQL_OPT_TRACEFILE_OPT), Arg::string_var(trace, 300)});
  EXPECT_EQ(r.status, qz::kOk);
  EXPECT_EQ(
      srv.status("GetConnectOptionText",
                 {Arg::integer(id), Arg::integer(SQL_OPT_TRACEFILE_OPT), Arg::string_var("", 300)}),
      0);
  EXPECT_EQ(srv.last.args[2].as_string(), trace);
}

TEST(SetConnectOption, PostgresKeepsTheTruncatedRealValue) {
  if (!odbc::pg_available()) GTEST_SKIP() << "no PostgreSQL in this build";
  Server srv;
  int id = srv.connect_ok(odbc::pg_conn());
  EXPECT_EQ(srv.status("SetConnectOption",
                       {Arg::integer(id), Arg::integer(SQL_LOGIN_TIMEOUT_OPT), Arg::real(2.9)}),
            qz::kOk);
  EXPECT_EQ(srv.status("GetConnectOption",
                       {Arg::integer(id), Arg::integer(SQL_LOGIN_TIMEOUT_OPT), Arg::int_var(0)}),
            0);
  EXPECT_EQ(srv.last.args[2].as_int(), 2);
  EXPECT_EQ(srv.status("SetAutocommit", {Arg::integer(id), Arg::integer(5)}), qz::kOk);
  EXPECT_EQ(srv.status("Commit", {Arg::integer(id)}), qz::kOk);
  EXPECT_EQ(srv.status("Rollback", {Arg::integer(id)}), qz::kOk);
  EXPECT_EQ(srv.status("Disconnect", {Arg::integer(id)}), qz::kOk);
  srv.stop_cleanly();
}

TEST(Transactions, InjectedFailuresGive1111WithTheDriversRecord) {
  Db db;
  Server srv;
  srv.log_to_stderr();
  int plain = srv.connect_ok(db.sqlite());
  EXPECT_EQ(srv.status("Commit", {Arg::integer(plain)}), qz::kOk);
  EXPECT_EQ(srv.status("Rollback", {Arg::integer(plain)}), qz::kOk);

  // Only the first SQLTransact of that connection fails.
  int faulty = srv.connect_ok(db.fault(
      "SQLTransact@1:-1:S1000:11:commit refused;SQLSetConnectOption:-1:S1000:12:option refused"));
  EXPECT_EQ(srv.status("Commit", {Arg::integer(faulty)}), qz::kOdbcFailed);
  EXPECT_EQ(srv.errors(), (std::vector<Diag>{{"commit refused", "S1000", 11}}));
  EXPECT_TRUE(has_line(srv.log(), diag_line("commit refused", "S1000", "11"))) << srv.log();
  EXPECT_EQ(srv.status("Rollback", {Arg::integer(faulty)}), qz::kOk);
  EXPECT_EQ(srv.status("SetAutocommit", {Arg::integer(faulty), Arg::integer(0)}), qz::kOdbcFailed);
  EXPECT_EQ(srv.errors(), (std::vector<Diag>{{"option refused", "S1000", 12}}));
  EXPECT_EQ(srv.status("SetConnectOption",
                       {Arg::integer(faulty), Arg::integer(SQL_ACCESS_MODE_OPT), Arg::integer(0)}),
            qz::kOdbcFailed);
  // A later successful report empties the queue.
  EXPECT_EQ(srv.status("Commit", {Arg::integer(plain)}), qz::kOk);
  EXPECT_EQ(srv.errors(), std::vector<Diag>{});
}

// A failing SQLDisconnect does not fail Disconnect: the identifier is free at once.
TEST(Transactions, DisconnectSucceedsWhateverTheDriverSays) {
  Db db;
  Server srv;
  srv.log_to_stderr();
  int id = srv.connect_ok(db.fault("SQLDisconnect:-1:S1000:9:disconnect refused"));
  EXPECT_EQ(srv.status("Disconnect", {Arg::integer(id)}), qz::kOk);
  EXPECT_TRUE(has_line(srv.log(), diag_line("disconnect refused", "S1000", "9"))) << srv.log();
  EXPECT_EQ(srv.connect_ok(db.sqlite()), id);
}

// ---- settings and version texts --------------------------------------------------------

TEST(Settings, LogFileDestinationsAndFlags) {
  Db db;
  odbc::TempDir dir;
  Server srv;
  const std::string file = dir.file("server.log");
  auto file_text = [&] {
    std::ifstream in(file);
    return std::string(std::istreambuf_iterator<char>(in), {});
  };
  int id = 0;
  const std::string too_long = db.sqlite() + ";Pad=" + std::string(1100, 'x');
  const std::regex too_long_line(
      "\\(\\s*\\d+\\) O1: connection\\.cpp\\(\\d+\\): ODBC "
      "connection string too long");

  EXPECT_EQ(srv.status("LogFile", {Arg::string(file)}), qz::kOk);
  EXPECT_EQ(srv.status("LogFlags", {Arg::string("O1")}), qz::kOk);
  EXPECT_NE(file_text().find("   Flags = [O1]\n"), std::string::npos) << file_text();
  EXPECT_EQ(srv.connect(too_long, id), qz::kBadArgument);
  EXPECT_TRUE(has_line(file_text(), too_long_line)) << file_text();

  // An unopenable file: the message goes to the destination still in force.
  const std::string bad = dir.file("missing/dir/x.log");
  EXPECT_EQ(srv.status("LogFile", {Arg::string(bad)}), qz::kLogFileOpen);
  EXPECT_TRUE(
      has_line(file_text(), std::regex("O1: odbc_dll\\.cpp\\(\\d+\\): Unable to open log "
                                       "file '" +
                                       bad + "': No such file or directory \\(errno=2\\)\n")))
      << file_text();

  // Flags cleared: nothing more is written.
  EXPECT_EQ(srv.status("LogFlags", {Arg::string("")}), qz::kOk);
  std::string before = file_text();
  EXPECT_EQ(srv.connect(too_long, id), qz::kBadArgument);
  EXPECT_EQ(file_text(), before);

  // "console" is standard error; a name that only begins with it is a file (in the
  // server's working directory, which is ours).
  EXPECT_EQ(srv.status("LogFile", {Arg::string("console")}), qz::kOk);
  EXPECT_EQ(srv.status("LogFlags", {Arg::string("O1")}), qz::kOk);
  EXPECT_EQ(srv.connect(too_long, id), qz::kBadArgument);
  EXPECT_TRUE(has_line(srv.log(), too_long_line)) << srv.log();
  const std::string console_file = "console-" + std::to_string(getpid()) + ".log";
  EXPECT_EQ(srv.status("LogFile", {Arg::string(console_file)}), qz::kOk);
  EXPECT_EQ(srv.connect(too_long, id), qz::kBadArgument);
  std::ifstream in(console_file);
  std::string text((std::istreambuf_iterator<char>(in)), {});
  EXPECT_TRUE(has_line(text, too_long_line)) << text;
  std::filesystem::remove(console_file);
}

TEST(Settings, DllDebugTracesCallsAndTextColumnSizesAreChecked) {
  Server srv;
  EXPECT_EQ(srv.status("DllDebug", {Arg::integer(1)}), qz::kOk);
  EXPECT_EQ(srv.status("Revision", {Arg::string_var("", 10)}), qz::kOk);
  EXPECT_NE(srv.log().find("calling Revision, argc = 1\nreturn code is 0\n"), std::string::npos)
      << srv.log();
  EXPECT_EQ(srv.status("DllDebug", {Arg::integer(0)}), qz::kOk);
  std::size_t before = srv.log().size();
  EXPECT_EQ(srv.status("Revision", {Arg::string_var("", 10)}), qz::kOk);
  EXPECT_EQ(srv.log().size(), before);

  struct Pair {
    int def, max, status;
  };
  for (Pair p : {Pair{1, 1, qz::kOk}, Pair{32767, 32767, qz::kOk}, Pair{100, 2000, qz::kOk},
                 Pair{0, 10, qz::kBadArgument}, Pair{10, 0, qz::kBadArgument},
                 Pair{20, 10, qz::kBadArgument}, Pair{10, 32768, qz::kBadArgument},
                 Pair{-1, 10, qz::kBadArgument}}) {
    EXPECT_EQ(srv.status("SetTextColumnSize", {Arg::integer(p.def), Arg::integer(p.max)}), p.status)
        << p.def << ", " << p.max;
  }
}

TEST(Settings, VersionTexts) {
  Server srv("QZ_SERVER_ODBC");
  auto text = [&](const char *fn, int capacity, const char *old = "") {
    int st = srv.status(fn, {Arg::string_var(old, capacity)});
    return std::pair<int, std::string>(st, srv.last.args[0].as_string());
  };
  EXPECT_EQ(text("Revision", 3), (std::pair<int, std::string>(0, "1.8")));
  EXPECT_EQ(text("Revision", 2, "ab"), (std::pair<int, std::string>(qz::kNoRoom, "ab")));
  const std::string version = "$Id: odbc_dll.cpp,v 27.1 2011/02/10 13:57:22 qzdev Exp $";
  EXPECT_EQ(text("VersionID", 100), (std::pair<int, std::string>(0, version)));
  EXPECT_EQ(text("VersionID", static_cast<int>(version.size()) - 1).first, qz::kNoRoom);
  auto [st, date] = text("BuildID", 11);
  EXPECT_EQ(st, 0);
  EXPECT_TRUE(std::regex_match(date, std::regex("(Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|"
                                                "Dec) [ 1-3][0-9] 20[0-9][0-9]")))
      << date;
  EXPECT_EQ(text("BuildID", 10, "x").first, qz::kNoRoom);
}

// ---- allocation failures ---------------------------------------------------------------

TEST(AllocationFailures, EveryFailingAllocationGivesStatus2AndLeaksNothing) {
  Db db;
  Server srv;
  int failures = 0;
  for (int n = 1; n <= 20; ++n) {
    ASSERT_EQ(srv.status("FailAlloc", {Arg::integer(n)}), 0);
    int id = 42;
    int st = srv.connect(db.sqlite(), id);
    ASSERT_EQ(srv.status("FailAlloc", {Arg::integer(0)}), 0);
    if (st == qz::kOk) {
      EXPECT_EQ(id, 1);
      break;
    }
    EXPECT_EQ(st, qz::kNoMemory) << "allocation " << n;
    EXPECT_EQ(id, 42);
    ++failures;
  }
  // The name's copy, the connection record, the completed connection string.
  EXPECT_EQ(failures, 3);
  const int option = SQL_OPT_TRACEFILE_OPT;
  failures = 0;
  for (int n = 1; n <= 20; ++n) {
    ASSERT_EQ(srv.status("FailAlloc", {Arg::integer(n)}), 0);
    int st = srv.status("SetConnectOption",
                        {Arg::integer(1), Arg::integer(option), Arg::string("/tmp/x.trace")});
    ASSERT_EQ(srv.status("FailAlloc", {Arg::integer(0)}), 0);
    if (st == qz::kOk) break;
    EXPECT_EQ(st, qz::kNoMemory) << "allocation " << n;
    ++failures;
  }
  EXPECT_EQ(failures, 2);  // the dispatcher's descriptor and the NUL-terminated copy
  srv.stop_cleanly();
}

TEST(AllocationFailures, DiagnosticsQueueWithoutMemoryStopsTheProcess) {
  Db db;
  Server srv;
  srv.log_to_stderr("O1");
  int id = srv.connect_ok(db.fault("SQLTransact:-1:S1000:7:commit refused"));
  ASSERT_EQ(srv.status("FailAlloc", {Arg::integer(1)}), 0);
  CallResult r = srv.s.call("Commit", {Arg::integer(id)});
  EXPECT_EQ(r.kind, CallResult::Kind::server_died) << r.error;
  EXPECT_EQ(srv.s.exit_info().signal, SIGABRT);
  EXPECT_TRUE(has_line(srv.log(), std::regex("O1: connection\\.cpp\\(\\d+\\): Memory allocation "
                                             "failed \\(15 bytes\\)\n")))
      << srv.log();
  EXPECT_NE(srv.log().find("Assertion `memory allocation failed' failed"), std::string::npos)
      << srv.log();
}

// ---- SIGTERM ---------------------------------------------------------------------------

long index_of(const std::vector<std::string> &calls, const std::string &fn) {
  auto it = std::find(calls.begin(), calls.end(), fn);
  return it == calls.end() ? -1 : it - calls.begin();
}

// Every statement and connection is released: a statement's handle is freed before its
// connection disconnects, and a connection whose identifier Disconnect freed stays open
// for its statement and closes with it. (The same on PostgreSQL, seen from the database's
// sessions, is a statement test.)
TEST(Shutdown, WhileWaitingEverythingIsReleased) {
  Db db;
  odbc::TempDir dir;
  const std::string ta = dir.file("a.trace"), tb = dir.file("b.trace"), tc = dir.file("c.trace");
  Server srv;
  int a = srv.connect_ok(db.fault("", ta));
  int b = srv.connect_ok(db.fault("", tb));
  srv.connect_ok(db.fault("", tc));
  ASSERT_EQ(srv.status("OpenStatement", {Arg::integer(a), Arg::int_var(0)}), 0);
  ASSERT_EQ(srv.status("OpenStatement", {Arg::integer(b), Arg::int_var(0)}), 0);
  EXPECT_EQ(srv.status("Disconnect", {Arg::integer(a)}), qz::kOk);
  EXPECT_EQ(index_of(odbc::trace_calls(ta), "SQLDisconnect"), -1)
      << "closed while its statement is open";
  srv.stop_cleanly();
  for (const std::string &t : {ta, tb}) {
    std::vector<std::string> calls = odbc::trace_calls(t);
    long freed = index_of(calls, "SQLFreeHandle"), closed = index_of(calls, "SQLDisconnect");
    EXPECT_GE(freed, 0) << testing::PrintToString(calls);
    EXPECT_GT(closed, freed) << testing::PrintToString(calls);
  }
  EXPECT_GE(index_of(odbc::trace_calls(tc), "SQLDisconnect"), 0)
      << testing::PrintToString(odbc::trace_calls(tc));
}

// SIGTERM while a Connect is blocked inside the driver (opening its trace file, a FIFO that
// nobody reads): the driver manager is mid-call, so nothing may be released; the process
// still ends with status 0, and the connection opened before is not disconnected.
TEST(Shutdown, DuringACallInsideTheDriverNothingIsReleased) {
  Db db;
  odbc::TempDir dir;
  const std::string ta = dir.file("a.trace"), fifo = dir.file("blocking.trace");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  Server srv;
  srv.connect_ok(db.fault("", ta));
  Arg args[] = {Arg::string(db.fault("", fifo)), Arg::int_var(0)};
  ASSERT_TRUE(srv.s.write_call("Connect", args));
  ASSERT_EQ(kill(srv.s.pid(), SIGUSR2), 0);
  // Give the call time to reach the driver; the outcome below does not depend on it.
  std::this_thread::sleep_for(300ms);
  ASSERT_EQ(kill(srv.s.pid(), SIGTERM), 0);
  ExitInfo e = srv.s.wait_exit(10s);
  EXPECT_TRUE(e.exited && e.code == 0) << e.describe() << "\n" << srv.log();
  EXPECT_EQ(index_of(odbc::trace_calls(ta), "SQLDisconnect"), -1)
      << testing::PrintToString(odbc::trace_calls(ta));
}

}  // namespace
