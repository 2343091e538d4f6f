// The two routes of the fetch benchmark deliver the same bytes: Fetch through qzodbc into
// a packed buffer, and the bridge's statement object driven in this process with
// qz::pack_row, on SQLite and PostgreSQL, for every column type of the benchmark's table,
// NULLs, delimiter bytes in values and a buffer too small for the row.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "connection.hpp"
#include "odbc_dll.hpp"
#include "statement.hpp"
#include "stmt_server.hpp"

namespace {

using namespace qz::test::stmt;

// A statement of the bridge in this process, on its own connection.
class InProcess {
 public:
  explicit InProcess(const std::string &spec) {
    if (new_connection(&conn_) == 0)
      connected_ =
          conn_->methods->do_connect(conn_, spec.data(), static_cast<int>(spec.size())) == 0;
  }
  ~InProcess() {
    if (s_) s_->methods->drop(&s_);
    if (conn_) conn_->methods->drop(&conn_);
  }
  bool connected() const { return connected_; }
  int execdirect(const std::string &sql) {
    if (int st = new_statement(conn_, &s_)) return st;
    return s_->methods->execdirect(s_, sql.data(), static_cast<int>(sql.size()));
  }
  // Fetches the next row and packs it into a buffer of `capacity` bytes; the status of
  // fetch (1 at the end) or of pack_row, and the packed bytes in *packed.
  int next(int capacity, std::string *packed) {
    if (int st = s_->methods->fetch(s_)) return st;
    std::vector<char> text(static_cast<std::size_t>(capacity));
    QzStr buf{capacity, 0, text.data()};
    int st = qz::pack_row(s_, &buf);
    packed->assign(text.data(), static_cast<std::size_t>(buf.len));
    return st;
  }

 private:
  connection *conn_ = nullptr;  // own connection
  stmt *s_ = nullptr;           // the statement of execdirect
  bool connected_ = false;      // do_connect succeeded
};

class FetchRoutes : public BackendTest {
 protected:
  // The benchmark's ten columns, with a row of values, a row of NULLs and a row whose
  // texts hold the packed format's delimiters.
  std::string make_table(Server &srv, int conn) {
    std::string t = table("routes");
    srv.run(conn, "CREATE TABLE " + t +
                      " (row_no INTEGER, qty INTEGER, price NUMERIC(12,2), amount NUMERIC(12,2), "
                      "order_date DATE, created_at TIMESTAMP, cust_name VARCHAR(40), "
                      "city VARCHAR(40), code VARCHAR(40), note VARCHAR(40))");
    srv.run(conn, "INSERT INTO " + t +
                      " VALUES (1, -2147483647, 12345678.90, -0.05, '1999-12-31', "
                      "'2024-02-29 23:59:58', 'Smith & Sons', 'Oslo', 'A-1', '')");
    srv.run(conn, "INSERT INTO " + t +
                      " VALUES (2, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL)");
    srv.run(conn, "INSERT INTO " + t +
                      " VALUES (3, 0, 0.10, 99999999.99, '1900-01-01', '2000-01-01 00:00:00', "
                      "'~0~5~', '$', '~$~', 'forty characters of text in one VARCHAR.')");
    return "SELECT row_no, qty, price, amount, order_date, created_at, cust_name, city, code, "
           "note FROM " +
           t + " ORDER BY row_no";
  }
};

// Every row, then a buffer with room for the first few entries of row 1 only: both routes
// stop at the same entry with 18 and keep what fitted, without the terminator.
TEST_P(FetchRoutes, PackRowInProcessGivesFetchsBytes) {
  Server srv;
  ASSERT_TRUE(srv.started());
  int conn = srv.connect(spec());
  const std::string select = make_table(srv, conn);
  for (int capacity : {4096, 60}) {
    int id = 0;
    ASSERT_EQ(srv.direct(conn, select, id), qz::kOk);
    InProcess in(spec());
    ASSERT_TRUE(in.connected());
    ASSERT_EQ(in.execdirect(select), qz::kOk);
    const int want = capacity == 4096 ? qz::kOk : qz::kNoRoom;
    for (int rows = 0;; ++rows) {
      std::string through, inproc;
      int row = -1;
      ASSERT_EQ(srv.fetch_packed(id, &through, capacity, &row), want);
      if (row == 0) {
        EXPECT_EQ(rows, 3);
        EXPECT_EQ(in.next(capacity, &inproc), qz::kNoMoreRows);
        break;
      }
      EXPECT_EQ(in.next(capacity, &inproc), want);
      EXPECT_EQ(inproc, through) << "row " << rows + 1;
      // The row of NULLs: numbers (and dates) pack "0", texts and the timestamp length 0.
      if (rows == 1) {
        EXPECT_EQ(through, entry(true, "Row_no", "2") + entry(true, "Qty", "0") +
                               entry(true, "Price", "0") + entry(true, "Amount", "0") +
                               entry(true, "Order_date", "0") + entry(false, "Created_at", "") +
                               entry(false, "Cust_name", "") + entry(false, "City", "") +
                               entry(false, "Code", "") + entry(false, "Note", "") + "$");
      }
      if (want == qz::kOk) continue;
      EXPECT_EQ(through.rfind(entry(true, "Row_no", "1") + entry(true, "Qty", "-2147483647"), 0),
                0u);
      EXPECT_NE(through.back(), '$');
      break;
    }
  }
  srv.stop_cleanly();
}

QZ_ON_BOTH_BACKENDS(FetchRoutes);

}  // namespace
