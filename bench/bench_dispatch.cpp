// dll_main in-process, without signals: a call laid out by the client's block codec in a
// call block in this process's memory, dispatched to the test function set.
#include <benchmark/benchmark.h>

#include <vector>

#include "qzclient.hpp"
#include "qzhost.hpp"

namespace {

using qz::client::Arg;

// A 32-bit-layout block with one call in it; the segment's interpreter base is 0.
class Block {
 public:
  Block(std::string_view name, std::vector<Arg> args) : mem_(1 << 16, 0) {
    qz::client::BlockCodec codec(mem_, qz::client::Layout::bits32, 0);
    codec.write_header(0, 0);
    std::string error;
    if (!codec.write_call(name, args, error)) std::abort();
    dll_use_block(mem_.data(), mem_.size(), 32);
  }

 private:
  std::vector<unsigned char> mem_;
};

void three_reals_and_text(benchmark::State &state) {
  Block b("RealRef", {Arg::real_var(1.25), Arg::real(2.5), Arg::string_var("", 40)});
  for (auto _ : state)
    benchmark::DoNotOptimize(dll_main());
}
BENCHMARK(three_reals_and_text)->Name("dll_main/RealRef(real var, real, string var)");

void three_integers(benchmark::State &state) {
  Block b("Describe", {Arg::string_var("", 200), Arg::int_var(7), Arg::integer(8)});
  for (auto _ : state)
    benchmark::DoNotOptimize(dll_main());
}
BENCHMARK(three_integers)->Name("dll_main/Describe(string var, int var, int)");

void null_call(benchmark::State &state) {
  Block b("Nothing", {});
  for (auto _ : state)
    benchmark::DoNotOptimize(dll_main());
}
BENCHMARK(null_call)->Name("dll_main/Nothing()");

}  // namespace

BENCHMARK_MAIN();
