// Rows per second of Fetch into a packed buffer through qzodbc, against the same ODBC work
// done in-process by the bridge's own statement object (bind, fetch, format, pack) and the
// raw cost of the two signals of a call, all in the same run, pinned and unpinned; and
// the server's peak memory while it fetches. SQLite always, PostgreSQL when QZ_PG_ENV
// names a running cluster. Prints a report and exits 3 when a target is missed.
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <span>
#include <string>
#include <vector>

#include "bench_arrays.hpp"
#include "bench_env.hpp"
#include "bridge.hpp"
#include "connection.hpp"
#include "odbc_dll.hpp"
#include "pingpong.hpp"
#include "qzclient.hpp"
#include "registry.hpp"
#include "statement.hpp"
#include "xpack.hpp"

namespace {

using qz::bench::Clock;
using qz::bench::fnv;
using qz::bench::kFnvStart;
using qz::bench::median;
using qz::bench::ns_since;
using qz::bench::peak_kb;
using qz::client::Arg;
namespace odbc = qz::bench;

constexpr int kBufferSize = 4096;        // the packed row buffer, as a program would size it
constexpr int kTripsPerRound = 2000;     // raw exchanges measured per round
constexpr long kMemoryAllowance = 1024;  // kB the server may grow by from 1,000 rows on
constexpr double kFactor = 1.2;          // allowed factor on the in-process time per row
constexpr int kRowsPerInsert = 500;      // rows per INSERT statement while filling the table
constexpr int kLoadRounds = 2;           // timed loads of each route

const char *const kCreate =
    "CREATE TABLE bench_rows (row_no INTEGER, qty INTEGER, price NUMERIC(12,2), "
    "amount NUMERIC(12,2), order_date DATE, created_at TIMESTAMP, cust_name VARCHAR(40), "
    "city VARCHAR(40), code VARCHAR(40), note VARCHAR(40))";
const char *const kCreateLoad =
    "CREATE TABLE bench_load (row_no INTEGER, qty INTEGER, price NUMERIC(12,2), "
    "amount NUMERIC(12,2), order_date DATE, created_at TIMESTAMP, cust_name VARCHAR(40), "
    "city VARCHAR(40), code VARCHAR(40), note VARCHAR(40))";
const char *const kSelect =
    "SELECT row_no, qty, price, amount, order_date, created_at, cust_name, city, code, note "
    "FROM bench_rows ORDER BY row_no";

// A small deterministic generator, so that both databases hold the same rows.
struct Lcg {
  std::uint64_t state;  // current state
  std::uint32_t next() {
    state = state * 6364136223846793005ull + 1442695040888963407ull;
    return static_cast<std::uint32_t>(state >> 33);
  }
  std::uint32_t below(std::uint32_t n) { return next() % n; }
};

// Text of 0 to max_len characters from a mixed alphabet (blanks, digits, punctuation).
std::string some_text(Lcg &g, int max_len) {
  static const char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789 -.,/#&()~$";
  int n = static_cast<int>(g.below(static_cast<std::uint32_t>(max_len) + 1));
  std::string s;
  for (int i = 0; i < n; ++i)
    s += kAlphabet[g.below(sizeof kAlphabet - 1)];
  return s;
}

// "'text'" as an SQL literal (no quote occurs in the alphabet), or NULL.
std::string literal(const std::string &text, bool null) {
  return null ? "NULL" : "'" + text + "'";
}

// Cents as an SQL number with two decimals.
std::string money(long long cents) {
  char buf[32];
  unsigned long long a = static_cast<unsigned long long>(cents < 0 ? -cents : cents);
  std::snprintf(buf, sizeof buf, "%s%llu.%02llu", cents < 0 ? "-" : "", a / 100, a % 100);
  return buf;
}

// One row of the table as a VALUES tuple: numbers of every length and sign, money with
// cents, dates across two centuries, texts of every length up to 40, and some NULLs.
std::string row_tuple(Lcg &g, int row_no) {
  int qty = static_cast<int>(g.next()) >> static_cast<int>(g.below(31));
  long long price = g.below(10000000);
  long long cents = static_cast<long long>(g.next() % 100000000000ull) - 50000000000ll;
  cents /= 1ll << g.below(30);
  bool null_amount = g.below(50) == 0;
  int year = 1900 + static_cast<int>(g.below(200)), month = 1 + static_cast<int>(g.below(12));
  int day = 1 + static_cast<int>(g.below(28));
  int hh = static_cast<int>(g.below(24)), mi = static_cast<int>(g.below(60));
  int ss = static_cast<int>(g.below(60));
  char when[112];
  std::snprintf(when, sizeof when, "'%04d-%02d-%02d','%04d-%02d-%02d %02d:%02d:%02d'", year, month,
                day, 2000 + year % 30, month, day, hh, mi, ss);
  std::string t = "(" + std::to_string(row_no) + "," + std::to_string(qty) + "," + money(price) +
                  "," + (null_amount ? std::string("NULL") : money(cents)) + "," + when + ",";
  t += literal(some_text(g, 40), false) + ",";
  t += literal(some_text(g, 24), g.below(20) == 0) + ",";
  t += literal(some_text(g, 12), false) + ",";
  t += literal(some_text(g, 40), g.below(3) == 0) + ")";
  return t;
}

// The rows of the loads: the table's kinds of values from a generator of their own, as
// text where the table's column is no INTEGER, and without NULLs.
qz::bench::LoadRows load_rows(long rows) {
  Lcg g{19720605};
  qz::bench::LoadRows r;
  r.text.resize(8);
  for (long i = 1; i <= rows; ++i) {
    r.row_no.push_back(static_cast<std::int32_t>(i));
    r.qty.push_back(static_cast<int>(g.next()) >> static_cast<int>(g.below(31)));
    r.text[0].push_back(money(g.below(10000000)));
    long long cents = static_cast<long long>(g.next() % 100000000000ull) - 50000000000ll;
    r.text[1].push_back(money(cents / (1ll << g.below(30))));
    int year = 1900 + static_cast<int>(g.below(200)), month = 1 + static_cast<int>(g.below(12));
    int day = 1 + static_cast<int>(g.below(28)), hh = static_cast<int>(g.below(24));
    char when[64];
    std::snprintf(when, sizeof when, "%04d-%02d-%02d", year, month, day);
    r.text[2].push_back(when);
    std::snprintf(when, sizeof when, "%04d-%02d-%02d %02d:%02d:%02d", 2000 + year % 30, month, day,
                  hh, static_cast<int>(g.below(60)), static_cast<int>(g.below(60)));
    r.text[3].push_back(when);
    int column = 4;
    for (int max_len : {40, 24, 12, 40})
      r.text[column++].push_back(some_text(g, max_len));
  }
  return r;
}

// CPU time a process has used, user and system, in ns (clock-tick resolution).
struct CpuTime {
  double user = 0;    // user mode
  double system = 0;  // kernel mode
};

CpuTime cpu_time(pid_t pid) {
  CpuTime t;
  std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  // Fields after the command name, which is in parentheses and may hold blanks: state is
  // field 3, utime 14 and stime 15.
  std::size_t close = text.rfind(')');
  if (close == std::string::npos) return t;
  std::vector<std::string> fields;
  std::size_t at = close + 2;
  while (at < text.size() && fields.size() < 13) {
    std::size_t blank = text.find(' ', at);
    fields.push_back(text.substr(at, blank - at));
    at = blank == std::string::npos ? text.size() : blank + 1;
  }
  if (fields.size() < 13) return t;
  double tick = 1e9 / static_cast<double>(sysconf(_SC_CLK_TCK));
  t.user = std::strtod(fields[11].c_str(), nullptr) * tick;
  t.system = std::strtod(fields[12].c_str(), nullptr) * tick;
  return t;
}

// What one pass over the whole result gives.
struct Pass {
  bool ok = false;                 // every call succeeded and the end was reached
  long rows = 0;                   // rows fetched
  double exec_ns = 0;              // ExecDirect
  double fetch_ns = 0;             // the fetch loop, from the first fetch to the end
  std::uint64_t hash = kFnvStart;  // over every packed row (verifying passes only)
  long kb_at_1000 = -1;            // the server's VmHWM after 1,000 rows (qzodbc, verifying)
  long kb_at_end = -1;             // and after the last row
  CpuTime server_cpu;              // the server's CPU time in the fetch loop (qzodbc)
  CpuTime client_cpu;              // this process's CPU time in the fetch loop
};

// The in-process route: the bridge's connection and statement objects driven directly.
class InProcess {
 public:
  ~InProcess() {
    if (conn_) conn_->methods->drop(&conn_);
  }
  bool open(const std::string &spec) {
    if (new_connection(&conn_) != 0) return false;
    return conn_->methods->do_connect(conn_, spec.data(), static_cast<int>(spec.size())) == 0;
  }
  // Runs SQL without a result; its status.
  int run(const std::string &sql) {
    stmt *s = nullptr;
    if (int st = new_statement(conn_, &s)) return st;
    int st = s->methods->execdirect(s, sql.data(), static_cast<int>(sql.size()));
    s->methods->drop(&s);
    return st;
  }
  Pass pass(bool verify) {
    Pass p;
    stmt *s = nullptr;
    if (new_statement(conn_, &s) != 0) return p;
    char text[kBufferSize];
    QzStr buf{kBufferSize, 0, text};
    auto t0 = Clock::now();
    int st = s->methods->execdirect(s, kSelect, static_cast<int>(std::strlen(kSelect)));
    p.exec_ns = ns_since(t0);
    if (st == 0) {
      t0 = Clock::now();
      for (;;) {
        st = s->methods->fetch(s);
        if (st != 0) break;
        st = qz::pack_row(s, &buf);
        if (st != 0) break;
        ++p.rows;
        if (verify) p.hash = fnv(p.hash, buf.text, static_cast<std::size_t>(buf.len));
      }
      p.fetch_ns = ns_since(t0);
      p.ok = st == qz::kNoMoreRows;
    }
    if (!p.ok) std::fprintf(stderr, "in-process pass failed with status %d\n", st);
    s->methods->drop(&s);
    return p;
  }

