// The connection object and err in process, on the SQLite driver of the private driver
// registration: how return codes become log lines and queue records, how the queue is read,
// and the methods' refusals that no ODBC call precedes.
#include <gtest/gtest.h>

#include <string>

#include "bridge.hpp"
#include "log_sink.hpp"
#include "statement.hpp"
#include "util.hpp"

namespace {

// The informational record the SQLite driver leaves for an option it does not know.
struct Rec {
  std::string message, state;
  int native;
};
const Rec kInfo{"[SQLite]option value changed", "01S02", -1};

class Connection : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/qz-conn.XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir = tmpl;
    qz__Log_SetFile(sink.fp);
    qz__Log_SetFlags("O2");
    ASSERT_EQ(new_connection(&conn), qz::kOk);
    std::string spec = "Driver={QZ SQLite};Database=" + dir + "/t.db";
    ASSERT_EQ(conn->methods->do_connect(conn, spec.c_str(), static_cast<int>(spec.size())), qz::kOk)
        << sink.text;
  }
  void TearDown() override {
    if (conn) conn->methods->drop(&conn);
    cleanup_odbc_errors();
    qz__Log_SetFile(nullptr);
    std::system(("rm -rf " + dir).c_str());
  }
  // A record left on the connection handle and not read yet: the SQLite driver answers an
  // option it does not know with SQL_SUCCESS_WITH_INFO, 01S02.
  SQLRETURN leave_info() { return SQLSetConnectOption(conn->hdbc, 9999, 0); }

  qz_test::Sink sink;
  std::string dir;
  connection *conn = nullptr;
};

TEST_F(Connection, ErrQueuesAndLogsInformationAndReturnsSuccess) {
  EXPECT_EQ(conn->refcnt, 1u);
  EXPECT_EQ(conn->generation, 1u);
  EXPECT_TRUE(conn->flags & CONN_CONNECTED);
  SQLRETURN rc = leave_info();
  ASSERT_EQ(rc, SQL_SUCCESS_WITH_INFO);
  EXPECT_EQ(conn->methods->err(conn, nullptr, rc, 0, "/some/dir/caller.cpp", 321), SQL_SUCCESS);
  // The caller's file and line; a native code of -1 prints as its unsigned 32-bit value.
  EXPECT_NE(sink.text.find(" O2: caller.cpp(321): [SQLite]option value changed SQLState=01S02 "
                           "[4294967295]\n"),
            std::string::npos)
      << sink.text;
  EXPECT_EQ(odbc_errors.count, 1);
  odbc_error *last = last_odbc_error();
  ASSERT_NE(last, nullptr);
  EXPECT_STREQ(last->sqlstate, "01S02");
  EXPECT_EQ(odbc_errors.count, 1);  // last_odbc_error changes nothing

  // A quiet report logs but keeps the queue as it is.
  sink.text.clear();
  rc = leave_info();
  EXPECT_EQ(conn->methods->err(conn, nullptr, rc, 1, __FILE__, __LINE__), SQL_SUCCESS);
  EXPECT_NE(sink.text.find("option value changed"), std::string::npos);
  EXPECT_EQ(odbc_errors.count, 1);

  // SQL_SUCCESS still empties the queue (unless quiet), and reads nothing.
  EXPECT_EQ(conn->methods->err(conn, nullptr, SQL_SUCCESS, 1, __FILE__, __LINE__), SQL_SUCCESS);
  EXPECT_EQ(odbc_errors.count, 1);
  EXPECT_EQ(conn->methods->err(conn, nullptr, SQL_SUCCESS, 0, __FILE__, __LINE__), SQL_SUCCESS);
  EXPECT_EQ(odbc_errors.count, 0);

  // A failure without any record: its own return code, nothing queued.
  EXPECT_EQ(conn->methods->err(conn, nullptr, SQL_ERROR, 0, __FILE__, __LINE__), SQL_ERROR);
  EXPECT_EQ(odbc_errors.count, 0);
}

