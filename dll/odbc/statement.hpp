// The statement object: one ODBC statement handle of one connection, its result columns
// and parameters (both described by the column record), and its method table stmt_m.
// This module owns the statement's life: creation, the reference it holds on its
// connection, the check that the connection is still the one it was made on, allocating
// the handle and emptying the statement.
#pragma once

#include <sql.h>
#include <sqlext.h>

#include "connection.hpp"

struct stmt_m;

// Buffer size for text whose precision the driver reports as 0, and the largest text
// buffer; 1 <= text_column_def_size <= text_column_max_size <= 32767 (SetTextColumnSize).
// Statements made afterwards size their text buffers by them.
extern int text_column_def_size;
extern int text_column_max_size;

// Bits of stmt::flags.
enum : unsigned {
  STMT_PREPARED = 1u,     // SQLPrepare succeeded
  STMT_FETCHED = 2u,      // a row has been fetched into the column buffers
  STMT_END_OF_DATA = 4u,  // SQLFetch reported that no more rows exist
  STMT_PENDING = 8u,      // a fetched row waits in the held copy for the next fetch
  STMT_SUMMED = 16u,      // rowcount reports summed_rows, the total of an ExecuteArray
};

// A result column (rset) or a parameter (params).
struct column {
  char *title;           // column name as described, in HP Roman-8, owned; null in a parameter
  char *varname;         // variable name derived from the title, owned; null in a parameter
  SQLSMALLINT ctype;     // C type of the bound buffer: SQL_C_CHAR, _LONG, _DOUBLE, _DATE,
                         // _TIME or _TIMESTAMP
  unsigned precision;    // column size as described or assumed
  SQLSMALLINT scale;     // decimal digits as described (0 where assumed)
  SQLSMALLINT nullable;  // nullability as described (1 where assumed)
  void *data;            // the value buffer bound to ODBC, owned; null: not bound
  int size;              // byte size of data
  SQLLEN len_ind;        // length/indicator: SQL_NULL_DATA, SQL_NTS or the byte length
  unsigned mapped;       // bit 0: the fetched text in data is already in HP Roman-8;
                         // bit 1: the same for the text in held
  void *held;            // result column: a copy of data (size bytes), owned; null until
                         // a row is first held
  SQLLEN held_ind;       // len_ind of the held copy
  SQLSMALLINT sql_type;  // parameter: the SQL type it is bound as
};

// A statement. Allocated zero-filled by new_statement; holders share it through refcnt.
struct stmt {
  unsigned flags;                // STMT_PREPARED, STMT_FETCHED, STMT_END_OF_DATA
  unsigned refcnt;               // number of holders; 1 after new_statement
  unsigned stmt_no;              // number of the statement on its connection
  connection *conn;              // the owning connection (one reference); null before attach
  unsigned conn_generation;      // the connection's generation at attach
  SQLHSTMT hstmt;                // statement handle; null while none is allocated
  column *rset;                  // result columns, owned; element 0 is column 1
  int num_columns;               // number of result columns
  column *params;                // parameters, owned; element 0 is parameter 1
  int num_params;                // number of parameter markers
  long long summed_rows;         // rows the last ExecuteArray affected (STMT_SUMMED)
  const struct stmt_m *methods;  // the method table
};

