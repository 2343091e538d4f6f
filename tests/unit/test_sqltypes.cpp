// Tests of the type tables: the binding chosen for every described SQL type and for
// NUMERIC/DECIMAL by precision and scale, the text sizes against both settings, the
// names in log lines, the value type codes and the bindings of undescribed parameters.
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "sqltypes.hpp"

namespace {

constexpr int kDef = 1024;  // text_column_def_size at start
constexpr int kMax = 1024;  // text_column_max_size at start

struct Expect {
  int sql_type;
  const char *name;
  int ctype;
  int size;  // for text types: the size at precision 10 with the default settings
};

// Every named type of the table, each bound as described with precision 10, scale 0.
const Expect kTable[] = {
    {SQL_BIT, "BIT", SQL_C_LONG, 4},
    {SQL_TINYINT, "TINYINT", SQL_C_LONG, 4},
    {SQL_BIGINT, "BIGINT", SQL_C_CHAR, 11},
    {SQL_LONGVARBINARY, "LONGVARBINARY", SQL_C_CHAR, 11},
    {SQL_VARBINARY, "VARBINARY", SQL_C_CHAR, 11},
    {SQL_BINARY, "BINARY", SQL_C_CHAR, 11},
    {SQL_LONGVARCHAR, "LONGVARCHAR", SQL_C_CHAR, 11},
    {SQL_CHAR, "CHAR", SQL_C_CHAR, 11},
    {SQL_INTEGER, "INTEGER", SQL_C_LONG, 4},
    {SQL_SMALLINT, "SMALLINT", SQL_C_LONG, 4},
    {SQL_FLOAT, "FLOAT", SQL_C_DOUBLE, 8},
    {SQL_REAL, "REAL", SQL_C_DOUBLE, 8},
    {SQL_DOUBLE, "DOUBLE", SQL_C_DOUBLE, 8},
    {SQL_DATE, "DATE", SQL_C_DATE, 6},
    {SQL_TIME, "TIME", SQL_C_TIME, 6},
    {SQL_TIMESTAMP, "TIMESTAMP", SQL_C_TIMESTAMP, 16},
    {SQL_VARCHAR, "VARCHAR", SQL_C_CHAR, 11},
};

// Fixed types keep their binding whatever the precision, scale and settings.
TEST(SqlTypes, EveryNamedTypeHasItsNameCTypeAndSize) {
  for (const Expect &e : kTable) {
    SCOPED_TRACE(e.name);
    char buf[qz::kSqlTypeNameSize];
    EXPECT_STREQ(qz::sql_type_name(e.sql_type, buf), e.name);
    qz::ColumnBuffer b = qz::buffer_for_sql_type(e.sql_type, 10, 0, kDef, kMax);
    EXPECT_EQ(b.ctype, e.ctype);
    EXPECT_EQ(b.size, e.size);
    for (std::uint32_t p : {0u, 9u, 38u, 100000u}) {
      if (e.ctype == SQL_C_CHAR) break;
      b = qz::buffer_for_sql_type(e.sql_type, p, 5, 10, 20);
      EXPECT_EQ(b.ctype, e.ctype) << p;
      EXPECT_EQ(b.size, e.size) << p;
    }
  }
}

TEST(SqlTypes, UnknownCodesAreNamedWithTheirNumberAndBoundAsText) {
  char buf[qz::kSqlTypeNameSize];
  EXPECT_STREQ(qz::sql_type_name(SQL_UNKNOWN_TYPE, buf), "UNKNOWN(0)");
  EXPECT_STREQ(qz::sql_type_name(SQL_TYPE_DATE, buf), "UNKNOWN(91)");
  EXPECT_STREQ(qz::sql_type_name(13, buf), "UNKNOWN(13)");
  EXPECT_STREQ(qz::sql_type_name(-8, buf), "UNKNOWN(-8)");  // SQL_WCHAR
  EXPECT_STREQ(qz::sql_type_name(-2147483647 - 1, buf), "UNKNOWN(-2147483648)");
  for (int code : {SQL_UNKNOWN_TYPE, SQL_TYPE_DATE, SQL_TYPE_TIMESTAMP, 13, -8, -11, 32767}) {
    SCOPED_TRACE(code);
    qz::ColumnBuffer b = qz::buffer_for_sql_type(code, 30, 0, kDef, kMax);
    EXPECT_EQ(b.ctype, SQL_C_CHAR);
    EXPECT_EQ(b.size, 31);
  }
}

TEST(SqlTypes, NumericAndDecimalChooseByPrecisionAndScale) {
  for (int type : {SQL_NUMERIC, SQL_DECIMAL}) {
    SCOPED_TRACE(type);
    struct {
      std::uint32_t p;
      int s;
      int ctype;
      int size;
    } cases[] = {
        {9, 0, SQL_C_LONG, 4},    {1, 0, SQL_C_LONG, 4},    {0, 0, SQL_C_LONG, 4},
        {10, 0, SQL_C_DOUBLE, 8}, {9, 2, SQL_C_DOUBLE, 8},  {14, 0, SQL_C_DOUBLE, 8},
        {14, 4, SQL_C_DOUBLE, 8}, {5, -1, SQL_C_DOUBLE, 8}, {15, 2, SQL_C_CHAR, 16},
        {15, 0, SQL_C_CHAR, 16},  {38, 10, SQL_C_CHAR, 39}, {20, 2, SQL_C_CHAR, 21},
    };
    for (const auto &c : cases) {
      SCOPED_TRACE(std::to_string(c.p) + "," + std::to_string(c.s));
      qz::ColumnBuffer b = qz::buffer_for_sql_type(type, c.p, c.s, kDef, kMax);
      EXPECT_EQ(b.ctype, c.ctype);
      EXPECT_EQ(b.size, c.size);
    }
  }
}

// Text buffers by precision and both settings: one byte more than the precision, but the
// default size for precision 0 and the maximum itself beyond the maximum; wide NUMERIC is
// text whatever the settings, and an absurd precision stops at the largest size.
TEST(SqlTypes, TextSizesFollowPrecisionAndSettings) {
  const struct {
    int type;            // described SQL type
    std::uint32_t p;     // its precision
    int def, max, size;  // the two settings and the buffer size
  } cases[] = {
      {SQL_VARCHAR, 2000, kDef, kMax, 1024},  // at most 1023 characters arrive
      {SQL_VARCHAR, 1024, kDef, kMax, 1025},
      {SQL_VARCHAR, 1025, kDef, kMax, 1024},
      {SQL_VARCHAR, 1023, kDef, kMax, 1024},
      {SQL_CHAR, 1, kDef, kMax, 2},
      {SQL_VARCHAR, 0, kDef, kMax, kDef},
      {SQL_LONGVARCHAR, 0xFFFFFFFFu, kDef, kMax, kMax},
      {SQL_BIGINT, 19, kDef, kMax, 20},  // 19 digits and a sign do not fit SQL_C_LONG
      {SQL_VARCHAR, 0, 100, 5000, 100},
      {SQL_VARCHAR, 2000, 100, 5000, 2001},
      {SQL_VARCHAR, 5000, 100, 5000, 5001},
      {SQL_VARCHAR, 5001, 100, 5000, 5000},
      {SQL_VARCHAR, 32767, 32767, 32767, 32768},
      {SQL_VARCHAR, 32768, 32767, 32767, 32767},
      {SQL_BINARY, 2, 1, 1, 1},
      {SQL_NUMERIC, 2000, 10, 20, 2001},
      {SQL_DECIMAL, 0xFFFFFFFFu, 10, 20, 2147483647},
      {SQL_DECIMAL, 2147483646u, 10, 20, 2147483647},
  };
  for (const auto &c : cases) {
    qz::ColumnBuffer b = qz::buffer_for_sql_type(c.type, c.p, 0, c.def, c.max);
    EXPECT_EQ(b.ctype, SQL_C_CHAR) << c.type << " " << c.p;
    EXPECT_EQ(b.size, c.size) << c.type << " " << c.p << " with " << c.def << ", " << c.max;
  }
}

TEST(SqlTypes, CTypeNamesAndValueTypeCodesRoundTrip) {
  const struct {
    int ctype;         // C type
    const char *name;  // its name in log lines
    int code;          // its value type code
  } cases[] = {{SQL_C_CHAR, "C_CHAR", qz::kValueString},
               {SQL_C_LONG, "C_LONG", qz::kValueInteger},
               {SQL_C_DOUBLE, "C_DOUBLE", qz::kValueReal},
               {SQL_C_DATE, "C_DATE", qz::kValueDate},
               {SQL_C_TIME, "C_TIME", qz::kValueTime},
               {SQL_C_TIMESTAMP, "C_TIMESTAMP", qz::kValueTimestamp}};
  int expected_code = 1;  // the codes are 1 to 6 in this order
  for (const auto &c : cases) {
    EXPECT_STREQ(qz::c_type_name(c.ctype), c.name);
    EXPECT_EQ(c.code, expected_code++);
    EXPECT_EQ(qz::ctype_of_value_type(c.code), c.ctype);
    EXPECT_EQ(qz::value_type_of_ctype(c.ctype), c.code);
  }
  for (int other : {0, 2, 3, 5, 7, 12, SQL_C_SLONG, SQL_C_TYPE_DATE, SQL_C_DEFAULT, -1})
    EXPECT_STREQ(qz::c_type_name(other), "?") << other;
  for (int bad : {0, 7, -1, 100})
    EXPECT_EQ(qz::ctype_of_value_type(bad), 0) << bad;
  for (int bad : {0, 2, SQL_C_SLONG, SQL_C_TYPE_TIMESTAMP})
    EXPECT_EQ(qz::value_type_of_ctype(bad), 0);
}

TEST(SqlTypes, SetTypeBuffersByValueTypeCode) {
  // Text gets the default size itself, without the extra byte of text parameters.
  qz::ColumnBuffer b = qz::buffer_for_value_type(qz::kValueString, 300);
  EXPECT_EQ(b.ctype, SQL_C_CHAR);
  EXPECT_EQ(b.size, 300);
  struct {
    int code, ctype, size;
  } fixed[] = {{qz::kValueInteger, SQL_C_LONG, 4},
               {qz::kValueReal, SQL_C_DOUBLE, 8},
               {qz::kValueDate, SQL_C_DATE, 6},
               {qz::kValueTime, SQL_C_TIME, 6},
               {qz::kValueTimestamp, SQL_C_TIMESTAMP, 16}};
  for (const auto &f : fixed) {
    b = qz::buffer_for_value_type(f.code, 300);
    EXPECT_EQ(b.ctype, f.ctype) << f.code;
    EXPECT_EQ(b.size, f.size) << f.code;
    // Every binding matches the table's binding of the SQL type of the same kind.
    EXPECT_EQ(qz::value_type_of_ctype(b.ctype), f.code);
  }
  for (int bad : {0, 7, -1}) {
    b = qz::buffer_for_value_type(bad, 300);
    EXPECT_EQ(b.ctype, 0) << bad;
    EXPECT_EQ(b.size, 0) << bad;
  }
}

TEST(SqlTypes, BindingsOfUndescribedParameters) {
  const struct {
    int ctype, setting;       // the value's C type and the default text size
    int sql_type;             // SQL type bound
    std::uint32_t precision;  // precision bound
    int size;                 // buffer size
  } cases[] = {
      {SQL_C_CHAR, kDef, SQL_VARCHAR, 1024, 1025},  // 1024 characters fit with their NUL
      {SQL_C_CHAR, 32767, SQL_VARCHAR, 32767, 32768},
      {SQL_C_LONG, kDef, SQL_INTEGER, 10, 4},
      {SQL_C_DOUBLE, kDef, SQL_DOUBLE, 15, 8},
  };
  for (const auto &c : cases) {
    qz::ParamBinding b = qz::param_binding(c.ctype, c.setting);
    EXPECT_EQ(b.ctype, c.ctype);
    EXPECT_EQ(b.sql_type, c.sql_type) << c.ctype;
    EXPECT_EQ(b.precision, c.precision) << c.ctype;
    EXPECT_EQ(b.size, c.size) << c.ctype;
  }
  EXPECT_EQ(qz::param_binding(SQL_C_DATE, kDef).ctype, 0);
}

}  // namespace
