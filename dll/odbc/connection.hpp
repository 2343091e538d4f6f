// The connection object: one ODBC environment and connection handle opened with
// SQLDriverConnect, reference-counted and reached through the method table conn_m; and
// the process-wide diagnostics queue that conn_m.err fills from every ODBC return code.
#pragma once

#include <sql.h>
#include <sqlext.h>

#include "llist.hpp"

struct stmt;
struct conn_m;

// Bits of connection::flags.
enum : unsigned {
  CONN_CONNECTED = 1u,  // SQLDriverConnect succeeded; cleared by do_disconnect
};

// Longest connection string handed to SQLDriverConnect, and the size of the buffers for
// the string going in and the completed string coming back.
inline constexpr int kMaxConnSpec = 1023;
inline constexpr int kConnSpecBuffer = 1024;

// A connection. Allocated zero-filled by new_connection; holders share it through refcnt.
struct connection {
  unsigned flags;                // CONN_CONNECTED or 0
  unsigned refcnt;               // number of holders; 1 at creation
  unsigned generation;           // incremented by every successful connect
  unsigned stmt_count;           // statements ever attached; numbers them
  SQLHENV henv;                  // environment handle, null until allocated
  SQLHDBC hdbc;                  // connection handle, null until allocated
  char *conn_spec;               // completed connection string (HP Roman-8), owned; null
                                 // while not connected
  const struct conn_m *methods;  // the method table
  int describe_param_ok;         // 0 once the driver refused SQLDescribeParam (IM001)
  int bind_parameter_ok;         // 0 once the driver refused SQLBindParameter (IM001)
  int param_arrays;              // 1 the driver runs parameter arrays with a row count per
                                 // row, -1 it does not, 0 not asked since the connect
};

// The operations of a connection, in slot order. All take the connection first except
// drop, which takes the address of the holder's pointer.
struct conn_m {
  // Releases the holder's reference and nulls its pointer; the last one disconnects,
  // frees both handles and the record.
  void (*drop)(connection **conn_p);
  // 0, or 1115 (logged) when already connected.
  int (*can_connect)(connection *conn);
  // Allocates the handles as needed and connects with the first conn_spec_len bytes of
  // conn_spec (HP Roman-8). 0, 2, 8 (longer than kMaxConnSpec), 1110, 1113, 1115.
  int (*do_connect)(connection *conn, const char *conn_spec, int conn_spec_len);
  // SQLSetConnectOption with option and value unchanged. The value is SQLULEN, as wide
  // as an address, because a string-valued option passes the address of its text.
  // 0, 1111, 1116.
  int (*set_connect_option)(connection *conn, SQLUSMALLINT option, SQLULEN value);
  int (*commit)(connection *conn);    // SQLTransact SQL_COMMIT: 0, 1111, 1116
  int (*rollback)(connection *conn);  // SQLTransact SQL_ROLLBACK: 0, 1111, 1116
  // 0 when connected, else 1116 (logged).
  int (*can_disconnect)(connection *conn);
  // Leaves the connected state and calls SQLDisconnect; the handles stay. 0, 1114, 1116.
  int (*do_disconnect)(connection *conn);
  // Turns ODBC return code rc into log lines and, unless quiet, diagnostics queue records
  // (the queue is emptied first). conn may be null when s is given: s->conn is used, and
  // s->hstmt is read before the connection and the environment. file and line name the
  // ODBC call. Returns 0 for SQL_SUCCESS and SQL_SUCCESS_WITH_INFO, else non-zero: rc, or
  // the return code of a failing SQLError.
  SQLRETURN (*err)(connection *conn, stmt *s, SQLRETURN rc, int quiet, const char *file, int line);
};

// The one method table of all connections.
extern const struct conn_m conn_m;

// What err reads of a statement: its connection and its handle (null while it has none).
// The statement object provides them; its header includes this one.
connection *stmt_connection(const stmt *s);
SQLHSTMT stmt_handle(const stmt *s);

// Makes a disconnected connection with refcnt 1 and stores it at *conn_p. 0, or 2 (logged)
// when the record cannot be allocated (*conn_p unchanged).
int new_connection(connection **conn_p);

// One diagnostic record of the queue.
struct odbc_error {
  char *message;      // driver's or the bridge's text, owned
  char *sqlstate;     // five characters and a NUL, owned
  SQLINTEGER native;  // driver's native code; -1 for the bridge's own records
};

extern Llist odbc_errors;            // the queue, oldest first
extern odbc_error *curr_odbc_error;  // record handed out last by next_odbc_error, or null

// Frees the record handed out by the previous call, then hands out the oldest record (it
// stays queued, and valid, until the next call) or null.
odbc_error *next_odbc_error();
// The newest record or null; changes nothing.
odbc_error *last_odbc_error();
// Empties the queue and clears curr_odbc_error.
void cleanup_odbc_errors();
// Frees the record's texts, unlinks it and frees it.
void cleanup_odbc_error(odbc_error *e);

namespace qz {

// Appends a record of the bridge's own (SQLSTATE 00000, native code -1) with the text
// message to the queue; the process stops when no memory can be had for it.
void queue_own_error(const char *message);

// Moves every record of the list from, in order, to the end of the list to; from is left
// empty. Records a caller sets aside this way keep their identity (and curr_odbc_error).
void move_odbc_errors(Llist *from, Llist *to);

}  // namespace qz
