// The ODBC test environment, checked through the driver manager with the ODBC 2.x calls the
// server makes: the private driver registration (SQLite, psqlODBC on the throwaway cluster),
// the fault driver's injected failures as the driver manager delivers them, the driver
// manager's SQLSTATE spellings for an ODBC 2.x application, and the libodbc interposer.
#include <gtest/gtest.h>
#include <sql.h>
#include <sqlext.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <optional>
#include <thread>

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
  std::string completed;  // connection string completed by the driver
  bool connected = false;

  explicit Connection(const std::string &conn) {
    if (SQLAllocEnv(&env) != SQL_SUCCESS) return;
    if (SQLAllocConnect(env, &dbc) != SQL_SUCCESS) return;
    UCHAR out[1024] = {0};
    SWORD out_len = 0;
    connect_rc = SQLDriverConnect(dbc, nullptr, (UCHAR *)conn.c_str(), SQL_NTS, out, sizeof out,
                                  &out_len, SQL_DRIVER_NOPROMPT);
    connect_diags = diagnostics(env, dbc, SQL_NULL_HSTMT);
    connected = connect_rc == SQL_SUCCESS || connect_rc == SQL_SUCCESS_WITH_INFO;
    completed = reinterpret_cast<char *>(out);
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

  // Runs `sql` directly and returns the rows, every column bound as text (as the server
  // binds text columns). Null values read as "<null>".
  std::vector<std::vector<std::string>> query(const std::string &sql, Step *failure = nullptr) {
    std::vector<std::vector<std::string>> rows;
    HSTMT stmt = SQL_NULL_HSTMT;
    if (SQLAllocStmt(dbc, &stmt) != SQL_SUCCESS) return rows;
    RETCODE rc = SQLExecDirect(stmt, (UCHAR *)sql.c_str(), SQL_NTS);
    if (rc != SQL_SUCCESS && rc != SQL_SUCCESS_WITH_INFO) {
      if (failure) *failure = step("SQLExecDirect", rc, stmt);
      SQLFreeStmt(stmt, SQL_DROP);
      return rows;
    }
    SWORD ncols = 0;
    SQLNumResultCols(stmt, &ncols);
    std::vector<std::array<char, 512>> bufs(ncols);
    std::vector<SQLLEN> ind(ncols);
    for (SWORD c = 0; c < ncols; c++)
      SQLBindCol(stmt, c + 1, SQL_C_CHAR, bufs[c].data(), bufs[c].size(), &ind[c]);
    while ((rc = SQLFetch(stmt)) == SQL_SUCCESS || rc == SQL_SUCCESS_WITH_INFO) {
      std::vector<std::string> row;
      for (SWORD c = 0; c < ncols; c++)
        row.push_back(ind[c] == SQL_NULL_DATA ? "<null>" : std::string(bufs[c].data()));
      rows.push_back(row);
    }
    SQLFreeStmt(stmt, SQL_DROP);
    return rows;
  }

  int exec(const std::string &sql) {
    Step failure{"", SQL_SUCCESS, {}};
    query(sql, &failure);
    return failure.rc;
  }
};

// The server's sequence of ODBC 2.x calls on one connection, each call's outcome recorded:
// a prepared INSERT with two parameters (one bound with SQLBindParameter, one with
// SQLSetParam), commit, a SELECT read through SQLDescribeCol/SQLBindCol/SQLFetch, a
// connection option, rollback and disconnect. Table t(a INTEGER, b VARCHAR(20)) must exist
// and be empty: the SELECT then yields exactly the inserted row.
struct Script {
  std::vector<Step> steps;
  SDWORD fetched_a = -1;     // column a of the fetched row
  std::string inserted_via;  // "SQLBindParameter" or "SQLSetParam" for parameter 1

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
  std::vector<std::vector<std::string>> rows() {
    Connection c(odbc::sqlite_conn(file));
    return c.query("SELECT a, b FROM t ORDER BY a");
  }
};

