// The ODBC test environment itself, checked through the driver manager with the ODBC 2.x
// calls the server makes: that the forms of fault rule reach the application as
// tests/env/README.md describes, that the driver trace records what tests count, and that
// the PostgreSQL test database keeps LATIN1 bytes. The server tests cover the rest.
#include <gtest/gtest.h>
#include <sql.h>
#include <sqlext.h>

#include <algorithm>
#include <cstring>

#include "e2e_env.hpp"
#include "odbc_env.hpp"

namespace {

namespace odbc = qz::test::odbc;

// One diagnostic record as SQLError returned it; a failed SQLError call is kept as a
// record with its return code and no SQLSTATE.
struct Diag {
  int rc;               // return code of SQLError
  std::string state;    // SQLSTATE
  long native;          // native error code
  std::string message;  // message text
  bool operator==(const Diag &) const = default;
};

std::ostream &operator<<(std::ostream &os, const Diag &d) {
  return os << "{" << d.rc << ", " << d.state << ", " << d.native << ", \"" << d.message << "\"}";
}

Diag rec(const std::string &state, long native, const std::string &message) {
  return Diag{SQL_SUCCESS, state, native, message};
}

// Reads every diagnostic the way the server does: statement level, then connection level,
// then environment level, each until SQLError reports no more data; a failing SQLError ends
// the reading.
std::vector<Diag> diagnostics(HENV env, HDBC dbc, HSTMT stmt) {
  std::vector<Diag> out;
  for (int guard = 0; guard < 50; guard++) {
    UCHAR state[6] = {0}, msg[256] = {0};
    SDWORD native = 0;
    SWORD len = 0;
    RETCODE rc = SQLError(env, dbc, stmt, state, &native, msg, sizeof msg, &len);
    if (rc == SQL_NO_DATA_FOUND) {
      if (stmt) {
        stmt = SQL_NULL_HSTMT;
      } else if (dbc) {
        dbc = SQL_NULL_HDBC;
      } else {
        break;
      }
      continue;
    }
    if (rc != SQL_SUCCESS && rc != SQL_SUCCESS_WITH_INFO) {
      out.push_back(Diag{rc, "", 0, ""});
      break;
    }
    out.push_back(Diag{rc, reinterpret_cast<char *>(state), static_cast<long>(native),
                       reinterpret_cast<char *>(msg)});
  }
  return out;
}

// The outcome of one application call.
struct Step {
  std::string function;     // ODBC function the application called
  int rc;                   // what it returned
  std::vector<Diag> diags;  // what SQLError delivered right after
};

// An environment and a connection opened with SQLDriverConnect, released at the end.
struct Connection {
  HENV env = SQL_NULL_HENV;
  HDBC dbc = SQL_NULL_HDBC;
  int connect_rc = SQL_ERROR;
  std::vector<Diag> connect_diags;
  bool connected = false;

  explicit Connection(const std::string &conn) {
    if (SQLAllocEnv(&env) != SQL_SUCCESS) return;
    if (SQLAllocConnect(env, &dbc) != SQL_SUCCESS) return;
    connect_rc = SQLDriverConnect(dbc, nullptr, (UCHAR *)conn.c_str(), SQL_NTS, nullptr, 0, nullptr,
                                  SQL_DRIVER_NOPROMPT);
    connect_diags = diagnostics(env, dbc, SQL_NULL_HSTMT);
    connected = connect_rc == SQL_SUCCESS || connect_rc == SQL_SUCCESS_WITH_INFO;
  }
  ~Connection() {
    if (connected) SQLDisconnect(dbc);
    if (dbc) SQLFreeConnect(dbc);
    if (env) SQLFreeEnv(env);
  }
  Connection(const Connection &) = delete;
  Connection &operator=(const Connection &) = delete;

  Step step(const std::string &fn, int rc, HSTMT stmt = SQL_NULL_HSTMT) {
    return Step{fn, rc, diagnostics(env, dbc, stmt)};
  }

