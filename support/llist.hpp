// A doubly linked list whose items hold the caller's data in the same allocation as the
// links: a {prev, next, list} header, then the data. Callers hold the data address (the
// handle) and walk a list themselves through first/next or last/prev.
#pragma once

struct Llist;

// The header in front of every item's data.
struct Llist_Item {
  Llist_Item *prev;  // previous item, null for the first
  Llist_Item *next;  // next item, null for the last
  Llist *list;       // the list the item belongs to
};

// A list head; the caller owns it (usually a static object).
struct Llist {
  Llist_Item *first;  // first item, null when empty
  Llist_Item *last;   // last item, null when empty
  int count;          // number of items
};

// Makes the list empty without freeing anything; returns list.
Llist *Llist_Init(Llist *list);

// Appends an item with size bytes of uninitialised data; returns the data handle, or null
// (list unchanged) when memory runs out. The data is aligned like a pointer, no more.
void *Llist_AddItem(Llist *list, unsigned size);

// Inserts a new item right before the item whose handle is given, in that item's list;
// returns the new handle, or null (list unchanged) when memory runs out.
void *Llist_InsertItem(void *handle, unsigned size);

// Unlinks the item from its list and frees it; what its data points to is the caller's.
void Llist_DeleteItem(void *handle);

// Frees every item, first to last, and leaves the list empty.
void Llist_Cleanup(Llist *list);

namespace qz {

// The data handle of an item header, for walking a list.
inline void *llist_data(Llist_Item *item) {
  return item + 1;
}

// The header of a data handle.
inline Llist_Item *llist_item(void *handle) {
  return static_cast<Llist_Item *>(handle) - 1;
}

}  // namespace qz