 private:
  connection *conn_ = nullptr;  // the open connection, or null
};

// The route through the server: ExecDirect, then Fetch with a status variable and a
// packed buffer until the status is 0.
class ThroughServer {
 public:
  ~ThroughServer() {
    if (session_.running()) session_.stop();
  }
  bool open(const std::string &server, const std::string &spec) {
    qz::client::Options o;
    o.server = server;
    if (!session_.start(o)) {
      std::fprintf(stderr, "cannot start %s: %s\n", server.c_str(), session_.error().c_str());
      return false;
    }
    std::vector<Arg> args{Arg::string(spec), Arg::int_var(0)};
    if (!answered("Connect", args)) return false;
    conn_id_ = args[1].as_int();
    return true;
  }
  pid_t pid() const { return session_.pid(); }

  // Mean nanoseconds of an empty call (no descriptors: the dispatcher answers at once).
  double ns_per_empty_call(int n) {
    auto t0 = Clock::now();
    for (int i = 0; i < n; ++i)
      if (!session_.ping()) return -1;
    return ns_since(t0) / n;
  }

  // A pass with the packed buffer, or (buffer false) with the status variable alone.
  Pass pass(bool verify, bool buffer = true) {
    Pass p;
    std::vector<Arg> exec{Arg::integer(conn_id_), Arg::string(kSelect), Arg::int_var(0)};
    auto t0 = Clock::now();
    bool ok = answered("ExecDirect", exec);
    p.exec_ns = ns_since(t0);
    if (!ok) return p;
    int stmt_id = exec[2].as_int();
    std::vector<Arg> fetch{Arg::integer(stmt_id), Arg::int_var(0),
                           Arg::string_var("", kBufferSize)};
    std::span<Arg> args(fetch.data(), buffer ? 3 : 2);
    CpuTime server0 = cpu_time(pid()), client0 = cpu_time(getpid());
    t0 = Clock::now();
    for (;;) {
      qz::client::CallResult r = session_.call("Fetch", args);
      if (!r.ok() || r.status != 0) {
        std::fprintf(stderr, "Fetch failed: %s (status %d)\n%s", r.error.c_str(), r.status,
                     session_.stderr_text().c_str());
        break;
      }
      if (fetch[1].as_int() == 0) {
        p.ok = true;
        break;
      }
      ++p.rows;
      if (verify) {
        const std::string &row = fetch[2].as_string();
        p.hash = fnv(p.hash, row.data(), row.size());
        if (p.rows == 1000) p.kb_at_1000 = peak_kb(pid());
      }
    }
    p.fetch_ns = ns_since(t0);
    CpuTime server1 = cpu_time(pid()), client1 = cpu_time(getpid());
    p.server_cpu = {server1.user - server0.user, server1.system - server0.system};
    p.client_cpu = {client1.user - client0.user, client1.system - client0.system};
    if (verify) p.kb_at_end = peak_kb(pid());
    std::vector<Arg> drop{Arg::integer(stmt_id)};
    if (!answered("DropStatement", drop)) p.ok = false;
    return p;
  }

