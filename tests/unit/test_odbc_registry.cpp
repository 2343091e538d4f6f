// The registries and the statement's life cycle without a database: identifiers issued
// lowest free first with the lists kept in order, removal, create_statement with and
// without an existing entry, the references a statement holds, and dll_cleanup.
#include <gtest/gtest.h>

#include <vector>

#include "bridge.hpp"
#include "util.hpp"

namespace {

std::vector<int> ids(const Llist &list) {
  std::vector<int> out;
  for (Llist_Item *it = list.first; it; it = it->next)
    out.push_back(*static_cast<int *>(qz::llist_data(it)));  // id is the first field
  return out;
}

// Every test starts and ends with empty registries (dll_cleanup releases what is left).
class Registry : public ::testing::Test {
 protected:
  void TearDown() override {
    dll_in_call = 0;
    dll_cleanup();
    EXPECT_EQ(ConnDesc_list.count, 0);
    EXPECT_EQ(StmtDesc_list.count, 0);
  }
  // A connection that never connected: dropping it makes no ODBC call.
  static connection *conn() {
    connection *c = nullptr;
    EXPECT_EQ(new_connection(&c), qz::kOk);
    return c;
  }
};

TEST_F(Registry, IdentifiersAreLowestFreeFirstAndTheListsStaySorted) {
  connection *c = conn();
  stmt *s = nullptr;
  ASSERT_EQ(new_statement(c, &s), qz::kOk);
  EXPECT_EQ(add_connection(c), 1);
  EXPECT_EQ(add_statement(s), 1);  // two independent number spaces

  std::vector<connection *> more{conn(), conn(), conn()};
  EXPECT_EQ(add_connection(more[0]), 2);
  EXPECT_EQ(add_connection(more[1]), 3);
  EXPECT_EQ(add_connection(more[2]), 4);
  connection *removed = remove_connection(3);
  EXPECT_EQ(removed, more[1]);
  EXPECT_EQ(ids(ConnDesc_list), (std::vector<int>{1, 2, 4}));
  EXPECT_EQ(add_connection(removed), 3);
  EXPECT_EQ(ids(ConnDesc_list), (std::vector<int>{1, 2, 3, 4}));
  EXPECT_EQ(find_connection(3), removed);

  // Gaps are filled lowest first, each new entry linked in place.
  connection *first = remove_connection(1);
  connection *third = remove_connection(3);
  EXPECT_EQ(ids(ConnDesc_list), (std::vector<int>{2, 4}));
  EXPECT_EQ(add_connection(third), 1);
  EXPECT_EQ(add_connection(first), 3);
  connection *fifth = conn();
  EXPECT_EQ(add_connection(fifth), 5);
  EXPECT_EQ(ids(ConnDesc_list), (std::vector<int>{1, 2, 3, 4, 5}));
  EXPECT_EQ(ConnDesc_list.count, 5);
}

TEST_F(Registry, UnknownIdentifiersFindAndRemoveNothing) {
  connection *c = conn();
  stmt *s = nullptr;
  ASSERT_EQ(new_statement(c, &s), qz::kOk);
  ASSERT_EQ(add_connection(c), 1);
  ASSERT_EQ(add_statement(s), 1);
  for (int id : {0, -1, 2, 1000}) {
    EXPECT_EQ(find_connection(id), nullptr) << id;
    EXPECT_EQ(find_statement(id), nullptr) << id;
    EXPECT_EQ(remove_connection(id), nullptr) << id;
    EXPECT_EQ(remove_statement(id), nullptr) << id;
  }
  EXPECT_EQ(ids(ConnDesc_list), std::vector<int>{1});
  StmtDesc *desc = nullptr;
  EXPECT_EQ(find_statement(1, &desc), s);
  ASSERT_NE(desc, nullptr);
  EXPECT_EQ(desc->id, 1);
  EXPECT_EQ(desc->stmt, s);

  stmt *gone = remove_statement(1);
  EXPECT_EQ(gone, s);
  EXPECT_EQ(remove_statement(1), nullptr);  // a second removal finds nothing
  gone->methods->drop(&gone);
  EXPECT_EQ(gone, nullptr);
}

TEST_F(Registry, StatementsHoldTheirConnection) {
  connection *c = conn();
  stmt *s1 = nullptr, *s2 = nullptr;
  ASSERT_EQ(new_statement(c, &s1), qz::kOk);
  ASSERT_EQ(new_statement(c, &s2), qz::kOk);
  EXPECT_EQ(c->refcnt, 3u);
  EXPECT_EQ(s1->stmt_no, 1u);
  EXPECT_EQ(s2->stmt_no, 2u);
  EXPECT_EQ(c->stmt_count, 2u);
  EXPECT_EQ(s1->conn, c);
  EXPECT_EQ(s1->refcnt, 1u);
  EXPECT_EQ(s1->methods, &stmt_m);

  // A second holder of a statement: the first drop only releases that holder.
  stmt *holder = s1;
  ++s1->refcnt;
  s1->methods->drop(&holder);
  EXPECT_EQ(holder, nullptr);
  EXPECT_EQ(s1->refcnt, 1u);
  EXPECT_EQ(c->refcnt, 3u);
  s1->methods->drop(&s1);
  EXPECT_EQ(s1, nullptr);
  EXPECT_EQ(c->refcnt, 2u);

  // A statement made without a connection is attached later.
  stmt *loose = nullptr;
  ASSERT_EQ(new_statement(nullptr, &loose), qz::kOk);
  EXPECT_EQ(loose->conn, nullptr);
  loose->methods->attach(loose, c);
  EXPECT_EQ(loose->stmt_no, 3u);
  EXPECT_EQ(c->refcnt, 3u);
  loose->methods->drop(&loose);
  s2->methods->drop(&s2);
  EXPECT_EQ(c->refcnt, 1u);
  c->methods->drop(&c);
  EXPECT_EQ(c, nullptr);
}

TEST_F(Registry, VerifyConnectionNeedsTheSameConnectedGeneration) {
  connection *c = conn();
  stmt *s = nullptr;
  ASSERT_EQ(new_statement(c, &s), qz::kOk);
  s->flags = STMT_PREPARED | STMT_FETCHED;
  EXPECT_EQ(verify_connection(s), -1);  // never connected
  EXPECT_EQ(s->flags, 0u);              // emptied
  c->flags |= CONN_CONNECTED;
  EXPECT_EQ(verify_connection(s), 0);
  ++c->generation;  // connected anew since the statement was made
  EXPECT_EQ(verify_connection(s), -1);
  s->conn_generation = c->generation;
  EXPECT_EQ(verify_connection(s), 0);
  c->flags = 0;
  s->methods->drop(&s);
  c->methods->drop(&c);
}

TEST_F(Registry, CreateStatementKeepsOrIssuesTheIdentifier) {
  connection *c = conn();
  int conn_id = add_connection(c);
  stmt *s = nullptr;
  int stmt_id = -7;
  EXPECT_EQ(create_statement(conn_id, &s, &stmt_id, nullptr), qz::kOk);
  EXPECT_EQ(stmt_id, 1);
  EXPECT_EQ(find_statement(1), s);
  EXPECT_EQ(s->conn, c);

  // With the existing entry (whose statement the caller has dropped) the id stays.
  StmtDesc *desc = nullptr;
  ASSERT_EQ(find_statement(1, &desc), s);
  s->methods->drop(&desc->stmt);
  stmt *again = nullptr;
  stmt_id = 0;
  EXPECT_EQ(create_statement(conn_id, &again, &stmt_id, desc), qz::kOk);
  EXPECT_EQ(stmt_id, 1);
  EXPECT_EQ(find_statement(1), again);
  EXPECT_EQ(StmtDesc_list.count, 1);

  // An unknown connection: the entry passed in is removed, the identifier is 0.
  again->methods->drop(&desc->stmt);
  stmt *none = nullptr;
  stmt_id = 5;
  EXPECT_EQ(create_statement(conn_id + 1, &none, &stmt_id, desc), qz::kBadArgument);
  EXPECT_EQ(stmt_id, 0);
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(StmtDesc_list.count, 0);
  stmt_id = 5;
  EXPECT_EQ(create_statement(0, &none, &stmt_id, nullptr), qz::kBadArgument);
  EXPECT_EQ(stmt_id, 0);

  // The statement record cannot be allocated: status 2, same clean-up.
  ASSERT_EQ(create_statement(conn_id, &s, &stmt_id, nullptr), qz::kOk);
  ASSERT_EQ(find_statement(stmt_id, &desc), s);
  s->methods->drop(&desc->stmt);
  dll_alloc_fail_at(1);
  stmt_id = 9;
  EXPECT_EQ(create_statement(conn_id, &none, &stmt_id, desc), qz::kNoMemory);
  EXPECT_EQ(stmt_id, 0);
  EXPECT_EQ(StmtDesc_list.count, 0);
  EXPECT_EQ(c->refcnt, 1u);  // every statement gave its reference back
}

TEST_F(Registry, CleanupReleasesStatementsThenConnectionsUnlessACallWasInterrupted) {
  connection *held = conn();  // removed from the registry but still held by a statement
  connection *plain = conn();
  int held_id = add_connection(held);
  add_connection(plain);
  stmt *s = nullptr;
  int stmt_id = 0;
  ASSERT_EQ(create_statement(held_id, &s, &stmt_id, nullptr), qz::kOk);
  connection *removed = remove_connection(held_id);
  removed->methods->drop(&removed);
  EXPECT_EQ(held->refcnt, 1u);  // the statement's reference

  // SIGTERM inside a call: nothing is touched.
  dll_in_call = 1;
  dll_cleanup();
  EXPECT_EQ(ConnDesc_list.count, 1);
  EXPECT_EQ(StmtDesc_list.count, 1);
  EXPECT_EQ(held->refcnt, 1u);

  dll_in_call = 0;
  dll_cleanup();  // under the sanitizer build, anything left unfreed shows as a leak
  EXPECT_EQ(ConnDesc_list.first, nullptr);
  EXPECT_EQ(StmtDesc_list.first, nullptr);
}

}  // namespace
