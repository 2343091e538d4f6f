// Packed rows: the text Fetch returns for a row. Nothing of it is NUL-terminated.
#pragma once

#include "qzhost.hpp"

struct stmt;

// Packed rows. xpack_begin empties buf. xpack_var appends the entry
//   'N' (numeric) or 'X', prefix, name, '~', number, '~', length of value, '~', value
// (prefix and value may be null: nothing, respectively length 0) and returns 0, or 18 when
// buf lacks room for the entry plus one byte (buf unchanged). xpack_end appends the
// terminator '$': 0, or 18 when buf is full.
void xpack_begin(QzStr *buf);
int xpack_var(QzStr *buf, const char *prefix, const char *name, int numeric, int number,
              const char *value);
int xpack_end(QzStr *buf);

namespace qz {

// Packs the row the statement has fetched into buf, as Fetch returns it: one xpack entry
// per column (the column's variable name, 'N' for integer, real, date and time buffers
// with "0" standing for an empty value, 'X' otherwise), then the terminator. 0, 18 when
// buf is full (the entries that fitted stay), or the status of getdata_STRING.
int pack_row(stmt *s, QzStr *buf);

}  // namespace qz
