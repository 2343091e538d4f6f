// The one allocation function of the call path. A test can make the n-th allocation
// fail, to check that every failure becomes status 2 with nothing leaked.
#include <cstdlib>

#include "qzhost.hpp"

namespace {
int fail_countdown = 0;  // > 0: the allocation that brings it to 0 fails
}

void *dll_alloc(std::size_t size) {
  if (fail_countdown > 0 && --fail_countdown == 0) return nullptr;
  return std::malloc(size ? size : 1);
}

void dll_alloc_fail_at(int n) {
  fail_countdown = n > 0 ? n : 0;
}
