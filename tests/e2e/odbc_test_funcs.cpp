// The function table of qzodbc-test: the 38 rows of qzodbc, then rows that only tests
// need: making the n-th allocation fail, reading connection options back from the driver
// manager, and a statement whose failure leaves diagnostics on all three handle levels.
#include <array>
#include <cstring>

#include "connection.hpp"
#include "odbc_functions.hpp"
#include "statement.hpp"
#include "util.hpp"

namespace {

// The n-th allocation from the next call on fails (0: none).
int FailAlloc(int n) {
  dll_alloc_fail_at(n);
  return 0;
}

// SQLGetConnectOption of an integer option: 0 and the value, 8 for an unknown ConnId, or
// the ODBC return code.
int GetConnectOption(int ConnId, int Option, int *Value) {
  connection *conn = find_connection(ConnId);
  if (!conn) return 8;
  SQLULEN v = 0;
  SQLRETURN rc = SQLGetConnectOption(conn->hdbc, static_cast<SQLUSMALLINT>(Option), &v);
  if (rc != SQL_SUCCESS) return rc;
  *Value = static_cast<int>(v);
  return 0;
}

// The same for a string-valued option.
int GetConnectOptionText(int ConnId, int Option, QzStr *Value) {
  connection *conn = find_connection(ConnId);
  if (!conn) return 8;
  char text[SQL_MAX_OPTION_STRING_LENGTH + 1] = {0};
  SQLRETURN rc = SQLGetConnectOption(conn->hdbc, static_cast<SQLUSMALLINT>(Option), text);
  if (rc != SQL_SUCCESS) return rc;
  return str2QzStr(text, Value);
}

// A registered statement with an allocated handle on connection ConnId, made the way the
// statement functions make theirs: 0, 8 (unknown connection), 2 or 1110.
int OpenStatement(int ConnId, int *StmtId) {
  stmt *s = nullptr;
  if (int st = create_statement(ConnId, &s, StmtId, nullptr)) return st;
  if (setup_statement(s) != 0) {
    s = remove_statement(*StmtId);
    s->methods->drop(&s);
    *StmtId = 0;
    return 1110;
  }
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

constexpr std::array kTestRows{
    qz::fn::func<FailAlloc>("FailAlloc", {{"N", IntByValue}}),
    qz::fn::func<GetConnectOption>(
        "GetConnectOption",
        {{"ConnId", IntByValue}, {"Option", IntByValue}, {"Value", IntByReference}}),
    qz::fn::func<GetConnectOptionText>(
        "GetConnectOptionText",
        {{"ConnId", IntByValue}, {"Option", IntByValue}, {"Value", String}}),
    qz::fn::func<OpenStatement>("OpenStatement",
                                {{"ConnId", IntByValue}, {"StmtId", IntByReference}}),
    qz::fn::func<ThreeLevelError>("ThreeLevelError", {{"StmtId", IntByValue}, {"Sql", zString}}),
};

template <std::size_t A, std::size_t B>
consteval std::array<qz::fn::Func, A + B> concat(const std::array<qz::fn::Func, A> &a,
                                                 const std::array<qz::fn::Func, B> &b) {
  std::array<qz::fn::Func, A + B> all{};
  for (std::size_t i = 0; i < A; ++i)
    all[i] = a[i];
  for (std::size_t i = 0; i < B; ++i)
    all[A + i] = b[i];
  return all;
}

constexpr auto kAllRows = concat(qz::kOdbcFunctions, kTestRows);

}  // namespace

QZ_FUNCTION_SET(kAllRows)
