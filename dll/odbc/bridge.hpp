// What every module of the ODBC bridge shares: the status table and the assertions of the
// host, the log call that prefixes a message with the source file's base name and line,
// the allocation that logs its failure, the stop on an allocation failure that has no
// recovery path, and the bounded reading of text a driver wrote.
#pragma once

#include <cstddef>

#include "qzassert.hpp"
#include "qzlog.hpp"
#include "qzstatus.hpp"

namespace qz {

// dll_alloc that logs "%s(%d): Memory allocation failed (%u bytes)" at level 1 for `file`
// and `line` when it gives null.
void *alloc_logged(std::size_t size, const char *file, int line);

// Logs "%s(%d): Memory allocation failed (%u bytes)" at level 1 for `file` and `line`,
// then stops the process with the assertion text "memory allocation failed". Used where
// an allocation failure has no recovery path: the registries and the diagnostics queue.
[[noreturn]] void fatal_no_memory(const char *file, int line, std::size_t size);

// Terminates text that a driver wrote into a buffer of `size` bytes (size >= 1) and whose
// full length it reported as `reported`, and returns the text's length. A driver may fill
// the buffer to its last byte and leave no terminator when it cuts a text, so the length
// comes from the report and the buffer alone: a cut text keeps size - 1 bytes.
inline std::size_t terminate_driver_text(void *buf, std::size_t size, long long reported) {
  const std::size_t n = reported >= 0 && static_cast<unsigned long long>(reported) < size - 1
                            ? static_cast<std::size_t>(reported)
                            : size - 1;
  static_cast<char *>(buf)[n] = '\0';
  return n;
}

}  // namespace qz

// An allocation on the call path that logs its failure with the caller's file and line.
#define QZ_ALLOC(size) ::qz::alloc_logged((size), __FILE__, __LINE__)

// A message of category O whose text starts with "<base name of this file>(<line>): ".
#define QZ_OLOG(level, fmt, ...)                                    \
  qz__Log('O', (level), "%s(%d): " fmt, extract_filename(__FILE__), \
          __LINE__ __VA_OPT__(, ) __VA_ARGS__)
