// The connection and statement registries, their release at shutdown, and the writer of
// packed rows.
#include "util.hpp"

#include <cstdlib>
#include <cstring>

#include "bridge.hpp"
#include "dllmain.hpp"
#include "format.hpp"

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

namespace qz {

void fatal_no_memory(const char *file, int line, std::size_t size) {
  qz__Log('O', 1, "%s(%d): Memory allocation failed (%u bytes)", extract_filename(file), line,
          static_cast<unsigned>(size));
  QZ_ASSERT_TEXT(false, "memory allocation failed");
  std::abort();  // not reached: the assertion has stopped the process
}

}  // namespace qz

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
    qz::cancel_statement_in_driver();
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

void xpack_begin(QzStr *buf) {
  QZ_ASSERT(buf);
  buf->len = 0;
}

int xpack_var(QzStr *buf, const char *prefix, const char *name, int numeric, int number,
              const char *value) {
  QZ_ASSERT(buf);
  QZ_ASSERT(name);
  std::size_t pl = prefix ? std::strlen(prefix) : 0;
  std::size_t nl = std::strlen(name);
  std::size_t vl = value ? std::strlen(value) : 0;
  char header[qz::kFormatXpackHeaderSize];
  int hl = qz::format_xpack_header(header, number, static_cast<std::int32_t>(vl));
  long long size = 1 + static_cast<long long>(pl + nl + vl) + hl;
  // One byte more than the entry needs, so that the terminator always fits after it.
  if (static_cast<long long>(buf->maxlen) - buf->len <= size) return qz::kNoRoom;
  char *p = buf->text + buf->len;
  *p++ = numeric ? 'N' : 'X';
  if (pl) std::memcpy(p, prefix, pl);
  p += pl;
  std::memcpy(p, name, nl);
  p += nl;
  std::memcpy(p, header, static_cast<std::size_t>(hl));
  p += hl;
  if (vl) std::memcpy(p, value, vl);
  buf->len += static_cast<int>(size);
  return qz::kOk;
}

int xpack_end(QzStr *buf) {
  QZ_ASSERT(buf);
  if (buf->maxlen - buf->len < 1) return qz::kNoRoom;
  buf->text[buf->len++] = '$';
  return qz::kOk;
}