 private:
  bool answered(const char *name, std::vector<Arg> &args) {
    qz::client::CallResult r = session_.call(name, std::span<Arg>(args));
    if (r.ok() && r.status == 0) return true;
    std::fprintf(stderr, "%s failed: %s (status %d)\n%s", name, r.error.c_str(), r.status,
                 session_.stderr_text().c_str());
    return false;
  }

  qz::client::Session session_;  // the server
  int conn_id_ = 0;              // its connection
};

// Fills bench_rows with `rows` rows through the in-process connection.
bool fill_table(InProcess &db, long rows) {
  db.run("DROP TABLE bench_rows");  // left over from an earlier run, or absent
  if (int st = db.run(kCreate)) {
    std::fprintf(stderr, "CREATE TABLE failed with status %d\n", st);
    return false;
  }
  Lcg g{20261123};
  for (long first = 1; first <= rows; first += kRowsPerInsert) {
    std::string sql = "INSERT INTO bench_rows VALUES ";
    for (long i = first; i < first + kRowsPerInsert && i <= rows; ++i) {
      if (i != first) sql += ',';
      sql += row_tuple(g, static_cast<int>(i));
    }
    if (int st = db.run(sql)) {
      std::fprintf(stderr, "INSERT failed with status %d\n", st);
      return false;
    }
  }
  return true;
}

// The figures of one pinning mode.
struct Figures {
  std::string pinning;     // how client and server were placed
  double raw_ns = 0;       // one raw signal exchange
  double inproc_ns = 0;    // per row in-process
  double server_ns = 0;    // per row through qzodbc
  double handler_ns = 0;   // one exchange with a peer that answers from a handler
  double empty_ns = 0;     // one empty call through qzodbc
  double status_ns = 0;    // per row through qzodbc, Fetch with the status variable alone
  CpuTime server_cpu;      // per row: the server's CPU time, Fetch with buffer
  CpuTime client_cpu;      // per row: this process's CPU time, Fetch with buffer
  double inproc_exec = 0;  // ExecDirect in-process
  double server_exec = 0;  // ExecDirect through qzodbc
  Pass verify_server;      // the first pass through the server (rows, hash, memory)
  Pass verify_inproc;      // the first pass in-process
  long kb_final = -1;      // the server's VmHWM after every round
};

bool measure(const std::string &server, const std::string &spec, long rows, bool pin, int rounds,
             Figures &f) {
  qz::bench::Pinning pinning(pin);  // the server and the ping-pong peer inherit it
  InProcess inproc;
  ThroughServer through;
  if (!inproc.open(spec)) {
    std::fprintf(stderr, "in-process connect failed\n");
    return false;
  }
  if (!through.open(server, spec)) return false;
  qz::bench::PingPong raw;
  qz::bench::PingPong handler_raw(qz::bench::Peer::handler);
  f.pinning = std::string(pin ? "pinned: " : "unpinned: ") + "client " +
              qz::bench::affinity_text(0) + ", server " + qz::bench::affinity_text(through.pid());
  // A first pass of each route checks what it delivers and watches the server's memory.
  f.verify_server = through.pass(true);
  f.verify_inproc = inproc.pass(true);
  if (!f.verify_server.ok || !f.verify_inproc.ok) return false;
  if (f.verify_server.rows != rows || f.verify_inproc.rows != rows) {
    std::fprintf(stderr, "rows fetched: %ld through qzodbc, %ld in-process, %ld expected\n",
                 f.verify_server.rows, f.verify_inproc.rows, rows);
    return false;
  }
  // Timed rounds alternate the three measurements so that each sees the same machine.
  std::vector<double> raws, ins, outs, in_exec, out_exec, empties, statuses, handlers;
  for (int r = 0; r < rounds; ++r) {
    raws.push_back(raw.ns_per_trip(kTripsPerRound));
    handlers.push_back(handler_raw.ns_per_trip(kTripsPerRound));
    Pass a = inproc.pass(false);
    Pass b = through.pass(false);
    empties.push_back(through.ns_per_empty_call(kTripsPerRound));
    Pass c = through.pass(false, false);
    if (!a.ok || !b.ok || !c.ok || a.rows != rows || b.rows != rows || c.rows != rows) return false;
    statuses.push_back(c.fetch_ns / static_cast<double>(rows));
    f.server_cpu.user += b.server_cpu.user / static_cast<double>(rows * rounds);
    f.server_cpu.system += b.server_cpu.system / static_cast<double>(rows * rounds);
    f.client_cpu.user += b.client_cpu.user / static_cast<double>(rows * rounds);
    f.client_cpu.system += b.client_cpu.system / static_cast<double>(rows * rounds);
    ins.push_back(a.fetch_ns / static_cast<double>(rows));
    outs.push_back(b.fetch_ns / static_cast<double>(rows));
    in_exec.push_back(a.exec_ns);
    out_exec.push_back(b.exec_ns);
  }
  f.raw_ns = median(raws);
  f.inproc_ns = median(ins);
  f.server_ns = median(outs);
  f.handler_ns = median(handlers);
  f.empty_ns = median(empties);
  f.status_ns = median(statuses);
  f.inproc_exec = median(in_exec);
  f.server_exec = median(out_exec);
  f.kb_final = peak_kb(through.pid());
  return true;
}

// A pyodbc figure for the table: rows a second, or "failed" (its note printed below).
std::string peer_cell(const qz::bench::PeerResult &p) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.0f", p.rows_s);
  return p.ok ? buf : "failed";
}

