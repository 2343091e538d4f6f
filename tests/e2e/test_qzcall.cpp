// qzcall as a person runs it: call scripts against the test server (every argument kind,
// expected statuses, a call without answer, script errors) and against qzodbc on SQLite
// and PostgreSQL; the SQL shell's connection commands, its diagnostics and its refusal of
// what needs statements; usage errors. Output and exit statuses are compared as text.
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <regex>

#include "e2e_env.hpp"
#include "odbc_env.hpp"

namespace {

namespace odbc = qz::test::odbc;
using odbc::RunResult;

constexpr int kUsage = 2;

// The command line of qzcall with `args`, started through the emulator in the i386 build;
// the server it starts gets the same launcher.
std::vector<std::string> qzcall_argv(const std::vector<std::string> &args) {
  std::vector<std::string> argv = qz::test::words(qz::test::env("QZ_LAUNCHER"));
  argv.push_back(qz::test::env("QZ_QZCALL"));
  if (qz::test::emulated()) argv.insert(argv.end(), {"--launcher", qz::test::env("QZ_LAUNCHER")});
  argv.insert(argv.end(), args.begin(), args.end());
  return argv;
}

// Runs qzcall to its end, with standard input from `input_file` if one is given.
RunResult qzcall(const std::vector<std::string> &args, const std::string &input_file = "") {
  if (input_file.empty()) return odbc::run_program(qzcall_argv(args));
  std::string cmd = "exec";
  for (const std::string &a : qzcall_argv(args))
    cmd += " '" + std::regex_replace(a, std::regex("'"), "'\\''") + "'";
  return odbc::run_program({"/bin/sh", "-c", cmd + " < '" + input_file + "'"});
}

std::vector<std::string> host_server() {
  return {"--server", qz::test::env("QZ_SERVER_HOST_TEST")};
}
std::vector<std::string> odbc_server() {
  return {"--server", qz::test::env("QZ_SERVER_ODBC")};
}

std::vector<std::string> operator+(std::vector<std::string> a, const std::vector<std::string> &b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

class Scripts : public ::testing::Test {
 protected:
  std::string write(const std::string &name, const std::string &text) {
    std::string path = dir.file(name);
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }
  odbc::TempDir dir;
};

TEST_F(Scripts, EveryArgumentKindAndTheVariablesEachCallChanged) {
  std::string script = write("kinds.qz",
                             "# every prototype type of the test server\n"
                             "Nothing\n"
                             "IntValue 42 $out:200\n"
                             "IntValue 2.7, $out            # a real for an integer\n"
                             "RealValue 0.1 $out\n"
                             "RealRef $r=0.1 2.5 $out\n"
                             "ZStr \"a\\x41\\\"b\" $out\n"
                             "IntArr $a=[1,2,3] $out\n"
                             "RealArr [1, 2.5] $out\n"
                             "StrArr $s:5=[\"x\",\"yy\"] $out\n"
                             "Describe $out $i $r $s ($i) [1,2] \"lit\"\n"
                             "SetString $row:100 \"Nid~0~1~5Xname~0~4~An\\xC5a$\"\n"
                             "SetString $row:100 \"Nid~0~1~5Xna\"  # cut short\n"
                             "SetString ($row) \"abc\"        # a copy: $row stays\n"
                             "SetString ($row) \"longer than the copy\" -> 18\n"
                             "SetInt $j ($i)\n"
                             "ReturnStatus 8 -> 8\n"
                             "NoSuchFunction -> 7\n"
                             "SetString $small:2 \"abc\" -> 18\n");
  const std::string expected =
      "Nothing -> 0\n"
      "IntValue 42 $out:200 -> 0\n"
      "  $out = \"42\"\n"
      "IntValue 2.7, $out -> 0\n"
      "  $out = \"2\"\n"
      "RealValue 0.1 $out -> 0\n"
      "  $out = \"0.10000000000000001\"\n"
      "RealRef $r=0.1 2.5 $out -> 0\n"
      "  $r = 2.5\n"
      "ZStr \"a\\x41\\\"b\" $out -> 0\n"
      "  $out = \"aA\\\"b\"\n"
      "IntArr $a=[1,2,3] $out -> 0\n"
      "  $a = [2, 4, 6]\n"
      "  $out = \"1,2,3\"\n"
      "RealArr [1, 2.5] $out -> 0\n"
      "  $out = \"1,2.5\"\n"
      "StrArr $s:5=[\"x\",\"yy\"] $out -> 0\n"
      "  $s = [\"S0\", \"S1\"]\n"
      "  $out = \"x,yy\"\n"
      "Describe $out $i $r $s ($i) [1,2] \"lit\" -> 0\n"
      "  $out = \"IntByReference[1]=0;RealByReference[1]=2.5;StringArray[2]=\\\"S0\\\","
      "\\\"S1\\\";IntByReference[1]=0;IntArray[2]=1,2;String[1]=\\\"lit\\\"\"\n"
      "  $i = 1\n"
      "  $s = [\"ABC\", \"ABC\"]\n"
      "SetString $row:100 \"Nid~0~1~5Xname~0~4~An\\xC5a$\" -> 0\n"
      "  $row = \"Nid~0~1~5Xname~0~4~An\\xC5a$\"\n"
      "    N id = 5\n"
      "    X name = \"An\\xC5a\"\n"
      "SetString $row:100 \"Nid~0~1~5Xna\" -> 0\n"
      "  $row = \"Nid~0~1~5Xna\"\n"
      "    N id = 5\n"
      "    (not a complete packed row: name without '~' at byte 9)\n"
      "SetString ($row) \"abc\" -> 0\n"
      "SetString ($row) \"longer than the copy\" -> 18 (string variable too small)\n"
      "SetInt $j ($i) -> 0\n"
      "  $j = 1\n"
      "ReturnStatus 8 -> 8 (unknown identifier or unusable argument)\n"
      "NoSuchFunction -> 7 (no function of that name)\n"
      "SetString $small:2 \"abc\" -> 18 (string variable too small)\n";
  // The same calls in both call block layouts give the same report.
  for (const char *layout : {"32", "64"}) {
    RunResult r =
        qzcall(host_server() + std::vector<std::string>{"--layout", layout, "run", script});
    EXPECT_EQ(r.status, 0) << layout << " " << r.err;
    EXPECT_EQ(r.out, expected) << layout;
  }
}

// Expected statuses, a script on standard input, a call without answer and a script error,
// each with the exit status, the exact report and a part of standard error.
TEST_F(Scripts, StatusesStandardInputTimeoutsAndScriptErrors) {
  struct Case {
    std::string script;
    std::vector<std::string> args;  // before "run FILE"
    bool from_stdin;                // the script on standard input ("run -")
    int status;
    std::string out, err;
  } cases[] = {
      {"ReturnStatus 8\nReturnStatus 0 -> 3\nNothing\n",
       {},
       false,
       1,
       "ReturnStatus 8 -> 8 (unknown identifier or unusable argument); expected 0\n"
       "ReturnStatus 0 -> 0; expected 3\n"
       "Nothing -> 0\n",
       "2 of 3 calls did not return the expected status"},
      {"IntValue -5 $o:9\n", {}, true, 0, "IntValue -5 $o:9 -> 0\n  $o = \"-5\"\n", ""},
      {"Sleep 60000\nNothing\n",
       {"--timeout", "1"},
       false,
       1,
       "Sleep 60000 -> no answer: no answer from the server within 1000 ms\n",
       "line 1: the server gave no answer; the run stops here"},
      {"Nothing\nIntValue 1, $o:x\n",
       {},
       false,
       kUsage,
       "",
       "case.qz:2:16: error: a capacity follows ':': a byte count from 0 to 1048576\n"
       "  IntValue 1, $o:x\n"
       "                 ^\n"},
  };
  for (const Case &c : cases) {
    std::string script = write("case.qz", c.script);
    RunResult r =
        c.from_stdin ? qzcall(host_server() + c.args + std::vector<std::string>{"run", "-"}, script)
                     : qzcall(host_server() + c.args + std::vector<std::string>{"run", script});
    EXPECT_EQ(r.status, c.status) << c.script << r.err;
    EXPECT_EQ(r.out, c.out) << c.script;
    EXPECT_NE(r.err.find(c.err), std::string::npos) << c.script << r.err;
  }
}

TEST_F(Scripts, UsageErrorsSayWhatToDo) {
  std::string ok = write("ok.qz", "Nothing\n");
  struct Case {
    std::vector<std::string> args;
    int status;
    const char *out;  // part of standard output
    const char *err;  // part of standard error
  } cases[] = {
      {{}, kUsage, "", "say what to do: run FILE or sql CONNSTR"},
      {{"--bogus", "run", ok}, kUsage, "", "unknown option --bogus"},
      {{"--layout", "16", "run", ok}, kUsage, "", "--layout takes 32 or 64"},
      {{"--timeout", "soon", "run", ok}, kUsage, "", "--timeout takes a number of seconds"},
      {{"--server"}, kUsage, "", "--server needs a path"},
      {{"run"}, kUsage, "", "run needs a script file"},
      {{"run", ok, ok}, kUsage, "", "run takes one script file"},
      {{"run", dir.file("missing.qz")}, kUsage, "", "cannot read"},
      {{"sql"}, kUsage, "", "sql needs a connection string"},
      {{"sql", "-F", "xml", "DSN=x"}, kUsage, "", "--format takes table, csv or packed"},
      {{"sql", "--frob", "DSN=x"}, kUsage, "", "unknown sql option --frob"},
      {{"sql", "DSN=x", "SELECT 1"}, kUsage, "", "put SQL after -e or on standard input"},
      {{"frob"}, kUsage, "", "unknown command 'frob'"},
      {{"--server", dir.file("nothing"), "run", ok}, kUsage, "", "--server PATH"},
      {{"--help"}, 0, "Usage: qzcall [OPTIONS] run FILE|-", ""},
      {{"-V"}, 0, "qzcall 1.", ""},
  };
  for (const Case &c : cases) {
    RunResult r = qzcall(c.args);
    std::string what = "qzcall";
    for (const std::string &a : c.args)
      what += " " + a;
    EXPECT_EQ(r.status, c.status) << what << "\n" << r.err;
    EXPECT_NE(r.out.find(c.out), std::string::npos) << what << "\n" << r.out;
    EXPECT_NE(r.err.find(c.err), std::string::npos) << what << "\n" << r.err;
    if (c.status == kUsage) {
      EXPECT_NE(r.err.find("qzcall: "), std::string::npos) << what;
    }
  }
}

// Calls of the connection functions, with the statuses and changes qzodbc gives.
std::string connection_script(const std::string &conn) {
  return "VersionID $v:100\n"
         "Revision $short:2 -> 18\n"
         "Revision $r:3\n"
         "Connect \"" +
         conn +
         "\" $conn\n"
         "GetConnection $conn $spec:10 -> 18\n"
         "SetAutocommit $conn 0\n"
         "Commit $conn\n"
         "Rollback $conn\n"
         "SetConnectOption $conn 102 2.9 -> 1111  # 2 is no autocommit mode\n"
         "GetError $msg:200 $state:6 $native=5 $more\n"
         "GetError $msg $state $native $more\n"
         "SetTextColumnSize 0 10 -> 8\n"
         "Disconnect $conn\n"
         "Disconnect $conn -> 8\n";
}

std::string connection_output(const std::string &conn) {
  return "VersionID $v:100 -> 0\n"
         "  $v = \"$Id: odbc_dll.cpp,v 27.1 2011/02/10 13:57:22 qzdev Exp $\"\n"
         "Revision $short:2 -> 18 (string variable too small)\n"
         "Revision $r:3 -> 0\n"
         "  $r = \"1.8\"\n"
         "Connect \"" +
         conn +
         "\" $conn -> 0\n"
         "  $conn = 1\n"
         "GetConnection $conn $spec:10 -> 18 (string variable too small)\n"
         "SetAutocommit $conn 0 -> 0\n"
         "Commit $conn -> 0\n"
         "Rollback $conn -> 0\n"
         "SetConnectOption $conn 102 2.9 -> 1111\n"
         "GetError $msg:200 $state:6 $native=5 $more -> 0\n"
         "  $msg = \"[unixODBC][Driver Manager]Invalid attribute value\"\n"
         "  $state = \"S1009\"\n"
         "  $native = 0\n"
         "  $more = 1\n"
         "GetError $msg $state $native $more -> 0\n"
         "  $more = 0\n"
         "SetTextColumnSize 0 10 -> 8 (unknown identifier or unusable argument)\n"
         "Disconnect $conn -> 0\n"
         "Disconnect $conn -> 8 (unknown identifier or unusable argument)\n";
}

// The same script through qzodbc on SQLite, through the i386 qzodbc under the emulator
// (x86-64 build only), and on PostgreSQL with a refused login at the end.
TEST_F(Scripts, ConnectionFunctionsOnEveryServerAndDriver) {
  const std::string i386 = qz::test::env("QZ_SERVER_ODBC_I386");
  const bool cross = !i386.empty() && !qz::test::emulated();
  const std::string sqlite = odbc::sqlite_conn(dir.file("t.db"));
  struct Case {
    std::vector<std::string> server;  // qzcall's options that choose the server
    std::string conn, extra;          // the connection string; a further line and its report
  };
  std::vector<Case> cases{{odbc_server(), sqlite, ""}};
  if (cross)
    cases.push_back({{"--server", i386, "--launcher", "qemu-i386", "--layout", "64"}, sqlite, ""});
  if (odbc::pg_available())
    cases.push_back({odbc_server(), odbc::pg_conn(),
                     "Connect \"" + odbc::pg_conn("Username=nobody") + "\" $other -> 1113\n"});
  for (const Case &c : cases) {
    std::string script = write("conn.qz", connection_script(c.conn) + c.extra);
    RunResult r = qzcall(c.server + std::vector<std::string>{"run", script});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, connection_output(c.conn) + c.extra) << c.server[1];
  }
}

// ---- the SQL shell -------------------------------------------------------------------

class Shell : public Scripts {
 protected:
  RunResult sql(const std::vector<std::string> &args, const std::string &input = "") {
    std::vector<std::string> a = odbc_server() + std::vector<std::string>{"sql"} + args;
    return input.empty() ? qzcall(a) : qzcall(a, write("input.sql", input));
  }
  std::string conn() { return odbc::sqlite_conn(dir.file("t.db")); }
};

// Commands given with -e and what they print, a failed Connect (its reasons in the log), a
// failed \commit with its record, and a data source name alone: the whole output.
TEST_F(Shell, CommandsConnectionsAndTheirFailures) {
  const std::string log = dir.file("server.log");
  const std::string missing = "Driver={QZ Missing};Database=" + dir.file("t.db");
  struct Case {
    std::vector<std::string> args;  // with the connection string last
    int status;
    std::string out, err;
  };
  std::vector<Case> cases{
      {{"-e", "\\autocommit on", "-e", "\\trace 0", "-e", "\\format csv", "-e", "\\format", "-e",
        "\\log " + log + " O2", conn()},
       0,
       "autocommit on\ntrace level 0\nformat csv\nformat csv\nlogging O2 to " + log + "\n",
       ""},
      {{"-e", "\\commit", missing},
       1,
       "",
       "qzcall: Connect failed with status 1113 (the driver refused the connection)\n"
       "  (the server logs the driver's reasons; --log console shows them)\n"},
      {{"-e", "\\autocommit off", "-e", "\\commit",
        odbc::fault_conn(dir.file("t.db"), "SQLTransact:-1:HY000:7:commit refused")},
       1,
       "autocommit off\n",
       "qzcall: \\commit failed with status 1111 (the ODBC call failed)\n"
       "  S1000 (native 7): commit refused\n"}};
  // pg-cluster.sh registers the data source qz_pg in the private odbc.ini.
  if (odbc::pg_available())
    cases.push_back({{"-e", "\\autocommit off", "-e", "\\rollback", "qz_pg"},
                     0,
                     "autocommit off\nrolled back\n",
                     ""});
  for (const Case &c : cases) {
    RunResult r = sql(c.args);
    EXPECT_EQ(r.status, c.status) << c.args[1] << "\n" << r.err;
    EXPECT_EQ(r.out, c.out) << c.args[1];
    EXPECT_EQ(r.err, c.err) << c.args[1];
  }
  RunResult r = sql({"--log", "console", missing});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("Can't open lib 'QZ Missing'"), std::string::npos) << r.err;
  r = sql({"-e", "\\conninfo", "-e", "\\version", conn()});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(std::regex_search(r.out, std::regex("^connection 1: .*Database=" + dir.file("t.db"))))
      << r.out;
  EXPECT_NE(r.out.find("VersionID $Id: odbc_dll.cpp,v 27.1"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("Revision  1.8\n"), std::string::npos) << r.out;
}

TEST_F(Shell, BadCommandsFail) {
  const std::pair<const char *, const char *> cases[] = {
      {"\\autocommit maybe", "\\autocommit takes on or off"},
      {"\\trace -1", "\\trace takes a level"},
      {"\\log", "\\log takes a file"},
      {"\\commit now", "\\commit takes no argument"},
      {"\\frobnicate", "unknown command \\frobnicate; \\? lists the commands"},
      {"\\log /nonexistent/dir/x.log", "\\log /nonexistent/dir/x.log failed with status 56"},
  };
  for (const auto &[command, err] : cases) {
    RunResult r = sql({"-e", command, conn()});
    EXPECT_EQ(r.status, 1) << command;
    EXPECT_NE(r.err.find(err), std::string::npos) << command << "\n" << r.err;
  }
}

TEST_F(Shell, BatchStopsAtTheFirstFailureUnlessToldToGoOn) {
  const std::string input = "SELECT 1 AS one;\nSELEC 1;\n\\commit\n";
  const std::string one = " one\n-----\n   1\n(1 row)\n\n";
  const std::string diagnostics =
      "qzcall: line 2: ExecDirect failed with status 1118 (the statement failed)\n"
      "  S1000 (native 1): [SQLite]near \"SELEC\": syntax error (1)\n";
  RunResult r = sql({conn()}, input);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, one);
  EXPECT_EQ(r.err, diagnostics);
  r = sql({"-k", conn()}, input);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, one + "committed\n");
  EXPECT_EQ(r.err, diagnostics);
  // Texts of -e have no input lines; their statements split at ';' all the same.
  r = sql({"-e", "SELECT 1 AS one; SELECT 2 AS two", "-e", "SELECT 'x' AS \"x;y\"", conn()});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, one + " two\n-----\n   2\n(1 row)\n\n x;y\n-----\n x\n(1 row)\n\n");
}