// ---- SQLite through the private registration ------------------------------------------

TEST(OdbcSqlite, RegisteredDriverServesEveryCallOfTheServer) {
  ScriptDb db;
  Connection c(odbc::sqlite_conn(db.file));
  ASSERT_EQ(c.connect_rc, SQL_SUCCESS) << testing::PrintToString(c.connect_diags);
  EXPECT_NE(c.completed.find("Database=" + db.file), std::string::npos) << c.completed;

  Script sc = run_server_calls(c);
  for (const Step &s : sc.steps) {
    int expected =
        s.function == "SQLFetch" && &s == sc.find("SQLFetch", 2) ? SQL_NO_DATA_FOUND : SQL_SUCCESS;
    EXPECT_EQ(s.rc, expected) << s.function << " " << testing::PrintToString(s.diags);
  }
  EXPECT_EQ(sc.fetched_a, 7);
  EXPECT_EQ(db.rows(), (std::vector<std::vector<std::string>>{{"7", "hello"}}));
}

TEST(OdbcSqlite, CatalogQueriesListTheTable) {
  ScriptDb db;
  Connection c(odbc::sqlite_conn(db.file));
  ASSERT_EQ(c.connect_rc, SQL_SUCCESS);
  HSTMT s;
  ASSERT_EQ(SQLAllocStmt(c.dbc, &s), SQL_SUCCESS);
  ASSERT_EQ(SQLTables(s, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0), SQL_SUCCESS);
  char name[128];
  SQLLEN ind;
  ASSERT_EQ(SQLBindCol(s, 3, SQL_C_CHAR, name, sizeof name, &ind), SQL_SUCCESS);
  std::vector<std::string> tables;
  while (SQLFetch(s) == SQL_SUCCESS)
    tables.push_back(name);
  EXPECT_EQ(tables, std::vector<std::string>{"t"});
  SQLFreeStmt(s, SQL_DROP);

  ASSERT_EQ(SQLAllocStmt(c.dbc, &s), SQL_SUCCESS);
  ASSERT_EQ(SQLColumns(s, nullptr, 0, nullptr, 0, (UCHAR *)"t", 1, nullptr, 0), SQL_SUCCESS);
  ASSERT_EQ(SQLBindCol(s, 4, SQL_C_CHAR, name, sizeof name, &ind), SQL_SUCCESS);
  std::vector<std::string> columns;
  while (SQLFetch(s) == SQL_SUCCESS)
    columns.push_back(name);
  EXPECT_EQ(columns, (std::vector<std::string>{"a", "b"}));
  SQLFreeStmt(s, SQL_DROP);
}

// The SQLite driver reports its errors as S1000 with native code 1 to an ODBC 2.x
// application, whatever the error.
TEST(OdbcSqlite, ErrorsArriveAsS1000) {
  ScriptDb db;
  Connection c(odbc::sqlite_conn(db.file));
  ASSERT_EQ(c.connect_rc, SQL_SUCCESS);
  Step failure{"", 0, {}};
  c.query("SELEC 1", &failure);
  EXPECT_EQ(failure.rc, SQL_ERROR);
  EXPECT_EQ(failure.diags,
            std::vector<Diag>{rec("S1000", 1, "[SQLite]near \"SELEC\": syntax error (1)")});
  c.query("SELECT * FROM missing", &failure);
  EXPECT_EQ(failure.rc, SQL_ERROR);
  EXPECT_EQ(failure.diags,
            std::vector<Diag>{rec("S1000", 1, "[SQLite]no such table: missing (1)")});
}

// A driver name that is not registered is taken as a library name, which cannot be
// loaded; the driver manager reports that as 01000 with an error return.
TEST(OdbcSqlite, UnknownDriverNameIsRefusedByTheDriverManager) {
  Connection c("Driver={No Such Driver};Database=/nonexistent");
  EXPECT_EQ(c.connect_rc, SQL_ERROR);
  EXPECT_EQ(c.connect_diags,
            std::vector<Diag>{rec("01000", 0,
                                  "[unixODBC][Driver Manager]Can't open lib 'No Such Driver' : "
                                  "file not found")});
}

