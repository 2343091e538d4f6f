// The type tables of result columns and parameters: which C type and buffer size a
// described SQL type is bound with, the names of SQL and C types in log lines, and the
// value type codes (1 string ... 6 timestamp) in which programs see and request types.
#pragma once

#include <cstdint>

#include <sql.h>
#include <sqlext.h>

namespace qz {

// Value type codes: the form in which a program sees and requests a column's or a
// parameter's type.
constexpr int kValueString = 1;     // SQL_C_CHAR
constexpr int kValueInteger = 2;    // SQL_C_LONG
constexpr int kValueReal = 3;       // SQL_C_DOUBLE
constexpr int kValueDate = 4;       // SQL_C_DATE
constexpr int kValueTime = 5;       // SQL_C_TIME
constexpr int kValueTimestamp = 6;  // SQL_C_TIMESTAMP

// Buffer for sql_type_name's "UNKNOWN(%d)": room for the longest int, NUL included.
constexpr int kSqlTypeNameSize = 24;

// A C type and the byte size of the buffer bound with it.
struct ColumnBuffer {
  std::int16_t ctype;  // SQL_C_CHAR, SQL_C_LONG, ...; 0 when there is none
  std::int32_t size;   // bytes of the value buffer, the NUL of a text included
};

// The binding of a parameter that no driver described, made by the first setter.
struct ParamBinding {
  std::int16_t ctype;       // the setter's C type
  std::int16_t sql_type;    // SQL type announced to the driver
  std::uint32_t precision;  // column size announced to the driver
  std::int32_t size;        // bytes of the value buffer
};

// C type and buffer size for a column or a described parameter of SQL type sql_type
// with the described precision and scale. Integer-like types bind SQL_C_LONG, floating
// ones SQL_C_DOUBLE, dates and times their structures; NUMERIC and DECIMAL follow the
// numeric rule (scale 0 and precision <= 9: SQL_C_LONG; precision <= 14: SQL_C_DOUBLE;
// else text of precision + 1 bytes, not limited by text_max_size); every other type,
// BIGINT and unknown codes included, is text by the text rule (precision 0:
// text_def_size; up to text_max_size: precision + 1; beyond: text_max_size itself).
// The sizes are the settings text_column_def_size and text_column_max_size.
ColumnBuffer buffer_for_sql_type(int sql_type, std::uint32_t precision, int scale,
                                 int text_def_size, int text_max_size);

// C type and buffer size that column_SETTYPE binds for a value type code: text gets
// text_def_size bytes (no extra byte for the NUL). A code outside 1..6 gives {0, 0}.
ColumnBuffer buffer_for_value_type(int code, int text_def_size);

// Binding of an undescribed parameter for the setter's C type: SQL_C_CHAR as VARCHAR of
// text_def_size (buffer one more), SQL_C_LONG as INTEGER(10), SQL_C_DOUBLE as DOUBLE(15).
// Any other C type gives {0, 0, 0, 0}. Scale 0 and nullable 1 go with every binding.
ParamBinding param_binding(int ctype, int text_def_size);

// Name of an SQL type code in log lines ("VARCHAR"); codes without a name are written as
// "UNKNOWN(%d)" into buf, which is then returned. The result lives as long as buf.
const char *sql_type_name(int sql_type, char (&buf)[kSqlTypeNameSize]);

// Name of a C type in log lines ("C_CHAR" ... "C_TIMESTAMP"), "?" for any other value.
const char *c_type_name(int ctype);

// Value type code (1..6) of a bound C type; 0 for a C type this system never binds.
int value_type_of_ctype(int ctype);

// C type of a value type code; 0 for a code outside 1..6.
int ctype_of_value_type(int code);

}  // namespace qz
