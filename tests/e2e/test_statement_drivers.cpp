// The statement functions where one driver alone can express a case: typed parameters and
// the NUMERIC rules on PostgreSQL (the SQLite driver describes every parameter as
// LONGVARCHAR, NUMERIC columns as DOUBLE and DECIMAL ones as VARCHAR); the fault driver
// for work-arounds and failures no real driver produces; and SIGTERM with PostgreSQL
// sessions open or a statement running in the database.
#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>
#include <thread>

#include "stmt_server.hpp"

namespace {

using namespace qz::test::stmt;
using namespace std::chrono_literals;

int count_of(const std::string &text, const std::string &what) {
  int n = 0;
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
    ++n;
  return n;
}

// ---- PostgreSQL: typed parameters and the NUMERIC rules ----------------------------

class Postgres : public BackendTest {};

TEST_P(Postgres, TypedParametersConvertAndValidate) {
  Server srv;
  int conn = srv.connect(spec());
  const std::string t = table("typed");
  srv.run(conn, "CREATE TABLE " + t + " (k INTEGER, i INTEGER, d DATE, tm TIME, ts TIMESTAMP)");
  int ins = srv.prepared(conn, "INSERT INTO " + t + " VALUES (?, ?, ?, ?, ?)");
  const int types[] = {2, 2, 4, 5, 6};
  for (int p = 1; p <= 5; ++p)
    EXPECT_EQ(srv.value("GetParamType", ins, p), types[p - 1]) << p;
  // One row per accepted value, k numbering them in order; nothing for a refused one.
  // Dates: 2000 is a leap year, 2019 and 1900 are not.
  auto S = [](const char *text) { return Arg::string(text); };
  auto I = [](int value) { return Arg::integer(value); };
  const struct {
    int par;                             // parameter number
    std::vector<Arg> accepted, refused;  // values
  } cases[] = {{2, {S("42"), Arg::real(3.99)}, {S("42 "), S("4x"), S("1234567890123456")}},
               {3,
                {S("20190213"), S("2019-02-13"), S("02/13/2019"), S("13.02.2019"), S("19-2-13"),
                 I(20000229)},
                {S("2019-02-13x"), S("2019-02"), I(20190229), I(19000229), S("2019-04-31")}},
               {4, {S("081500"), S("08:15"), S("08:15:00"), I(235959)}, {S("24:00"), S("23:60")}},
               {5,
                {S("2019-02-13 08:15:00"), S("20190213 081500"), S("2019-02-13"), I(86400)},
                {S("2019-02-13 08:15:00.5")}}};
  int k = 0;
  for (const auto &c : cases) {
    for (std::size_t n = 0; n < c.refused.size(); ++n)
      EXPECT_EQ(srv.set_param(ins, {I(c.par), c.refused[n]}), qz::kBadArgument)
          << "parameter " << c.par << ", refused value " << n;
    for (const Arg &value : c.accepted) {
      for (int p = 2; p <= 5; ++p)
        ASSERT_EQ(srv.set_param(ins, {I(p)}), qz::kOk);
      EXPECT_EQ(srv.set_param(ins, {I(c.par), value}), qz::kOk) << "k " << k + 1;
      ASSERT_EQ(srv.set_param(ins, {I(1), I(++k)}), 0);
      ASSERT_EQ(srv.execute(ins), qz::kOk) << "k " << k;
    }
  }
  EXPECT_EQ(stored("SELECT k, i, d, tm, ts FROM " + t + " ORDER BY k"),
            "1|42|||\n2|3|||\n"
            "3||2019-02-13||\n4||2019-02-13||\n5||2019-02-13||\n6||2019-02-13||\n"
            "7||1919-02-13||\n8||2000-02-29||\n"
            "9|||08:15:00|\n10|||08:15:00|\n11|||08:15:00|\n12|||23:59:59|\n"
            "13||||2019-02-13 08:15:00\n14||||2019-02-13 08:15:00\n"
            "15||||2019-02-13 00:00:00\n16||||1970-01-02 00:00:00\n");
  srv.stop_cleanly();
}

// Seconds since 1970 are UTC whatever the server's time zone.
TEST_P(Postgres, TimestampFromSecondsIgnoresTheTimeZone) {
  const std::string t = table("tz");
  int k = 0;
  for (const char *tz : {"TZ=America/New_York", "TZ=Asia/Tokyo"}) {
    Server srv(server_options({"/usr/bin/env", tz}));
    int conn = srv.connect(spec());
    if (k == 0) srv.run(conn, "CREATE TABLE " + t + " (k INTEGER, ts TIMESTAMP)");
    int ins = srv.prepared(conn, "INSERT INTO " + t + " VALUES (?, ?)");
    EXPECT_EQ(srv.execute(ins, {Arg::integer(++k), Arg::integer(0)}), qz::kOk) << tz;
    srv.stop_cleanly();
  }
  EXPECT_EQ(stored("SELECT k, ts FROM " + t + " ORDER BY k"),
            "1|1970-01-01 00:00:00\n2|1970-01-01 00:00:00\n");
}

TEST_P(Postgres, NumericColumnsBindByPrecisionAndScale) {
  Server srv;
  int conn = srv.connect(spec());
  int stmt = 0;
  ASSERT_EQ(srv.direct(conn,
                       "SELECT CAST(123456789 AS NUMERIC(9, 0)), CAST(1234567890 AS NUMERIC(10, "
                       "0)), CAST(1234567.89 AS NUMERIC(9, 2)), CAST(123.45 AS NUMERIC(15, 2)), "
                       "CAST(-1.5 AS DECIMAL(14, 4)), CAST(1 AS NUMERIC(15, 0))",
                       stmt),
            qz::kOk);
  struct Expect {
    int type, precision, scale;
    std::string text;
  };
  const Expect expect[] = {{2, 9, 0, "123456789"},  {3, 10, 0, "1234567890"},
                           {3, 9, 2, "1234567.89"}, {1, 15, 2, "123.45"},
                           {3, 14, 4, "-1.5"},      {1, 15, 0, "1"}};
  ASSERT_EQ(srv.fetch(stmt), qz::kOk);
  for (int col = 1; col <= 6; ++col) {
    const Expect &e = expect[col - 1];
    EXPECT_EQ(srv.value("GetColumnType", stmt, col), e.type) << col;
    EXPECT_EQ(srv.value("GetColumnPrecision", stmt, col), e.precision) << col;
    EXPECT_EQ(srv.value("GetColumnScale", stmt, col), e.scale) << col;
    EXPECT_EQ(srv.text(stmt, col), e.text) << col;
  }
  srv.stop_cleanly();
}

INSTANTIATE_TEST_SUITE_P(Drivers, Postgres, ::testing::Values(Backend{"postgres", Kind::postgres}),
                         backend_name);

// ---- the fault driver ----------------------------------------------------------------

// A driver that cannot describe parameters: worked around once per connection, and the
// first value set decides a parameter's type for good.
TEST(FaultDriver, UndescribedParametersTakeTheTypeOfTheirFirstValue) {
  Db db;
  Server srv;
  srv.log_to_stderr();
  int conn = srv.connect(db.traced("SQLDescribeParam@1..:unsupported"));
  srv.run(conn, "CREATE TABLE t (k INTEGER, a, b, c)");
  const std::string sql = "INSERT INTO t VALUES (?, ?, ?, ?)";
  int ins = srv.prepared(conn, sql);
  const std::string workaround = "working around unsupported SQLDescribeParam() function";
  EXPECT_EQ(count_of(srv.log(), workaround), 1) << srv.log();
  EXPECT_EQ(db.calls("SQLDescribeParam"), 1);
  // Nothing is known of a parameter before its first value.
  for (const char *fn : {"GetParamType", "GetParamPrecision", "GetParamScale", "GetParamNullable"})
    EXPECT_EQ(srv.value(fn, ins, 2), 0) << fn;
  EXPECT_EQ(srv.set_param(ins, {Arg::integer(2), Arg::integer(5)}), 0);
  EXPECT_EQ(srv.value("GetParamType", ins, 2), 2);
  EXPECT_EQ(srv.value("GetParamPrecision", ins, 2), 10);
  // From now on a text is read as an integer, and must be one of at most 15 characters.
  EXPECT_EQ(srv.set_param(ins, {Arg::integer(2), Arg::string("1234567890123456")}),
            qz::kBadArgument);
  EXPECT_EQ(srv.set_param(ins, {Arg::integer(2), Arg::string("12")}), 0);
  // A real first: a double; a text first: text of up to 1024 characters.
  EXPECT_EQ(srv.set_param(ins, {Arg::integer(3), Arg::real(3.99)}), 0);
  EXPECT_EQ(srv.set_param(ins, {Arg::integer(4), Arg::string(std::string(1025, 'x'))}),
            qz::kNoRoom);
  EXPECT_EQ(srv.value("GetParamType", ins, 4),
            1);  // bound by the refused value, which left it NULL
  EXPECT_EQ(srv.set_param(ins, {Arg::integer(4), Arg::string(std::string(1024, 'x'))}), 0);
  EXPECT_EQ(srv.set_param(ins, {Arg::integer(1), Arg::real(1.0)}), 0);
  EXPECT_EQ(srv.execute(ins), qz::kOk);
  // Never set: NULL text. Later statements do not ask the driver again.
  int ins2 = srv.prepared(conn, sql);
  EXPECT_EQ(srv.execute(ins2, {Arg::integer(2)}), qz::kOk);
  EXPECT_EQ(count_of(srv.log(), workaround), 1);
  EXPECT_EQ(db.calls("SQLDescribeParam"), 1);
  EXPECT_EQ(db.rows("SELECT k, typeof(a), a, typeof(b), b, length(c) FROM t ORDER BY k"),
            "1|integer|12|real|3.99|1024\n2|null|None|null|None|None\n");
  srv.stop_cleanly();
}

// A driver that refuses SQLBindParameter: worked around once per connection with
// SQLSetParam, which every later binding of the connection uses at once.
TEST(FaultDriver, BindingFallsBackToSQLSetParam) {
  Db db;
  Server srv;
  srv.log_to_stderr();
  int conn = srv.connect(db.traced("SQLBindParameter@1..:unsupported"));
  srv.run(conn, "CREATE TABLE t (k INTEGER, s TEXT)");
  int ins = srv.prepared(conn, "INSERT INTO t VALUES (?, ?)");
  EXPECT_EQ(srv.execute(ins, {Arg::integer(1), Arg::string("one")}), qz::kOk);
  int ins2 = srv.prepared(conn, "INSERT INTO t VALUES (?, ?)");
  EXPECT_EQ(srv.execute(ins2, {Arg::integer(2), Arg::string("two")}), qz::kOk);
  EXPECT_EQ(count_of(srv.log(), "working around unsupported SQLBindParameter() function"), 1)
      << srv.log();
  EXPECT_EQ(db.calls("SQLBindParameter"), 1);
  EXPECT_EQ(db.calls("SQLSetParam"), 4);
  EXPECT_EQ(db.rows("SELECT k, s FROM t ORDER BY k"), "1|one\n2|two\n");
  // Another connection is asked again.
  int other = srv.connect(db.traced(""));
  int ins3 = srv.prepared(other, "INSERT INTO t VALUES (?, ?)");
  EXPECT_EQ(srv.execute(ins3, {Arg::integer(3), Arg::string("three")}), qz::kOk);
  EXPECT_EQ(count_of(srv.log(), "working around unsupported SQLBindParameter() function"), 1);
  srv.stop_cleanly();
}

// Failures of the calls that describe, bind, execute and fetch.
TEST(FaultDriver, FailuresOfTheDriverGiveTheirStatuses) {
  Db db;
  Server srv;
  int setup = srv.connect(db.traced(""));
  srv.run(setup, "CREATE TABLE t (k INTEGER)");
  srv.run(setup, "INSERT INTO t VALUES (1)");
  srv.run(setup, "INSERT INTO t VALUES (2)");
  const std::vector<std::string> injected{"S1000"};
  // Describing the result of Prepare, or binding that of ExecDirect, fails: the statement
  // is gone.
  for (auto [fault, fn] :
       {std::pair{"SQLNumResultCols", "Prepare"}, {"SQLBindCol", "ExecDirect"}}) {
    int conn = srv.connect(db.traced(fault + std::string(":-1:HY000:5:refused")));
    int id = 3;
    EXPECT_EQ(srv.make(fn, conn, {"SELECT k FROM t"}, id), qz::kOdbcFailed) << fault;
    EXPECT_EQ(id, 0);
    EXPECT_EQ(srv.states(), injected);
  }
  {
    int conn = srv.connect(db.traced("SQLExecute@1:-1:HY000:5:not now"));
    int stmt = srv.prepared(conn, "SELECT k FROM t ORDER BY k");
    EXPECT_EQ(srv.execute(stmt), qz::kExecuteFailed);
    EXPECT_EQ(srv.states(), injected);
    // Still prepared: the next execution runs.
    EXPECT_EQ(srv.execute(stmt), qz::kOk);
    EXPECT_EQ(srv.fetch(stmt), qz::kOk);
    EXPECT_EQ(srv.text(stmt, 1), "1");
  }
  {
    int conn = srv.connect(db.traced("SQLFetch@2:-1:HY000:5:lost the row"));
    int stmt = 0;
    ASSERT_EQ(srv.direct(conn, "SELECT k FROM t ORDER BY k", stmt), qz::kOk);
    int row = 0;
    EXPECT_EQ(srv.fetch(stmt, &row), qz::kOk);
    EXPECT_EQ(srv.fetch(stmt, &row), qz::kFetchFailed);
    EXPECT_EQ(row, -7);  // not written
    EXPECT_EQ(srv.errors().at(0).message, "lost the row");
    // The statement has been emptied: it has no result any more.
    EXPECT_EQ(srv.fetch(stmt, &row), qz::kNoResult);
    std::string text;
    EXPECT_EQ(srv.get_string(stmt, 1, &text), qz::kNotReady);
    EXPECT_EQ(srv.drop(stmt), qz::kOk);
  }
  srv.stop_cleanly();
}

// Every allocation of the statement path failing in turn: status 2 each time, no
// statement left behind, nothing leaked (the sanitizer build checks that at exit), and
// the next attempt succeeds.
TEST(AllocationFailures, EveryFailingAllocationGivesStatus2) {
  Db db;
  Server srv(test_server());
  int conn = srv.connect(db.traced(""));
  srv.run(conn, "CREATE TABLE t (k INTEGER, s VARCHAR(10))");
  srv.run(conn, "INSERT INTO t VALUES (1, 'one')");
  int stmt = 0;
  // The SQL text, the record, the SQL copy, the column array, two titles, two variable
  // names, two buffers, the parameter array, its buffer.
  EXPECT_EQ(srv.failing_allocations([&] {
    stmt = 0;
    int st = srv.prepare(conn, "SELECT k, s FROM t WHERE k = ?", stmt);
    EXPECT_EQ(stmt, st == 0 ? 1 : 0);
    return st;
  }),
            12);
  EXPECT_EQ(srv.failing_allocations([&] { return srv.execute(stmt, {Arg::integer(1)}); }), 0);
  EXPECT_EQ(srv.failing_allocations([&] { return srv.fetch(stmt); }), 0);
  EXPECT_EQ(srv.failing_allocations([&] {
    return srv.call("SetColumnType", {Arg::integer(stmt), Arg::integer(2), Arg::integer(6)});
  }),
            1);
  // Undescribed parameters get their buffers from the setters and from execute.
  int conn2 = srv.connect(db.traced("SQLDescribeParam:unsupported"));
  int ins = srv.prepared(conn2, "INSERT INTO t VALUES (?, ?)");
  EXPECT_EQ(srv.failing_allocations([&] {
    return srv.set_param(ins, {Arg::integer(1), Arg::integer(2)});
  }),
            1);
  EXPECT_EQ(srv.failing_allocations([&] { return srv.execute(ins); }), 1);
  EXPECT_EQ(db.rows("SELECT k, s FROM t ORDER BY k"), "1|one\n2|None\n");
  srv.stop_cleanly();
}

// ---- SIGTERM ----------------------------------------------------------------------------

class Shutdown : public BackendTest {
 protected:
  std::string app() const { return "qz_term_" + std::to_string(getpid()); }
  std::string app_spec() const { return pg_app_conn(app()); }

