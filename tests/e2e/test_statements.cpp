// The statement functions as a process, through libqzclient, on SQLite and PostgreSQL:
// statement identifiers and their life, execution with parameters, packed rows and the
// readers' conversions, column descriptions, text buffer sizes, row counts, refusals,
// transactions, character sets and truncation.
#include <gtest/gtest.h>

#include <regex>

#include "stmt_server.hpp"

namespace {

using namespace qz::test::stmt;

// ---- statement life ----------------------------------------------------------------

class StatementLife : public BackendTest {};

TEST_P(StatementLife, IdentifiersAreKeptReusedOrReleased) {
  Server srv;
  int conn = srv.connect(spec());
  const std::string t = table("life");
  srv.run(conn, "CREATE TABLE " + t + " (a INTEGER)");
  int a = 0, b = 0, c = 0;
  EXPECT_EQ(srv.prepare(conn, "SELECT a FROM " + t, a), qz::kOk);
  EXPECT_EQ(a, 1);
  // A registered identifier is kept by the replacing statement.
  EXPECT_EQ(srv.direct(conn, "SELECT a FROM " + t, a), qz::kOk);
  EXPECT_EQ(a, 1);
  // An unregistered one is replaced by the lowest free identifier.
  b = 7;
  EXPECT_EQ(srv.make("Tables", conn, {"", "", "", ""}, b), qz::kOk);
  EXPECT_EQ(b, 2);
  EXPECT_EQ(srv.make("Columns", conn, {"", "", t, ""}, c), qz::kOk);
  EXPECT_EQ(c, 3);
  int n = 0;
  EXPECT_EQ(srv.call("GetNumColumns", {Arg::integer(c), Arg::int_var(-1)}), qz::kOk);
  EXPECT_GE(srv.last.args[1].as_int(), 4);  // the catalog result has its columns
  // The catalog lists the column: its name is the fourth column of SQLColumns' result.
  int row = 0;
  ASSERT_EQ(srv.fetch(c, &row), qz::kOk);
  EXPECT_EQ(row, 1);
  EXPECT_EQ(srv.text(c, 4), "a");

  // An unknown connection: 8, the identifier comes back 0 and its statement is gone.
  for (const char *fn : {"Prepare", "ExecDirect"}) {
    int id = c;
    EXPECT_EQ(srv.make(fn, 99, {"SELECT 1"}, id), qz::kBadArgument) << fn;
    EXPECT_EQ(id, 0);
    EXPECT_EQ(srv.call("DropStatement", {Arg::integer(c)}), qz::kBadArgument);
    c = 0;
  }
  for (const char *fn : {"Tables", "Columns"}) {
    int id = 0;
    EXPECT_EQ(srv.make(fn, 99, {"", "", "", ""}, id), qz::kBadArgument) << fn;
    EXPECT_EQ(id, 0);
  }

  // SQL the driver rejects: both statements are gone, the driver's SQLSTATE is readable.
  const std::string syntax_state = pg() ? "42601" : "S1000";
  EXPECT_EQ(srv.direct(conn, "SELEC 1", a), qz::kExecuteFailed);
  EXPECT_EQ(a, 0);
  EXPECT_EQ(srv.states(), std::vector<std::string>{syntax_state});
  EXPECT_EQ(srv.call("GetNumColumns", {Arg::integer(1), Arg::int_var(0)}), qz::kBadArgument);
  // Prepared: SQLite's driver refuses at SQLPrepare, psqlODBC when the result is described.
  a = b;
  EXPECT_EQ(srv.prepare(conn, "SELECT nothing FROM missing_table", a),
            pg() ? qz::kOdbcFailed : qz::kPrepareFailed);
  EXPECT_EQ(a, 0);
  EXPECT_EQ(srv.states(), std::vector<std::string>{pg() ? "42P01" : "S1000"});
  EXPECT_EQ(srv.call("DropStatement", {Arg::integer(b)}), qz::kBadArgument);

  // Dropping twice: 0, then 8.
  n = srv.prepared(conn, "SELECT a FROM " + t);
  EXPECT_EQ(srv.call("DropStatement", {Arg::integer(n)}), qz::kOk);
  EXPECT_EQ(srv.call("DropStatement", {Arg::integer(n)}), qz::kBadArgument);
  srv.stop_cleanly();
}

// Disconnect leaves a connection with an open statement open: the statement keeps
// fetching, and the PostgreSQL session ends only when the statement is dropped.
TEST_P(StatementLife, DisconnectWaitsForTheLastStatement) {
  const std::string app = "qz_stmt_" + std::to_string(getpid());
  auto sessions = [&] {
    return odbc::psql("SELECT count(*) FROM pg_stat_activity WHERE application_name = '" + app +
                      "'")
        .out;
  };
  Server srv;
  int conn = srv.connect(pg() ? odbc::pg_conn("pqopt={application_name=" + app + "}") : spec());
  const std::string t = table("disc");
  srv.run(conn, "CREATE TABLE " + t + " (a INTEGER)");
  srv.run(conn, "INSERT INTO " + t + " VALUES (1)");
  srv.run(conn, "INSERT INTO " + t + " VALUES (2)");
  int stmt = 0;
  ASSERT_EQ(srv.direct(conn, "SELECT a FROM " + t + " ORDER BY a", stmt), qz::kOk);
  EXPECT_EQ(srv.call("Disconnect", {Arg::integer(conn)}), qz::kOk);
  int row = 0, v = 0;
  ASSERT_EQ(srv.fetch(stmt, &row), qz::kOk);
  EXPECT_EQ(row, 1);
  EXPECT_EQ(srv.get_int(stmt, 1, &v), qz::kOk);
  EXPECT_EQ(v, 1);
  ASSERT_EQ(srv.fetch(stmt, &row), qz::kOk);
  EXPECT_EQ(srv.get_int(stmt, 1, &v), qz::kOk);
  EXPECT_EQ(v, 2);
  if (pg()) {
    EXPECT_EQ(sessions(), "1\n");
  }
  EXPECT_EQ(srv.call("DropStatement", {Arg::integer(stmt)}), qz::kOk);
  if (pg()) {
    std::string left = sessions();
    for (int i = 0; i < 200 && left != "0\n"; ++i) {
      usleep(50000);
      left = sessions();
    }
    EXPECT_EQ(left, "0\n");
  }
  srv.stop_cleanly();
}

QZ_ON_BOTH_BACKENDS(StatementLife);

// ---- execution and parameters --------------------------------------------------------

class Parameters : public BackendTest {};

TEST_P(Parameters, ExecuteAndSetParamBindInOrderAndKeepTheirValues) {
  Server srv;
  int conn = srv.connect(spec());
  const std::string t = table("par");
  srv.run(conn,
          "CREATE TABLE " + t + " (k INTEGER, i INTEGER, r " + double_type() + ", s VARCHAR(40))");
  int ins = srv.prepared(conn, "INSERT INTO " + t + " (k, i, r, s) VALUES (?, ?, ?, ?)");
  // Execute binds an integer, a real and a string as the parameters in order.
  EXPECT_EQ(
      srv.execute(ins, {Arg::integer(1), Arg::integer(42), Arg::real(2.5), Arg::string("abc")}),
      qz::kOk);
  // The values stay bound: executing again sends them again.
  EXPECT_EQ(srv.execute(ins), qz::kOk);
  // SetParam: a real parameter number is truncated (2.7 names parameter 2); without a
  // value the parameter becomes NULL; four arguments are refused.
  EXPECT_EQ(srv.call("SetParam", {Arg::integer(ins), Arg::integer(1), Arg::integer(3)}), qz::kOk);
  EXPECT_EQ(srv.call("SetParam", {Arg::integer(ins), Arg::real(2.7), Arg::integer(-5)}), qz::kOk);
  EXPECT_EQ(srv.call("SetParam", {Arg::integer(ins), Arg::integer(4)}), qz::kOk);
  EXPECT_EQ(
      srv.call("SetParam", {Arg::integer(ins), Arg::integer(3), Arg::real(1.0), Arg::integer(0)}),
      qz::kArgCount);
  EXPECT_EQ(srv.call("SetParam", {Arg::integer(ins)}), qz::kArgCount);
  EXPECT_EQ(srv.call("SetParam", {Arg::integer(ins), Arg::string("1"), Arg::integer(0)}),
            qz::kBadArgument);
  EXPECT_EQ(srv.call("SetParam", {Arg::integer(ins), Arg::int_array({1, 2}), Arg::integer(0)}),
            qz::kBadArgument);
  EXPECT_EQ(srv.call("SetParam", {Arg::integer(ins), Arg::integer(9), Arg::integer(0)}),
            qz::kNoSuchColumn);
  EXPECT_EQ(srv.execute(ins), qz::kOk);
  // NULL in the first, a middle and the last position.
  for (int k : {4, 5, 6}) {
    EXPECT_EQ(srv.execute(ins, {Arg::integer(k), Arg::integer(k), Arg::real(k), Arg::string("x")}),
              0);
  }
  EXPECT_EQ(srv.call("SetParam", {Arg::integer(ins), Arg::integer(1), Arg::integer(0)}), 0);
  ASSERT_EQ(srv.call("SetParam", {Arg::integer(ins), Arg::integer(1)}), 0);  // k NULL
  EXPECT_EQ(srv.execute(ins), 0);
  EXPECT_EQ(srv.execute(ins, {Arg::integer(7), Arg::integer(7), Arg::real(7)}), 0);
  EXPECT_EQ(srv.call("SetParam", {Arg::integer(ins), Arg::integer(3)}), 0);  // r NULL
  EXPECT_EQ(srv.execute(ins), 0);
  EXPECT_EQ(srv.execute(ins, {Arg::integer(8), Arg::integer(8), Arg::real(8), Arg::string("y")}),
            0);
  EXPECT_EQ(srv.call("SetParam", {Arg::integer(ins), Arg::integer(4)}), 0);  // s NULL
  EXPECT_EQ(srv.execute(ins), 0);
  // A bad value stops binding there: parameter 1 took 9, the statement did not run.
  EXPECT_EQ(srv.execute(ins, {Arg::integer(9), Arg::int_array({1, 2})}), qz::kBadArgument);
  // Parameters never set are sent as NULL.
  int fresh = srv.prepared(conn, "INSERT INTO " + t + " (k, i, r, s) VALUES (10, ?, ?, ?)");
  EXPECT_EQ(srv.execute(fresh), qz::kOk);

  // Reals as tenths, so that both back ends print them alike; NULL prints as nothing.
  std::string got = stored("SELECT k, i, CAST(r * 10 AS INTEGER), s FROM " + t +
                           " ORDER BY COALESCE(k, 0), COALESCE(r, 0), COALESCE(s, '')");
  got = std::regex_replace(got, std::regex("None"), "");
  EXPECT_EQ(got,
            "|6|60|x\n"
            "1|42|25|abc\n1|42|25|abc\n"
            "3|-5|25|\n"
            "4|4|40|x\n5|5|50|x\n6|6|60|x\n"
            "7|7||x\n7|7|70|x\n"
            "8|8|80|\n8|8|80|y\n"
            "10|||\n");
  srv.stop_cleanly();
}

QZ_ON_BOTH_BACKENDS(Parameters);

}  // namespace
