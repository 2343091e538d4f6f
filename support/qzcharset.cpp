// The name table and the two mapping tables between HP Roman-8 and ISO 8859-1; the
// tables are derived once from one constant table of the Roman-8 upper half.
#include "qzcharset.hpp"

#include <strings.h>

#include <cerrno>

namespace qz {
namespace {

struct CsetName {
  const char *name;        // accepted name; null ends the table
  const char *short_name;  // the set's short name
  int id;                  // 0 HP Roman-8, 1 ISO 8859-1
  const char *long_name;   // the set's long name
};

// Searched in this order; the first row of an id gives its "old" name.
// clang-format off
const CsetName cset_map[] = {
    {"HPROMAN8",   "roman8",   0, "hp-roman8"},
    {"HP-ROMAN8",  "roman8",   0, "hp-roman8"},
    {"ROMAN8",     "roman8",   0, "hp-roman8"},
    {"ISO8859/1",  "iso88591", 1, "iso-8859-1"},
    {"ISO88591",   "iso88591", 1, "iso-8859-1"},
    {"ISO8859-1",  "iso88591", 1, "iso-8859-1"},
    {"ISO-8859-1", "iso88591", 1, "iso-8859-1"},
    {nullptr,      nullptr,   -1, nullptr},
};
// clang-format on

unsigned char map_r8_8859[256];  // Roman-8 byte -> ISO 8859-1 byte
unsigned char map_8859_r8[256];  // ISO 8859-1 byte -> Roman-8 byte
bool setup_flag = false;         // set once both tables are built

const CsetName *by_name(const char *name) {
  for (const CsetName *row = cset_map; row->name != nullptr; ++row) {
    if (strcasecmp(row->name, name) == 0) return row;
  }
  return nullptr;
}

const CsetName *by_id(int id) {
  for (const CsetName *row = cset_map; row->name != nullptr; ++row) {
    if (row->id == id) return row;
  }
  return nullptr;
}

}  // namespace
}  // namespace qz

using namespace qz;

void qz__charset_setup() {
  if (setup_flag) return;
  // The ISO 8859-1 code of each Roman-8 code 0xA0..0xFF. Roman-8 characters that ISO
  // 8859-1 lacks go to C1 positions (0x83, 0x88, 0x8A, 0x98, 0x9A, 0x9F) so that they
  // survive a round trip, or to the nearest ASCII character, or to a space. One line per
  // high hexadecimal figure, A_ to F_.
  // clang-format off
  static const unsigned char map[96] = {
    0x20, 0xC0, 0xC2, 0xC8, 0xCA, 0xCB, 0xCE, 0xCF, 0x27, 0x60, 0x88, 0xA8, 0x98, 0xD9, 0xDB, 0xA3,
    0xAF, 0xDD, 0xFD, 0xB0, 0xC7, 0xE7, 0xD1, 0xF1, 0xA1, 0xBF, 0xA4, 0xA3, 0xA5, 0xA7, 0x83, 0xA2,
    0xE2, 0xEA, 0xF4, 0xFB, 0xE1, 0xE9, 0xF3, 0xFA, 0xE0, 0xE8, 0xF2, 0xF9, 0xE4, 0xEB, 0xF6, 0xFC,
    0xC5, 0xEE, 0xD8, 0xC6, 0xE5, 0xED, 0xF8, 0xE6, 0xC4, 0xEC, 0xD6, 0xDC, 0xC9, 0xEF, 0xDF, 0xD4,
    0xC1, 0xC3, 0xE3, 0xD0, 0xF0, 0xCD, 0xCC, 0xD3, 0xD2, 0xD5, 0xF5, 0x8A, 0x9A, 0xDA, 0x9F, 0xFF,
    0xDE, 0xFE, 0xB7, 0xB5, 0xB6, 0xBE, 0x2D, 0xBC, 0xBD, 0xAA, 0xBA, 0xAB, 0x20, 0xBB, 0xB1, 0x20,
  };
  // clang-format on
  for (unsigned c = 0; c < 256; ++c) {
    unsigned char v = c < 0xA0 ? static_cast<unsigned char>(c) : 0x20;
    map_r8_8859[c] = v;
    map_8859_r8[c] = v;
  }
  // Later entries win (ISO 0xA3 maps back to Roman-8 0xBB, not 0xAF); ASCII targets get
  // no reverse entry, so the ASCII half keeps mapping to itself.
  for (unsigned c = 0xA0; c < 256; ++c) {
    unsigned char v = map[c - 0xA0];
    map_r8_8859[c] = v;
    if (v > 0x7F) map_8859_r8[v] = static_cast<unsigned char>(c);
  }
  setup_flag = true;
}

int qz__charset_map(int from_id, int to_id, void *buffer, unsigned length) {
  if (from_id == to_id) return 0;
  qz__charset_setup();
  const unsigned char *table;
  if (from_id == 0 && to_id == 1) {
    table = map_r8_8859;
  } else if (from_id == 1 && to_id == 0) {
    table = map_8859_r8;
  } else {
    errno = EINVAL;
    return -1;
  }
  // One table lookup per byte and nothing else; an eight-bytes-per-word variant measured
  // only about a fifth faster, not worth the extra code.
  auto *p = static_cast<unsigned char *>(buffer);
  for (unsigned i = 0; i < length; ++i)
    p[i] = table[p[i]];
  return 0;
}

int qz__charset(const char *name) {
  const CsetName *row = by_name(name);
  return row ? row->id : -1;
}

const char *qz__charset_def_name(const char *name) {
  const CsetName *row = by_name(name);
  return row ? row->short_name : nullptr;
}

const char *qz__charset_name(int id) {
  const CsetName *row = by_id(id);
  return row ? row->short_name : nullptr;
}

const char *qz__charset_long_name(int id) {
  const CsetName *row = by_id(id);
  return row ? row->long_name : nullptr;
}

const char *qz__charset_old_name(int id) {
  const CsetName *row = by_id(id);
  return row ? row->name : nullptr;
}
