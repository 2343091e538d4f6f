// The connection and statement registries: identifiers issued lowest free first, lookup,
// removal, the statement-creating step the statement functions share, and the release of
// everything at shutdown.
#include "registry.hpp"

#include "bridge.hpp"
#include "qzhost.hpp"

Llist ConnDesc_list = {nullptr, nullptr, 0};
Llist StmtDesc_list = {nullptr, nullptr, 0};

namespace {

// Lowest-free-identifier insertion, the same on both lists: the first entry whose id
// leaves a gap before it gets the new entry in front of it; otherwise it goes to the end.
// Entry is ConnDesc or StmtDesc; the object goes into its second field.
template <typename Entry, typename Object>
int add_entry(Llist *list, Object *object, int line) {
  int last = 0;
  Entry *e = nullptr;
  for (Llist_Item *it = list->first; it; it = it->next) {
    auto *cur = static_cast<Entry *>(qz::llist_data(it));
    if (cur->id > last + 1) {
      e = static_cast<Entry *>(Llist_InsertItem(cur, sizeof(Entry)));
      break;
    }
    last = cur->id;
  }
  if (!e) e = static_cast<Entry *>(Llist_AddItem(list, sizeof(Entry)));
  if (!e) qz::fatal_no_memory(__FILE__, line, sizeof(Entry));
  *e = Entry{last + 1, object};
  return e->id;
}

template <typename Entry>
Entry *find_entry(Llist *list, int id) {
  for (Llist_Item *it = list->first; it; it = it->next) {
    auto *e = static_cast<Entry *>(qz::llist_data(it));
    if (e->id == id) return e;
  }
  return nullptr;
}

}  // namespace

ConnDesc *find_ConnDesc(int id) {
  return find_entry<ConnDesc>(&ConnDesc_list, id);
}

StmtDesc *find_StmtDesc(int id) {
  return find_entry<StmtDesc>(&StmtDesc_list, id);
}

connection *find_connection(int id) {
  ConnDesc *d = find_ConnDesc(id);
  return d ? d->conn : nullptr;
}

stmt *find_statement(int id, StmtDesc **desc) {
  StmtDesc *d = find_StmtDesc(id);
  if (!d) return nullptr;
  if (desc) *desc = d;
  return d->stmt;
}

int add_connection(connection *conn) {
  QZ_ASSERT(conn);
  return add_entry<ConnDesc>(&ConnDesc_list, conn, __LINE__);
}

int add_statement(stmt *s) {
  QZ_ASSERT_TEXT(s, "stmt");
  return add_entry<StmtDesc>(&StmtDesc_list, s, __LINE__);
}

connection *remove_connection(int id) {
  ConnDesc *d = find_ConnDesc(id);
  if (!d) return nullptr;
  connection *conn = d->conn;
  Llist_DeleteItem(d);
  return conn;
}

stmt *remove_statement(int id) {
  StmtDesc *d = find_StmtDesc(id);
  if (!d) return nullptr;
  stmt *s = d->stmt;
  Llist_DeleteItem(d);
  return s;
}

int create_statement(int conn_id, stmt **stmt_p, int *stmt_id, StmtDesc *desc) {
  QZ_ASSERT(stmt_p);
  QZ_ASSERT(stmt_id);
  connection *conn = find_connection(conn_id);
  int st = conn ? new_statement(conn, stmt_p) : qz::kBadArgument;
  if (st) {
    // Never leave an entry that refers to a statement the caller has dropped.
    if (desc) Llist_DeleteItem(desc);
    *stmt_id = 0;
    return st;
  }
  if (desc) {
    desc->stmt = *stmt_p;
    *stmt_id = desc->id;
  } else {
    *stmt_id = add_statement(*stmt_p);
  }
  return qz::kOk;
}

void dll_cleanup() {
  // SIGTERM may have interrupted a call anywhere: inside malloc, or inside the driver
  // manager while it holds its non-recursive mutexes. Releasing now could deadlock or
  // corrupt the heap, so nothing is released; the process ends right after this, and the
  // kernel closes the database connections' sockets. A statement still running in the
  // database would outlive that (a server does not notice a closed client while it
  // executes), so it is cancelled: SQLCancel is made to run beside its own statement's
  // call. The host has armed a watchdog first, in case even that cannot proceed.
  if (dll_in_call) {
    qz::cancel_statement_before_exit();
    return;
  }
  // Statements first: each returns its reference to its connection, so that a connection
  // dropped afterwards reaches refcnt 0 and disconnects; one already removed by
  // Disconnect closes in this pass, with its last statement.
  while (StmtDesc_list.first) {
    auto *d = static_cast<StmtDesc *>(qz::llist_data(StmtDesc_list.first));
    d->stmt->methods->drop(&d->stmt);
    Llist_DeleteItem(d);
  }
  while (ConnDesc_list.first) {
    auto *d = static_cast<ConnDesc *>(qz::llist_data(ConnDesc_list.first));
    d->conn->methods->drop(&d->conn);
    Llist_DeleteItem(d);
  }
}