// ---- PostgreSQL through psqlODBC on the throwaway cluster --------------------------------

class OdbcPostgres : public testing::Test {
 protected:
  void SetUp() override {
    if (!odbc::pg_available()) GTEST_SKIP() << "no PostgreSQL in this build";
  }
};

TEST_F(OdbcPostgres, SessionIsLatin1AndKeepsLatin1BytesAsStored) {
  Connection c(odbc::pg_conn());
  ASSERT_EQ(c.connect_rc, SQL_SUCCESS) << testing::PrintToString(c.connect_diags);
  EXPECT_NE(c.completed.find("ConnSettings={SET client_encoding TO 'LATIN1'}"), std::string::npos)
      << c.completed;
  EXPECT_EQ(c.query("SHOW client_encoding"), std::vector<std::vector<std::string>>{{"LATIN1"}});

  ASSERT_EQ(c.exec("DROP TABLE IF EXISTS env_latin1"), SQL_SUCCESS);
  ASSERT_EQ(c.exec("CREATE TABLE env_latin1 (v VARCHAR(20))"), SQL_SUCCESS);
  // "café" and "ÿ" in LATIN1, sent as parameter bytes as the server sends text.
  HSTMT s;
  ASSERT_EQ(SQLAllocStmt(c.dbc, &s), SQL_SUCCESS);
  ASSERT_EQ(SQLPrepare(s, (UCHAR *)"INSERT INTO env_latin1 VALUES (?)", SQL_NTS), SQL_SUCCESS);
  char value[] = "caf\xE9 \xFF";
  SQLLEN ind = SQL_NTS;
  ASSERT_EQ(SQLBindParameter(s, 1, SQL_PARAM_INPUT, SQL_C_CHAR, SQL_VARCHAR, 20, 0, value,
                             sizeof value, &ind),
            SQL_SUCCESS);
  ASSERT_EQ(SQLExecute(s), SQL_SUCCESS) << testing::PrintToString(diagnostics(c.env, c.dbc, s));
  SQLFreeStmt(s, SQL_DROP);

  EXPECT_EQ(c.query("SELECT v FROM env_latin1"),
            std::vector<std::vector<std::string>>{{"caf\xE9 \xFF"}});
  // Independently of ODBC: the stored characters are é (233) and ÿ (255).
  odbc::RunResult r = odbc::psql(
      "SELECT length(v), ascii(substr(v, 4, 1)), ascii(substr(v, 6, 1)) FROM env_latin1");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "6|233|255\n");
  r = odbc::psql("SELECT v FROM env_latin1");
  EXPECT_EQ(r.out, "caf\xE9 \xFF\n");
  c.exec("DROP TABLE env_latin1");
}

TEST_F(OdbcPostgres, SessionIsListedUntilDisconnect) {
  auto sessions = [](const std::string &pid) {
    return odbc::psql("SELECT count(*) FROM pg_stat_activity WHERE pid = " + pid).out;
  };
  std::string pid;
  {
    Connection c(odbc::pg_conn());
    ASSERT_EQ(c.connect_rc, SQL_SUCCESS) << testing::PrintToString(c.connect_diags);
    auto rows = c.query("SELECT pg_backend_pid()");
    ASSERT_EQ(rows.size(), 1u);
    pid = rows[0][0];
    EXPECT_EQ(sessions(pid), "1\n");
    EXPECT_EQ(SQLDisconnect(c.dbc), SQL_SUCCESS);
    c.connected = false;
  }
  // The backend ends after the client's goodbye arrives; wait for that, not for a time.
  std::string left = sessions(pid);
  for (int i = 0; i < 200 && left != "0\n"; i++) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    left = sessions(pid);
  }
  EXPECT_EQ(left, "0\n");
}

