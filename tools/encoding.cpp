// The user's text and the server's: UTF-8, ISO 8859-1 or HP Roman-8 on the terminal, HP
// Roman-8 at the server, ISO 8859-1 for what the catalog functions pass on unconverted.
#include "encoding.hpp"

#include "qzcharset.hpp"

namespace qz::call {

std::string to_latin1(std::string_view text, Encoding e) {
  std::string latin1;
  if (e == Encoding::latin1) return std::string(text);
  if (e == Encoding::roman8) {
    latin1 = text;
    qz__charset_map(qz::kRoman8, qz::kIso8859_1, latin1.data(),
                    static_cast<unsigned>(latin1.size()));
    return latin1;
  }
  // UTF-8 to ISO 8859-1; a character outside it becomes '?', a byte that is no UTF-8 is
  // taken as the ISO 8859-1 character it is.
  for (std::size_t i = 0; i < text.size();) {
    unsigned char c = static_cast<unsigned char>(text[i]);
    int len = c < 0x80             ? 1
              : (c & 0xE0) == 0xC0 ? 2
              : (c & 0xF0) == 0xE0 ? 3
              : (c & 0xF8) == 0xF0 ? 4
                                   : 0;
    bool ok = len > 0 && i + static_cast<std::size_t>(len) <= text.size();
    unsigned cp = len == 1 ? c : len == 2 ? c & 0x1F : len == 3 ? c & 0x0F : c & 0x07;
    for (int k = 1; ok && k < len; ++k) {
      unsigned char d = static_cast<unsigned char>(text[i + static_cast<std::size_t>(k)]);
      ok = (d & 0xC0) == 0x80;
      cp = cp << 6 | (d & 0x3F);
    }
    if (!ok) {
      latin1 += static_cast<char>(c);
      ++i;
      continue;
    }
    latin1 += cp <= 0xFF ? static_cast<char>(cp) : '?';
    i += static_cast<std::size_t>(len);
  }
  return latin1;
}

std::string to_server(std::string_view text, Encoding e) {
  if (e == Encoding::roman8) return std::string(text);
  std::string s = to_latin1(text, e);
  qz__charset_map(qz::kIso8859_1, qz::kRoman8, s.data(), static_cast<unsigned>(s.size()));
  return s;
}

std::string from_server(std::string_view text, Encoding e) {
  if (e == Encoding::roman8) return std::string(text);
  std::string latin1(text);
  qz__charset_map(qz::kRoman8, qz::kIso8859_1, latin1.data(), static_cast<unsigned>(latin1.size()));
  if (e == Encoding::latin1) return latin1;
  std::string out;
  for (unsigned char c : latin1) {
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else {
      out += static_cast<char>(0xC0 | c >> 6);
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

}  // namespace qz::call
