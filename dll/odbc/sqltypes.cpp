// The SQL type table runs from BIT (-7) to VARCHAR (12), indexed by code + 7; codes
// outside it, and 0, have no name and bind as text.
#include "sqltypes.hpp"

#include <cstdio>
#include <limits>

namespace qz {
namespace {

// How a described SQL type chooses its binding.
enum class Rule : std::uint8_t {
  fixed,    // the C type and size of the table entry
  text,     // SQL_C_CHAR sized by the text rule
  numeric,  // chosen by precision and scale
};

struct SqlTypeEntry {
  const char *name;    // name in log lines; null for "UNKNOWN(%d)"
  Rule rule;           // how the binding is chosen
  std::int16_t ctype;  // C type of a fixed entry
  std::int32_t size;   // buffer size of a fixed entry
};

constexpr int kFirstCode = SQL_BIT;
constexpr SqlTypeEntry kSqlTypes[] = {
    {"BIT", Rule::fixed, SQL_C_LONG, 4},              // -7
    {"TINYINT", Rule::fixed, SQL_C_LONG, 4},          // -6
    {"BIGINT", Rule::text, SQL_C_CHAR, 0},            // -5: wider than SQL_C_LONG
    {"LONGVARBINARY", Rule::text, SQL_C_CHAR, 0},     // -4
    {"VARBINARY", Rule::text, SQL_C_CHAR, 0},         // -3
    {"BINARY", Rule::text, SQL_C_CHAR, 0},            // -2
    {"LONGVARCHAR", Rule::text, SQL_C_CHAR, 0},       // -1
    {nullptr, Rule::text, SQL_C_CHAR, 0},             // 0: SQL_UNKNOWN_TYPE
    {"CHAR", Rule::text, SQL_C_CHAR, 0},              // 1
    {"NUMERIC", Rule::numeric, 0, 0},                 // 2
    {"DECIMAL", Rule::numeric, 0, 0},                 // 3
    {"INTEGER", Rule::fixed, SQL_C_LONG, 4},          // 4
    {"SMALLINT", Rule::fixed, SQL_C_LONG, 4},         // 5
    {"FLOAT", Rule::fixed, SQL_C_DOUBLE, 8},          // 6
    {"REAL", Rule::fixed, SQL_C_DOUBLE, 8},           // 7
    {"DOUBLE", Rule::fixed, SQL_C_DOUBLE, 8},         // 8
    {"DATE", Rule::fixed, SQL_C_DATE, 6},             // 9
    {"TIME", Rule::fixed, SQL_C_TIME, 6},             // 10
    {"TIMESTAMP", Rule::fixed, SQL_C_TIMESTAMP, 16},  // 11
    {"VARCHAR", Rule::text, SQL_C_CHAR, 0},           // 12
};
constexpr int kNumSqlTypes = sizeof kSqlTypes / sizeof kSqlTypes[0];
static_assert(kFirstCode + kNumSqlTypes - 1 == SQL_VARCHAR);
static_assert(SQL_UNKNOWN_TYPE == 0 && SQL_CHAR == 1 && SQL_NUMERIC == 2 && SQL_DATE == 9 &&
              SQL_TIMESTAMP == 11 && SQL_LONGVARCHAR == -1 && SQL_BIGINT == -5);

// The C types of value type codes 1..6, in code order.
constexpr std::int16_t kValueCtypes[] = {SQL_C_CHAR, SQL_C_LONG, SQL_C_DOUBLE,
                                         SQL_C_DATE, SQL_C_TIME, SQL_C_TIMESTAMP};
constexpr std::int32_t kValueSizes[] = {
    0, 4, 8, sizeof(SQL_DATE_STRUCT), sizeof(SQL_TIME_STRUCT), sizeof(SQL_TIMESTAMP_STRUCT)};
static_assert(sizeof(SQL_DATE_STRUCT) == 6 && sizeof(SQL_TIME_STRUCT) == 6 &&
              sizeof(SQL_TIMESTAMP_STRUCT) == 16);

const SqlTypeEntry *find_sql_type(int sql_type) {
  int i = sql_type - kFirstCode;
  if (sql_type < kFirstCode || i >= kNumSqlTypes) return nullptr;
  return &kSqlTypes[i];
}

// precision + 1 as a buffer size. A driver may describe an unbounded column with a
// huge precision; the size then stops at the largest int, which no allocation grants.
std::int32_t one_more(std::uint32_t precision) {
  constexpr auto kMax = std::numeric_limits<std::int32_t>::max();
  return precision >= static_cast<std::uint32_t>(kMax) ? kMax
                                                       : static_cast<std::int32_t>(precision) + 1;
}

std::int32_t text_size(std::uint32_t precision, int text_def_size, int text_max_size) {
  if (precision == 0) return text_def_size;
  if (precision <= static_cast<std::uint32_t>(text_max_size)) return one_more(precision);
  // Longer values arrive cut by the driver to text_max_size - 1 characters.
  return text_max_size;
}

}  // namespace

ColumnBuffer buffer_for_sql_type(int sql_type, std::uint32_t precision, int scale,
                                 int text_def_size, int text_max_size) {
  const SqlTypeEntry *e = find_sql_type(sql_type);
  Rule rule = e ? e->rule : Rule::text;
  switch (rule) {
    case Rule::fixed:
      return {e->ctype, e->size};
    case Rule::numeric:
      if (scale == 0 && precision <= 9) return {SQL_C_LONG, 4};
      if (precision <= 14) return {SQL_C_DOUBLE, 8};
      return {SQL_C_CHAR, one_more(precision)};
    case Rule::text:
      break;
  }
  return {SQL_C_CHAR, text_size(precision, text_def_size, text_max_size)};
}

ColumnBuffer buffer_for_value_type(int code, int text_def_size) {
  if (code < kValueString || code > kValueTimestamp) return {0, 0};
  if (code == kValueString) return {SQL_C_CHAR, text_def_size};
  return {kValueCtypes[code - 1], kValueSizes[code - 1]};
}

ParamBinding param_binding(int ctype, int text_def_size) {
  switch (ctype) {
    case SQL_C_CHAR:
      return {SQL_C_CHAR, SQL_VARCHAR, static_cast<std::uint32_t>(text_def_size),
              text_def_size + 1};
    case SQL_C_LONG:
      return {SQL_C_LONG, SQL_INTEGER, 10, 4};
    case SQL_C_DOUBLE:
      return {SQL_C_DOUBLE, SQL_DOUBLE, 15, 8};
    default:
      return {0, 0, 0, 0};
  }
}

const char *sql_type_name(int sql_type, char (&buf)[kSqlTypeNameSize]) {
  const SqlTypeEntry *e = find_sql_type(sql_type);
  if (e && e->name) return e->name;
  std::snprintf(buf, sizeof buf, "UNKNOWN(%d)", sql_type);
  return buf;
}

const char *c_type_name(int ctype) {
  switch (ctype) {
    case SQL_C_CHAR:
      return "C_CHAR";
    case SQL_C_LONG:
      return "C_LONG";
    case SQL_C_DOUBLE:
      return "C_DOUBLE";
    case SQL_C_DATE:
      return "C_DATE";
    case SQL_C_TIME:
      return "C_TIME";
    case SQL_C_TIMESTAMP:
      return "C_TIMESTAMP";
    default:
      return "?";
  }
}

int value_type_of_ctype(int ctype) {
  for (int code = kValueString; code <= kValueTimestamp; ++code)
    if (kValueCtypes[code - 1] == ctype) return code;
  return 0;
}

int ctype_of_value_type(int code) {
  if (code < kValueString || code > kValueTimestamp) return 0;
  return kValueCtypes[code - 1];
}

}  // namespace qz
