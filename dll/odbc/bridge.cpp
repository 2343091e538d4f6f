// The bridge-wide allocation helpers: an allocation that logs its failure, and the stop
// where an allocation failure has no way back.
#include <cstdlib>

#include "bridge.hpp"
#include "qzhost.hpp"

namespace qz {

namespace {

void log_no_memory(const char *file, int line, std::size_t size) {
  qz__Log('O', 1, "%s(%d): Memory allocation failed (%u bytes)", extract_filename(file), line,
          static_cast<unsigned>(size));
}

}  // namespace

void *alloc_logged(std::size_t size, const char *file, int line) {
  void *p = dll_alloc(size);
  if (!p) log_no_memory(file, line, size);
  return p;
}

void fatal_no_memory(const char *file, int line, std::size_t size) {
  log_no_memory(file, line, size);
  QZ_ASSERT_TEXT(false, "memory allocation failed");
  std::abort();  // not reached: the assertion has stopped the process
}

}  // namespace qz
