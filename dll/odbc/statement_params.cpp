// Parameters of a prepared statement: binding a parameter on demand for the C type its
// first value suits, storing integer, real, text and null values in whatever C type the
// parameter has (dates, times and timestamps from numbers and texts), and the accessors.
#include <cstring>

#include "bridge.hpp"
#include "datetime.hpp"
#include "format.hpp"
#include "numtext.hpp"
#include "qzcharset.hpp"
#include "sqltypes.hpp"
#include "statement_parts.hpp"

namespace {

// The common first steps of the setters: a prepared statement, an existing parameter,
// and a binding (made now for ctype when the parameter has none). 0 with *p set, or the
// status to return.
int bound_param(stmt *s, int par, int ctype, column **p) {
  if (!(s->flags & STMT_PREPARED)) {
    QZ_OLOG(2, "ODBC statement has not been prepared");
    return qz::kNotReady;
  }
  if (par < 1 || par > s->num_params) {
    QZ_OLOG(2, "ODBC parameter #%d does not exist", par);
    return qz::kNoSuchColumn;
  }
  if (int st = bind_param(s, par - 1, ctype)) return st;
  *p = &s->params[par - 1];
  return qz::kOk;
}

// The accessors' parameter: null (logged) when the number does not exist.
const column *find_param(stmt *s, int par) {
  if (par < 1 || par > s->num_params) {
    QZ_OLOG(2, "ODBC parameter #%d does not exist", par);
    return nullptr;
  }
  return &s->params[par - 1];
}

template <typename T>
int store(column *p, const T &v) {
  std::memcpy(p->data, &v, sizeof v);
  p->len_ind = sizeof v;
  return qz::kOk;
}

// A formatted number into a text parameter: 18 when it does not fit with its NUL.
int store_text(column *p, const char *text, int len) {
  if (len >= p->size) return qz::kNoRoom;
  std::memcpy(p->data, text, static_cast<std::size_t>(len) + 1);
  p->len_ind = SQL_NTS;
  return qz::kOk;
}

// A number as the date, time or timestamp the parameter holds (8 when it is none).
int store_number_as_datetime(column *p, std::int32_t n) {
  switch (p->ctype) {
    case SQL_C_DATE: {
      SQL_DATE_STRUCT d;
      if (qz::date_from_number(n, &d) != qz::kDtOk) return qz::kBadArgument;
      return store(p, d);
    }
    case SQL_C_TIME: {
      SQL_TIME_STRUCT t;
      if (qz::time_from_number(n, &t) != qz::kDtOk) return qz::kBadArgument;
      return store(p, t);
    }
    case SQL_C_TIMESTAMP: {
      SQL_TIMESTAMP_STRUCT ts;
      if (qz::timestamp_from_seconds(n, &ts) != qz::kDtOk) return qz::kBadArgument;
      return store(p, ts);
    }
    default:
      QZ_ASSERT(false);
  }
  return qz::kBadArgument;
}

}  // namespace

int bind_param(stmt *s, int par_idx, int ctype) {
  QZ_ASSERT(par_idx >= 0 && par_idx < s->num_params);
  column *p = &s->params[par_idx];
  if (p->data) return qz::kOk;  // described or bound before: its C type stays
  qz::ParamBinding b = qz::param_binding(ctype, text_column_def_size);
  QZ_ASSERT(b.ctype != 0);
  p->ctype = b.ctype;
  p->precision = b.precision;
  p->scale = 0;
  p->nullable = SQL_NULLABLE;
  p->size = b.size;
  if (qz__IsLog('O', 3)) {
    char name[qz::kSqlTypeNameSize];
    QZ_OLOG(3, "param[%d] type=%s->%s precision=%u scale=%d nullable=%d", par_idx,
            qz::sql_type_name(b.sql_type, name), qz::c_type_name(b.ctype), p->precision, 0, 1);
  }
  p->data = QZ_ALLOC(static_cast<std::size_t>(p->size));
  if (!p->data) {
    return qz::kNoMemory;
  }
  p->len_ind = SQL_NULL_DATA;
  return qz::bind_with_fallback(s, par_idx + 1, b.sql_type) ? qz::kOdbcFailed : qz::kOk;
}

int setparam_NULL(stmt *s, int par) {
  column *p = nullptr;
  if (int st = bound_param(s, par, SQL_C_CHAR, &p)) return st;
  p->len_ind = SQL_NULL_DATA;
  return qz::kOk;
}