// psqlODBC passes the server's SQLSTATEs through; the driver manager leaves them alone.
TEST_F(OdbcPostgres, ErrorsKeepTheServersSqlstates) {
  Connection c(odbc::pg_conn());
  ASSERT_EQ(c.connect_rc, SQL_SUCCESS);
  Step failure{"", 0, {}};
  c.query("SELEC 1", &failure);
  EXPECT_EQ(failure.rc, SQL_ERROR);
  ASSERT_EQ(failure.diags.size(), 1u) << testing::PrintToString(failure.diags);
  EXPECT_EQ(failure.diags[0].state, "42601");
  EXPECT_EQ(failure.diags[0].native, 1);
  EXPECT_EQ(failure.diags[0].message.rfind("ERROR: syntax error at or near \"SELEC\"", 0), 0u)
      << failure.diags[0].message;

  c.query("SELECT * FROM missing_table", &failure);
  ASSERT_EQ(failure.diags.size(), 1u);
  EXPECT_EQ(failure.diags[0].state, "42P01");

  Connection refused(odbc::pg_conn("Username=nobody"));
  EXPECT_EQ(refused.connect_rc, SQL_ERROR);
  ASSERT_EQ(refused.connect_diags.size(), 1u) << testing::PrintToString(refused.connect_diags);
  EXPECT_EQ(refused.connect_diags[0].state, "08001");
  EXPECT_EQ(refused.connect_diags[0].native, 101);
  EXPECT_NE(refused.connect_diags[0].message.find("role \"nobody\" does not exist"),
            std::string::npos);
}

// ---- the fault driver ----------------------------------------------------------------

const std::string dm_unsupported =
    "[unixODBC][Driver Manager]Driver does not support this function";
const std::string dm_sequence = "[unixODBC][Driver Manager]Function sequence error";

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

// The driver manager maps HY... and 42S.. SQLSTATEs to their ODBC 2.x spellings (S1..,
// S00..) for an ODBC 2.x application and leaves the others alone.
INSTANTIATE_TEST_SUITE_P(
    Injected, FaultDriver,
    testing::Values(
        FaultCase{"ExecuteFails", "SQLExecute:-1:23000:5:duplicate key", "SQLExecute", 1, SQL_ERROR,
                  rec("23000", 5, "duplicate key")},
        FaultCase{"SecondFetchFails", "SQLFetch@2:-1:HY000:77:fetch failed", "SQLFetch", 2,
                  SQL_ERROR, rec("S1000", 77, "fetch failed")},
        FaultCase{"FetchTruncates",
                  "SQLFetch@1:SUCCESS_WITH_INFO:01004:0:String data, right truncated", "SQLFetch",
                  1, SQL_SUCCESS_WITH_INFO, rec("01004", 0, "String data, right truncated")},
        FaultCase{"BindColFails", "SQLBindCol:-1:HY003:3:bad buffer type", "SQLBindCol", 1,
                  SQL_ERROR, rec("S1003", 3, "bad buffer type")},
        FaultCase{"NumResultColsFails", "SQLNumResultCols:-1:HY010:4:no result", "SQLNumResultCols",
                  1, SQL_ERROR, rec("S1010", 4, "no result")},
        // After a failed SQLPrepare the driver manager refuses what needs a prepared
        // statement with S1010 (function sequence error) and never asks the driver.
        FaultCase{"PrepareFails", "SQLPrepare:-1:42000:6:syntax", "SQLPrepare", 1, SQL_ERROR,
                  rec("37000", 6, "syntax"), "SQLNumParams SQLDescribeParam SQLExecute"},
        FaultCase{"NumParamsFails", "SQLNumParams:-1:HY000:8:count", "SQLNumParams", 1, SQL_ERROR,
                  rec("S1000", 8, "count")},
        FaultCase{"AllocStmtFails", "SQLAllocStmt:-1:HY001:0:out of memory", "SQLAllocStmt", 1,
                  SQL_ERROR, rec("S1001", 0, "out of memory")},
        FaultCase{"CommitFails", "SQLTransact@1:-1:HY000:9:cannot commit", "SQLTransact", 1,
                  SQL_ERROR, rec("S1000", 9, "cannot commit")},
        FaultCase{"RollbackFails", "SQLTransact@2:-1:HY000:10:cannot roll back", "SQLTransact", 2,
                  SQL_ERROR, rec("S1000", 10, "cannot roll back")},
        FaultCase{"ConnectOptionFails", "SQLSetConnectOption:-1:HYC00:11:option not supported",
                  "SQLSetConnectOption", 1, SQL_ERROR, rec("S1C00", 11, "option not supported")},
        // Without a call range the function is hidden from the driver manager (through
        // SQLGetFunctions), which then refuses it itself, never calling the driver.
        FaultCase{"DescribeParamHidden", "SQLDescribeParam:unsupported", "SQLDescribeParam", 1,
                  SQL_ERROR, rec("IM001", 0, dm_unsupported)},
        // With a call range the driver itself answers IM001 on those calls.
        FaultCase{"DescribeParamAnswersIM001", "SQLDescribeParam@1:unsupported", "SQLDescribeParam",
                  1, SQL_ERROR, rec("IM001", 0, "Driver does not support this function")},
        FaultCase{"BindParameterAnswersIM001", "SQLBindParameter@1..:unsupported",
                  "SQLBindParameter", 1, SQL_ERROR,
                  rec("IM001", 0, "Driver does not support this function"), "SQLExecute"}),
    [](const testing::TestParamInfo<FaultCase> &info) { return std::string(info.param.name); });

