// Assertions of the call host and of function sets: a violated protocol or internal
// contract prints the failed condition (or a text of the caller's) and aborts the server.
#pragma once

namespace qz {

// Fails an assertion with `cond` as its condition text: prints it and aborts.
[[noreturn]] void assertion_failed(const char *cond, const char *file, int line, const char *func);

}  // namespace qz

#define QZ_ASSERT(cond) \
  ((cond) ? (void)0 : ::qz::assertion_failed(#cond, __FILE__, __LINE__, __func__))
#define QZ_ASSERT_TEXT(ok, text) \
  ((ok) ? (void)0 : ::qz::assertion_failed(text, __FILE__, __LINE__, __func__))