  // Runs `sql` that returns no rows; its return code.
  int exec(const std::string &sql) {
    HSTMT stmt = SQL_NULL_HSTMT;
    if (SQLAllocStmt(dbc, &stmt) != SQL_SUCCESS) return SQL_ERROR;
    RETCODE rc = SQLExecDirect(stmt, (UCHAR *)sql.c_str(), SQL_NTS);
    SQLFreeStmt(stmt, SQL_DROP);
    return rc;
  }
};

// The server's sequence of ODBC 2.x calls on one connection, each call's outcome recorded:
// a prepared INSERT with two parameters (one bound with SQLBindParameter, one with
// SQLSetParam), commit, a SELECT read through SQLDescribeCol/SQLBindCol/SQLFetch, a
// connection option, rollback and disconnect. Table t(a INTEGER, b VARCHAR(20)) must exist
// and be empty: the SELECT then yields exactly the inserted row.
struct Script {
  std::vector<Step> steps;
  SDWORD fetched_a = -1;  // column a of the fetched row

  const Step *find(const std::string &fn, int nth = 1) const {
    for (const Step &s : steps) {
      if (s.function == fn && --nth == 0) return &s;
    }
    return nullptr;
  }
};

Script run_server_calls(Connection &c) {
  Script sc;
  HSTMT s = SQL_NULL_HSTMT;
  auto rec_step = [&](const char *fn, RETCODE rc, HSTMT h) {
    sc.steps.push_back(c.step(fn, rc, h));
  };
  rec_step("SQLAllocStmt", SQLAllocStmt(c.dbc, &s), SQL_NULL_HSTMT);
  if (s == SQL_NULL_HSTMT) return sc;
  rec_step("SQLPrepare", SQLPrepare(s, (UCHAR *)"INSERT INTO t VALUES (?, ?)", SQL_NTS), s);
  SWORD nparams = 0;
  rec_step("SQLNumParams", SQLNumParams(s, &nparams), s);
  SWORD type = 0, scale = 0, nullable = 0;
  SQLULEN precision = 0;
  rec_step("SQLDescribeParam", SQLDescribeParam(s, 1, &type, &precision, &scale, &nullable), s);
  static SDWORD a = 7;
  static SQLLEN a_ind = 0;
  static char b[21] = "hello";
  static SQLLEN b_ind = SQL_NTS;
  rec_step("SQLBindParameter",
           SQLBindParameter(s, 1, SQL_PARAM_INPUT, SQL_C_LONG, SQL_INTEGER, 10, 0, &a, 0, &a_ind),
           s);
  rec_step("SQLSetParam", SQLSetParam(s, 2, SQL_C_CHAR, SQL_VARCHAR, 20, 0, b, &b_ind), s);
  rec_step("SQLExecute", SQLExecute(s), s);
  SQLLEN count = -1;
  rec_step("SQLRowCount", SQLRowCount(s, &count), s);
  rec_step("SQLFreeStmt", SQLFreeStmt(s, SQL_DROP), SQL_NULL_HSTMT);
  rec_step("SQLTransact", SQLTransact(SQL_NULL_HENV, c.dbc, SQL_COMMIT), SQL_NULL_HSTMT);

  s = SQL_NULL_HSTMT;
  rec_step("SQLAllocStmt", SQLAllocStmt(c.dbc, &s), SQL_NULL_HSTMT);
  if (s != SQL_NULL_HSTMT) {
    rec_step("SQLExecDirect", SQLExecDirect(s, (UCHAR *)"SELECT a, b FROM t", SQL_NTS), s);
    SWORD ncols = 0;
    rec_step("SQLNumResultCols", SQLNumResultCols(s, &ncols), s);
    UCHAR name[64];
    SWORD name_len = 0;
    rec_step(
        "SQLDescribeCol",
        SQLDescribeCol(s, 1, name, sizeof name, &name_len, &type, &precision, &scale, &nullable),
        s);
    SQLLEN fetched_ind = 0;
    rec_step("SQLBindCol", SQLBindCol(s, 1, SQL_C_LONG, &sc.fetched_a, 0, &fetched_ind), s);
    rec_step("SQLFetch", SQLFetch(s), s);
    rec_step("SQLFetch", SQLFetch(s), s);
    rec_step("SQLFreeStmt", SQLFreeStmt(s, SQL_DROP), SQL_NULL_HSTMT);
  }
  rec_step("SQLSetConnectOption", SQLSetConnectOption(c.dbc, SQL_AUTOCOMMIT, SQL_AUTOCOMMIT_ON),
           SQL_NULL_HSTMT);
  rec_step("SQLTransact", SQLTransact(SQL_NULL_HENV, c.dbc, SQL_ROLLBACK), SQL_NULL_HSTMT);
  RETCODE rc = SQLDisconnect(c.dbc);
  rec_step("SQLDisconnect", rc, SQL_NULL_HSTMT);
  if (rc == SQL_SUCCESS || rc == SQL_SUCCESS_WITH_INFO) c.connected = false;
  return sc;
}

// A SQLite database with the empty table the script fills, made through the plain driver.
struct ScriptDb {
  odbc::TempDir dir;
  std::string file = dir.file("test.db");
  ScriptDb() {
    Connection c(odbc::sqlite_conn(file));
    EXPECT_EQ(c.connect_rc, SQL_SUCCESS);
    EXPECT_EQ(c.exec("CREATE TABLE t (a INTEGER, b VARCHAR(20))"), SQL_SUCCESS);
  }
};

const std::string dm_unsupported =
    "[unixODBC][Driver Manager]Driver does not support this function";
const std::string dm_sequence = "[unixODBC][Driver Manager]Function sequence error";

// ---- fault rules as the application sees them -------------------------------------------

// One injected failure and what the application sees of it.
struct FaultCase {
  const char *name;       // test name
  const char *rules;      // QzFault attribute
  const char *function;   // application call that fails
  int nth;                // which of its calls in the script
  int rc;                 // return code the application gets
  Diag diag;              // the one record SQLError then delivers
  const char *also = "";  // later calls that fail because of it (names, space-separated)
};

void PrintTo(const FaultCase &fc, std::ostream *os) {
  *os << fc.rules;
}

class FaultDriver : public testing::TestWithParam<FaultCase> {};

TEST_P(FaultDriver, FailureReachesTheApplication) {
  const FaultCase &fc = GetParam();
  ScriptDb db;
  Connection c(odbc::fault_conn(db.file, fc.rules));
  ASSERT_EQ(c.connect_rc, SQL_SUCCESS) << testing::PrintToString(c.connect_diags);
  Script sc = run_server_calls(c);
  const Step *s = sc.find(fc.function, fc.nth);
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(s->rc, fc.rc);
  EXPECT_EQ(s->diags, std::vector<Diag>{fc.diag});
  // Every other call of the script went through, except for what follows from the
  // failure (a SELECT whose binding or execution failed fetches nothing).
  for (const Step &other : sc.steps) {
    if (&other == s || other.function == "SQLFetch" || other.function == "SQLRowCount") continue;
    if ((std::string(" ") + fc.also + " ").find(" " + other.function + " ") != std::string::npos)
      continue;
    EXPECT_EQ(other.rc, SQL_SUCCESS)
        << other.function << " " << testing::PrintToString(other.diags);
  }
}

// The forms of rule that the server tests do not already go through (they fail calls
// every time or the n-th time, return informational records and let a call range answer
// IM001); the driver manager gives HY... states their ODBC 2.x spellings on the way.
INSTANTIATE_TEST_SUITE_P(
    Injected, FaultDriver,
    testing::Values(FaultCase{"AllocStmtFails", "SQLAllocStmt:-1:HY001:0:out of memory",
                              "SQLAllocStmt", 1, SQL_ERROR, rec("S1001", 0, "out of memory")},
                    // After a failed SQLPrepare the driver manager refuses what needs a prepared
                    // statement with S1010 and never asks the driver.
                    FaultCase{"PrepareFails", "SQLPrepare:-1:42000:6:syntax", "SQLPrepare", 1,
                              SQL_ERROR, rec("37000", 6, "syntax"),
                              "SQLNumParams SQLDescribeParam SQLExecute"},
                    // Without a call range the function is hidden from the driver manager, which
                    // then refuses it itself.
                    FaultCase{"DescribeParamHidden", "SQLDescribeParam:unsupported",
                              "SQLDescribeParam", 1, SQL_ERROR, rec("IM001", 0, dm_unsupported)},
                    // SQLBindParameter is unsupported for the application only with SQLBindParam
                    // hidden too; SQLSetParam (parameter 2 of the script) still works. Parameter 1
                    // is then unbound, so the execution fails.
                    FaultCase{"BindParameterAndBindParamHidden",
                              "SQLBindParameter:unsupported;SQLBindParam:unsupported",
                              "SQLBindParameter", 1, SQL_ERROR, rec("IM001", 0, dm_unsupported),
                              "SQLExecute"}),
    [](const testing::TestParamInfo<FaultCase> &info) { return std::string(info.param.name); });

TEST(FaultDriverConnect, ConnectionsRefusedOrKeptAsTheRulesSay) {
  ScriptDb db;
  // A rule that does not parse refuses the connection: a misspelt rule never passes quietly.
  Connection bad(odbc::fault_conn(db.file, "SQLFetchh:-1"));
  EXPECT_EQ(bad.connect_rc, SQL_ERROR);
  EXPECT_EQ(bad.connect_diags,
            std::vector<Diag>{
                rec("S1000", 0, "[qzfaultodbc]unknown function 'SQLFetchh' in fault rule")});

  // A failed SQLDisconnect leaves the connection open for the driver manager; the next
  // disconnect is not failed.
  Connection c(odbc::fault_conn(db.file, "SQLDisconnect@1:-1:HY000:12:cannot disconnect"));
  ASSERT_EQ(c.connect_rc, SQL_SUCCESS);
  EXPECT_EQ(SQLDisconnect(c.dbc), SQL_ERROR);
  EXPECT_EQ(diagnostics(c.env, c.dbc, SQL_NULL_HSTMT),
            std::vector<Diag>{rec("S1000", 12, "cannot disconnect")});
  EXPECT_EQ(SQLFreeConnect(c.dbc), SQL_ERROR);
  EXPECT_EQ(diagnostics(c.env, c.dbc, SQL_NULL_HSTMT),
            std::vector<Diag>{rec("S1010", 0, dm_sequence)});
  EXPECT_EQ(SQLDisconnect(c.dbc), SQL_SUCCESS);
  c.connected = false;
}

// ---- the driver trace --------------------------------------------------------------------

// Tests count driver calls in the trace (how often SQLDescribeParam or SQLSetParam reached
// the driver); these are the counts of the script under each rule, as the driver manager
// passes the application's calls on.
TEST(FaultDriverTrace, CountsTheCallsThatReachTheDriver) {
  struct Case {
    const char *rules;                                  // QzFault attribute
    std::vector<std::pair<const char *, long>> counts;  // driver function, calls traced
  } cases[] = {
      // SQLFreeStmt(SQL_DROP) reaches the driver as SQLFreeHandle.
      {"",
       {{"SQLGetFunctions", 1},
        {"SQLAllocStmt", 2},
        {"SQLFreeHandle", 2},
        {"SQLFreeStmt", 0},
        {"SQLSetParam", 1},
        {"SQLBindParameter", 1},
        {"SQLDescribeParam", 1},
        {"SQLTransact", 2},
        {"SQLDisconnect", 1},
        {"SQLError", 0}}},
      // Hidden alone, SQLBindParameter arrives as the driver's SQLBindParam.
      {"SQLBindParameter:unsupported", {{"SQLBindParam", 1}, {"SQLBindParameter", 0}}},
      {"SQLDescribeParam:unsupported", {{"SQLDescribeParam", 0}, {"SQLExecute", 1}}},
      // An injected failure is traced too; the driver manager then reads the driver's
      // record and its end.
      {"SQLExecute:-1:23000:5:dup", {{"SQLExecute", 1}, {"SQLError", 2}}},
  };
  for (const Case &tc : cases) {
    ScriptDb db;
    odbc::TempDir dir;
    std::string trace = dir.file("trace");
    {
      Connection c(odbc::fault_conn(db.file, tc.rules, trace));
      ASSERT_EQ(c.connect_rc, SQL_SUCCESS) << tc.rules;
      run_server_calls(c);
    }
    std::vector<std::string> calls = odbc::trace_calls(trace);
    ASSERT_GE(calls.size(), 2u) << tc.rules;
    EXPECT_EQ(calls[0], "SQLDriverConnect") << tc.rules;
    EXPECT_EQ(calls[1], "SQLGetFunctions") << tc.rules;  // asked right after connecting
    for (const auto &[fn, n] : tc.counts)
      EXPECT_EQ(std::count(calls.begin(), calls.end(), fn), n) << tc.rules << ": " << fn;
  }
}

// ---- PostgreSQL's test database ----------------------------------------------------------

// The database holds LATIN1 bytes: psql, with its client encoding LATIN1 too, then shows the
// bytes the server stored (the statement tests read stored text this way).
TEST(OdbcPostgres, DatabaseIsLatin1) {
  if (!odbc::pg_available()) GTEST_SKIP() << "no PostgreSQL in this build";
  odbc::RunResult r = odbc::psql("SHOW server_encoding");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "LATIN1\n");
}

}  // namespace
