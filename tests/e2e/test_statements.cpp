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
    EXPECT_EQ(srv.drop(c), qz::kBadArgument);
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
  EXPECT_EQ(srv.drop(b), qz::kBadArgument);

  // Dropping twice: 0, then 8.
  const int n = srv.prepared(conn, "SELECT a FROM " + t);
  EXPECT_EQ(srv.drop(n), qz::kOk);
  EXPECT_EQ(srv.drop(n), qz::kBadArgument);
  srv.stop_cleanly();
}

// Disconnect leaves a connection with an open statement open: the statement keeps
// fetching, and the PostgreSQL session ends only when the statement is dropped.
TEST_P(StatementLife, DisconnectWaitsForTheLastStatement) {
  const std::string app = "qz_stmt_" + std::to_string(getpid());
  Server srv;
  int conn = srv.connect(pg() ? pg_app_conn(app) : spec());
  const std::string t = table("disc");
  srv.run(conn, "CREATE TABLE " + t + " (a INTEGER)");
  srv.run(conn, "INSERT INTO " + t + " VALUES (1)");
  srv.run(conn, "INSERT INTO " + t + " VALUES (2)");
  int stmt = 0;
  ASSERT_EQ(srv.direct(conn, "SELECT a FROM " + t + " ORDER BY a", stmt), qz::kOk);
  EXPECT_EQ(srv.call("Disconnect", {Arg::integer(conn)}), qz::kOk);
  int row = 0;
  ASSERT_EQ(srv.fetch(stmt, &row), qz::kOk);
  EXPECT_EQ(row, 1);
  EXPECT_EQ(srv.int_data(stmt, 1), 1);
  ASSERT_EQ(srv.fetch(stmt, &row), qz::kOk);
  EXPECT_EQ(srv.int_data(stmt, 1), 2);
  EXPECT_EQ(pg() ? pg_sessions(app) : "1\n", "1\n");
  EXPECT_EQ(srv.drop(stmt), qz::kOk);
  EXPECT_EQ(pg() ? pg_sessions_left(app) : "0\n", "0\n");
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
  EXPECT_EQ(srv.set_param(ins, {Arg::integer(1), Arg::integer(3)}), qz::kOk);
  EXPECT_EQ(srv.set_param(ins, {Arg::real(2.7), Arg::integer(-5)}), qz::kOk);
  EXPECT_EQ(srv.set_param(ins, {Arg::integer(4)}), qz::kOk);
  EXPECT_EQ(srv.set_param(ins, {Arg::integer(3), Arg::real(1.0), Arg::integer(0)}), qz::kArgCount);
  EXPECT_EQ(srv.call("SetParam", {Arg::integer(ins)}), qz::kArgCount);
  EXPECT_EQ(srv.set_param(ins, {Arg::string("1"), Arg::integer(0)}), qz::kBadArgument);
  EXPECT_EQ(srv.set_param(ins, {Arg::int_array({1, 2}), Arg::integer(0)}), qz::kBadArgument);
  EXPECT_EQ(srv.set_param(ins, {Arg::integer(9), Arg::integer(0)}), qz::kNoSuchColumn);
  EXPECT_EQ(srv.execute(ins), qz::kOk);
  // NULL in the first, a middle and the last position; the other values stay bound.
  for (auto [k, p] : {std::pair{6, 1}, {7, 3}, {8, 4}}) {
    EXPECT_EQ(srv.execute(ins, {Arg::integer(k), Arg::integer(k), Arg::real(k), Arg::string("x")}),
              0);
    ASSERT_EQ(srv.set_param(ins, {Arg::integer(p)}), 0);
    EXPECT_EQ(srv.execute(ins), 0);
  }
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
            "6|6|60|x\n"
            "7|7||x\n7|7|70|x\n"
            "8|8|80|\n8|8|80|x\n"
            "10|||\n");
  srv.stop_cleanly();
}

QZ_ON_BOTH_BACKENDS(Parameters);

// ---- results ------------------------------------------------------------------------

