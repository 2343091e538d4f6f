// Cost of the text forms of fetched values: each qz::format_* function next to snprintf
// with the printf format it stands for, on batches of typical values, and one whole row
// of the fetch benchmark's ten-column table. Ends with a side-by-side table of ns per
// value and the speed-up.
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "format.hpp"

namespace {

constexpr int kBatch = 1024;  // values formatted per benchmark iteration

struct Date {
  std::int16_t year;         // 1900 to 2099
  std::uint16_t month, day;  // 1 to 12, 1 to 28
};
struct Time {
  std::uint16_t hour, minute, second;  // 0 to 23, 0 to 59, 0 to 59
};
struct Stamp {
  Date date;  // the date part
  Time time;  // the time part
};
struct Header {
  std::int32_t number;     // column number, 1 to 10
  std::int32_t value_len;  // value length, 0 to 40
};
struct Row {
  std::int32_t i1, i2;  // two INTEGER columns
  double n1, n2;        // two NUMERIC(12,2) columns bound as doubles
  Date date;            // a DATE column
  Stamp stamp;          // a TIMESTAMP column
};

// The inputs, made once with a fixed seed.
struct Inputs {
  std::vector<std::int32_t> ints;  // every length, either sign
  std::vector<double> money;       // cents of up to ten digits, as NUMERIC(12,2) holds
  std::vector<double> integral;    // integer-valued doubles up to 1e9
  std::vector<double> bits;        // random bit patterns: long mantissas, any exponent
  std::vector<Date> dates;         // plausible dates
  std::vector<Time> times;         // plausible times
  std::vector<Stamp> stamps;       // plausible timestamps
  std::vector<Header> headers;     // packed row headers
  std::vector<Row> rows;           // rows of the ten-column table