TEST(FaultDriverConnect, ConnectFailsWithTheGivenRecord) {
  ScriptDb db;
  Connection c(odbc::fault_conn(db.file, "SQLDriverConnect:-1:28000:7:login refused"));
  EXPECT_EQ(c.connect_rc, SQL_ERROR);
  EXPECT_EQ(c.connect_diags, std::vector<Diag>{rec("28000", 7, "login refused")});
}

TEST(FaultDriverConnect, BadRuleRefusesTheConnection) {
  ScriptDb db;
  Connection c(odbc::fault_conn(db.file, "SQLFetchh:-1"));
  EXPECT_EQ(c.connect_rc, SQL_ERROR);
  EXPECT_EQ(c.connect_diags,
            std::vector<Diag>{
                rec("S1000", 0, "[qzfaultodbc]unknown function 'SQLFetchh' in fault rule")});
}

// A failed SQLDisconnect leaves the connection connected as far as the driver manager is
// concerned: SQLFreeConnect is then a sequence error until a disconnect succeeds.
TEST(FaultDriverConnect, FailedDisconnectKeepsTheConnectionOpen) {
  ScriptDb db;
  Connection c(odbc::fault_conn(db.file, "SQLDisconnect@1:-1:HY000:12:cannot disconnect"));
  ASSERT_EQ(c.connect_rc, SQL_SUCCESS);
  EXPECT_EQ(SQLDisconnect(c.dbc), SQL_ERROR);
  EXPECT_EQ(diagnostics(c.env, c.dbc, SQL_NULL_HSTMT),
            std::vector<Diag>{rec("S1000", 12, "cannot disconnect")});
  EXPECT_EQ(SQLFreeConnect(c.dbc), SQL_ERROR);
  EXPECT_EQ(diagnostics(c.env, c.dbc, SQL_NULL_HSTMT),
            std::vector<Diag>{rec("S1010", 0, dm_sequence)});
  EXPECT_EQ(SQLDisconnect(c.dbc), SQL_SUCCESS);  // the second call is not failed
  c.connected = false;
}