// The operations of a statement, in slot order. Column and parameter numbers are 1-based;
// texts passed in come with their length and need no terminator (prepare and execdirect
// take HP Roman-8 and convert a copy; the catalog texts go to the driver unconverted).
// Every slot but drop takes the statement first. The execution slots (prepare to fetch,
// rowcount) first check the connection: 1116 (logged) when it is gone, which also empties
// the statement. A statement emptied by a failure keeps its number but has no handle,
// result or parameters until the next prepare, execdirect, tables or columns.
struct stmt_m {
  // Ties a statement without connection to conn: takes a reference on it, numbers the
  // statement on it and records the connection's generation.
  void (*attach)(stmt *s, connection *conn);
  // Releases the holder's reference and nulls its pointer; the last one empties the
  // statement, frees it and drops its reference on the connection.
  void (*drop)(stmt **stmt_p);
  // A new handle, SQLPrepare, then the result columns described and bound and the
  // parameters described. 0, 2, 1110, 1111 (describing or binding), 1116, 1117; every
  // failure after the handle empties the statement.
  int (*prepare)(stmt *s, const char *sql, int sql_len);
  // SQLExecute of the prepared statement; a parameter never bound goes as NULL text. Clears
  // the fetch state. 0, 2, 1111 (binding), 1116, 1118 (the statement stays prepared), 1119.
  int (*execute)(stmt *s);
  // A new handle, SQLExecDirect, then the result columns. 0, 2, 1110, 1111, 1116, 1118.
  int (*execdirect)(stmt *s, const char *sql, int sql_len);
  // A new handle and SQLTables (an empty text is no restriction), then the result columns.
  // 0, 2, 1110, 1111, 1116, 1118.
  int (*tables)(stmt *s, const char *qual, int qual_len, const char *owner, int owner_len,
                const char *name, int name_len, const char *type, int type_len);
  // The same with SQLColumns.
  int (*columns)(stmt *s, const char *qual, int qual_len, const char *owner, int owner_len,
                 const char *name, int name_len, const char *column, int column_len);
  // SQLFetch into the bound column buffers; after it every text value is cut to its buffer
  // and terminated. A row left waiting (STMT_PENDING) is delivered first, without
  // SQLFetch. 0 (a row), 1 (the end, which stays), 1116, 1120 (no result columns), 1121
  // (the failure empties the statement).
  int (*fetch)(stmt *s);
  // Column descriptions: 0 with the value, or 1122 for a column that does not exist (the
  // integer ones clear *out first). Titles and variable names are the statement's own
  // HP Roman-8 texts, valid until it is emptied.
  int (*column_TITLE)(stmt *s, int col, char **text);
  int (*column_VARNAME)(stmt *s, int col, char **text);
  int (*column_TYPE)(stmt *s, int col, int *type);  // a value type code, 1 to 6
  // Re-binds the column to the C type of value type code type (1 to 6); the current row
  // then reads as NULL until the next fetch, and a row left waiting is given up. 0 (also when the
  // type is already bound), 2, 8 (not a type code), 1111 (binding failed: the statement is
  // emptied), 1122.
  int (*column_SETTYPE)(stmt *s, int col, int type);
  int (*column_PRECISION)(stmt *s, int col, int *precision);
  int (*column_SCALE)(stmt *s, int col, int *scale);
  int (*column_NULLABLE)(stmt *s, int col, int *nullable);
  // Parameter descriptions, as the column ones: 0, 1112 (not prepared), 1122. A parameter
  // the driver could not describe reads 0 until its first value.
  int (*param_TYPE)(stmt *s, int par, int *type);
  int (*param_PRECISION)(stmt *s, int par, int *precision);
  int (*param_SCALE)(stmt *s, int par, int *scale);
  int (*param_NULLABLE)(stmt *s, int par, int *nullable);
  // Whether the fetched value is NULL: 0 with *result 1 or 0; 1112 before a fetch, 1122.
  int (*isnull)(stmt *s, int col, int *result);
  // The fetched value as HP Roman-8 text: the column buffer itself for text (converted on
  // the first read), otherwise the shared 512-byte buffer the next call overwrites; a NULL
  // reads as "". 0, 1112, 1122.
  int (*getdata_STRING)(stmt *s, int col, char **text);
  // The fetched value as an integer (reals truncated, dates YYYYMMDD, times HHMMSS,
  // timestamps as UTC seconds since 1970) or a real; a NULL reads as 0. 0, -1 (text that
  // is not a number, a timestamp out of range), 1112, 1122.
  int (*getdata_INT)(stmt *s, int col, int *value);
  int (*getdata_DOUBLE)(stmt *s, int col, double *value);
  // Binding one parameter's value; it stays bound across executions. A parameter the
  // driver could not describe takes the C type of its first value for good. setparam_NULL:
  // NULL. setparam_STRING: HP Roman-8 text, converted into the parameter's type (18 when
  // longer than its buffer). 0, 2, 8 (a value its type does not take), 1111, 1112, 1122.
  int (*setparam_NULL)(stmt *s, int par);
  int (*setparam_STRING)(stmt *s, int par, const char *text, int len);
  int (*setparam_INT)(stmt *s, int par, int value);
  int (*setparam_DOUBLE)(stmt *s, int par, double value);
  // SQLRowCount of the last execution: 0 and the count, 1116, or the failure's code with
  // what the driver left in *count. After an ExecuteArray (STMT_SUMMED): 0 and the rows
  // all its executions affected.
  int (*rowcount)(stmt *s, int *count);
};