TEST_F(Shell, ARowTooLongToComePackedIsReadColumnByColumn) {
  // 1100 columns of 250 characters: more than the packed row buffer holds.
  std::string select = "SELECT x AS c1";
  for (int c = 2; c <= 1100; ++c)
    select += ", x AS c" + std::to_string(c);
  select += " FROM (SELECT replace(hex(zeroblob(125)), '0', 'v') AS x)";
  RunResult r = sql({"-F", "csv", "-e", select, conn()});
  EXPECT_EQ(r.status, 0) << r.err;
  std::string row;
  for (int c = 1; c <= 1100; ++c)
    row += (c > 1 ? "," : "") + std::string(250, 'v');
  ASSERT_EQ(r.out.size(), r.out.find('\n') + 1 + row.size() + 1);
  EXPECT_EQ(r.out.substr(r.out.find('\n') + 1), row + "\n");
  // The packed format cannot show it, and says what can.
  r = sql({"-F", "packed", "-e", select, conn()});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err,
            "qzcall: a row longer than 262144 bytes does not fit the packed row buffer; "
            "\\format table or csv shows it\n");
}

// ---- the SQL shell on both drivers ------------------------------------------------------

// The driver a parametrised shell test runs on.
enum class Driver { sqlite, postgres };

class ShellOn : public ::testing::TestWithParam<Driver> {
 protected:
  void SetUp() override {
    if (pg() && !odbc::pg_available()) GTEST_SKIP() << "no PostgreSQL in this build";
    // One name per process, always eight characters wide, so that tables align alike.
    char name[16];
    std::snprintf(name, sizeof name, "g%07d", static_cast<int>(getpid() % 10000000));
    table_ = name;
  }
  void TearDown() override {
    if (pg() && odbc::pg_available()) odbc::psql("DROP TABLE IF EXISTS " + table_);
  }
  bool pg() const { return GetParam() == Driver::postgres; }
  std::string conn() const { return pg() ? odbc::pg_conn() : odbc::sqlite_conn(dir_.file("t.db")); }
  RunResult sql(const std::vector<std::string> &args, const std::string &input) {
    std::string path = dir_.file("input.sql");
    std::ofstream(path, std::ios::binary) << input;
    return qzcall(odbc_server() + std::vector<std::string>{"sql"} + args + std::vector{conn()},
                  path);
  }
  // `text` with every "T" replaced by the table's name.
  std::string t(const std::string &text) const {
    return std::regex_replace(text, std::regex("\\bT\\b"), table_);
  }
  std::string table_;  // the test table, g and the process id
  odbc::TempDir dir_;
};