// The driver manager reads a driver's diagnostics right after the failed call; a driver
// whose SQLError fails leaves the application with no records at all, never with a failing
// SQLError. Failing the application's SQLError takes the interposer.
TEST(FaultDriverConnect, DriversFailingSQLErrorIsNotSeenByTheApplication) {
  ScriptDb db;
  for (const char *rc : {"-1", "-2"}) {
    Connection c(
        odbc::fault_conn(db.file, std::string("SQLExecute:-1:23000:5:dup;SQLError:") + rc));
    ASSERT_EQ(c.connect_rc, SQL_SUCCESS);
    Script sc = run_server_calls(c);
    const Step *s = sc.find("SQLExecute");
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->rc, SQL_ERROR);
    EXPECT_EQ(s->diags, std::vector<Diag>{}) << rc;
  }
}

// What the driver manager calls in the driver for the application's ODBC 2.x calls.
TEST(FaultDriverTrace, DriverManagerCallsForAnOdbc2Application) {
  ScriptDb db;
  odbc::TempDir dir;
  std::string trace = dir.file("trace");
  {
    Connection c(odbc::fault_conn(db.file, "", trace));
    ASSERT_EQ(c.connect_rc, SQL_SUCCESS);
    run_server_calls(c);
  }
  std::vector<std::string> calls = odbc::trace_calls(trace);
  auto count = [&](const char *fn) { return std::count(calls.begin(), calls.end(), fn); };
  ASSERT_GE(calls.size(), 2u);
  EXPECT_EQ(calls[0], "SQLDriverConnect");
  EXPECT_EQ(calls[1], "SQLGetFunctions");  // asked once, right after connecting
  EXPECT_EQ(count("SQLGetFunctions"), 1);
  EXPECT_EQ(count("SQLAllocStmt"), 2);
  EXPECT_EQ(count("SQLFreeHandle"), 2);  // SQLFreeStmt(SQL_DROP) arrives as SQLFreeHandle
  EXPECT_EQ(count("SQLFreeStmt"), 0);
  EXPECT_EQ(count("SQLSetParam"), 1);       // passed on as it is
  EXPECT_EQ(count("SQLBindParameter"), 1);  // likewise
  EXPECT_EQ(count("SQLTransact"), 2);
  EXPECT_EQ(count("SQLDisconnect"), 1);
  EXPECT_EQ(count("SQLError"), 0);  // nothing failed
}

// Hiding SQLBindParameter alone does not make it unsupported for the application: the
// driver manager binds through the driver's SQLBindParam instead. With both hidden the
// application's SQLBindParameter gets IM001, while SQLSetParam still reaches the driver.
TEST(FaultDriverTrace, BindParameterIsUnsupportedOnlyWithoutSQLBindParam) {
  ScriptDb db;
  odbc::TempDir dir;
  std::string trace = dir.file("trace");
  {
    Connection c(odbc::fault_conn(db.file, "SQLBindParameter:unsupported", trace));
    Script sc = run_server_calls(c);
    ASSERT_NE(sc.find("SQLBindParameter"), nullptr);
    EXPECT_EQ(sc.find("SQLBindParameter")->rc, SQL_SUCCESS);
  }
  std::vector<std::string> calls = odbc::trace_calls(trace);
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "SQLBindParam"), 1);
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "SQLBindParameter"), 0);
  EXPECT_EQ(db.rows(), (std::vector<std::vector<std::string>>{{"7", "hello"}}));

  ScriptDb db2;
  Connection c(odbc::fault_conn(db2.file, "SQLBindParameter:unsupported;SQLBindParam:unsupported"));
  HSTMT s;
  ASSERT_EQ(SQLAllocStmt(c.dbc, &s), SQL_SUCCESS);
  ASSERT_EQ(SQLPrepare(s, (UCHAR *)"INSERT INTO t VALUES (?, ?)", SQL_NTS), SQL_SUCCESS);
  SDWORD a = 8;
  SQLLEN a_ind = 0, b_ind = SQL_NTS;
  char b[] = "set";
  EXPECT_EQ(SQLBindParameter(s, 1, SQL_PARAM_INPUT, SQL_C_LONG, SQL_INTEGER, 10, 0, &a, 0, &a_ind),
            SQL_ERROR);
  EXPECT_EQ(diagnostics(c.env, c.dbc, s), std::vector<Diag>{rec("IM001", 0, dm_unsupported)});
  EXPECT_EQ(SQLSetParam(s, 1, SQL_C_LONG, SQL_INTEGER, 10, 0, &a, &a_ind), SQL_SUCCESS);
  EXPECT_EQ(SQLSetParam(s, 2, SQL_C_CHAR, SQL_VARCHAR, 20, 0, b, &b_ind), SQL_SUCCESS);
  EXPECT_EQ(SQLExecute(s), SQL_SUCCESS);
  SQLFreeStmt(s, SQL_DROP);
  EXPECT_EQ(db2.rows(), (std::vector<std::vector<std::string>>{{"8", "set"}}));
}