// A ratio and whether it reaches 1, as "1.23 met".
std::string ratio_cell(double ours, double theirs, bool &ok) {
  if (theirs <= 0) {
    ok = false;
    return "no peer";
  }
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.2f %s", ours / theirs, ours >= theirs ? "met" : "MISSED");
  ok = ok && ours >= theirs;
  return buf;
}

// The fastest pyodbc load that worked, or 0.
double fastest_load(const qz::bench::ArrayFigures &a) {
  return std::max(a.peer_load.ok ? a.peer_load.rows_s : 0, a.peer_fast.ok ? a.peer_fast.rows_s : 0);
}

// One line of the many-rows table: a label and a cell per pinning mode.
void table_line(const char *label, const std::string &pinned, const std::string &unpinned) {
  std::printf("  %-52s %14s %14s\n", label, pinned.c_str(), unpinned.c_str());
}

// Prints the many-rows table of one database; false when a target is missed.
bool print_arrays(long rows, const std::vector<Figures> &fetch,
                  const std::vector<qz::bench::ArrayFigures> &arr) {
  auto num = [](double x) { return std::to_string(static_cast<long>(x + 0.5)); };
  auto whole = [rows](const Figures &f) {
    return static_cast<double>(rows) * 1e9 /
           (f.server_exec + f.server_ns * static_cast<double>(rows));
  };
  bool ok = true;
  std::printf(
      "  rows/s over the whole query (ExecDirect and every fetch) or the whole load (every\n"
      "  insert and the commit), medians; pyodbc in a child python3, same registration and\n"
      "  database (the notes name a driver it needed instead)\n");
  table_line("", "pinned", "unpinned");
  table_line("Fetch, 1 row a call", num(whole(fetch[0])), num(whole(fetch[1])));
  table_line("FetchArray, 100 rows a call", num(arr[0].fetch100), num(arr[1].fetch100));
  table_line("FetchArray, 1,000 rows a call", num(arr[0].fetch1000), num(arr[1].fetch1000));
  table_line("pyodbc fetchall", peer_cell(arr[0].peer_fetch), peer_cell(arr[1].peer_fetch));
  std::string r[4];
  for (int i = 0; i < 2; ++i) {
    r[i] = ratio_cell(arr[i].fetch100, arr[i].peer_fetch.ok ? arr[i].peer_fetch.rows_s : 0, ok);
    r[i + 2] =
        ratio_cell(arr[i].fetch1000, arr[i].peer_fetch.ok ? arr[i].peer_fetch.rows_s : 0, ok);
  }
  table_line("FetchArray 100 / pyodbc fetchall (>= 1)", r[0], r[1]);
  table_line("FetchArray 1,000 / pyodbc fetchall (>= 1)", r[2], r[3]);
  table_line("load: ExecuteArray, 1,000 rows a call", num(arr[0].load), num(arr[1].load));
  table_line("load: pyodbc executemany", peer_cell(arr[0].peer_load), peer_cell(arr[1].peer_load));
  table_line("load: pyodbc executemany, fast_executemany", peer_cell(arr[0].peer_fast),
             peer_cell(arr[1].peer_fast));
  for (int i = 0; i < 2; ++i)
    r[i] = ratio_cell(arr[i].load, fastest_load(arr[i]), ok);
  table_line("ExecuteArray / fastest pyodbc load (>= 1)", r[0], r[1]);
  return ok;
}