class Results : public BackendTest {
 protected:
  // A table with one value of every kind in row k = 1, and a second row.
  std::string fill(Server &srv, int conn) {
    const std::string t = table("res");
    srv.run(conn, "CREATE TABLE " + t + " (k INTEGER, i INTEGER, r1 " + double_type() + ", r2 " +
                      double_type() +
                      ", s VARCHAR(10), n VARCHAR(10), c CHAR(5), d DATE, tm TIME, ts TIMESTAMP, "
                      "z INTEGER, zs VARCHAR(10))");
    srv.run(conn, "INSERT INTO " + t +
                      " VALUES (1, 42, 2.9, -2.9, '12a', '123', '12', '2019-02-13', '08:05:09', "
                      "'1970-01-02 00:00:00', NULL, NULL)");
    srv.run(conn, "INSERT INTO " + t +
                      " VALUES (2, 7, 0.5, 0.5, 'x', '456', 'y', '2000-02-29', '23:59:59', "
                      "'2019-02-13 08:15:00', 3, 'z')");
    return t;
  }
};

TEST_P(Results, PackedRowsAndTheFetchStatus) {
  Server srv;
  int conn = srv.connect(spec());
  const std::string t = fill(srv, conn);
  int stmt = 0;
  ASSERT_EQ(srv.direct(conn, "SELECT i, r1, s, d, tm, ts, z, zs FROM " + t + " ORDER BY k", stmt),
            qz::kOk);
  std::string packed;
  int row = 0;
  ASSERT_EQ(srv.fetch_packed(stmt, &packed, 4096, &row), qz::kOk);
  EXPECT_EQ(row, 1);
  // Numbers, dates and times pack as numbers, a NULL one as "0"; timestamps and text as
  // text, a NULL text with length 0.
  EXPECT_EQ(packed, entry(true, "I", "42") + entry(true, "R1", "2.9") + entry(false, "S", "12a") +
                        entry(true, "D", "20190213") + entry(true, "Tm", "080509") +
                        entry(false, "Ts", "19700102 000000") + entry(true, "Z", "0") +
                        entry(false, "Zs", "") + "$");

  // Room for the first entry and exactly the size of the second: 18, the first entry
  // stays, without a terminator (an entry needs one byte more than its size).
  ASSERT_EQ(srv.fetch_packed(stmt, &packed, 8 + 11, &row), qz::kNoRoom);
  EXPECT_EQ(row, 1);
  EXPECT_EQ(packed, entry(true, "I", "7"));
  // That row was fetched: the next Fetch finds the end, and stays there.
  EXPECT_EQ(srv.fetch_packed(stmt, &packed, 4096, &row), qz::kOk);
  EXPECT_EQ(row, 0);
  EXPECT_EQ(srv.fetch(stmt, &row), qz::kOk);
  EXPECT_EQ(row, 0);
  // The column buffers still hold the last row.
  EXPECT_EQ(srv.text(stmt, 3), "x");

  // An integer where the buffer belongs: 9 after the row was fetched.
  ASSERT_EQ(srv.direct(conn, "SELECT k FROM " + t + " ORDER BY k", stmt), qz::kOk);
  EXPECT_EQ(srv.call("Fetch", {Arg::integer(stmt), Arg::int_var(0), Arg::int_var(0)}),
            qz::kArgCount);
  EXPECT_EQ(srv.last.args[1].as_int(), 1);
  EXPECT_EQ(srv.call("Fetch", {Arg::integer(stmt), Arg::int_var(0), Arg::string_var("", 99),
                               Arg::int_var(0)}),
            qz::kArgCount);
  EXPECT_EQ(srv.last.args[1].as_int(), 1);
  EXPECT_EQ(srv.text(stmt, 1), "2");
  // The Status argument is checked before anything is fetched.
  EXPECT_EQ(srv.call("Fetch", {Arg::integer(stmt)}), qz::kArgCount);
  EXPECT_EQ(srv.call("Fetch", {Arg::integer(stmt), Arg::string_var("", 9)}), qz::kBadArgument);
  EXPECT_EQ(
      srv.call("Fetch", {Arg::integer(stmt), Arg::int_var(0), Arg::string_array({"a", "b"}, 9)}),
      qz::kOk);  // at the end: no row, so the buffer is not looked at
  srv.stop_cleanly();
}

