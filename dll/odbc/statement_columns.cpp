// Result columns of a statement: describing and binding them once after the statement ran,
// their accessors, re-binding one to another type, and reading a fetched value as text,
// integer or real with every conversion the bound C type calls for.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "bridge.hpp"
#include "datetime.hpp"
#include "format.hpp"
#include "numtext.hpp"
#include "qzcharset.hpp"
#include "sqltypes.hpp"
#include "statement_parts.hpp"
#include "varname.hpp"

namespace {

constexpr int kNameBuffer = 1024;  // SQLDescribeCol's name buffer; longer names arrive cut
constexpr int kTextBuffer = 512;   // getdata_STRING's buffer for numbers, dates and times

// Shared by all statements: the text of the last number, date or time read as a string.
char tmp[kTextBuffer];
// What a null value reads as.
char empty_text[1] = "";

// A heap copy of text, or null (logged) when none can be had.
char *copy_text(const char *text) {
  std::size_t n = std::strlen(text) + 1;
  auto *copy = static_cast<char *>(QZ_ALLOC(n));
  if (!copy) {
    return nullptr;
  }
  std::memcpy(copy, text, n);
  return copy;
}

// The column record of column number col, or null (logged) when there is none.
column *find_column(stmt *s, int col) {
  if (col < 1 || col > s->num_columns) {
    QZ_OLOG(2, "ODBC column #%d does not exist", col);
    return nullptr;
  }
  column *c = &s->rset[col - 1];
  QZ_ASSERT_TEXT(c->data, "rcol->data");
  return c;
}

// The first checks of the null test and the readers: a fetched row and an existing
// column. 0 with *c set, or 1112 or 1122 (logged).
int fetched_column(stmt *s, int col, column **c) {
  if (!(s->flags & STMT_FETCHED)) {
    QZ_OLOG(2, "ODBC data has not been fetched");
    return qz::kNotReady;
  }
  *c = find_column(s, col);
  return *c ? qz::kOk : qz::kNoSuchColumn;
}

template <typename T>
T value_of(const column *c) {
  T v;
  std::memcpy(&v, c->data, sizeof v);
  return v;
}

// Length of a fetched text, which seal_fetched_text has terminated inside its buffer.
unsigned text_length(const column *c) {
  return static_cast<unsigned>(std::strlen(static_cast<const char *>(c->data)));
}

}  // namespace

int setup_result(stmt *s) {
  QZ_ASSERT(s->conn);
  if (s->num_columns != 0) {
    QZ_OLOG(2, "ODBC statement still has columns attached");
    return qz::kOdbcFailed;
  }
  QZ_ASSERT(!s->rset);
  SQLSMALLINT n = 0;
  SQLRETURN rc = SQLNumResultCols(s->hstmt, &n);
  if (QZ_STMT_ERR(s, rc)) {
    drop_statement(s);
    return qz::kOdbcFailed;
  }
  if (n <= 0) return qz::kOk;
  std::size_t bytes = sizeof(column) * static_cast<std::size_t>(n);
  s->rset = static_cast<column *>(QZ_ALLOC(bytes));
  if (!s->rset) {
    drop_statement(s);
    return qz::kNoMemory;
  }
  std::memset(s->rset, 0, bytes);
  s->num_columns = n;
  for (int i = 1; i <= n; ++i) {
    column *c = &s->rset[i - 1];
    SQLCHAR name[kNameBuffer] = {0};
    SQLSMALLINT name_len = 0, sql_type = 0, scale = 0, nullable = 0;
    SQLULEN precision = 0;
    rc = SQLDescribeCol(s->hstmt, static_cast<SQLUSMALLINT>(i), name, kNameBuffer, &name_len,
                        &sql_type, &precision, &scale, &nullable);
    if (QZ_STMT_ERR(s, rc)) {
      drop_statement(s);
      return qz::kOdbcFailed;
    }
    qz::terminate_driver_text(name, kNameBuffer, name_len);
    const char *driver_name = reinterpret_cast<const char *>(name);
    c->title = copy_text(driver_name);
    if (!c->title) {
      drop_statement(s);
      return qz::kNoMemory;
    }
    qz__charset_map(qz::kIso8859_1, qz::kRoman8, c->title,
                    static_cast<unsigned>(std::strlen(c->title)));
    char varname[qz::kVarnameSize];
    qz::derive_varname(c->title, i, varname);
    c->varname = copy_text(varname);
    if (!c->varname) {
      drop_statement(s);
      return qz::kNoMemory;
    }
    c->precision = static_cast<unsigned>(precision);
    c->scale = scale;
    c->nullable = nullable;
    qz::ColumnBuffer b = qz::buffer_for_sql_type(sql_type, c->precision, scale,
                                                 text_column_def_size, text_column_max_size);
    c->ctype = b.ctype;
    c->size = b.size;
    if (qz__IsLog('O', 3)) {
      char type_name[qz::kSqlTypeNameSize];
      QZ_OLOG(3, "column[%d] title='%s' type=%s->%s precision=%u scale=%d nullable=%d", i - 1,
              driver_name, qz::sql_type_name(sql_type, type_name), qz::c_type_name(c->ctype),
              c->precision, c->scale, c->nullable);
    }
    c->data = QZ_ALLOC(static_cast<std::size_t>(c->size));
    if (!c->data) {
      drop_statement(s);
      return qz::kNoMemory;
    }
    c->len_ind = c->size;
    rc =
        SQLBindCol(s->hstmt, static_cast<SQLUSMALLINT>(i), c->ctype, c->data, c->size, &c->len_ind);
    if (QZ_STMT_ERR(s, rc)) {
      drop_statement(s);
      return qz::kOdbcFailed;
    }
  }
  return qz::kOk;
}

