// Call block accessors: header fields and argument descriptors of either layout, read at
// fixed byte offsets, with every interpreter address relocated into the server's mapping
// and checked so that nothing outside the segment is ever touched.
#include <cstdint>
#include <cstring>

#include "host.hpp"

using qz::wire::get32;
using qz::wire::put32;

namespace qz {

const wire::Layout &layout() {
  return dll_compat == 64 ? wire::kLayout64 : wire::kLayout32;
}

namespace {

const t_DLL_ARG bad_arg{0, 0, nullptr, 0, 0, 0};  // stands for a missing argument

// Header shmsz, but never beyond what the kernel says the segment holds.
std::int64_t limit() {
  std::int64_t s = get32(dll_info, layout().shmsz);
  return s < segment_size ? s : segment_size;
}

const char *range_text() {
  return dll_compat == 64 ? "ofs >= 0 && ofs < ((t_DLL_INFO64 *)dll_info)->shmsz"
                          : "ofs >= 0 && ofs < dll_info->shmsz";
}
const char *extent_text() {
  return dll_compat == 64 ? "end >= 0 && end <= ((t_DLL_INFO64 *)dll_info)->shmsz"
                          : "end >= 0 && end <= dll_info->shmsz";
}

// Offset of an interpreter address (its low 32 bits) inside the segment.
std::int32_t relocate(std::uint32_t address) {
  std::uint32_t base = static_cast<std::uint32_t>(get32(dll_info, layout().base));
  std::int32_t ofs = static_cast<std::int32_t>(address - base);
  QZ_ASSERT_TEXT(ofs >= 0 && ofs < limit(), range_text());
  return ofs;
}

std::int64_t element_size(int type, int maxlen) {
  switch (type) {
    case DLL_INTEGER:
      return 4;
    case DLL_REAL:
      return static_cast<std::int64_t>(wire::kRealSize);
    case DLL_STRING:
      return 4 + static_cast<std::int64_t>(maxlen);
    default:
      return 1;
  }
}

// Every element of the argument, a string's length word and all `maxlen` characters
// included, must lie in the segment; a string's stored length must fit its capacity.
void check_extent(const t_DLL_ARG &a, std::int32_t ofs) {
  if (a.type != DLL_INTEGER && a.type != DLL_REAL && a.type != DLL_STRING) return;
  QZ_ASSERT(a.elcnt >= 0);
  if (a.type == DLL_STRING) QZ_ASSERT(a.maxlen >= 0);
  // Typed data is read as 32-bit words and 16-bit fields in place.
  QZ_ASSERT((ofs & 3) == 0);
  std::int64_t n = a.elcnt > 0 ? a.elcnt : 1;
  std::int64_t step = 4 * static_cast<std::int64_t>(a.elsz);
  std::int64_t first = ofs, last = ofs + step * (n - 1);
  std::int64_t lo = first < last ? first : last;
  std::int64_t end = (first < last ? last : first) + element_size(a.type, a.maxlen);
  // Integers are handed over in place, and a function indexes them as a plain array.
  if (a.type == DLL_INTEGER && end < ofs + 4 * n) end = ofs + 4 * n;
  QZ_ASSERT_TEXT(lo >= 0 && end >= 0 && end <= limit(), extent_text());
  if (a.type != DLL_STRING) return;
  for (std::int64_t k = 0; k < a.elcnt; ++k) {
    std::int32_t len = get32(a.ptr, static_cast<std::size_t>(step * k));
    int maxlen = a.maxlen;
    QZ_ASSERT(len >= 0 && len <= maxlen);
  }
}

// Byte offset of descriptor i, which must lie wholly in the segment.
std::size_t descriptor(int i) {
  const wire::Layout &l = layout();
  std::int64_t end =
      static_cast<std::int64_t>(l.args + l.arg_size * static_cast<std::size_t>(i) + l.arg_size);
  QZ_ASSERT_TEXT(end <= limit(), dll_compat == 64 ? "desc_end <= ((t_DLL_INFO64 *)dll_info)->shmsz"
                                                  : "desc_end <= dll_info->shmsz");
  return l.args + l.arg_size * static_cast<std::size_t>(i);
}

}  // namespace
}  // namespace qz

unsigned char *u_get_baseptr() {
  return dll_info;
}

int u_get_argc() {
  return get32(dll_info, qz::layout().argc);
}

t_DLL_ARG u_get_arg(int i) {
  if (i < 0 || i >= u_get_argc()) return qz::bad_arg;
  const qz::wire::Layout &l = qz::layout();
  std::size_t d = qz::descriptor(i);
  t_DLL_ARG a;
  a.type = get32(dll_info, d + l.a_type);
  a.byref = get32(dll_info, d + l.a_byref);
  a.maxlen = get32(dll_info, d + l.a_maxlen);
  a.elsz = get32(dll_info, d + l.a_elsz);
  a.elcnt = get32(dll_info, d + l.a_elcnt);
  std::int32_t ofs = qz::relocate(static_cast<std::uint32_t>(get32(dll_info, d + l.a_ptr)));
  a.ptr = dll_info + ofs;
  qz::check_extent(a, ofs);
  return a;
}

int u_unref_arg(int i) {
  if (i < 0 || i >= u_get_argc()) return -1;
  put32(dll_info, qz::descriptor(i) + qz::layout().a_byref, 0);
  return 0;
}

void *dll_scratch(int size) {
  const qz::wire::Layout &l = qz::layout();
  std::uint32_t low = static_cast<std::uint32_t>(get32(dll_info, l.scratch));
  std::uint32_t high = l.wide ? static_cast<std::uint32_t>(get32(dll_info, l.scratch + 4)) : 0;
  if (low == 0 && high == 0) return nullptr;
  std::int32_t ofs = qz::relocate(low);
  if (qz::limit() - ofs < size) return nullptr;
  return dll_info + ofs;
}