// Every reader on every kind of column, with the server in a time zone west of UTC.
TEST_P(Results, ReadersConvertEveryKind) {
  Server srv(server_options({"/usr/bin/env", "TZ=America/New_York"}));
  int conn = srv.connect(spec());
  const std::string t = fill(srv, conn);
  int stmt = 0;
  ASSERT_EQ(
      srv.direct(conn, "SELECT i, r1, r2, s, n, c, d, tm, ts, z FROM " + t + " WHERE k = 1", stmt),
      qz::kOk);
  // Before the first fetch every reader and IsNull refuse.
  std::string text;
  int iv = 0;
  double dv = 0;
  EXPECT_EQ(srv.get_string(stmt, 1, &text), qz::kNotReady);
  EXPECT_EQ(text, "<old>");
  EXPECT_EQ(srv.get_int(stmt, 1, &iv), qz::kNotReady);
  EXPECT_EQ(srv.get_double(stmt, 1, &dv), qz::kNotReady);
  EXPECT_EQ(srv.int_of("IsNull", stmt, 1, &iv), qz::kNotReady);
  ASSERT_EQ(srv.fetch(stmt), qz::kOk);

  // PostgreSQL pads CHAR(5) with blanks; SQLite keeps the text as stored.
  const std::string padded = pg() ? "12   " : "12";
  struct Case {
    int col;
    std::string text;
    int int_status;
    int int_value;  // the variable after GetData (unchanged -99 on failure)
    int real_status;
    double real_value;
  };
  const Case cases[] = {
      {1, "42", 0, 42, 0, 42.0},
      {2, "2.9", 0, 2, 0, 2.9},
      {3, "-2.9", 0, -2, 0, -2.9},
      {4, "12a", qz::kNotConvertible, -99, qz::kNotConvertible, 12.0},
      {5, "123", 0, 123, 0, 123.0},
      {6, padded, pg() ? qz::kNotConvertible : 0, pg() ? -99 : 12, pg() ? qz::kNotConvertible : 0,
       12.0},
      {7, "20190213", 0, 20190213, 0, 20190213.0},
      {8, "080509", 0, 80509, 0, 80509.0},
      {9, "19700102 000000", 0, 86400, 0, 86400.0},
      {10, "", 0, 0, 0, 0.0},
  };
  for (const Case &c : cases) {
    EXPECT_EQ(srv.get_string(stmt, c.col, &text), qz::kOk) << c.col;
    EXPECT_EQ(text, c.text) << c.col;
    EXPECT_EQ(srv.get_int(stmt, c.col, &iv), c.int_status) << c.col;
    EXPECT_EQ(iv, c.int_value) << c.col;
    EXPECT_EQ(srv.get_double(stmt, c.col, &dv), c.real_status) << c.col;
    EXPECT_DOUBLE_EQ(dv, c.real_value) << c.col;
    EXPECT_EQ(srv.value("IsNull", stmt, c.col), c.col == 10 ? 1 : 0) << c.col;
  }
  // Column numbers outside the result, and variables of the wrong kind or count.
  for (int col : {0, 11}) {
    EXPECT_EQ(srv.get_string(stmt, col, &text), qz::kNoSuchColumn) << col;
    EXPECT_EQ(srv.int_of("IsNull", stmt, col, &iv), qz::kNoSuchColumn) << col;
  }
  EXPECT_EQ(srv.call("GetData", {Arg::integer(stmt), Arg::integer(1)}), qz::kArgCount);
  EXPECT_EQ(
      srv.call("GetData", {Arg::integer(stmt), Arg::integer(1), Arg::int_var(0), Arg::int_var(0)}),
      qz::kArgCount);
  EXPECT_EQ(srv.call("GetData", {Arg::integer(stmt), Arg::integer(1), Arg::int_array({0, 0})}),
            qz::kBadArgument);
  // A string variable too short for the text: 18, the variable unchanged.
  EXPECT_EQ(srv.get_string(stmt, 7, &text, 7), qz::kNoRoom);
  EXPECT_EQ(text, "<old>");
  srv.stop_cleanly();
}