std::string driver_name(const ::testing::TestParamInfo<Driver> &info) {
  return info.param == Driver::postgres ? "postgres" : "sqlite";
}

TEST_P(ShellOn, ResultsAsTableCsvAndPackedRowsWithRowCountsAndTheCatalog) {
  const std::string input =
      t("CREATE TABLE T (id INTEGER, name VARCHAR(20), born DATE, paid " +
        std::string(pg() ? "DOUBLE PRECISION" : "REAL") +
        ");\n"
        "INSERT INTO T VALUES (1, 'Ren\xc3\xa9"
        "e', '1970-01-02', 12.5);\n"
        "INSERT INTO T VALUES (2, NULL, NULL, NULL),\n"
        "  (3, '', '2000-02-29', 0);  -- NULL and empty text, NULL and zero\n"
        "UPDATE T SET paid = 1 WHERE id > 10;\n"
        "SELECT id, name, born, paid AS \"paid, in EUR\" FROM T ORDER BY id;\n"
        "\\format csv\n"
        "SELECT id, name, born, paid AS \"paid, in EUR\" FROM T ORDER BY id;\n"
        "\\format packed\n"
        "SELECT id, name FROM T WHERE id = 1;\n"
        "\\format table\n"
        "\\tables T\n"
        "\\columns T\n");
  RunResult r = sql({}, input);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "");
  // The packed row holds HP Roman-8 (e acute is 0xC5), its length counting those bytes;
  // the shell shows the text in UTF-8.
  const std::string tables = pg() ? " schema | name     | type\n"
                                    "--------+----------+-------\n"
                                    " public | T | TABLE\n"
                                  : " name     | type\n"
                                    "----------+-------\n"
                                    " T | TABLE\n";
  const std::string columns = pg() ? " column | type    | size | nullable\n"
                                     "--------+---------+------+----------\n"
                                     " id     | int4    |   10 | yes\n"
                                     " name   | varchar |   20 | yes\n"
                                     " born   | date    |   10 | yes\n"
                                     " paid   | float8  |   17 | yes\n"
                                   : " column | type        | size | nullable\n"
                                     "--------+-------------+------+----------\n"
                                     " id     | INTEGER     |    9 | yes\n"
                                     " name   | VARCHAR(20) |   20 | yes\n"
                                     " born   | DATE        |    0 | yes\n"
                                     " paid   | REAL        |   53 | yes\n";
  EXPECT_EQ(r.out, t("OK\n"
                     "1 row affected\n"
                     "2 rows affected\n"
                     "0 rows affected\n"
                     " id | name  | born     | paid, in EUR\n"
                     "----+-------+----------+--------------\n"
                     "  1 | Ren\xc3\xa9"
                     "e | 19700102 |         12.5\n"
                     "  2 | NULL  | NULL     |         NULL\n"
                     "  3 |       | 20000229 |            0\n"
                     "(3 rows)\n"
                     "\n"
                     "format csv\n"
                     "id,name,born,\"paid, in EUR\"\n"
                     "1,Ren\xc3\xa9"
                     "e,19700102,12.5\n"
                     "2,,,\n"
                     "3,\"\",20000229,0\n"
                     "format packed\n"
                     "NId~0~1~1XName~0~5~Ren\xc3\xa9"
                     "e$\n"
                     "(1 row)\n"
                     "\n"
                     "format table\n" +
                     tables + "(1 row)\n\n" + columns +
                     "(4 rows)\n"
                     "\n"));
  // With --encoding latin1 the same text comes out in ISO 8859-1 (e acute 0xE9).
  r = sql({"--encoding", "latin1", "-F", "csv"},
          t("SELECT name FROM T WHERE id = 1;\nDELETE FROM T"));
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out,
            "name\nRen\xe9"
            "e\n3 rows affected\n");
}