// conn_m.err for the statement s and return code rc, not quiet, naming the caller's file
// and line: 0 for SQL_SUCCESS and SQL_SUCCESS_WITH_INFO, else non-zero.
#define QZ_STMT_ERR(s, rc) ((s)->conn->methods->err(nullptr, (s), (rc), 0, __FILE__, __LINE__))

// The one method table of all statements.
extern const struct stmt_m stmt_m;

// Makes a statement with refcnt 1, attaches it to conn when conn is given and stores it
// at *stmt_p. 0, or 2 (logged) when the record cannot be allocated (*stmt_p unchanged).
int new_statement(connection *conn, stmt **stmt_p);

// 0 when the statement's connection is usable (present, connected, same generation);
// otherwise empties the statement (drop_statement) and returns -1.
int verify_connection(stmt *s);

// Allocates the handle of a fresh statement (clearing the state bits first). 0, or -1 when
// SQLAllocStmt fails (its diagnostics queued); callers turn -1 into 1110.
int setup_statement(stmt *s);

// Frees the handle (reported quietly: the queue keeps the diagnostics of the failure that
// led here), the result columns and the parameters, and clears the state bits.
void drop_statement(stmt *s);

// The row in the column buffers and the held copy of them (FetchArray keeps the row it
// delivered last there while it fetches the next one). hold_row copies the buffers into
// the held copy: 0, or 2 when a held buffer cannot be allocated. swap_held_row exchanges
// the two; a fetch of a statement marked STMT_PENDING swaps instead of calling SQLFetch.
int hold_row(stmt *s);
void swap_held_row(stmt *s);

// Free the result column array, respectively the parameter array, with what they own.
void cleanup_result(stmt *s);
void cleanup_params(stmt *s);

// Describes and binds the result columns after a successful SQLPrepare, SQLExecDirect,
// SQLTables or SQLColumns. 0; 1111 (columns already attached, or describing or binding
// failed), 2; on every failure but the first the statement has been emptied.
int setup_result(stmt *s);

// Binds the parameter with zero-based index par_idx (0 <= par_idx < num_params) for the C
// type ctype (SQL_C_CHAR, SQL_C_LONG or SQL_C_DOUBLE) unless it has a buffer already.
// 0, 2 (the record stays without buffer) or 1111 (it keeps its buffer).
int bind_param(stmt *s, int par_idx, int ctype);

namespace qz {

// Binds parameter par_no (1-based) whose record holds its C type, precision, scale, buffer,
// size and indicator, announced as SQL type sql_type: SQLBindParameter while the
// connection allows it, else SQLSetParam. A driver answering SQLBindParameter with IM001
// is logged once and bound with SQLSetParam from then on, on every statement of the
// connection. 0 on success, non-zero on failure (diagnostics queued).
int bind_with_fallback(stmt *s, int par_no, SQLSMALLINT sql_type);

// The statement handle that is inside a driver call which may wait for the database
// (prepare, execute, fetch, catalog queries), or null. Read by the termination path,
// which may cancel that call while it is still running.
extern void *volatile stmt_in_driver;

// SQLCancel of the statement in stmt_in_driver, if any. Meant for an interrupt arriving
// during a call: SQLCancel is the one ODBC call designed to run while the statement's own
// call is in progress. Everything else is left alone.
void cancel_statement_in_driver();

// The same for the termination signal arriving during a call, made by a child process:
// the signal may have stopped this process inside malloc, and a driver's SQLCancel may
// allocate (psqlODBC and MariaDB's driver open a connection to send the cancel), which
// here could corrupt the heap and abort the process instead of ending it with 0; in a
// copy of the process, whatever the call meets cannot harm this one, and the statement
// running in the database is the same for both. A child not done within half a second
// (a lock the interrupted code held, copied with it) is killed and the cancel given up.
void cancel_statement_before_exit();

}  // namespace qz