TEST(FaultDriverTrace, HiddenDescribeParamNeverReachesTheDriver) {
  ScriptDb db;
  odbc::TempDir dir;
  std::string trace = dir.file("trace");
  {
    Connection c(odbc::fault_conn(db.file, "SQLDescribeParam:unsupported", trace));
    run_server_calls(c);
  }
  std::vector<std::string> calls = odbc::trace_calls(trace);
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "SQLDescribeParam"), 0);
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "SQLExecute"), 1);
}

// The SQLSTATEs a driver reports, as the driver manager hands them to an ODBC 2.x
// application.
TEST(DriverManagerSqlstates, Odbc3StatesGetTheirOdbc2Spellings) {
  const std::pair<const char *, const char *> mapping[] = {
      {"HY000", "S1000"}, {"HY001", "S1001"}, {"HY009", "S1009"}, {"HY010", "S1010"},
      {"HY090", "S1090"}, {"HY092", "S1092"}, {"HYC00", "S1C00"}, {"HYT00", "S1T00"},
      {"42S01", "S0001"}, {"42S02", "S0002"}, {"42S12", "S0012"}, {"42S21", "S0021"},
      {"42S22", "S0022"}, {"42000", "37000"}, {"07009", "S1002"}, {"42601", "42601"},
      {"42P01", "42P01"}, {"01004", "01004"}, {"22001", "22001"}, {"23000", "23000"},
      {"08S01", "08S01"}, {"08001", "08001"}, {"28000", "28000"}, {"IM001", "IM001"},
      {"S1000", "S1000"}};
  ScriptDb db;
  for (const auto &[injected, delivered] : mapping) {
    Connection c(odbc::fault_conn(db.file, std::string("SQLExecDirect:-1:") + injected + ":0:x"));
    Step failure{"", 0, {}};
    c.query("SELECT 1", &failure);
    EXPECT_EQ(failure.diags, std::vector<Diag>{rec(delivered, 0, "x")}) << injected;
  }
}

// ---- the interposer ------------------------------------------------------------------

// Runs the case `name` of DISABLED_InterposedChild in a new process of this program with
// the interposer in front of libodbc and `rules`, and returns the lines it observed.
std::vector<std::string> run_interposed(const std::string &name, const std::string &rules) {
  char exe[4096] = {0};
  EXPECT_GT(readlink("/proc/self/exe", exe, sizeof exe - 1), 0);
  std::vector<std::string> argv = odbc::interposer_launcher(
      rules, qz::test::words(qz::test::env("QZ_LAUNCHER")), odbc::interposer_preload());
  argv.insert(argv.end(), {exe, "--gtest_also_run_disabled_tests",
                           "--gtest_filter=DISABLED_InterposedChild.Run"});
  odbc::RunResult r = odbc::run_program(argv, {"QZ_INTERPOSED_CASE=" + name});
  EXPECT_EQ(r.status, 0) << r.out << r.err;
  std::vector<std::string> lines;
  std::istringstream in(r.out);
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("OBSERVED ", 0) == 0) lines.push_back(line.substr(9));
  }
  return lines;
}