  // Starts Execute of `stmt` without waiting for its answer, and waits until the database
  // runs the statement.
  void start_sleeping_execute(Server &srv, int stmt) {
    qz::client::Arg args[] = {Arg::integer(stmt)};
    ASSERT_TRUE(srv.s.write_call("Execute", args));
    ASSERT_EQ(kill(srv.s.pid(), SIGUSR2), 0);
    std::string active;
    for (int i = 0; i < 200 && active != "1\n"; ++i) {
      std::this_thread::sleep_for(20ms);
      active = pg_sessions(app(), " AND state = 'active' AND query LIKE 'SELECT pg_sleep%'");
    }
    ASSERT_EQ(active, "1\n");
  }
};

TEST_P(Shutdown, WhileWaitingEverySessionIsClosed) {
  Server srv;
  int a = srv.connect(app_spec());
  int b = srv.connect(app_spec());
  const std::string t = table("term");
  srv.run(a, "CREATE TABLE " + t + " (k INTEGER)");
  srv.run(a, "INSERT INTO " + t + " VALUES (1), (2)");
  int sa = 0, sb = 0;
  ASSERT_EQ(srv.direct(a, "SELECT k FROM " + t, sa), qz::kOk);
  ASSERT_EQ(srv.fetch(sa), qz::kOk);  // a result half read
  srv.prepared(b, "SELECT k FROM " + t + " WHERE k = ?");
  ASSERT_EQ(srv.direct(b, "SELECT k FROM " + t, sb), qz::kOk);
  EXPECT_EQ(srv.call("Disconnect", {Arg::integer(a)}), qz::kOk);  // kept open by its statement
  EXPECT_EQ(pg_sessions(app()), "2\n");
  srv.stop_cleanly();
  EXPECT_EQ(pg_sessions_left(app()), "0\n");
}

// SIGTERM while Execute waits inside the driver for a statement that runs for 30 seconds:
// the running statement is cancelled, the server exits 0 at once, and the database
// session ends.
TEST_P(Shutdown, DuringAStatementInTheDatabase) {
  Server srv;
  int conn = srv.connect(app_spec());
  srv.connect(app_spec());  // an idle session beside it
  int stmt = srv.prepared(conn, "SELECT pg_sleep(30)");
  start_sleeping_execute(srv, stmt);
  auto t0 = std::chrono::steady_clock::now();
  ASSERT_EQ(kill(srv.s.pid(), SIGTERM), 0);
  ExitInfo e = srv.s.wait_exit(2000ms);
  EXPECT_TRUE(e.exited && e.code == 0) << e.describe() << "\n" << srv.log();
  EXPECT_LT(std::chrono::steady_clock::now() - t0, 2s);
  EXPECT_EQ(pg_sessions_left(app()), "0\n");
}

// The driver manager at its highest thread protection serialises SQLCancel with the very
// call it should cancel, which the interrupted process can never finish: the cancel then
// blocks, and the watchdog still ends the process with 0 well within two seconds.
TEST_P(Shutdown, WhenTheCancelBlocksTheWatchdogEndsTheProcess) {
  odbc::TempDir sysini;
  {
    std::ifstream in(qz::test::env("ODBCSYSINI") + "/odbcinst.ini");
    std::ofstream out(sysini.file("odbcinst.ini"));
    for (std::string line; std::getline(in, line);) {
      out << line << "\n";
      if (line == std::string("[") + odbc::pg_driver + "]") out << "Threading = 3\n";
    }
  }
  std::vector<std::string> pre{"/usr/bin/env", "ODBCSYSINI=" + sysini.path()};
  Server srv(server_options(pre));
  int conn = srv.connect(app_spec());
  int stmt = srv.prepared(conn, "SELECT pg_sleep(3)");
  start_sleeping_execute(srv, stmt);
  ASSERT_EQ(kill(srv.s.pid(), SIGTERM), 0);
  ExitInfo e = srv.s.wait_exit(2000ms);
  EXPECT_TRUE(e.exited && e.code == 0) << e.describe() << "\n" << srv.log();
  // Not cancelled: the session ends when its statement does and finds no client.
  EXPECT_EQ(pg_sessions_left(app()), "0\n");
}

INSTANTIATE_TEST_SUITE_P(Drivers, Shutdown, ::testing::Values(Backend{"postgres", Kind::postgres}),
                         backend_name);

}  // namespace
