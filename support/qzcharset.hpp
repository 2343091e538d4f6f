// Conversion between HP Roman-8 (the interpreter's text) and ISO 8859-1 (the ODBC side),
// in place through two 256-byte tables built once, and the names of the two sets.
// Ids: 0 HP Roman-8, 1 ISO 8859-1, -1 an unknown name.
#pragma once

namespace qz {
inline constexpr int kRoman8 = 0;     // HP Roman-8, the interpreter's text
inline constexpr int kIso8859_1 = 1;  // ISO 8859-1, the ODBC side's text
}  // namespace qz

// Builds both mapping tables unless they are built already; qz__charset_map calls it.
void qz__charset_setup();

// Converts the first length bytes of buffer in place from set from_id to set to_id
// (NUL bytes included). Returns 0; equal ids leave the buffer alone, whatever they are.
// Any other pair than (0, 1) or (1, 0) gives -1 with errno EINVAL.
int qz__charset_map(int from_id, int to_id, void *buffer, unsigned length);

// Name lookups, case-insensitive over the accepted names ("HPROMAN8", "HP-ROMAN8",
// "ROMAN8", "ISO8859/1", "ISO88591", "ISO8859-1", "ISO-8859-1"). Returned texts are
// constants; null (or -1) for an unknown name or id.
int qz__charset(const char *name);                   // the id
const char *qz__charset_def_name(const char *name);  // the short name
const char *qz__charset_name(int id);                // short name: "roman8", "iso88591"
const char *qz__charset_long_name(int id);           // "hp-roman8", "iso-8859-1"
const char *qz__charset_old_name(int id);            // "HPROMAN8", "ISO8859/1"