  Inputs() {
    std::mt19937_64 rng(7);
    auto date = [&] {
      return Date{static_cast<std::int16_t>(1900 + rng() % 200),
                  static_cast<std::uint16_t>(1 + rng() % 12),
                  static_cast<std::uint16_t>(1 + rng() % 28)};
    };
    auto time = [&] {
      return Time{static_cast<std::uint16_t>(rng() % 24), static_cast<std::uint16_t>(rng() % 60),
                  static_cast<std::uint16_t>(rng() % 60)};
    };
    auto cents = [&] {
      double c = static_cast<double>(static_cast<std::int64_t>(rng() % 10000000000ULL));
      return (rng() & 1 ? -c : c) / 100;
    };
    for (int i = 0; i < kBatch; ++i) {
      std::uint64_t r = rng();
      std::uint32_t u = static_cast<std::uint32_t>(r) >> (r >> 32) % 32;
      ints.push_back(static_cast<std::int32_t>((r >> 40) & 1 ? 0u - u : u));
      money.push_back(cents());
      integral.push_back(static_cast<double>(rng() % 1000000000));
      std::uint64_t b = rng();
      double d;
      std::memcpy(&d, &b, sizeof d);
      bits.push_back(d);
      dates.push_back(date());
      times.push_back(time());
      stamps.push_back({date(), time()});
      headers.push_back(
          {static_cast<std::int32_t>(1 + i % 10), static_cast<std::int32_t>(rng() % 41)});
      rows.push_back({static_cast<std::int32_t>(rng() % 1000000),
                      static_cast<std::int32_t>(rng() % 1000),
                      cents(),
                      cents(),
                      date(),
                      {date(), time()}});
    }
  }
};

const Inputs &inputs() {
  static const Inputs in;
  return in;
}

// One benchmark body: formats every value of the batch with fn, which returns a length.
template <class T, class Fn>
void run_batch(benchmark::State &state, const std::vector<T> &values, Fn fn) {
  char buf[64];
  for (auto _ : state) {
    std::size_t total = 0;
    for (const T &v : values)
      total += static_cast<std::size_t>(fn(buf, v));
    benchmark::DoNotOptimize(total);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(values.size()));
}

int snprintf_date(char *out, const Date &d) {
  return std::snprintf(out, qz::kFormatDateSize, "%04d%02d%02d", d.year, d.month, d.day);
}
int snprintf_stamp(char *out, const Stamp &s) {
  return std::snprintf(out, qz::kFormatTimestampSize, "%04d%02d%02d %02d%02d%02d", s.date.year,
                       s.date.month, s.date.day, s.time.hour, s.time.minute, s.time.second);
}

// A row as the server packs it: every column formatted, then its entry header.
int row_ours(char *out, const Row &r) {
  char v[qz::kFormatTimestampSize];
  int total = 0;
  int n = qz::format_int(v, r.i1);
  total += n + qz::format_xpack_header(out, 1, n);
  n = qz::format_int(v, r.i2);
  total += n + qz::format_xpack_header(out, 2, n);
  n = qz::format_g14(v, r.n1);
  total += n + qz::format_xpack_header(out, 3, n);
  n = qz::format_g14(v, r.n2);
  total += n + qz::format_xpack_header(out, 4, n);
  n = qz::format_date(v, r.date.year, r.date.month, r.date.day);
  total += n + qz::format_xpack_header(out, 5, n);
  const Stamp &s = r.stamp;
  n = qz::format_timestamp(v, s.date.year, s.date.month, s.date.day, s.time.hour, s.time.minute,
                           s.time.second);
  total += n + qz::format_xpack_header(out, 6, n);
  for (int c = 7; c <= 10; ++c)  // the text columns only get their headers
    total += 40 + qz::format_xpack_header(out, c, 40);
  return total;
}

int row_snprintf(char *out, const Row &r) {
  char v[qz::kFormatTimestampSize];
  const int h = qz::kFormatXpackHeaderSize;
  const char *hf = "%c%d%c%d%c";
  int total = 0;
  int n = std::snprintf(v, sizeof v, "%d", r.i1);
  total += n + std::snprintf(out, h, hf, '~', 1, '~', n, '~');
  n = std::snprintf(v, sizeof v, "%d", r.i2);
  total += n + std::snprintf(out, h, hf, '~', 2, '~', n, '~');
  n = std::snprintf(v, sizeof v, "%.14g", r.n1);
  total += n + std::snprintf(out, h, hf, '~', 3, '~', n, '~');
  n = std::snprintf(v, sizeof v, "%.14g", r.n2);
  total += n + std::snprintf(out, h, hf, '~', 4, '~', n, '~');
  n = snprintf_date(v, r.date);
  total += n + std::snprintf(out, h, hf, '~', 5, '~', n, '~');
  n = snprintf_stamp(v, r.stamp);
  total += n + std::snprintf(out, h, hf, '~', 6, '~', n, '~');
  for (int c = 7; c <= 10; ++c)
    total += 40 + std::snprintf(out, h, hf, '~', c, '~', 40, '~');
  return total;
}

// One line of the closing table: a value form with our function and snprintf's.
struct Case {
  const char *name;                    // benchmark name prefix
  const char *what;                    // the line's label
  void (*ours)(benchmark::State &);    // our function on the batch
  void (*theirs)(benchmark::State &);  // snprintf on the same batch
};

const Case kCases[] = {
    {"int", "\"%d\" int32, every length",
     [](benchmark::State &s) { run_batch(s, inputs().ints, qz::format_int); },
     [](benchmark::State &s) {
       run_batch(s, inputs().ints, [](char *o, std::int32_t v) {
         return std::snprintf(o, qz::kFormatIntSize, "%d", v);
       });
     }},
    {"g14_money", "\"%.14g\" cents, up to 12 digits",
     [](benchmark::State &s) { run_batch(s, inputs().money, qz::format_g14); },
     [](benchmark::State &s) {
       run_batch(s, inputs().money, [](char *o, double d) {
         return std::snprintf(o, qz::kFormatDoubleSize, "%.14g", d);
       });
     }},
    {"g14_integral", "\"%.14g\" integers below 1e9",
     [](benchmark::State &s) { run_batch(s, inputs().integral, qz::format_g14); },
     [](benchmark::State &s) {
       run_batch(s, inputs().integral, [](char *o, double d) {
         return std::snprintf(o, qz::kFormatDoubleSize, "%.14g", d);
       });
     }},
    {"g14_bits", "\"%.14g\" random bit patterns",
     [](benchmark::State &s) { run_batch(s, inputs().bits, qz::format_g14); },
     [](benchmark::State &s) {
       run_batch(s, inputs().bits, [](char *o, double d) {
         return std::snprintf(o, qz::kFormatDoubleSize, "%.14g", d);
       });
     }},
    {"date", "\"%04d%02d%02d\" date",
     [](benchmark::State &s) {
       run_batch(s, inputs().dates,
                 [](char *o, const Date &d) { return qz::format_date(o, d.year, d.month, d.day); });
     },
     [](benchmark::State &s) { run_batch(s, inputs().dates, snprintf_date); }},
    {"time", "\"%02d%02d%02d\" time",
     [](benchmark::State &s) {
       run_batch(s, inputs().times, [](char *o, const Time &t) {
         return qz::format_time(o, t.hour, t.minute, t.second);
       });
     },
     [](benchmark::State &s) {
       run_batch(s, inputs().times, [](char *o, const Time &t) {
         return std::snprintf(o, qz::kFormatTimeSize, "%02d%02d%02d", t.hour, t.minute, t.second);
       });
     }},
    {"timestamp", "\"%04d%02d%02d %02d%02d%02d\" timestamp",
     [](benchmark::State &s) {
       run_batch(s, inputs().stamps, [](char *o, const Stamp &t) {
         return qz::format_timestamp(o, t.date.year, t.date.month, t.date.day, t.time.hour,
                                     t.time.minute, t.time.second);
       });
     },
     [](benchmark::State &s) { run_batch(s, inputs().stamps, snprintf_stamp); }},
    {"xpack_header", "\"%c%d%c%d%c\" packed row header",
     [](benchmark::State &s) {
       run_batch(s, inputs().headers, [](char *o, const Header &h) {
         return qz::format_xpack_header(o, h.number, h.value_len);
       });
     },
     [](benchmark::State &s) {
       run_batch(s, inputs().headers, [](char *o, const Header &h) {
         return std::snprintf(o, qz::kFormatXpackHeaderSize, "%c%d%c%d%c", '~', h.number, '~',
                              h.value_len, '~');
       });
     }},
    {"row", "one row: 2 int, 2 cents, date, timestamp, 10 headers",
     [](benchmark::State &s) { run_batch(s, inputs().rows, row_ours); },
     [](benchmark::State &s) { run_batch(s, inputs().rows, row_snprintf); }},
};

// Prints the usual console lines and keeps each run's ns per value for the table.
class SideBySide : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run> &runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run &r : runs) {
      if (r.run_type != Run::RT_Iteration || r.error_occurred) continue;
      auto it = r.counters.find("items_per_second");
      if (it != r.counters.end() && it->second.value > 0)
        ns_per_value[r.benchmark_name()] = 1e9 / it->second.value;
    }
  }
  std::map<std::string, double> ns_per_value;  // by benchmark name
};

}  // namespace

int main(int argc, char **argv) {
  for (const Case &c : kCases) {
    benchmark::RegisterBenchmark((std::string(c.name) + "/ours").c_str(), c.ours);
    benchmark::RegisterBenchmark((std::string(c.name) + "/snprintf").c_str(), c.theirs);
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  SideBySide reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();

  std::printf("\n%-52s %10s %12s %9s\n", "ns per value (per row for the row)", "ours", "snprintf",
              "speed-up");
  for (const Case &c : kCases) {
    auto ours = reporter.ns_per_value.find(std::string(c.name) + "/ours");
    auto theirs = reporter.ns_per_value.find(std::string(c.name) + "/snprintf");
    if (ours == reporter.ns_per_value.end() || theirs == reporter.ns_per_value.end())
      continue;  // filtered out
    std::printf("%-52s %10.1f %12.1f %8.1fx\n", c.what, ours->second, theirs->second,
                theirs->second / ours->second);
  }
  return 0;
}
