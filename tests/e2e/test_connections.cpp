// The ODBC server's connection functions as a process, through libqzclient: identifiers,
// connection strings, failed connects, the diagnostics queue read with GetError, options
// and transactions, the settings and version texts, allocation failures, and what SIGTERM
// releases. Real drivers: SQLite, PostgreSQL, the fault driver and the libodbc interposer.
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "stmt_server.hpp"

namespace {

using namespace qz::test::stmt;
using namespace std::chrono_literals;

constexpr int SQL_ACCESS_MODE_OPT = 101;  // connection option numbers of ODBC
constexpr int SQL_AUTOCOMMIT_OPT = 102;
constexpr int SQL_LOGIN_TIMEOUT_OPT = 103;
constexpr int SQL_OPT_TRACEFILE_OPT = 105;
const std::vector<Diag> kNone;  // an empty diagnostics queue

// ---- identifiers, connection strings, the table --------------------------------------

// (The i386 build's server, under the emulator from the x86-64 build, runs the connection
// functions in the qzcall script tests.)
TEST(Identifiers, LowestFreeFirstAndUnknownIdentifiersRefused) {
  Db db;
  Server srv;
  ASSERT_TRUE(srv.started() && srv.s.ping()) << srv.s.error() << srv.log();
  for (int expected : {1, 2, 3})
    EXPECT_EQ(srv.connect(db.sqlite()), expected);
  EXPECT_EQ(srv.call("Disconnect", {Arg::integer(2)}), qz::kOk);
  EXPECT_EQ(srv.connect(db.sqlite()), 2);
  EXPECT_EQ(srv.connect(db.sqlite()), 4);
  EXPECT_EQ(srv.call("Disconnect", {Arg::integer(3)}), qz::kOk);
  for (int unknown : {3, 0, -1, 5, 99}) {
    EXPECT_EQ(srv.call("Disconnect", {Arg::integer(unknown)}), qz::kBadArgument) << unknown;
    EXPECT_EQ(srv.call("GetConnection", {Arg::integer(unknown), Arg::string_var("", 9)}),
              qz::kBadArgument);
    EXPECT_EQ(srv.call("Commit", {Arg::integer(unknown)}), qz::kBadArgument);
    EXPECT_EQ(srv.call("Rollback", {Arg::integer(unknown)}), qz::kBadArgument);
    EXPECT_EQ(srv.call("SetAutocommit", {Arg::integer(unknown), Arg::integer(1)}),
              qz::kBadArgument);
    // The identifier is looked at before the argument count.
    EXPECT_EQ(srv.call("SetConnectOption", {Arg::integer(unknown), Arg::integer(1)}),
              qz::kBadArgument);
  }
  EXPECT_EQ(srv.errors(), kNone);
  // The product has exactly its 38 rows: a test row is unknown. Statements have their own
  // number space.
  EXPECT_EQ(srv.call("FailAlloc", {Arg::integer(1)}), 7);
  int stmt = 0;
  EXPECT_EQ(srv.prepare(4, "SELECT 1", stmt), qz::kOk);
  EXPECT_EQ(stmt, 1);
  EXPECT_EQ(srv.fetch(2), qz::kBadArgument);
  srv.stop_cleanly();
}

// The completed connection string: the connection string crosses as ISO 8859-1 and comes
// back as HP Roman-8 (a database named with Roman-8's e-acute 0xC5 is created under ISO
// 8859-1's 0xE9); a variable too small is left unchanged.
TEST(GetConnection, CharacterSetsAndVariableSize) {
  odbc::TempDir dir;
  Server srv(test_server());
  int id = srv.connect(odbc::sqlite_conn(dir.file("caf\xC5.db")));
  EXPECT_TRUE(std::filesystem::exists(dir.file("caf\xE9.db")));
  EXPECT_FALSE(std::filesystem::exists(dir.file("caf\xC5.db")));
  ASSERT_EQ(srv.call("GetConnection", {Arg::integer(id), Arg::string_var("", 1024)}), 0);
  const std::string spec = srv.last.args[1].as_string();
  EXPECT_NE(spec.find("Database=" + dir.file("caf\xC5.db")), std::string::npos) << spec;
  int n = static_cast<int>(spec.size());
  EXPECT_EQ(srv.call("GetConnection", {Arg::integer(id), Arg::string_var("", n)}), 0);
  EXPECT_EQ(srv.last.args[1].as_string(), spec);
  EXPECT_EQ(srv.call("GetConnection", {Arg::integer(id), Arg::string_var("old", n - 1)}),
            qz::kNoRoom);
  EXPECT_EQ(srv.last.args[1].as_string(), "old");
}

TEST(ConnectionString, LongestAcceptedIs1023Bytes) {
  Db db;
  Server srv(test_server());
  srv.log_to_stderr("O1");
  // SQLite ignores an attribute it does not know: the padding only adds length.
  std::string base = db.sqlite() + ";Pad=";
  std::string ok = base + std::string(1023 - base.size(), 'x');
  EXPECT_EQ(srv.connect(ok), 1);
  int id = 55;
  EXPECT_EQ(srv.connect(ok + "x", id), qz::kBadArgument);
  EXPECT_EQ(id, 55);
  EXPECT_TRUE(has_line(srv.log(),
                       "O1: connection\\.cpp\\(\\d+\\): ODBC connection string too "
                       "long \\(maximum is 1023 bytes\\)\n"))
      << srv.log();
  EXPECT_EQ(srv.errors(), kNone);
  EXPECT_EQ(srv.connect(db.sqlite()), 2);
}

// ---- failed connects -------------------------------------------------------------------

// The driver's diagnostics are logged, not queued (freeing the handles of the failed
// connection reported again and emptied the queue), and the variable is left alone.
TEST(FailedConnect, DiagnosticsAreLoggedNotQueuedAndNothingIsRegistered) {
  Db db;
  struct Case {
    std::string spec, logged;
  };
  std::vector<Case> cases{
      {"Driver={No Such Driver};Database=" + db.file,
       diag_line("[unixODBC][Driver Manager]Can't open lib 'No Such Driver' : file not found",
                 "01000", "0")},
      {db.fault("SQLDriverConnect:-1:28000:7:login refused"),
       diag_line("login refused", "28000", "7")}};
  if (odbc::pg_available())  // the server's text ends in a line break of its own
    cases.push_back({odbc::pg_conn("Username=nobody"),
                     "O2: connection\\.cpp\\(\\d+\\): [^\n]*role \"nobody\" does not exist\n "
                     "SQLState=08001 \\[101\\]\n"});
  Server srv(test_server());
  srv.log_to_stderr();
  for (const Case &c : cases) {
    int id = 77;
    EXPECT_EQ(srv.connect(c.spec, id), qz::kConnectFailed) << c.spec;
    EXPECT_EQ(id, 77);
    EXPECT_TRUE(has_line(srv.log(), c.logged)) << srv.log();
    EXPECT_EQ(srv.errors(), kNone);
  }
  EXPECT_EQ(srv.connect(db.sqlite()), 1);
}

// A failed SQLAllocEnv leaves nothing to read; the record of a failed SQLAllocConnect is on
// the environment, which is then freed: the record stays queued.
TEST(FailedConnect, HandleAllocationFailures) {
  Db db;
  const std::pair<const char *, std::vector<Diag>> cases[] = {
      {"SQLAllocEnv:-1", kNone},
      {"SQLAllocConnect:-1:S1001:0:Memory allocation failure",
       {{"Memory allocation failure", "S1001", 0}}}};
  for (const auto &[rules, diags] : cases) {
    Server srv(interposed(rules));
    int id = 3;
    EXPECT_EQ(srv.connect(db.sqlite(), id), qz::kHandleAlloc) << rules;
    EXPECT_EQ(id, 3);
    EXPECT_EQ(srv.errors(), diags);
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
    Server srv(test_server());
    int conn = srv.connect(c.spec);
    ASSERT_EQ(srv.call("OpenStatement", {Arg::integer(conn), Arg::int_var(0)}), 0);
    const int stmt = srv.last.args[1].as_int();
    EXPECT_EQ(stmt, 1);
    EXPECT_EQ(srv.call("ThreeLevelError", {Arg::integer(stmt), Arg::string("SELEC 1")}), -1);
    std::vector<Diag> got = srv.errors();
    ASSERT_EQ(got.size(), 3u) << testing::PrintToString(got);
    if (c.stmt_diag.message.empty()) {  // the server's text is long; its start is enough
      EXPECT_EQ(got[0].message.rfind("ERROR: syntax error at or near \"SELEC\"", 0), 0u) << got[0];
      got[0].message.clear();
    }
    EXPECT_EQ(got, (std::vector<Diag>{c.stmt_diag, c.conn_diag, env_diag}));
    EXPECT_EQ(srv.errors(), kNone);  // no data again, not the records again

    // A record that does not fit is consumed all the same.
    srv.call("ThreeLevelError", {Arg::integer(stmt), Arg::string("SELEC 1")});
    for (auto [msg_room, state_room] : {std::pair{5, 10}, std::pair{300, 4}})
      EXPECT_EQ(
          srv.call("GetError", {Arg::string_var("", msg_room), Arg::string_var("", state_room),
                                Arg::int_var(0), Arg::int_var(0)}),
          qz::kNoRoom);
    EXPECT_EQ(srv.last.args[0].as_string(), c.conn_diag.message);  // written before the state
    EXPECT_EQ(srv.errors(), std::vector<Diag>{env_diag});
    srv.stop_cleanly();
  }
}

// SQLError failing while the records are read: the bridge's own record ends them, and an
// informational return whose records cannot be read fails the call.
TEST(GetError, FailingSQLErrorEndsTheRecordsWithTheBridgesOwn) {
  Db db;
  const std::string refused = db.fault("SQLTransact:-1:S1000:7:commit refused");
  const std::string info = db.fault("SQLTransact:SUCCESS_WITH_INFO:01000:3:committed with info");
  const Diag failed{"ODBC operation failed", "00000", -1};
  struct Case {
    std::string interpose, spec;
    const char *fn;
    int status;
    std::vector<Diag> diags;
  } cases[] = {
      {"SQLError:-1", refused, "Commit", qz::kOdbcFailed, {failed}},
      {"SQLError:INVALID_HANDLE",
       refused,
       "Rollback",
       qz::kOdbcFailed,
       {{"The handle is invalid", "00000", -1}}},
      {"SQLError@2:-1",
       refused,
       "Commit",
       qz::kOdbcFailed,
       {{"commit refused", "S1000", 7}, failed}},
      {"", info, "Commit", qz::kOk, {{"committed with info", "01000", 3}}},
      {"SQLError@2:-1",
       info,
       "Commit",
       qz::kOdbcFailed,
       {{"committed with info", "01000", 3}, failed}},
  };
  for (const Case &c : cases) {
    Server srv(c.interpose.empty() ? test_server() : interposed(c.interpose));
    srv.log_to_stderr();
    int id = srv.connect(c.spec);
    EXPECT_EQ(srv.call(c.fn, {Arg::integer(id)}), c.status) << c.interpose;
    EXPECT_EQ(srv.errors(), c.diags) << c.interpose;
    if (c.diags.back() == failed) {
      EXPECT_TRUE(has_line(srv.log(), "O1: connection\\.cpp\\(\\d+\\): ODBC operation failed\n"))
          << srv.log();
    }
  }
}

// ---- options and transactions ----------------------------------------------------------

TEST(SetConnectOption, ArgumentRules) {
  Db db;
  Server srv(test_server());
  int id = srv.connect(db.sqlite());
  auto set = [&](std::vector<Arg> value, int option = SQL_AUTOCOMMIT_OPT) {
    value.insert(value.begin(), {Arg::integer(id), Arg::integer(option)});
    return srv.call("SetConnectOption", value);
  };
  auto get = [&] { return srv.value("GetConnectOption", id, SQL_AUTOCOMMIT_OPT); };
  EXPECT_EQ(set({}), qz::kArgCount);
  EXPECT_EQ(set({Arg::integer(0), Arg::integer(0)}), qz::kArgCount);
  EXPECT_EQ(set({Arg::int_array({0, 1})}), qz::kBadArgument);
  EXPECT_EQ(set({Arg::real_array(std::vector<double>{0.0, 1.0})}), qz::kBadArgument);
  EXPECT_EQ(set({Arg::string_array({"a", "b"}, 4)}), qz::kBadArgument);
  EXPECT_EQ(get(), 1);  // none of these reached the driver
  // Reals are truncated toward zero: 0.9 switches autocommit off, 1.9 on again;
  // SetAutocommit passes 1 for any non-zero mode.
  const std::pair<std::vector<Arg>, int> values[] = {
      {{Arg::real(0.9)}, 0}, {{Arg::real(1.9)}, 1}, {{Arg::int_var(0)}, 0}};
  for (const auto &[value, expected] : values) {
    EXPECT_EQ(set(value), qz::kOk);
    EXPECT_EQ(get(), expected);
  }
  for (int mode : {5, 0}) {
    EXPECT_EQ(srv.call("SetAutocommit", {Arg::integer(id), Arg::integer(mode)}), qz::kOk);
    EXPECT_EQ(get(), mode ? 1 : 0);
  }
  // A string value arrives as NUL-terminated text: the driver manager keeps the trace
  // file name it is given and hands it back.
  std::string trace = db.dir.file("dm-trace.log");
  EXPECT_EQ(set({Arg::string_var(trace, 300)}, SQL_OPT_TRACEFILE_OPT), qz::kOk);
  EXPECT_EQ(srv.call("GetConnectOptionText", {Arg::integer(id), Arg::integer(SQL_OPT_TRACEFILE_OPT),
                                              Arg::string_var("", 300)}),
            0);
  EXPECT_EQ(srv.last.args[2].as_string(), trace);
}

TEST(SetConnectOption, PostgresKeepsTheTruncatedRealValue) {
  if (!odbc::pg_available()) GTEST_SKIP() << "no PostgreSQL in this build";
  Server srv(test_server());
  int id = srv.connect(odbc::pg_conn());
  EXPECT_EQ(srv.call("SetConnectOption",
                     {Arg::integer(id), Arg::integer(SQL_LOGIN_TIMEOUT_OPT), Arg::real(2.9)}),
            qz::kOk);
  EXPECT_EQ(srv.value("GetConnectOption", id, SQL_LOGIN_TIMEOUT_OPT), 2);
  srv.stop_cleanly();
}

TEST(Transactions, InjectedFailuresGive1111WithTheDriversRecord) {
  Db db;
  Server srv(test_server());
  srv.log_to_stderr();
  int plain = srv.connect(db.sqlite());
  // Only the first SQLTransact of that connection fails.
  int faulty = srv.connect(db.fault(
      "SQLTransact@1:-1:S1000:11:commit refused;SQLSetConnectOption:-1:S1000:12:option refused"));
  EXPECT_EQ(srv.call("Commit", {Arg::integer(faulty)}), qz::kOdbcFailed);
  EXPECT_EQ(srv.errors(), (std::vector<Diag>{{"commit refused", "S1000", 11}}));
  EXPECT_TRUE(has_line(srv.log(), diag_line("commit refused", "S1000", "11"))) << srv.log();
  EXPECT_EQ(srv.call("Rollback", {Arg::integer(faulty)}), qz::kOk);
  EXPECT_EQ(srv.call("SetAutocommit", {Arg::integer(faulty), Arg::integer(0)}), qz::kOdbcFailed);
  EXPECT_EQ(srv.errors(), (std::vector<Diag>{{"option refused", "S1000", 12}}));
  EXPECT_EQ(srv.call("SetConnectOption",
                     {Arg::integer(faulty), Arg::integer(SQL_ACCESS_MODE_OPT), Arg::integer(0)}),
            qz::kOdbcFailed);
  // A later successful report empties the queue.
  EXPECT_EQ(srv.call("Commit", {Arg::integer(plain)}), qz::kOk);
  EXPECT_EQ(srv.errors(), kNone);
  // A failing SQLDisconnect does not fail Disconnect: the identifier is free at once.
  int closing = srv.connect(db.fault("SQLDisconnect:-1:S1000:9:disconnect refused"));
  EXPECT_EQ(srv.call("Disconnect", {Arg::integer(closing)}), qz::kOk);
  EXPECT_TRUE(has_line(srv.log(), diag_line("disconnect refused", "S1000", "9"))) << srv.log();
  EXPECT_EQ(srv.connect(db.sqlite()), closing);
}

// ---- settings and version texts --------------------------------------------------------

TEST(Settings, LogFileDestinationsAndFlags) {
  Db db;
  Server srv(test_server());
  auto text_of = [](const std::string &file) {
    std::ifstream in(file);
    return std::string(std::istreambuf_iterator<char>(in), {});
  };
  const std::string file = db.dir.file("server.log");
  int id = 0;
  auto too_long = [&] {
    EXPECT_EQ(srv.connect(db.sqlite() + ";Pad=" + std::string(1100, 'x'), id), qz::kBadArgument);
  };
  const std::string too_long_line =
      "\\(\\s*\\d+\\) O1: connection\\.cpp\\(\\d+\\): ODBC connection string too long";

  EXPECT_EQ(srv.call("LogFile", {Arg::string(file)}), qz::kOk);
  EXPECT_EQ(srv.call("LogFlags", {Arg::string("O1")}), qz::kOk);
  EXPECT_NE(text_of(file).find("   Flags = [O1]\n"), std::string::npos) << text_of(file);
  too_long();
  EXPECT_TRUE(has_line(text_of(file), too_long_line)) << text_of(file);

  // An unopenable file: the message goes to the destination still in force.
  const std::string bad = db.dir.file("missing/dir/x.log");
  EXPECT_EQ(srv.call("LogFile", {Arg::string(bad)}), qz::kLogFileOpen);
  EXPECT_TRUE(has_line(text_of(file), "O1: odbc_dll\\.cpp\\(\\d+\\): Unable to open log file '" +
                                          bad + "': No such file or directory \\(errno=2\\)\n"))
      << text_of(file);

  // Flags cleared: nothing more is written.
  EXPECT_EQ(srv.call("LogFlags", {Arg::string("")}), qz::kOk);
  std::string before = text_of(file);
  too_long();
  EXPECT_EQ(text_of(file), before);

  // "console" is standard error; a name that only begins with it is a file (in the
  // server's working directory, which is ours).
  srv.log_to_stderr("O1");
  too_long();
  EXPECT_TRUE(has_line(srv.log(), too_long_line)) << srv.log();
  const std::string console_file = "console-" + std::to_string(getpid()) + ".log";
  EXPECT_EQ(srv.call("LogFile", {Arg::string(console_file)}), qz::kOk);
  too_long();
  EXPECT_TRUE(has_line(text_of(console_file), too_long_line)) << text_of(console_file);
  std::filesystem::remove(console_file);
}

TEST(Settings, DllDebugTracesCallsAndTextColumnSizesAreChecked) {
  Server srv(test_server());
  EXPECT_EQ(srv.call("DllDebug", {Arg::integer(1)}), qz::kOk);
  EXPECT_EQ(srv.call("Revision", {Arg::string_var("", 10)}), qz::kOk);
  EXPECT_NE(srv.log().find("calling Revision, argc = 1\nreturn code is 0\n"), std::string::npos)
      << srv.log();
  EXPECT_EQ(srv.call("DllDebug", {Arg::integer(0)}), qz::kOk);
  std::size_t before = srv.log().size();
  EXPECT_EQ(srv.call("Revision", {Arg::string_var("", 10)}), qz::kOk);
  EXPECT_EQ(srv.log().size(), before);

  const int pairs[][3] = {{1, 1, qz::kOk},
                          {32767, 32767, qz::kOk},
                          {100, 2000, qz::kOk},
                          {0, 10, qz::kBadArgument},
                          {10, 0, qz::kBadArgument},
                          {20, 10, qz::kBadArgument},
                          {10, 32768, qz::kBadArgument},
                          {-1, 10, qz::kBadArgument}};
  for (const auto &[def, max, status] : pairs)
    EXPECT_EQ(srv.call("SetTextColumnSize", {Arg::integer(def), Arg::integer(max)}), status)
        << def << ", " << max;
}

// The texts themselves, Revision's and VersionID's 18 with the variable unchanged, are in
// the qzcall script tests; here the boundaries.
TEST(Settings, VersionTexts) {
  Server srv;
  const std::string version = "$Id: odbc_dll.cpp,v 27.1 2011/02/10 13:57:22 qzdev Exp $";
  const int n = static_cast<int>(version.size());
  EXPECT_EQ(srv.call("VersionID", {Arg::string_var("", n)}), qz::kOk);
  EXPECT_EQ(srv.last.args[0].as_string(), version);
  EXPECT_EQ(srv.call("VersionID", {Arg::string_var("x", n - 1)}), qz::kNoRoom);
  EXPECT_EQ(srv.last.args[0].as_string(), "x");
  EXPECT_EQ(srv.call("BuildID", {Arg::string_var("", 11)}), qz::kOk);
  EXPECT_TRUE(std::regex_match(
      srv.last.args[0].as_string(),
      std::regex("(Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) [ 1-3][0-9] 20[0-9]{2}")))
      << srv.last.args[0].as_string();
  EXPECT_EQ(srv.call("BuildID", {Arg::string_var("x", 10)}), qz::kNoRoom);
}

// ---- allocation failures ---------------------------------------------------------------

TEST(AllocationFailures, EveryFailingAllocationGivesStatus2AndLeaksNothing) {
  Db db;
  Server srv(test_server());
  // The name's copy, the connection record, the completed connection string.
  EXPECT_EQ(srv.failing_allocations([&] {
    int id = 42;
    int st = srv.connect(db.sqlite(), id);
    EXPECT_EQ(id, st == qz::kOk ? 1 : 42);
    return st;
  }),
            3);
  // The dispatcher's descriptor and the NUL-terminated copy.
  EXPECT_EQ(srv.failing_allocations([&] {
    return srv.call("SetConnectOption", {Arg::integer(1), Arg::integer(SQL_OPT_TRACEFILE_OPT),
                                         Arg::string("/tmp/x.trace")});
  }),
            2);
  srv.stop_cleanly();
}

TEST(AllocationFailures, DiagnosticsQueueWithoutMemoryStopsTheProcess) {
  Db db;
  Server srv(test_server());
  srv.log_to_stderr("O1");
  int id = srv.connect(db.fault("SQLTransact:-1:S1000:7:commit refused"));
  ASSERT_EQ(srv.call("FailAlloc", {Arg::integer(1)}), 0);
  CallResult r = srv.s.call("Commit", {Arg::integer(id)});
  EXPECT_EQ(r.kind, CallResult::Kind::server_died) << r.error;
  EXPECT_EQ(srv.s.exit_info().signal, SIGABRT);
  EXPECT_TRUE(has_line(srv.log(),
                       "O1: connection\\.cpp\\(\\d+\\): Memory allocation failed "
                       "\\(15 bytes\\)\n"))
      << srv.log();
  EXPECT_NE(srv.log().find("Assertion `memory allocation failed' failed"), std::string::npos)
      << srv.log();
}

// ---- SIGTERM ---------------------------------------------------------------------------

long index_of(const std::string &trace, const std::string &fn) {
  std::vector<std::string> calls = odbc::trace_calls(trace);
  auto it = std::find(calls.begin(), calls.end(), fn);
  return it == calls.end() ? -1 : it - calls.begin();
}

// Every statement and connection is released: a statement's handle is freed before its
// connection disconnects, and a connection whose identifier Disconnect freed stays open
// for its statement and closes with it. (The same on PostgreSQL, seen from the database's
// sessions, is a statement test.)
TEST(Shutdown, WhileWaitingEverythingIsReleased) {
  Db db;
  const std::string ta = db.dir.file("a.trace"), tb = db.dir.file("b.trace"),
                    tc = db.dir.file("c.trace");
  Server srv(test_server());
  int a = srv.connect(db.fault("", ta));
  int b = srv.connect(db.fault("", tb));
  srv.connect(db.fault("", tc));
  ASSERT_EQ(srv.call("OpenStatement", {Arg::integer(a), Arg::int_var(0)}), 0);
  ASSERT_EQ(srv.call("OpenStatement", {Arg::integer(b), Arg::int_var(0)}), 0);
  EXPECT_EQ(srv.call("Disconnect", {Arg::integer(a)}), qz::kOk);
  EXPECT_EQ(index_of(ta, "SQLDisconnect"), -1) << "closed while its statement is open";
  srv.stop_cleanly();
  for (const std::string &t : {ta, tb}) {
    EXPECT_GE(index_of(t, "SQLFreeHandle"), 0) << t;
    EXPECT_GT(index_of(t, "SQLDisconnect"), index_of(t, "SQLFreeHandle")) << t;
  }
  EXPECT_GE(index_of(tc, "SQLDisconnect"), 0);
}

// SIGTERM while a Connect is blocked inside the driver (opening its trace file, a FIFO that
// nobody reads): the driver manager is mid-call, so nothing may be released; the process
// still ends with status 0, and the connection opened before is not disconnected.
TEST(Shutdown, DuringACallInsideTheDriverNothingIsReleased) {
  Db db;
  const std::string ta = db.dir.file("a.trace"), fifo = db.dir.file("blocking.trace");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  Server srv(test_server());
  srv.connect(db.fault("", ta));
  Arg args[] = {Arg::string(db.fault("", fifo)), Arg::int_var(0)};
  ASSERT_TRUE(srv.s.write_call("Connect", args));
  ASSERT_EQ(kill(srv.s.pid(), SIGUSR2), 0);
  // Give the call time to reach the driver; the outcome below does not depend on it.
  std::this_thread::sleep_for(300ms);
  ASSERT_EQ(kill(srv.s.pid(), SIGTERM), 0);
  ExitInfo e = srv.s.wait_exit(10s);
  EXPECT_TRUE(e.exited && e.code == 0) << e.describe() << "\n" << srv.log();
  EXPECT_EQ(index_of(ta, "SQLDisconnect"), -1);
}

}  // namespace