// The order of the levels is checked through the server on both drivers; here: a
// statement's release is reported quietly, and the record handed out stays valid until
// the next read.
TEST_F(Connection, StatementReleaseKeepsTheQueueAndReadRecordsStayValid) {
  EXPECT_EQ(next_odbc_error(), nullptr);
  stmt *s = nullptr;
  ASSERT_EQ(new_statement(conn, &s), qz::kOk);
  ASSERT_EQ(setup_statement(s), 0);
  ASSERT_NE(s->hstmt, nullptr);
  conn->methods->err(conn, nullptr, leave_info(), 0, __FILE__, __LINE__);
  ASSERT_EQ(odbc_errors.count, 1);
  s->flags = STMT_PREPARED;
  drop_statement(s);
  EXPECT_EQ(s->hstmt, nullptr);
  EXPECT_EQ(s->flags, 0u);
  EXPECT_EQ(odbc_errors.count, 1);
  odbc_error *e = next_odbc_error();
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(curr_odbc_error, e);
  EXPECT_STREQ(e->message, kInfo.message.c_str());
  EXPECT_EQ(e->native, kInfo.native);
  EXPECT_EQ(next_odbc_error(), nullptr);  // frees the record handed out before
  EXPECT_EQ(odbc_errors.count, 0);
  s->methods->drop(&s);
  EXPECT_EQ(conn->refcnt, 1u);
}

TEST_F(Connection, RefusalsWithoutAConnectionCallNoOdbc) {
  // A queued record shows that no report (which would empty the queue) happened.
  conn->methods->err(conn, nullptr, leave_info(), 0, __FILE__, __LINE__);
  ASSERT_EQ(odbc_errors.count, 1);
  sink.text.clear();
  std::string spec = "Driver={QZ SQLite};Database=" + dir + "/t.db";
  EXPECT_EQ(conn->methods->do_connect(conn, spec.c_str(), static_cast<int>(spec.size())),
            qz::kAlreadyConnected);
  EXPECT_NE(sink.text.find("O2: connection.cpp("), std::string::npos);
  EXPECT_NE(sink.text.find("): ODBC connection already established\n"), std::string::npos);

  connection *idle = nullptr;
  ASSERT_EQ(new_connection(&idle), qz::kOk);
  EXPECT_EQ(idle->describe_param_ok, 1);
  EXPECT_EQ(idle->bind_parameter_ok, 1);
  sink.text.clear();
  EXPECT_EQ(idle->methods->commit(idle), qz::kNotConnected);
  EXPECT_EQ(idle->methods->rollback(idle), qz::kNotConnected);
  EXPECT_EQ(idle->methods->set_connect_option(idle, SQL_AUTOCOMMIT, 0), qz::kNotConnected);
  EXPECT_EQ(idle->methods->do_disconnect(idle), qz::kNotConnected);
  EXPECT_EQ(idle->methods->can_disconnect(idle), qz::kNotConnected);
  EXPECT_EQ(idle->methods->can_connect(idle), qz::kOk);
  std::size_t lines = 0;
  for (std::size_t p = 0;
       (p = sink.text.find("ODBC connection has not been established\n", p)) != std::string::npos;
       ++p)
    ++lines;
  EXPECT_EQ(lines, 5u) << sink.text;
  EXPECT_EQ(odbc_errors.count, 1);
  idle->methods->drop(&idle);
  EXPECT_EQ(idle, nullptr);
  EXPECT_EQ(odbc_errors.count, 1);  // a connection without handles releases none

  // A second holder's drop only releases that holder.
  connection *holder = conn;
  ++conn->refcnt;
  conn->methods->drop(&holder);
  EXPECT_EQ(holder, nullptr);
  EXPECT_EQ(conn->refcnt, 1u);
  EXPECT_TRUE(conn->flags & CONN_CONNECTED);
  EXPECT_EQ(odbc_errors.count, 1);
  EXPECT_EQ(conn->methods->commit(conn), qz::kOk);
  EXPECT_EQ(odbc_errors.count, 0);

  // The last drop disconnects: that report empties the queue too.
  conn->methods->err(conn, nullptr, leave_info(), 0, __FILE__, __LINE__);
  conn->methods->drop(&conn);
  EXPECT_EQ(conn, nullptr);
  EXPECT_EQ(odbc_errors.count, 0);
}

}  // namespace