TEST_P(ShellOn, FailuresShowTheStatusAndEveryDiagnosticRecord) {
  RunResult r = sql({"-k"}, "SELECT * FROM missing_table;\nSELEC 1;\n");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "");
  const std::string expected =
      pg() ? "qzcall: line 1: ExecDirect failed with status 1118 (the statement failed)\n"
             "  42P01 (native 1): ERROR: relation \"missing_table\" does not exist;\n"
             "    Error while executing the query\n"
             "qzcall: line 2: ExecDirect failed with status 1118 (the statement failed)\n"
             "  42601 (native 1): ERROR: syntax error at or near \"SELEC\";\n"
             "    Error while executing the query\n"
           : "qzcall: line 1: ExecDirect failed with status 1118 (the statement failed)\n"
             "  S1000 (native 1): [SQLite]no such table: missing_table (1)\n"
             "qzcall: line 2: ExecDirect failed with status 1118 (the statement failed)\n"
             "  S1000 (native 1): [SQLite]near \"SELEC\": syntax error (1)\n";
  EXPECT_EQ(r.err, expected);
}

TEST_P(ShellOn, TransactionsAcrossStatements) {
  RunResult r = sql({}, t("CREATE TABLE T (k INTEGER);\n"
                          "\\autocommit off\n"
                          "INSERT INTO T VALUES (1);\n"
                          "\\commit\n"
                          "INSERT INTO T VALUES (2);\n"
                          "\\rollback\n"
                          "SELECT count(*) AS n FROM T;\n"));
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out,
            "OK\nautocommit off\n1 row affected\ncommitted\n1 row affected\nrolled back\n"
            " n\n---\n 1\n(1 row)\n\n");
}

