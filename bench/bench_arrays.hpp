// Many rows per call: FetchArray over the benchmark's table and ExecuteArray loading it
// again, against pyodbc doing the same through the same driver in a child process
// (bench/peer.py), all in one pinning mode; and the helpers bench_fetch shares with it.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace qz::bench {

// 64-bit FNV-1a over a packed row, chained from h.
inline std::uint64_t fnv(std::uint64_t h, const char *p, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) {
    h ^= static_cast<unsigned char>(p[i]);
    h *= 0x100000001b3ull;
  }
  return h;
}
constexpr std::uint64_t kFnvStart = 0xcbf29ce484222325ull;

// VmHWM of a process in kB, or -1.
inline long peak_kb(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(in, line);)
    if (line.rfind("VmHWM:", 0) == 0) return std::strtol(line.c_str() + 6, nullptr, 10);
  return -1;
}

// The rows a load inserts, column by column: two integer columns, then eight of text
// (numbers, a date, a timestamp and four texts, as the program would hold them). No NULLs:
// an array element cannot be one.
struct LoadRows {
  std::vector<std::int32_t> row_no;            // column 1
  std::vector<std::int32_t> qty;               // column 2
  std::vector<std::vector<std::string>> text;  // columns 3 to 10
  std::size_t size() const { return row_no.size(); }
};

// What pyodbc gave in its child process.
struct PeerResult {
  bool ok = false;    // every round ran and delivered every row
  double rows_s = 0;  // median rows a second
  std::string note;   // how it ended when not ok, or which driver it needed
};

// Where and what to measure.
struct ArraySetup {
  std::string server;                    // the qzodbc program
  std::string spec;                      // connection string of both routes
  std::string peer_spec_unicode;         // pyodbc when `spec` refuses it; empty: none
  std::string peer;                      // bench/peer.py, empty: pyodbc not measured
  std::string dir;                       // a scratch directory (the load file, pyodbc's errors)
  const char *select = "";               // the query over the whole table
  const char *create = "";               // CREATE TABLE of the load's table, named bench_load
  long rows = 0;                         // rows in the table
  int rounds = 1;                        // timed rounds of each fetch route
  int load_rounds = 1;                   // timed rounds of each load route
  std::uint64_t fetch_hash = kFnvStart;  // of Fetch's packed rows, to compare with
  const LoadRows *load = nullptr;        // the rows to load
};

// A route's server memory: VmHWM in kB after its first 1,000 rows and after its last.
struct Memory {
  long at_1000 = -1;  // after the first 1,000 rows
  long at_end = -1;   // after the last
  bool flat(long allowance) const { return at_1000 > 0 && at_end - at_1000 <= allowance; }
};

// The figures of one pinning mode, rows a second over the whole table (ExecDirect
// and every fetch, or every insert and the commit).
struct ArrayFigures {
  double fetch100 = 0;              // FetchArray, 100 rows a call
  double fetch1000 = 0;             // FetchArray, 1,000 rows a call
  PeerResult peer_fetch;            // pyodbc fetchall
  double load = 0;                  // ExecuteArray, 1,000 rows a call, one transaction
  PeerResult peer_load;             // pyodbc executemany
  PeerResult peer_fast;             // pyodbc executemany with fast_executemany
  bool same_rows = false;           // FetchArray's packed rows are Fetch's
  Memory mem100, mem1000, memload;  // the server's memory on each route
};

// Writes the load's rows as bench/peer.py reads them; false when it cannot.
bool write_load_file(const LoadRows &rows, const std::string &path);

// Measures every array route and the pyodbc peers in the current pinning; false (with a
// message on standard error) when a qzodbc route failed. pyodbc's failures are results.
bool measure_arrays(const ArraySetup &setup, ArrayFigures &f);

}  // namespace qz::bench