// The notes under the table: pyodbc's failures, the rows compared, the server's memory.
bool print_array_notes(const std::vector<qz::bench::ArrayFigures> &arr) {
  bool ok = true;
  const char *mode[] = {"pinned", "unpinned"};
  for (int i = 0; i < 2; ++i) {
    const qz::bench::ArrayFigures &a = arr[i];
    const std::pair<const char *, const qz::bench::PeerResult *> peers[] = {
        {"fetchall", &a.peer_fetch},
        {"executemany", &a.peer_load},
        {"fast_executemany", &a.peer_fast}};
    for (const auto &[what, p] : peers)
      if (!p->note.empty()) std::printf("  %s: pyodbc %s: %s\n", mode[i], what, p->note.c_str());
    bool mem = a.mem100.flat(kMemoryAllowance) && a.mem1000.flat(kMemoryAllowance) &&
               a.memload.flat(kMemoryAllowance);
    ok = ok && mem && a.same_rows;
    std::printf(
        "  %s: FetchArray rows %s Fetch's; server VmHWM from the first 1,000 rows to the\n"
        "    last: FetchArray 100 %+ld kB, 1,000 %+ld kB, ExecuteArray %+ld kB (<= %ld kB %s)\n",
        mode[i], a.same_rows ? "identical to" : "DIFFERENT from",
        a.mem100.at_end - a.mem100.at_1000, a.mem1000.at_end - a.mem1000.at_1000,
        a.memload.at_end - a.memload.at_1000, kMemoryAllowance, mem ? "met" : "MISSED");
  }
  return ok;
}