int setparam_INT(stmt *s, int par, int value) {
  column *p = nullptr;
  if (int st = bound_param(s, par, SQL_C_LONG, &p)) return st;
  switch (p->ctype) {
    case SQL_C_CHAR: {
      char text[qz::kFormatIntSize];
      return store_text(p, text, qz::format_int(text, value));
    }
    case SQL_C_LONG:
      return store(p, static_cast<SQLINTEGER>(value));
    case SQL_C_DOUBLE:
      return store(p, static_cast<double>(value));
    default:
      return store_number_as_datetime(p, value);
  }
}

int setparam_DOUBLE(stmt *s, int par, double value) {
  column *p = nullptr;
  if (int st = bound_param(s, par, SQL_C_DOUBLE, &p)) return st;
  switch (p->ctype) {
    case SQL_C_CHAR: {
      char text[qz::kFormatDoubleSize];
      return store_text(p, text, qz::format_g14(text, value));
    }
    case SQL_C_LONG:
      return store(p, static_cast<SQLINTEGER>(qz::trunc_to_int32(value)));
    case SQL_C_DOUBLE:
      return store(p, value);
    default:
      return store_number_as_datetime(p, qz::trunc_to_int32(value));
  }
}

int setparam_STRING(stmt *s, int par, const char *text, int len) {
  QZ_ASSERT(text);
  QZ_ASSERT_TEXT(len >= 0, "val_len >= 0");
  column *p = nullptr;
  if (int st = bound_param(s, par, SQL_C_CHAR, &p)) return st;
  switch (p->ctype) {
    case SQL_C_CHAR: {
      if (len >= p->size) return qz::kNoRoom;
      char *data = static_cast<char *>(p->data);
      std::memcpy(data, text, static_cast<std::size_t>(len));
      data[len] = '\0';
      qz__charset_map(qz::kRoman8, qz::kIso8859_1, data, static_cast<unsigned>(len));
      p->len_ind = SQL_NTS;
      return qz::kOk;
    }
    case SQL_C_LONG: {
      std::int32_t v;
      if (qz::param_text_int32(text, len, &v) != qz::kNumOk) return qz::kBadArgument;
      return store(p, static_cast<SQLINTEGER>(v));
    }
    case SQL_C_DOUBLE: {
      double v;
      if (qz::param_text_double(text, len, &v) != qz::kNumOk) return qz::kBadArgument;
      return store(p, v);
    }
    case SQL_C_DATE: {
      SQL_DATE_STRUCT d;
      if (qz::date_from_text(text, len, &d) != qz::kDtOk) return qz::kBadArgument;
      return store(p, d);
    }
    case SQL_C_TIME: {
      SQL_TIME_STRUCT t;
      if (qz::time_from_text(text, len, &t) != qz::kDtOk) return qz::kBadArgument;
      return store(p, t);
    }
    case SQL_C_TIMESTAMP: {
      SQL_TIMESTAMP_STRUCT ts;
      if (qz::timestamp_from_text(text, len, &ts) != qz::kDtOk) return qz::kBadArgument;
      return store(p, ts);
    }
    default:
      QZ_ASSERT(false);
  }
  return qz::kBadArgument;
}

// A parameter that its driver could not describe and that has no value yet has no type,
// precision, scale or nullability: all four read as 0.
int param_TYPE(stmt *s, int par, int *type) {
  *type = 0;
  const column *p = find_param(s, par);
  if (!p) return qz::kNoSuchColumn;
  *type = qz::value_type_of_ctype(p->ctype);
  return qz::kOk;
}

int param_PRECISION(stmt *s, int par, int *precision) {
  *precision = 0;
  const column *p = find_param(s, par);
  if (!p) return qz::kNoSuchColumn;
  *precision = static_cast<int>(p->precision);
  return qz::kOk;
}

int param_SCALE(stmt *s, int par, int *scale) {
  *scale = 0;
  const column *p = find_param(s, par);
  if (!p) return qz::kNoSuchColumn;
  *scale = p->scale;
  return qz::kOk;
}

int param_NULLABLE(stmt *s, int par, int *nullable) {
  *nullable = 0;
  const column *p = find_param(s, par);
  if (!p) return qz::kNoSuchColumn;
  *nullable = p->nullable;
  return qz::kOk;
}