void seal_fetched_text(stmt *s) {
  for (int i = 0; i < s->num_columns; ++i) {
    column *c = &s->rset[i];
    c->mapped &= ~1u;
    if (c->ctype != SQL_C_CHAR || c->len_ind == SQL_NULL_DATA) continue;
    // A cut value (len_ind at or over the size, or SQL_NO_TOTAL) keeps size - 1 bytes, as
    // it arrives from the drivers that do terminate it.
    qz::terminate_driver_text(c->data, static_cast<std::size_t>(c->size), c->len_ind);
  }
}

int hold_row(stmt *s) {
  for (int i = 0; i < s->num_columns; ++i) {
    column *c = &s->rset[i];
    if (!c->held) {
      c->held = QZ_ALLOC(static_cast<std::size_t>(c->size));
      if (!c->held) return qz::kNoMemory;
    }
    std::memcpy(c->held, c->data, static_cast<std::size_t>(c->size));
    c->held_ind = c->len_ind;
    c->mapped = (c->mapped & 1u) ? (c->mapped | 2u) : (c->mapped & ~2u);
  }
  return qz::kOk;
}

void swap_held_row(stmt *s) {
  for (int i = 0; i < s->num_columns; ++i) {
    column *c = &s->rset[i];
    if (!c->held) continue;  // nothing was ever held: the buffers stay as they are
    // The driver writes the bound buffer at its address, so the contents move.
    auto *a = static_cast<unsigned char *>(c->data);
    auto *b = static_cast<unsigned char *>(c->held);
    for (int k = 0; k < c->size; ++k) {
      unsigned char t = a[k];
      a[k] = b[k];
      b[k] = t;
    }
    SQLLEN ind = c->len_ind;
    c->len_ind = c->held_ind;
    c->held_ind = ind;
    unsigned bits = c->mapped & 3u;
    c->mapped = (c->mapped & ~3u) | ((bits & 1u) << 1) | ((bits & 2u) >> 1);
  }
}

int column_TITLE(stmt *s, int col, char **text) {
  *text = nullptr;
  const column *c = find_column(s, col);
  if (!c) return qz::kNoSuchColumn;
  *text = c->title;
  return qz::kOk;
}

int column_VARNAME(stmt *s, int col, char **text) {
  *text = nullptr;
  const column *c = find_column(s, col);
  if (!c) return qz::kNoSuchColumn;
  *text = c->varname;
  return qz::kOk;
}

int column_TYPE(stmt *s, int col, int *type) {
  *type = 0;
  const column *c = find_column(s, col);
  if (!c) return qz::kNoSuchColumn;
  *type = qz::value_type_of_ctype(c->ctype);
  return qz::kOk;
}

int column_PRECISION(stmt *s, int col, int *precision) {
  *precision = 0;
  const column *c = find_column(s, col);
  if (!c) return qz::kNoSuchColumn;
  *precision = static_cast<int>(c->precision);
  return qz::kOk;
}

int column_SCALE(stmt *s, int col, int *scale) {
  *scale = 0;
  const column *c = find_column(s, col);
  if (!c) return qz::kNoSuchColumn;
  *scale = c->scale;
  return qz::kOk;
}

int column_NULLABLE(stmt *s, int col, int *nullable) {
  *nullable = 0;
  const column *c = find_column(s, col);
  if (!c) return qz::kNoSuchColumn;
  *nullable = c->nullable;
  return qz::kOk;
}

