// A stdio stream for the log tests that collects what is written to it and notes when it
// is closed, so that tests see the log's bytes and its ownership of streams.
#pragma once

#include <sys/types.h>

#include <cstdio>
#include <string>

namespace qz_test {

struct Sink {
  std::string text;     // everything written so far (after a flush)
  bool closed = false;  // set by the stream's close
  FILE *fp = nullptr;   // the stream

  Sink() {
    cookie_io_functions_t io{};
    io.write = [](void *c, const char *buf, size_t n) -> ssize_t {
      static_cast<Sink *>(c)->text.append(buf, n);
      return static_cast<ssize_t>(n);
    };
    io.close = [](void *c) -> int {
      static_cast<Sink *>(c)->closed = true;
      return 0;
    };
    fp = fopencookie(this, "w", io);
  }
  ~Sink() {
    if (!closed) std::fclose(fp);
  }
  Sink(const Sink &) = delete;
  Sink &operator=(const Sink &) = delete;
};

}  // namespace qz_test
