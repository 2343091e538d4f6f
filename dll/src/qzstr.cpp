// Operations on interpreter strings (QzStr): capacity-checked stores and copies, views,
// comparison and conversion to NUL-terminated text. Nothing is ever truncated: a result
// that does not fit gives status 18 and leaves the target unchanged.
#include <cstring>

#include "host.hpp"

namespace {
constexpr int kNoRoom = 18;  // the result does not fit the target's capacity
}

int QzStrlen(const QzStr *s) {
  return s->len;
}

int QzMaxStrlen(const QzStr *s) {
  return s->maxlen;
}

QzStr *QzSubstr(const QzStr *s, int pos, int n) {
  static QzStr view;
  if (pos < 1 || pos > s->len || n < 0) return nullptr;
  int rest = s->len - pos + 1;
  int len = rest < n ? rest : n;
  view = QzStr{len, len, s->text + pos - 1};
  return &view;
}

int QzStr2str(const QzStr *s, char *buf) {
  int n = 0;
  while (n < s->len && s->text[n] != '\0') {
    buf[n] = s->text[n];
    ++n;
  }
  buf[n] = '\0';
  return n;
}

QzStr *QzMkstr(int size) {
  static QzStr made;
  if (size < 0) return nullptr;
  char *text = static_cast<char *>(dll_alloc(static_cast<std::size_t>(size)));
  if (!text) return nullptr;
  made = QzStr{size, 0, text};
  return &made;
}

int str2QzStr(const char *src, QzStr *s) {
  std::size_t n = std::strlen(src);
  if (n > static_cast<std::size_t>(s->maxlen)) return kNoRoom;
  std::memcpy(s->text, src, n);
  s->len = static_cast<int>(n);
  return 0;
}

int QzStrcpy(QzStr *dst, const QzStr *src) {
  if (src->len > dst->maxlen) return kNoRoom;
  std::memmove(dst->text, src->text, static_cast<std::size_t>(src->len));
  dst->len = src->len;
  return 0;
}

int QzStrcat(QzStr *dst, const QzStr *src) {
  if (static_cast<long long>(dst->len) + src->len > dst->maxlen) return kNoRoom;
  std::memmove(dst->text + dst->len, src->text, static_cast<std::size_t>(src->len));
  dst->len += src->len;
  return 0;
}

int QzStrcmp(const QzStr *a, const QzStr *b) {
  int n = a->len < b->len ? a->len : b->len;
  for (int i = 0; i < n; ++i) {
    unsigned char x = static_cast<unsigned char>(a->text[i]);
    unsigned char y = static_cast<unsigned char>(b->text[i]);
    if (x != y) return x < y ? -1 : 1;
  }
  return a->len - b->len;
}
