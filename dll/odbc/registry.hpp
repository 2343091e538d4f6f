// The registries that map the programs' connection and statement identifiers to objects
// (lowest free identifier first, each list kept in ascending order) and their release at
// shutdown.
#pragma once

#include "connection.hpp"
#include "llist.hpp"
#include "statement.hpp"

// A registry entry; it holds one reference to its object.
struct ConnDesc {
  int id;            // connection identifier, at least 1
  connection *conn;  // the registered connection
};
struct StmtDesc {
  int id;             // statement identifier, at least 1
  struct stmt *stmt;  // the registered statement
};

extern Llist ConnDesc_list;  // connection entries, ascending id
extern Llist StmtDesc_list;  // statement entries, ascending id

// Entries by identifier, or null (any integer may be asked for).
ConnDesc *find_ConnDesc(int id);
StmtDesc *find_StmtDesc(int id);

// The object registered under id, or null. find_statement stores the entry at *desc when
// found and desc is given.
connection *find_connection(int id);
stmt *find_statement(int id, StmtDesc **desc = nullptr);

// Register an object under the lowest free identifier and return it. The entry takes over
// the caller's reference. When the entry cannot be allocated the process stops.
int add_connection(connection *conn);
int add_statement(stmt *s);

// Unlink and free the entry; return its object (whose reference passes to the caller, who
// must drop it) or null when no entry had that identifier.
connection *remove_connection(int id);
stmt *remove_statement(int id);

// Makes a statement on connection conn_id and stores it at *stmt_p and its identifier at
// *stmt_id. With desc (an entry whose statement the caller has already dropped) the new
// statement takes that entry and keeps its identifier; otherwise it is registered anew.
// On failure desc (if given) is removed, *stmt_id is 0 and the status is 8 (unknown
// connection) or that of new_statement (2).
int create_statement(int conn_id, stmt **stmt_p, int *stmt_id, StmtDesc *desc);

// dll_cleanup (declared in qzhost.hpp) drops every registered statement, then every
// registered connection.