// Many rows per call on one database, pinned and unpinned, beside Fetch's figures;
// false when a target is missed or the measurement failed.
bool report_arrays(const std::string &spec, const std::string &unicode_spec,
                   const std::string &server, long rows, int rounds,
                   const std::vector<Figures> &fetch) {
  odbc::TempDir dir;
  qz::bench::LoadRows load = load_rows(rows);
  qz::bench::ArraySetup setup;
  setup.server = server;
  setup.spec = spec;
  setup.peer_spec_unicode = unicode_spec;
  const char *peer = std::getenv("QZ_PEER");
  setup.peer = peer ? peer : "";
  setup.dir = dir.path();
  setup.select = kSelect;
  setup.create = kCreateLoad;
  setup.rows = rows;
  setup.rounds = rounds;
  setup.load_rounds = kLoadRounds;
  setup.load = &load;
  std::vector<qz::bench::ArrayFigures> arr(2);
  for (int i = 0; i < 2; ++i) {
    qz::bench::Pinning pinning(i == 0);
    setup.fetch_hash = fetch[static_cast<std::size_t>(i)].verify_server.hash;
    if (!measure_arrays(setup, arr[static_cast<std::size_t>(i)])) {
      std::printf("  many rows a call, %s: MEASUREMENT FAILED\n", i == 0 ? "pinned" : "unpinned");
      return false;
    }
  }
  bool ok = print_arrays(rows, fetch, arr);
  return print_array_notes(arr) && ok;
}