TEST_P(Results, ColumnDescriptionsAndVariableNames) {
  Server srv;
  int conn = srv.connect(spec());
  const std::string t = table("desc");
  srv.run(conn, "CREATE TABLE " + t + " (cust_no INTEGER, order_date DATE, amount " +
                    double_type() + ", big BIGINT)");
  srv.run(conn, "INSERT INTO " + t + " VALUES (1, '2019-02-13', 2.5, 9007199254740993)");
  int stmt = 0;
  ASSERT_EQ(srv.prepare(conn,
                        "SELECT cust_no, order_date AS \"ORDER DATE\", SUM(amount) AS \"SUM(x)\", "
                        "amount AS \"t.amount\", 1 AS abcdefghijklmno, 2 AS abcdefghijklmnop, big "
                        "FROM " +
                            t + " GROUP BY cust_no, order_date, amount, big",
                        stmt),
            qz::kOk);
  ASSERT_EQ(srv.call("GetNumColumns", {Arg::integer(stmt), Arg::int_var(0)}), qz::kOk);
  const int n = srv.last.args[1].as_int();
  ASSERT_EQ(n, 7);
  // The SQLite driver reports a title up to its last dot as a table name and drops it.
  const char *titles[] = {
      "cust_no",         "ORDER DATE",       "SUM(x)", pg() ? "t.amount" : "amount",
      "abcdefghijklmno", "abcdefghijklmnop", "big"};
  const char *names[] = {"Cust_no",         "Order_date", "Column_3", pg() ? "T_amount" : "Amount",
                         "Abcdefghijklmno", "Column_6",   "Big"};
  for (int col = 1; col <= n; ++col) {
    EXPECT_EQ(srv.str_of("GetColumnTitle", stmt, col), titles[col - 1]);
    EXPECT_EQ(srv.str_of("GetColumnVarName", stmt, col), names[col - 1]);
  }
  for (auto [col, status] : {std::pair{2, qz::kNoRoom}, {8, qz::kNoSuchColumn}}) {
    EXPECT_EQ(srv.call("GetColumnTitle",
                       {Arg::integer(stmt), Arg::integer(col), Arg::string_var("ab", 9)}),
              status);
    EXPECT_EQ(srv.last.args[2].as_string(), "ab");
  }
  // Types as value type codes; BIGINT is text and reads exactly. The SQLite driver
  // describes an expression column as VARCHAR(255).
  int v = 0;
  for (auto [col, type] : {std::pair{1, 2}, {2, 4}, {3, pg() ? 3 : 1}, {4, 3}, {7, 1}})
    EXPECT_EQ(srv.value("GetColumnType", stmt, col), type) << col;
  EXPECT_EQ(srv.value("GetColumnPrecision", stmt, 1), 10);
  EXPECT_EQ(srv.value("GetColumnNullable", stmt, 1), 1);
  for (const char *fn :
       {"GetColumnType", "GetColumnPrecision", "GetColumnScale", "GetColumnNullable"}) {
    EXPECT_EQ(srv.int_of(fn, stmt, 0, &v), qz::kNoSuchColumn) << fn;
    EXPECT_EQ(v, 0) << fn;  // cleared before the number is checked
  }
  ASSERT_EQ(srv.execute(stmt), qz::kOk);
  ASSERT_EQ(srv.fetch(stmt), qz::kOk);
  EXPECT_EQ(srv.text(stmt, 7), "9007199254740993");
  srv.stop_cleanly();
}

