// The function table of qzodbc-test: the rows of qzodbc, then two that only tests need:
// making the n-th allocation fail, and a statement whose failure leaves diagnostics on
// all three handle levels.
#include <array>
#include <cstring>

#include "connection.hpp"
#include "odbc_functions.hpp"
#include "registry.hpp"
#include "statement.hpp"

namespace {

// The n-th allocation from the next call on fails (0: none).
int FailAlloc(int n) {
  dll_alloc_fail_at(n);
  return 0;
}

// Leaves a record on the connection (an unknown option read) and one on the environment
// (an invalid transaction code), runs Sql on statement StmtId and reports the outcome
// through the connection's err, which reads all three levels. Returns what err returns.
int ThreeLevelError(int StmtId, const char *Sql) {
  stmt *s = find_statement(StmtId);
  if (!s) return 8;
  SQLULEN v = 0;
  SQLGetConnectOption(s->conn->hdbc, 9999, &v);
  SQLTransact(s->conn->henv, SQL_NULL_HDBC, 99);
  SQLRETURN rc = SQLExecDirect(s->hstmt, reinterpret_cast<SQLCHAR *>(const_cast<char *>(Sql)),
                               static_cast<SQLINTEGER>(std::strlen(Sql)));
  return s->conn->methods->err(nullptr, s, rc, 0, __FILE__, __LINE__);
}

constexpr auto kAllRows = [] {
  std::array<qz::fn::Func, qz::kOdbcFunctions.size() + 2> all{};
  for (std::size_t i = 0; i < qz::kOdbcFunctions.size(); ++i)
    all[i] = qz::kOdbcFunctions[i];
  all[qz::kOdbcFunctions.size()] = qz::fn::func<FailAlloc>("FailAlloc", {{"N", IntByValue}});
  all[qz::kOdbcFunctions.size() + 1] =
      qz::fn::func<ThreeLevelError>("ThreeLevelError", {{"StmtId", IntByValue}, {"Sql", zString}});
  return all;
}();

}  // namespace

QZ_FUNCTION_SET(kAllRows)
