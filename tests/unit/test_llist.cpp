// Tests of the linked list: random sequences of add, insert-before and delete on several
// lists at once, checked after every step against std::list as a model (inserting before
// the first item and deleting the first, a middle, the last and the only one all occur),
// and the edges the model cannot reach.
#include <cstdint>
#include <cstring>
#include <iterator>
#include <list>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "llist.hpp"

namespace {

int tag_of(Llist_Item *item) {
  int tag;
  std::memcpy(&tag, qz::llist_data(item), sizeof tag);
  return tag;
}

// Checks the whole list against the model: count, first, last, links both ways and the
// owner of every item. Returns the first mismatch as text, empty when all is well.
std::string mismatch(const Llist &list, const std::list<int> &model) {
  if (list.count != static_cast<int>(model.size())) return "count";
  if ((list.first == nullptr) != model.empty()) return "first";
  if ((list.last == nullptr) != model.empty()) return "last";
  Llist_Item *prev = nullptr;
  Llist_Item *item = list.first;
  for (int tag : model) {
    if (item == nullptr) return "forward walk ends early";
    if (item->prev != prev) return "prev link of " + std::to_string(tag);
    if (item->list != &list) return "owner of " + std::to_string(tag);
    if (tag_of(item) != tag) return "order: " + std::to_string(tag_of(item));
    prev = item;
    item = item->next;
  }
  if (item != nullptr) return "forward walk too long";
  if (list.last != prev) return "last is not the end of the forward walk";
  item = list.last;
  for (auto it = model.rbegin(); it != model.rend(); ++it) {
    if (item == nullptr || tag_of(item) != *it) return "backward walk";
    item = item->prev;
  }
  return item == nullptr ? "" : "backward walk too long";
}

// Stores a tag into a fresh item and fills the rest of its data.
void fill(void *handle, int tag, unsigned size) {
  std::memset(handle, 0xA5, size);
  std::memcpy(handle, &tag, sizeof tag);
}

TEST(Llist, RandomOperationsMatchTheModel) {
  constexpr int kLists = 3;
  for (std::uint32_t seed : {1u, 2u, 3u, 20240506u}) {
    std::mt19937 rng(seed);
    Llist lists[kLists];
    std::list<int> models[kLists];
    std::vector<std::vector<void *>> handles(kLists);  // by position in the model
    for (Llist &l : lists)
      ASSERT_EQ(Llist_Init(&l), &l);
    int next_tag = 0;
    for (int step = 0; step < 3000; ++step) {
      int li = static_cast<int>(rng() % kLists);
      Llist &list = lists[li];
      std::list<int> &model = models[li];
      std::vector<void *> &h = handles[li];
      unsigned size = sizeof(int) + rng() % 40;  // the tag, then filler
      unsigned op = rng() % 10;  // add, insert and delete, weighted so lists grow and shrink
      if (h.empty() || op < 3) {
        void *d = Llist_AddItem(&list, size);
        ASSERT_NE(d, nullptr);
        fill(d, next_tag, size);
        model.push_back(next_tag++);
        h.push_back(d);
      } else if (op < 6) {
        std::size_t at = rng() % h.size();
        void *d = Llist_InsertItem(h[at], size);
        ASSERT_NE(d, nullptr);
        fill(d, next_tag, size);
        model.insert(std::next(model.begin(), static_cast<long>(at)), next_tag++);
        h.insert(h.begin() + static_cast<long>(at), d);
      } else {
        std::size_t at = rng() % h.size();
        Llist_DeleteItem(h[at]);
        model.erase(std::next(model.begin(), static_cast<long>(at)));
        h.erase(h.begin() + static_cast<long>(at));
      }
      for (int k = 0; k < kLists; ++k) {
        ASSERT_EQ(mismatch(lists[k], models[k]), "") << "seed " << seed << " step " << step;
      }
    }
    for (int k = 0; k < kLists; ++k) {
      Llist_Cleanup(&lists[k]);
      EXPECT_EQ(mismatch(lists[k], {}), "");
    }
  }
}

TEST(Llist, HandleIsTheAddressRightAfterTheHeader) {
  Llist list;
  Llist_Init(&list);
  void *d = Llist_AddItem(&list, 0);  // an item may carry no data at all
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(static_cast<char *>(d), reinterpret_cast<char *>(list.first) + 3 * sizeof(void *));
  EXPECT_EQ(qz::llist_item(d), list.first);
  Llist_Cleanup(&list);
}

// With first null nothing is followed or freed, whatever the other fields hold.
TEST(Llist, CleanupOfAnEmptyListOnlyResetsLastAndCount) {
  Llist_Item stray{};
  Llist empty, odd{nullptr, &stray, 7};
  Llist_Init(&empty);
  for (Llist *list : {&empty, &odd}) {
    Llist_Cleanup(list);
    EXPECT_EQ(mismatch(*list, {}), "");
  }
}

TEST(Llist, SizeThatWouldWrapIsRefused) {
  if (sizeof(std::size_t) > sizeof(unsigned)) {
    GTEST_SKIP() << "header plus an unsigned size cannot wrap a 64-bit size_t";
  }
  Llist list;
  Llist_Init(&list);
  void *a = Llist_AddItem(&list, 4);
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(Llist_AddItem(&list, ~0u), nullptr);
  EXPECT_EQ(Llist_InsertItem(a, ~0u - 4), nullptr);
  EXPECT_EQ(list.count, 1);
  EXPECT_EQ(list.first, list.last);
  Llist_Cleanup(&list);
}

}  // namespace