// Text buffers follow the described precision and the two settings; SetColumnType re-binds.
TEST_P(Results, TextSizesAndRebinding) {
  Server srv;
  int conn = srv.connect(spec());
  const std::string t = table("txt");
  srv.run(conn, "CREATE TABLE " + t + " (k INTEGER, v VARCHAR(2000), n VARCHAR(10))");
  const std::string long_text(1500, 'q');
  srv.run(conn, "INSERT INTO " + t + " VALUES (1, '" + long_text + "', '123')");
  srv.run(conn, "INSERT INTO " + t + " VALUES (2, 'short', '456')");
  const std::string select = "SELECT k, v, n FROM " + t + " ORDER BY k";
  int stmt = 0;
  ASSERT_EQ(srv.direct(conn, select, stmt), qz::kOk);
  EXPECT_EQ(srv.value("GetColumnPrecision", stmt, 2), 2000);
  ASSERT_EQ(srv.fetch(stmt), qz::kOk);
  // Cut to the default maximum less one, and said so.
  EXPECT_EQ(srv.text(stmt, 2), long_text.substr(0, 1023));
  ASSERT_EQ(srv.call("SetTextColumnSize", {Arg::integer(100), Arg::integer(4000)}), qz::kOk);
  // Only statements made afterwards get the new sizes.
  int wide = 0;
  ASSERT_EQ(srv.direct(conn, select, wide), qz::kOk);
  ASSERT_EQ(srv.fetch(wide), qz::kOk);
  EXPECT_EQ(srv.text(wide, 2), long_text);

  // SetColumnType: the current row reads as NULL until the next fetch.
  EXPECT_EQ(srv.value("GetColumnType", wide, 3), 1);
  EXPECT_EQ(srv.set_type(wide, 3, 1), qz::kOk);  // already text: nothing changes
  EXPECT_EQ(srv.text(wide, 3), "123");
  for (int bad : {0, 7})
    EXPECT_EQ(srv.set_type(wide, 3, bad), qz::kBadArgument);
  EXPECT_EQ(srv.set_type(wide, 4, 2), qz::kNoSuchColumn);
  EXPECT_EQ(srv.set_type(wide, 3, 2), qz::kOk);
  EXPECT_EQ(srv.value("GetColumnType", wide, 3), 2);
  EXPECT_EQ(srv.int_data(wide, 3), 0);
  EXPECT_EQ(srv.value("IsNull", wide, 3), 1);
  ASSERT_EQ(srv.fetch(wide), qz::kOk);
  EXPECT_EQ(srv.int_data(wide, 3), 456);
  EXPECT_EQ(srv.text(wide, 3), "456");
  srv.stop_cleanly();
}

TEST_P(Results, RowCountsAndRefusals) {
  Server srv;
  srv.log_to_stderr();
  int conn = srv.connect(spec());
  const std::string t = table("cnt");
  srv.run(conn, "CREATE TABLE " + t + " (k INTEGER)");
  int stmt = 0, n = 0;
  auto rowcount = [&](int id) {
    EXPECT_EQ(srv.call("RowCount", {Arg::integer(id), Arg::int_var(-1)}), qz::kOk);
    return srv.last.args[1].as_int();
  };
  ASSERT_EQ(srv.direct(conn, "INSERT INTO " + t + " VALUES (1), (2), (3)", stmt), qz::kOk);
  EXPECT_EQ(rowcount(stmt), 3);
  ASSERT_EQ(srv.direct(conn, "UPDATE " + t + " SET k = k + 10 WHERE k >= 2", stmt), qz::kOk);
  EXPECT_EQ(rowcount(stmt), 2);
  int ins = srv.prepared(conn, "INSERT INTO " + t + " VALUES (?)");
  ASSERT_EQ(srv.execute(ins, {Arg::integer(4)}), qz::kOk);
  EXPECT_EQ(rowcount(ins), 1);
  ASSERT_EQ(srv.direct(conn, "DELETE FROM " + t, stmt), qz::kOk);
  EXPECT_EQ(rowcount(stmt), 4);

  // What a statement refuses, and why.
  EXPECT_EQ(srv.execute(stmt), qz::kNotPrepared);
  EXPECT_EQ(srv.fetch(stmt), qz::kNoResult);
  EXPECT_EQ(srv.set_param(stmt, {Arg::integer(1), Arg::integer(1)}), qz::kNotReady);
  EXPECT_EQ(srv.int_of("GetParamType", stmt, 1, &n), qz::kNoSuchColumn);
  EXPECT_EQ(srv.set_param(ins, {Arg::integer(2), Arg::integer(1)}), qz::kNoSuchColumn);
  EXPECT_EQ(srv.call("Execute", {Arg::integer(ins), Arg::integer(1), Arg::integer(2)}),
            qz::kNoSuchColumn);
  int cat = 0;
  ASSERT_EQ(srv.make("Tables", conn, {"", "", "", ""}, cat), qz::kOk);
  EXPECT_EQ(srv.execute(cat), qz::kNotPrepared);
  for (const char *line : {"ODBC statement has not been prepared", "ODBC statement has no result",
                           "ODBC parameter #1 does not exist", "ODBC parameter #2 does not exist"})
    EXPECT_TRUE(
        has_line(srv.log(), std::string("O2: statement\\w*\\.cpp\\(\\d+\\): ") + line + "\n"))
        << line << "\n"
        << srv.log();
  // Unknown statement identifiers, before anything else.
  for (const char *fn : {"GetColumnType", "GetParamType", "IsNull", "GetColumnPrecision"})
    EXPECT_EQ(srv.int_of(fn, 99, 1, &n), qz::kBadArgument) << fn;
  EXPECT_EQ(srv.call("RowCount", {Arg::integer(99), Arg::int_var(0)}), qz::kBadArgument);
  EXPECT_EQ(srv.call("Execute", {Arg::integer(99)}), qz::kBadArgument);
  EXPECT_EQ(srv.call("SetParam", {Arg::integer(99)}), qz::kBadArgument);
  EXPECT_EQ(srv.call("GetData", {Arg::integer(99), Arg::integer(1)}), qz::kBadArgument);
  srv.stop_cleanly();
}

