// Packed rows: the xpack entry writer, and the row a fetched statement packs into the
// buffer Fetch is given.
#include "xpack.hpp"

#include <cstring>

#include "bridge.hpp"
#include "format.hpp"
#include "statement.hpp"

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

namespace qz {

int pack_row(stmt *s, QzStr *buf) {
  xpack_begin(buf);
  for (int i = 1; i <= s->num_columns; ++i) {
    char *text = nullptr;
    if (int st = s->methods->getdata_STRING(s, i, &text)) return st;
    // The C type decides the lead byte; a timestamp's text goes as text.
    SQLSMALLINT ctype = s->rset[i - 1].ctype;
    bool numeric =
        ctype == SQL_C_LONG || ctype == SQL_C_DOUBLE || ctype == SQL_C_DATE || ctype == SQL_C_TIME;
    if (numeric && (!text || !*text)) text = const_cast<char *>("0");
    if (int st = xpack_var(buf, nullptr, s->rset[i - 1].varname, numeric, 0, text)) return st;
  }
  return xpack_end(buf);
}

}  // namespace qz
