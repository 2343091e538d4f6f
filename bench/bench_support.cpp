// Costs of the support services on the call path: character set conversion of a 1 MiB
// buffer next to a plain copy of the same buffer, and log calls while the log is off.
#include <cstring>
#include <vector>

#include <benchmark/benchmark.h>

#include "qzcharset.hpp"
#include "qzlog.hpp"

namespace {

constexpr std::size_t kBuffer = 1 << 20;

std::vector<unsigned char> text_buffer() {
  std::vector<unsigned char> buf(kBuffer);
  for (std::size_t i = 0; i < buf.size(); ++i)
    buf[i] = static_cast<unsigned char>(i * 131);
  return buf;
}

void BM_charset_map_1MiB(benchmark::State &state) {
  std::vector<unsigned char> buf = text_buffer();
  int to = static_cast<int>(state.range(0));
  for (auto _ : state) {
    qz__charset_map(1 - to, to, buf.data(), static_cast<unsigned>(buf.size()));
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kBuffer);
}
BENCHMARK(BM_charset_map_1MiB)->Arg(1)->Arg(0);  // Roman-8 -> ISO 8859-1, and back

void BM_memcpy_1MiB(benchmark::State &state) {
  std::vector<unsigned char> src = text_buffer();
  std::vector<unsigned char> dst(kBuffer);
  for (auto _ : state) {
    std::memcpy(dst.data(), src.data(), kBuffer);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kBuffer);
}
BENCHMARK(BM_memcpy_1MiB);

// The inline flag test as the bridge's call sites see it.
void BM_IsLog_disabled(benchmark::State &state) {
  qz__Log_SetFlags2("O1", 0);
  int letter = 'O';
  int level = 3;
  for (auto _ : state) {
    benchmark::DoNotOptimize(letter);
    benchmark::DoNotOptimize(level);
    benchmark::DoNotOptimize(qz__IsLog(letter, level));
  }
}
BENCHMARK(BM_IsLog_disabled);

// The out-of-line copy, called through a pointer the compiler cannot see through.
void BM_IsLog_disabled_out_of_line(benchmark::State &state) {
  qz__Log_SetFlags2("O1", 0);
  int (*volatile fn)(int, int) = &qz__IsLog;
  for (auto _ : state)
    benchmark::DoNotOptimize(fn('O', 3));
}
BENCHMARK(BM_IsLog_disabled_out_of_line);

// A whole qz__Log call whose level is off: the call, the flag test, the return.
void BM_Log_disabled(benchmark::State &state) {
  qz__Log_SetFlags2("O1", 0);
  int level = 3;
  for (auto _ : state) {
    benchmark::DoNotOptimize(level);
    qz__Log('O', level, "%s(%d): %s", "statement.cpp", 42, "trace");
  }
}
BENCHMARK(BM_Log_disabled);

}  // namespace

BENCHMARK_MAIN();