QZ_ON_BOTH_BACKENDS(Results);

// ---- transactions, character sets, text parameters, truncation ------------------------

class Storage : public BackendTest {};

// With autocommit off a row is invisible to an independent connection until Commit, and
// gone after Rollback.
TEST_P(Storage, TransactionsCommitAndRollBack) {
  Server srv;
  int conn = srv.connect(spec());
  const std::string t = table("tx");
  srv.run(conn, "CREATE TABLE " + t + " (k INTEGER)");
  ASSERT_EQ(srv.call("SetAutocommit", {Arg::integer(conn), Arg::integer(0)}), qz::kOk);
  int ins = srv.prepared(conn, "INSERT INTO " + t + " VALUES (?)");
  ASSERT_EQ(srv.execute(ins, {Arg::integer(1)}), qz::kOk);
  EXPECT_EQ(stored("SELECT count(*) FROM " + t), "0\n");
  ASSERT_EQ(srv.call("Commit", {Arg::integer(conn)}), qz::kOk);
  EXPECT_EQ(stored("SELECT count(*) FROM " + t), "1\n");
  ASSERT_EQ(srv.execute(ins, {Arg::integer(2)}), qz::kOk);
  ASSERT_EQ(srv.call("Rollback", {Arg::integer(conn)}), qz::kOk);
  EXPECT_EQ(stored("SELECT k FROM " + t), "1\n");
  srv.stop_cleanly();
}

// HP Roman-8 text (e-acute 0xC5, a-umlaut 0xCC) is stored as ISO 8859-1 (0xE9, 0xE4), and
// comes back as Roman-8 in GetData, packed rows and column titles.
TEST_P(Storage, CharacterSetsAreMappedBothWays) {
  Server srv;
  int conn = srv.connect(spec());
  const std::string t = table("cs");
  srv.run(conn, "CREATE TABLE " + t + " (k INTEGER, s VARCHAR(20))");
  srv.run(conn, "INSERT INTO " + t + " VALUES (1, 'caf\xC5')");
  int ins = srv.prepared(conn, "INSERT INTO " + t + " VALUES (?, ?)");
  ASSERT_EQ(srv.execute(ins, {Arg::integer(2), Arg::string("\xCCrger")}), qz::kOk);
  EXPECT_EQ(stored("SELECT k, s FROM " + t + " ORDER BY k"), "1|caf\xE9\n2|\xE4rger\n");

  int sel = 0;
  ASSERT_EQ(srv.direct(conn, "SELECT s AS \"caf\xC5\" FROM " + t + " ORDER BY k", sel), qz::kOk);
  EXPECT_EQ(srv.str_of("GetColumnTitle", sel, 1), "caf\xC5");
  EXPECT_EQ(srv.str_of("GetColumnVarName", sel, 1), "Column_1");  // a byte above 127 in the title
  std::string packed;
  ASSERT_EQ(srv.fetch_packed(sel, &packed), qz::kOk);
  EXPECT_EQ(packed, entry(false, "Column_1", "caf\xC5") + "$");
  // Read twice: converted once.
  EXPECT_EQ(srv.text(sel, 1), "caf\xC5");
  ASSERT_EQ(srv.fetch(sel), qz::kOk);
  EXPECT_EQ(srv.text(sel, 1), "\xCCrger");
  EXPECT_EQ(srv.text(sel, 1), "\xCCrger");
  srv.stop_cleanly();
}