int column_SETTYPE(stmt *s, int col, int type) {
  QZ_ASSERT(s->conn);
  column *c = find_column(s, col);
  if (!c) return qz::kNoSuchColumn;
  int ctype = qz::ctype_of_value_type(type);
  if (ctype != 0 && c->ctype == ctype) return qz::kOk;
  if (ctype == 0) return qz::kBadArgument;
  qz::ColumnBuffer b = qz::buffer_for_value_type(type, text_column_def_size);
  void *data = QZ_ALLOC(static_cast<std::size_t>(b.size));
  if (!data) {
    return qz::kNoMemory;
  }
  void *former = c->data;
  c->ctype = b.ctype;
  c->size = b.size;
  c->data = data;
  c->len_ind = b.size;
  SQLRETURN rc =
      SQLBindCol(s->hstmt, static_cast<SQLUSMALLINT>(col), c->ctype, c->data, c->size, &c->len_ind);
  if (QZ_STMT_ERR(s, rc)) {
    drop_statement(s);  // frees every column, the new buffer included
    std::free(former);
    return qz::kOdbcFailed;
  }
  std::free(former);
  // The held copy has the former C type: it goes, and with it a row left waiting.
  std::free(c->held);
  c->held = nullptr;
  s->flags &= ~STMT_PENDING;
  c->mapped &= ~1u;
  // The buffer holds no value of the current row: it reads as null until the next fetch.
  c->len_ind = SQL_NULL_DATA;
  return qz::kOk;
}

int isnull(stmt *s, int col, int *result) {
  *result = 0;
  column *c = nullptr;
  if (int st = fetched_column(s, col, &c)) return st;
  *result = c->len_ind == SQL_NULL_DATA ? 1 : 0;
  return qz::kOk;
}

int getdata_STRING(stmt *s, int col, char **text) {
  *text = empty_text;
  column *c = nullptr;
  if (int st = fetched_column(s, col, &c)) return st;
  if (c->len_ind == SQL_NULL_DATA) return qz::kOk;
  switch (c->ctype) {
    case SQL_C_CHAR:
      if (!(c->mapped & 1u)) {
        qz__charset_map(qz::kIso8859_1, qz::kRoman8, c->data, text_length(c));
        c->mapped |= 1u;
      }
      *text = static_cast<char *>(c->data);
      return qz::kOk;
    case SQL_C_LONG:
      qz::format_int(tmp, value_of<SQLINTEGER>(c));
      break;
    case SQL_C_DOUBLE:
      qz::format_g14(tmp, value_of<double>(c));
      break;
    case SQL_C_DATE: {
      auto d = value_of<SQL_DATE_STRUCT>(c);
      qz::format_date(tmp, d.year, d.month, d.day);
      break;
    }
    case SQL_C_TIME: {
      auto t = value_of<SQL_TIME_STRUCT>(c);
      qz::format_time(tmp, t.hour, t.minute, t.second);
      break;
    }
    case SQL_C_TIMESTAMP: {
      auto ts = value_of<SQL_TIMESTAMP_STRUCT>(c);
      qz::format_timestamp(tmp, ts.year, ts.month, ts.day, ts.hour, ts.minute, ts.second);
      break;
    }
    default:
      QZ_ASSERT(false);
  }
  *text = tmp;
  return qz::kOk;
}

namespace {

// The numeric readers differ only in how text is read and how a double becomes the
// result: an integer takes its truncation.
template <class T>
int getdata_number(stmt *s, int col, T *value) {
  constexpr bool is_int = std::is_same_v<T, int>;
  *value = 0;
  column *c = nullptr;
  if (int st = fetched_column(s, col, &c)) return st;
  if (c->len_ind == SQL_NULL_DATA) return qz::kOk;
  switch (c->ctype) {
    case SQL_C_CHAR: {
      const char *text = static_cast<const char *>(c->data);
      int rc;
      if constexpr (is_int) {
        std::int32_t v = 0;
        rc = qz::read_int32(text, &v);
        *value = v;  // the value read so far, also when the text does not convert
      } else {
        rc = qz::read_double(text, value);
      }
      return rc == qz::kNumOk ? qz::kOk : qz::kNotConvertible;
    }
    case SQL_C_LONG:
      *value = value_of<SQLINTEGER>(c);
      return qz::kOk;
    case SQL_C_DOUBLE:
      if constexpr (is_int)
        *value = qz::trunc_to_int32(value_of<double>(c));
      else
        *value = value_of<double>(c);
      return qz::kOk;
    case SQL_C_DATE:
      *value = qz::date_number(value_of<SQL_DATE_STRUCT>(c));
      return qz::kOk;
    case SQL_C_TIME:
      *value = qz::time_number(value_of<SQL_TIME_STRUCT>(c));
      return qz::kOk;
    case SQL_C_TIMESTAMP: {
      std::int32_t seconds = 0;
      if (qz::timestamp_utc_seconds(value_of<SQL_TIMESTAMP_STRUCT>(c), &seconds) != qz::kDtOk)
        return qz::kNotConvertible;
      *value = seconds;
      return qz::kOk;
    }
    default:
      QZ_ASSERT(false);
  }
  return qz::kOk;
}

}  // namespace

int getdata_INT(stmt *s, int col, int *value) {
  return getdata_number(s, col, value);
}

int getdata_DOUBLE(stmt *s, int col, double *value) {
  return getdata_number(s, col, value);
}