INSTANTIATE_TEST_SUITE_P(Drivers, ShellOn, ::testing::Values(Driver::sqlite, Driver::postgres),
                         driver_name);

// Reads from the terminal until `want` has appeared in `seen` at `from` or after (true),
// or the other side is gone or silent for long (false).
bool read_until(int fd, std::string &seen, const std::string &want, std::size_t from = 0) {
  auto until = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (want.empty() || seen.find(want, from) == std::string::npos) {
    int left = static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                    until - std::chrono::steady_clock::now())
                                    .count());
    pollfd p{fd, POLLIN, 0};
    if (left <= 0 || poll(&p, 1, left) <= 0) return false;
    char buf[512];
    ssize_t n = read(fd, buf, sizeof buf);
    if (n <= 0) return false;  // EIO: the shell has ended
    seen.append(buf, static_cast<std::size_t>(n));
  }
  return true;
}

TEST_F(Shell, InteractiveThroughATerminal) {
  std::vector<std::string> argv =
      qzcall_argv(odbc_server() + std::vector<std::string>{"sql", conn()});
  std::vector<char *> cargv;
  for (std::string &a : argv)
    cargv.push_back(a.data());
  cargv.push_back(nullptr);
  int fd;
  pid_t pid = forkpty(&fd, nullptr, nullptr, nullptr);
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    setenv("HOME", dir.path().c_str(), 1);
    setenv("TERM", "dumb", 1);
    execvp(cargv[0], cargv.data());
    _exit(127);
  }
  std::string seen;
  // Each line is typed once the prompt asks for it.
  EXPECT_TRUE(read_until(fd, seen, "qz=> ")) << seen;
  EXPECT_NE(seen.find("connected (connection 1)"), std::string::npos) << seen;
  for (const char *line :
       {"\\autocommit off\n", "\\commit\n", "select\n", "1 AS one;\n", "\\q\n"}) {
    std::size_t from = seen.size();
    ASSERT_EQ(::write(fd, line, std::strlen(line)), static_cast<ssize_t>(std::strlen(line)));
    if (line[0] != '\\' || line[1] != 'q') {
      EXPECT_TRUE(read_until(fd, seen, line[0] == 's' ? "qz-> " : "qz=> ", from)) << seen;
    }
  }
  read_until(fd, seen, "");  // to the end
  close(fd);
  int st = 0;
  ASSERT_EQ(waitpid(pid, &st, 0), pid);
  EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0) << seen;
  EXPECT_NE(seen.find("autocommit off"), std::string::npos) << seen;
  EXPECT_NE(seen.find("committed"), std::string::npos) << seen;
  // The query's table, with the terminal's line ends.
  EXPECT_NE(seen.find(" one\r\n-----\r\n   1\r\n(1 row)\r\n"), std::string::npos) << seen;
}

}  // namespace
