// What the statement's own source files share and nothing else includes: the methods of
// the column and parameter slots of stmt_m (reached by everyone else through the table).
#pragma once

#include "bridge.hpp"
#include "statement.hpp"

// Result columns and data (statement_columns.cpp). Column numbers are 1-based; the texts
// handed out belong to the statement, or to the shared 512-byte buffer of getdata_STRING,
// which the next getdata_STRING overwrites.
// After a successful fetch: marks every column's text as not yet in HP Roman-8, and cuts
// each text value to what its buffer and length indicator vouch for, terminating it there.
// Nothing that reads a fetched value trusts the driver to have terminated its buffer.
void seal_fetched_text(stmt *s);
int column_TITLE(stmt *s, int col, char **text);
int column_VARNAME(stmt *s, int col, char **text);
int column_TYPE(stmt *s, int col, int *type);
int column_SETTYPE(stmt *s, int col, int type);
int column_PRECISION(stmt *s, int col, int *precision);
int column_SCALE(stmt *s, int col, int *scale);
int column_NULLABLE(stmt *s, int col, int *nullable);
int isnull(stmt *s, int col, int *result);
int getdata_STRING(stmt *s, int col, char **text);
int getdata_INT(stmt *s, int col, int *value);
int getdata_DOUBLE(stmt *s, int col, double *value);

// Parameters (statement_params.cpp). Parameter numbers are 1-based.
int param_TYPE(stmt *s, int par, int *type);
int param_PRECISION(stmt *s, int par, int *precision);
int param_SCALE(stmt *s, int par, int *scale);
int param_NULLABLE(stmt *s, int par, int *nullable);
int setparam_NULL(stmt *s, int par);
int setparam_STRING(stmt *s, int par, const char *text, int len);
int setparam_INT(stmt *s, int par, int value);
int setparam_DOUBLE(stmt *s, int par, double value);