// A text parameter's buffer follows its described precision and the two settings.
TEST_P(Storage, TextParameterSizes) {
  Server srv;
  int conn = srv.connect(spec());
  const std::string t = table("tp");
  srv.run(conn, "CREATE TABLE " + t + " (k INTEGER, tx TEXT)");
  const std::string sql = "INSERT INTO " + t + " VALUES (?, ?)";
  const std::string text2000(2000, 'w');
  int ins = srv.prepared(conn, sql);
  EXPECT_EQ(srv.set_param(ins, {Arg::integer(2), Arg::string(text2000)}), qz::kNoRoom);
  ASSERT_EQ(srv.call("SetTextColumnSize", {Arg::integer(1024), Arg::integer(4096)}), qz::kOk);
  EXPECT_EQ(srv.set_param(ins, {Arg::integer(2), Arg::string(text2000)}),
            qz::kNoRoom);  // made before the change
  ins = srv.prepared(conn, sql);
  EXPECT_EQ(srv.execute(ins, {Arg::integer(1), Arg::string(text2000)}), qz::kOk);

  // With both sizes at their largest, the longest text a buffer takes: the described
  // precision, or one less than the maximum for a longer column.
  ASSERT_EQ(srv.call("SetTextColumnSize", {Arg::integer(32767), Arg::integer(32767)}), qz::kOk);
  ins = srv.prepared(conn, sql);
  int precision = 0;
  ASSERT_EQ(srv.int_of("GetParamPrecision", ins, 2, &precision), qz::kOk);
  const int longest = precision <= 32767 ? precision : 32766;
  EXPECT_EQ(srv.execute(ins, {Arg::integer(2), Arg::string(std::string(longest, 'x'))}), qz::kOk);
  EXPECT_EQ(srv.execute(ins, {Arg::integer(3), Arg::string(std::string(longest + 1, 'x'))}),
            qz::kNoRoom);
  EXPECT_EQ(stored("SELECT k, length(tx) FROM " + t + " ORDER BY k"),
            "1|2000\n2|" + std::to_string(longest) + "\n");
  srv.stop_cleanly();
}

// A value longer than its column buffer arrives cut, and the driver's 01004 is logged and
// readable after the successful Fetch.
TEST_P(Storage, TruncationIsReported) {
  Server srv;
  srv.log_to_stderr();
  int conn = srv.connect(spec());
  const std::string t = table("tr");
  std::string sql, value;
  if (pg()) {
    // A negative NUMERIC(20, 2) at full width: bound as text of p + 1 bytes.
    srv.run(conn, "CREATE TABLE " + t + " (n NUMERIC(20, 2))");
    srv.run(conn, "INSERT INTO " + t + " VALUES (-123456789012345678.90)");
    sql = "SELECT n FROM " + t;
    value = "-123456789012345678.90";
  } else {
    // The SQLite driver describes an expression column as VARCHAR(255).
    srv.run(conn, "CREATE TABLE " + t + " (s VARCHAR(300))");
    value = std::string(300, 'v');
    srv.run(conn, "INSERT INTO " + t + " VALUES ('" + value + "')");
    sql = "SELECT s || '' FROM " + t;
  }
  int stmt = 0;
  ASSERT_EQ(srv.direct(conn, sql, stmt), qz::kOk);
  int precision = 0;
  ASSERT_EQ(srv.int_of("GetColumnPrecision", stmt, 1, &precision), qz::kOk);
  EXPECT_EQ(precision, pg() ? 20 : 255);
  ASSERT_EQ(srv.fetch(stmt), qz::kOk);
  EXPECT_EQ(srv.states(), std::vector<std::string>{"01004"});
  EXPECT_TRUE(
      has_line(srv.log(), "O2: statement\\.cpp\\(\\d+\\): [^\n]* SQLState=01004 \\[\\d+\\]\n"))
      << srv.log();
  EXPECT_EQ(srv.text(stmt, 1), value.substr(0, static_cast<std::size_t>(precision)));
  srv.stop_cleanly();
}

QZ_ON_BOTH_BACKENDS(Storage);

}  // namespace