std::string observe(const char *fn, int rc, const std::vector<Diag> &diags = {}) {
  std::string s = std::string(fn) + " " + std::to_string(rc);
  for (const Diag &d : diags) {
    s += " | " + std::to_string(d.rc) + " " + d.state + " " + std::to_string(d.native) + " " +
         d.message;
  }
  return s;
}

// The child side: prints what the application sees for the case named in
// QZ_INTERPOSED_CASE. It runs only when started by run_interposed.
TEST(DISABLED_InterposedChild, Run) {
  std::string name = qz::test::env("QZ_INTERPOSED_CASE");
  auto print = [](const std::string &line) { std::printf("OBSERVED %s\n", line.c_str()); };
  HENV env = SQL_NULL_HENV;
  RETCODE rc = SQLAllocEnv(&env);
  print(observe("SQLAllocEnv", rc) + (env == SQL_NULL_HENV ? " null" : " handle"));
  if (rc != SQL_SUCCESS) return;
  HDBC dbc = SQL_NULL_HDBC;
  rc = SQLAllocConnect(env, &dbc);
  std::vector<Diag> diags;
  if (rc != SQL_SUCCESS) diags = diagnostics(env, SQL_NULL_HDBC, SQL_NULL_HSTMT);
  print(observe("SQLAllocConnect", rc, diags) + (dbc == SQL_NULL_HDBC ? " null" : " handle"));
  if (rc == SQL_SUCCESS && name == "error") {
    odbc::TempDir dir;
    std::string conn = odbc::sqlite_conn(dir.file("x.db"));
    rc = SQLDriverConnect(dbc, nullptr, (UCHAR *)conn.c_str(), SQL_NTS, nullptr, 0, nullptr,
                          SQL_DRIVER_NOPROMPT);
    print(observe("SQLDriverConnect", rc));
    HSTMT s;
    SQLAllocStmt(dbc, &s);
    rc = SQLExecDirect(s, (UCHAR *)"SELEC 1", SQL_NTS);
    print(observe("SQLExecDirect", rc, diagnostics(env, dbc, s)));
    SQLFreeStmt(s, SQL_DROP);
    SQLDisconnect(dbc);
  }
  if (dbc) SQLFreeConnect(dbc);
  SQLFreeEnv(env);
}

TEST(Interposer, AllocEnvFails) {
  EXPECT_EQ(run_interposed("env", "SQLAllocEnv:-1"),
            std::vector<std::string>{"SQLAllocEnv -1 null"});
}

// The record of a failed SQLAllocConnect is read from the environment handle.
TEST(Interposer, AllocConnectFailsWithARecordOnTheEnvironment) {
  EXPECT_EQ(
      run_interposed("connect", "SQLAllocConnect:-1:S1001:0:Memory allocation failure"),
      (std::vector<std::string>{"SQLAllocEnv 0 handle",
                                "SQLAllocConnect -1 | 0 S1001 0 Memory allocation failure null"}));
}

TEST(Interposer, SQLErrorItselfFails) {
  EXPECT_EQ(run_interposed("error", "SQLError:-1"),
            (std::vector<std::string>{"SQLAllocEnv 0 handle", "SQLAllocConnect 0 handle",
                                      "SQLDriverConnect 0", "SQLExecDirect -1 | -1  0 "}));
  EXPECT_EQ(run_interposed("error", "SQLError:INVALID_HANDLE"),
            (std::vector<std::string>{"SQLAllocEnv 0 handle", "SQLAllocConnect 0 handle",
                                      "SQLDriverConnect 0", "SQLExecDirect -1 | -2  0 "}));
  // Only the second SQLError call fails: the first delivers the driver's record.
  EXPECT_EQ(run_interposed("error", "SQLError@2:-1"),
            (std::vector<std::string>{
                "SQLAllocEnv 0 handle", "SQLAllocConnect 0 handle", "SQLDriverConnect 0",
                "SQLExecDirect -1 | 0 S1000 1 [SQLite]near \"SELEC\": syntax error (1) | -1  0 "}));
}

}  // namespace
