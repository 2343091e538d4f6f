// Micro-benchmarks of the decimal library: the conversions the dispatcher makes for
// every real argument (m_to_dbl, m_cv_dbl, with their text-route references) and the
// arithmetic and parsing of records. Operands come from a fixed pool of random values.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "qzmath.h"

namespace {

constexpr size_t kPool = 4096;  // operands cycled through by every benchmark

uint64_t next(uint64_t &s) {
  s ^= s << 13;
  s ^= s >> 7;
  s ^= s << 17;
  return s;
}

// Records in normal form with exponents around 100^0 (the values programs pass).
std::vector<t_DECIMAL> records(uint64_t seed) {
  std::vector<t_DECIMAL> v(kPool);
  for (auto &r : v) {
    std::memset(&r, 0, sizeof r);
    int n = 1 + static_cast<int>(next(seed) % 8);
    for (int i = 0; i < n; ++i)
      r.dec_dgts[i] = static_cast<uint8_t>(next(seed) % 100);
    if (r.dec_dgts[0] == 0) r.dec_dgts[0] = 3;
    if (r.dec_dgts[n - 1] == 0) r.dec_dgts[n - 1] = 7;
    r.dec_ndgts = static_cast<int8_t>(n);
    r.dec_exp = static_cast<int16_t>(static_cast<int>(next(seed) % 13) - 6);
    r.dec_pos = static_cast<uint8_t>(next(seed) % 2);
  }
  return v;
}

std::vector<double> doubles(uint64_t seed) {
  std::vector<double> v(kPool);
  for (auto &d : v) {
    double m = static_cast<double>(next(seed) >> 11) / 9007199254740992.0;
    int e = static_cast<int>(next(seed) % 25) - 12;
    char text[40];
    std::snprintf(text, sizeof text, "%.17ge%d", m * 10, e);
    d = std::strtod(text, nullptr);
  }
  return v;
}

void BM_m_to_dbl(benchmark::State &state) {
  auto v = records(1);
  size_t i = 0;
  for (auto _ : state) {
    double d;
    m_to_dbl(&v[i++ % kPool], &d);
    benchmark::DoNotOptimize(d);
  }
}
BENCHMARK(BM_m_to_dbl);

// The text route the design describes: general text form, then strtod.
void BM_m_to_dbl_text_route(benchmark::State &state) {
  auto v = records(1);
  size_t i = 0;
  for (auto _ : state) {
    char buf[32];
    m_gcvt(&v[i++ % kPool], 14, buf);
    double d = std::strtod(buf, nullptr);
    benchmark::DoNotOptimize(d);
  }
}
BENCHMARK(BM_m_to_dbl_text_route);

void BM_m_cv_dbl(benchmark::State &state) {
  auto v = doubles(2);
  size_t i = 0;
  for (auto _ : state) {
    t_DECIMAL r;
    m_cv_dbl(v[i++ % kPool], &r);
    benchmark::DoNotOptimize(r);
  }
}
BENCHMARK(BM_m_cv_dbl);

// The text route: fifteen correctly rounded figures from the C library's "%.14e".
void BM_m_cv_dbl_text_route(benchmark::State &state) {
  auto v = doubles(2);
  size_t i = 0;
  for (auto _ : state) {
    t_DECIMAL r;
    deccvreal(v[i++ % kPool], 15, &r);
    benchmark::DoNotOptimize(r);
  }
}
BENCHMARK(BM_m_cv_dbl_text_route);

template <int (*Op)(const t_DECIMAL *, const t_DECIMAL *, t_DECIMAL *)>
void BM_arith(benchmark::State &state) {
  auto a = records(3), b = records(4);
  size_t i = 0;
  for (auto _ : state) {
    t_DECIMAL r;
    size_t k = i++ % kPool;
    Op(&a[k], &b[k], &r);
    benchmark::DoNotOptimize(r);
  }
}
BENCHMARK(BM_arith<decadd>)->Name("BM_decadd");
BENCHMARK(BM_arith<decmul>)->Name("BM_decmul");
BENCHMARK(BM_arith<decdiv>)->Name("BM_decdiv");

void BM_deccvasc(benchmark::State &state) {
  auto v = records(5);
  std::vector<char> texts(kPool * 32);
  for (size_t k = 0; k < kPool; ++k)
    m_gcvt(&v[k], 14, &texts[k * 32]);
  size_t i = 0;
  for (auto _ : state) {
    const char *t = &texts[(i++ % kPool) * 32];
    t_DECIMAL r;
    deccvasc(t, 32, &r);
    benchmark::DoNotOptimize(r);
  }
}
BENCHMARK(BM_deccvasc);

}  // namespace

BENCHMARK_MAIN();
