// The reader of packed rows: splits the text that Fetch returns into its entries, taking
// each value by its announced length.
#include <cstdint>

#include "qzclient.hpp"

namespace qz::client {

namespace {

// Reads a decimal number ending in '~' at text[pos]; a leading '-' only when `sign`. On
// success pos is past the '~'.
bool read_number(std::string_view text, std::size_t &pos, bool sign, std::int64_t &out) {
  std::size_t p = pos;
  bool negative = sign && p < text.size() && text[p] == '-';
  if (negative) ++p;
  std::size_t first = p;
  std::int64_t v = 0;
  while (p < text.size() && text[p] >= '0' && text[p] <= '9') {
    v = v * 10 + (text[p] - '0');
    if (v > static_cast<std::int64_t>(INT32_MAX) + 1) return false;
    ++p;
  }
  if (p == first || p >= text.size() || text[p] != '~') return false;
  v = negative ? -v : v;
  if (v > INT32_MAX || v < INT32_MIN) return false;
  out = v;
  pos = p + 1;
  return true;
}

}  // namespace

PackedRow read_packed_row(std::string_view text) {
  PackedRow row;
  std::size_t pos = 0;
  auto fail = [&](const char *what, std::size_t at) {
    row.error = what;
    row.error_offset = at;
    return row;
  };
  for (;;) {
    if (pos >= text.size()) return fail("no terminator", pos);
    char lead = text[pos];
    if (lead == '$') {
      if (pos + 1 != text.size()) return fail("bytes after the terminator", pos + 1);
      return row;
    }
    if (lead != 'N' && lead != 'X') return fail("bad lead byte", pos);
    std::size_t start = pos;
    std::size_t tilde = text.find('~', pos + 1);
    if (tilde == std::string_view::npos) return fail("name without '~'", start);
    PackedEntry e;
    e.numeric = lead == 'N';
    e.name = std::string(text.substr(pos + 1, tilde - pos - 1));
    pos = tilde + 1;
    std::int64_t number = 0, length = 0;
    if (!read_number(text, pos, true, number)) return fail("bad number field", start);
    if (!read_number(text, pos, false, length)) return fail("bad length field", start);
    if (static_cast<std::uint64_t>(length) > text.size() - pos)
      return fail("value runs past the end", start);
    e.number = static_cast<std::int32_t>(number);
    e.value = std::string(text.substr(pos, static_cast<std::size_t>(length)));
    pos += static_cast<std::size_t>(length);
    row.entries.push_back(std::move(e));
  }
}

}  // namespace qz::client