// Measures one database pinned and unpinned and prints its part of the report; false
// when a target is missed or the measurement failed.
bool report_database(const char *title, const std::string &spec, const std::string &unicode_spec,
                     const std::string &server, long rows, int rounds) {
  std::printf(
      "\n%s: %ld rows of 10 columns (2 INTEGER, 2 NUMERIC(12,2), DATE, TIMESTAMP,\n"
      "4 VARCHAR(40)); %d timed rounds after one verifying pass, medians; per row is\n"
      "the fetch loop only (ExecDirect shown apart)\n",
      title, rows, rounds);
  {
    InProcess db;
    auto t0 = Clock::now();
    if (!db.open(spec) || !fill_table(db, rows)) {
      std::printf("  could not set up the table: MEASUREMENT FAILED\n");
      return false;
    }
    std::printf("  table filled in %.1f s\n", ns_since(t0) / 1e9);
  }
  bool all_ok = true;
  std::printf("  %-44s %9s %9s %9s %10s %10s %6s %9s  %s\n", "pinning", "raw ns", "in-proc",
              "Fetch", "in-proc/s", "Fetch/s", "ratio", "limit ns", "Fetch <= raw + 1.2 x in-proc");
  std::vector<Figures> all;
  for (bool pin : {true, false}) {
    Figures f;
    if (!measure(server, spec, rows, pin, rounds, f)) {
      std::printf("  %s: MEASUREMENT FAILED\n", pin ? "pinned" : "unpinned");
      return false;
    }
    double limit = f.raw_ns + kFactor * f.inproc_ns;
    bool met = f.server_ns <= limit;
    all_ok = all_ok && met;
    std::printf("  %-44s %9.0f %9.0f %9.0f %10.0f %10.0f %6.2f %9.0f  %s\n", f.pinning.c_str(),
                f.raw_ns, f.inproc_ns, f.server_ns, 1e9 / f.inproc_ns, 1e9 / f.server_ns,
                f.server_ns / f.inproc_ns, limit, met ? "met" : "MISSED");
    all.push_back(f);
  }
  for (const Figures &f : all) {
    bool same = f.verify_server.hash == f.verify_inproc.hash;
    all_ok = all_ok && same;
    long grow = f.verify_server.kb_at_end - f.verify_server.kb_at_1000;
    bool mem_ok = f.verify_server.kb_at_1000 > 0 && grow <= kMemoryAllowance;
    all_ok = all_ok && mem_ok;
    std::printf("  %s:\n", f.pinning.c_str());
    std::printf(
        "    ns per exchange or row: raw exchange %.0f; exchange with a peer answering\n"
        "    from a SIGUSR2 handler %.0f; empty call %.0f; Fetch without buffer %.0f;\n"
        "    Fetch with buffer %.0f; in-process %.0f\n",
        f.raw_ns, f.handler_ns, f.empty_ns, f.status_ns, f.server_ns, f.inproc_ns);
    // The server answers from its SIGUSR2 handler: no server can beat that exchange plus
    // the work itself, so this floor says whether the limit is reachable on this machine.
    double floor_ns = f.handler_ns + f.inproc_ns;
    double limit = f.raw_ns + kFactor * f.inproc_ns;
    std::printf(
        "    floor of a server answering from its handler (handler exchange + in-process)"
        " %.0f ns vs limit %.0f ns: %s\n",
        floor_ns, limit,
        floor_ns <= limit ? "reachable" : "the limit is out of reach on this machine");
    std::printf(
        "    CPU per row of Fetch with buffer (mean): server %.0f user + %.0f system, "
        "client %.0f user + %.0f system\n",
        f.server_cpu.user, f.server_cpu.system, f.client_cpu.user, f.client_cpu.system);
    std::printf("    ExecDirect: %.1f ms in-process, %.1f ms through qzodbc\n", f.inproc_exec / 1e6,
                f.server_exec / 1e6);
    std::printf("    packed rows of both routes: %s (FNV-1a %016llx / %016llx)\n",
                same ? "identical" : "DIFFERENT",
                static_cast<unsigned long long>(f.verify_server.hash),
                static_cast<unsigned long long>(f.verify_inproc.hash));
    std::printf(
        "    server VmHWM: %ld kB after 1,000 rows, %ld kB after %ld rows: %+ld kB "
        "(<= %ld kB %s); %ld kB after every round\n",
        f.verify_server.kb_at_1000, f.verify_server.kb_at_end, rows, grow, kMemoryAllowance,
        mem_ok ? "met" : "MISSED", f.kb_final);
  }
  return report_arrays(spec, unicode_spec, server, rows, rounds, all) && all_ok;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc < 2) {
    std::fprintf(stderr,
                 "usage: %s QZODBC [ROWS [ROUNDS]]\n"
                 "  ODBCSYSINI names the driver registration; QZ_PG_ENV and QZ_MARIADB_ENV, if\n"
                 "  set, the records of a running PostgreSQL cluster and MariaDB server\n"
                 "  (tests/env/pg-cluster.sh, tests/env/mariadb-server.sh)\n",
                 argv[0]);
    return 2;
  }
  qz::client::block_call_signal();
  std::string server = argv[1];
  long rows = argc > 2 ? std::atol(argv[2]) : 100000;
  int rounds = argc > 3 ? std::atoi(argv[3]) : 5;
  if (rows < 1000 || rounds < 1) {
    std::fprintf(stderr, "at least 1000 rows and one round\n");
    return 2;
  }
  std::printf(
      "Fetch into a %d-byte packed buffer through %s, against the same work in-process\n"
      "(ns per row; raw = one SIGUSR2 exchange between two processes; ratio = Fetch /\n"
      "in-process; limit = raw + %.1f x in-process)\n",
      kBufferSize, server.c_str(), kFactor);
  bool ok = true;
  odbc::TempDir dir;
  if (dir.path().empty()) {
    std::fprintf(stderr, "cannot make a temporary directory\n");
    return 1;
  }
  ok = report_database("SQLite", odbc::sqlite_conn(dir.file("bench.db")), "", server, rows,
                       rounds) &&
       ok;
  if (odbc::pg_available()) {
    ok = report_database("PostgreSQL 15 (LATIN1 database)", odbc::pg_conn(),
                         odbc::pg_unicode_conn(), server, rows, rounds) &&
         ok;
  } else {
    std::printf("\nPostgreSQL: no cluster (QZ_PG_ENV unset or not running): NOT MEASURED\n");
    ok = false;
  }
  if (odbc::mariadb_available()) {  // one driver for both: pyodbc takes its wide calls
    ok = report_database("MariaDB 10.11 (latin1 database)", odbc::mariadb_conn(),
                         odbc::mariadb_conn(), server, rows, rounds) &&
         ok;
  } else {
    std::printf("\nMariaDB: no server (QZ_MARIADB_ENV unset or not running): NOT MEASURED\n");
    ok = false;
  }
  std::printf("\ntargets of bench_fetch: %s\n", ok ? "all met" : "NOT ALL MET");
  return ok ? 0 : 3;
}
