// The linked list: one malloc block per item, the header first and the caller's data
// right after it.
#include "llist.hpp"

#include <cstdint>
#include <cstdlib>

using qz::llist_data;
using qz::llist_item;

namespace {

// One block of header and data; null when malloc fails or the sum would not fit size_t
// (possible with a 32-bit size_t).
Llist_Item *new_item(Llist *list, unsigned size) {
  if (size > SIZE_MAX - sizeof(Llist_Item)) return nullptr;
  auto *item = static_cast<Llist_Item *>(std::malloc(sizeof(Llist_Item) + size));
  if (item != nullptr) item->list = list;
  return item;
}

}  // namespace

Llist *Llist_Init(Llist *list) {
  list->first = nullptr;
  list->last = nullptr;
  list->count = 0;
  return list;
}

void *Llist_AddItem(Llist *list, unsigned size) {
  Llist_Item *item = new_item(list, size);
  if (item == nullptr) return nullptr;
  item->next = nullptr;
  item->prev = list->last;
  if (list->last != nullptr) {
    list->last->next = item;
  } else {
    list->first = item;
  }
  list->last = item;
  ++list->count;
  return llist_data(item);
}

void *Llist_InsertItem(void *handle, unsigned size) {
  Llist_Item *at = llist_item(handle);
  Llist *list = at->list;
  Llist_Item *item = new_item(list, size);
  if (item == nullptr) return nullptr;
  item->next = at;
  item->prev = at->prev;
  if (at->prev != nullptr) {
    at->prev->next = item;
  } else {
    list->first = item;
  }
  at->prev = item;
  ++list->count;
  return llist_data(item);
}

void Llist_DeleteItem(void *handle) {
  Llist_Item *item = llist_item(handle);
  Llist *list = item->list;
  if (item->prev != nullptr) {
    item->prev->next = item->next;
  } else {
    list->first = item->next;
  }
  if (item->next != nullptr) {
    item->next->prev = item->prev;
  } else {
    list->last = item->prev;
  }
  --list->count;
  std::free(item);
}

void Llist_Cleanup(Llist *list) {
  while (list->first != nullptr) {
    Llist_Item *item = list->first;
    list->first = item->next;
    std::free(item);
  }
  list->last = nullptr;
  list->count = 0;
}
