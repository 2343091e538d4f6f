// dll_main in-process, without signals: a three-argument call laid out in a call block in
// this process's memory, dispatched to the test function set.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "dllmain.hpp"
#include "qzmath.h"

namespace {

using qz::wire::put32;

// A 32-bit-layout block with one call in it; the segment's interpreter base is 0.
class Block {
 public:
  Block() : mem_(1 << 16, 0) {
    dll_compat = 0;
    dll_info = mem_.data();
    qz::segment_size = static_cast<std::int64_t>(mem_.size());
    std::memcpy(dll_info, qz::wire::kMagic, 8);
    put32(dll_info, qz::wire::kLayout32.shmsz, static_cast<std::int32_t>(mem_.size()));
  }
  // Appends data of `bytes` bytes for descriptor i and returns its offset.
  std::size_t arg(int i, int type, int byref, int maxlen, int elsz, std::size_t bytes) {
    std::size_t at = next_;
    next_ += (bytes + 7) / 8 * 8;
    const auto &l = qz::wire::kLayout32;
    std::size_t d = l.args + l.arg_size * static_cast<std::size_t>(i);
    put32(dll_info, d + l.a_type, type);
    put32(dll_info, d + l.a_byref, byref);
    put32(dll_info, d + l.a_ptr, static_cast<std::int32_t>(at));
    put32(dll_info, d + l.a_maxlen, maxlen);
    put32(dll_info, d + l.a_elsz, elsz);
    put32(dll_info, d + l.a_elcnt, 1);
    put32(dll_info, l.argc, i + 1);
    return at;
  }
  void name(const std::string &n) {
    std::size_t at = arg(0, DLL_STRING, 0, static_cast<int>(n.size()),
                         static_cast<int>((n.size() + 7) / 4), 4 + n.size());
    put32(dll_info, at, static_cast<std::int32_t>(n.size()));
    std::memcpy(dll_info + at + 4, n.data(), n.size());
  }
  void real(int i, double d, int byref) {
    std::size_t at = arg(i, DLL_REAL, byref, 0, 3, 12);
    m_cv_dbl(d, reinterpret_cast<t_DECIMAL *>(dll_info + at));
  }
  void string(int i, int capacity) {
    arg(i, DLL_STRING, 1, capacity, (4 + capacity + 3) / 4, 4 + static_cast<std::size_t>(capacity));
  }
  void integer(int i, int v, int byref) { put32(dll_info, arg(i, DLL_INTEGER, byref, 0, 1, 4), v); }

 private:
  std::vector<unsigned char> mem_;
  std::size_t next_ = 1024;
};

void three_reals_and_text(benchmark::State &state) {
  Block b;
  b.name("RealRef");
  b.real(1, 1.25, 1);
  b.real(2, 2.5, 0);
  b.string(3, 40);
  for (auto _ : state)
    benchmark::DoNotOptimize(dll_main());
}
BENCHMARK(three_reals_and_text)->Name("dll_main/RealRef(real var, real, string var)");

void three_integers(benchmark::State &state) {
  Block b;
  b.name("Describe");
  b.string(1, 200);
  b.integer(2, 7, 1);
  b.integer(3, 8, 0);
  for (auto _ : state)
    benchmark::DoNotOptimize(dll_main());
}
BENCHMARK(three_integers)->Name("dll_main/Describe(string var, int var, int)");

void null_call(benchmark::State &state) {
  Block b;
  b.name("Nothing");
  for (auto _ : state)
    benchmark::DoNotOptimize(dll_main());
}
BENCHMARK(null_call)->Name("dll_main/Nothing()");

}  // namespace

BENCHMARK_MAIN();
