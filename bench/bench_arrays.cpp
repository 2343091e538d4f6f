// FetchArray and ExecuteArray through qzodbc, and pyodbc's fetchall and executemany in a
// child python3 (bench/peer.py), over the benchmark's table in one pinning mode.
#include "bench_arrays.hpp"

#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <span>
#include <sstream>
#include <type_traits>

#include "pingpong.hpp"
#include "qzclient.hpp"

namespace qz::bench {
namespace {

using qz::client::Arg;
using qz::client::CallResult;

constexpr int kElement = 1024;              // bytes of a FetchArray element (a row is far shorter)
constexpr int kLoadBatch = 1000;            // rows an ExecuteArray call
constexpr std::size_t kSegment = 8u << 20;  // the call block: 1,000 elements and more

// One server with one connection; every call must answer 0.
class Server {
 public:
  ~Server() {
    if (session_.running()) session_.stop();
  }
  bool open(const std::string &server, const std::string &spec) {
    qz::client::Options o;
    o.server = server;
    o.segment_size = kSegment;
    if (!session_.start(o)) {
      std::fprintf(stderr, "cannot start %s: %s\n", server.c_str(), session_.error().c_str());
      return false;
    }
    std::vector<Arg> a{Arg::string(spec), Arg::int_var(0)};
    if (!call("Connect", a)) return false;
    conn_ = a[1].as_int();
    return true;
  }
  pid_t pid() const { return session_.pid(); }
  int conn() const { return conn_; }
  bool call(const char *name, std::vector<Arg> &args, bool quiet = false) {
    CallResult r = session_.call(name, std::span<Arg>(args));
    if (r.ok() && r.status == 0) return true;
    if (!quiet)
      std::fprintf(stderr, "%s failed: %s (status %d)\n%s", name, r.error.c_str(), r.status,
                   session_.stderr_text().c_str());
    return false;
  }
  // A statement's identifier from ExecDirect or Prepare (its third argument), 0 on failure.
  int statement(const char *how, const std::string &sql, bool quiet = false) {
    std::vector<Arg> a{Arg::integer(conn_), Arg::string(sql), Arg::int_var(0)};
    bool ok = call(how, a, quiet);
    int id = a[2].as_int();
    if (!ok && id != 0) drop(id);
    return ok ? id : 0;
  }
  bool drop(int stmt) {
    std::vector<Arg> a{Arg::integer(stmt)};
    return call("DropStatement", a);
  }
  bool run(const std::string &sql, bool quiet = false) {
    int id = statement("ExecDirect", sql, quiet);
    return id != 0 && drop(id);
  }
  bool commit() {
    std::vector<Arg> a{Arg::integer(conn_)};
    return call("Commit", a);
  }

 private:
  qz::client::Session session_;  // the server
  int conn_ = 0;                 // its connection
};

// A whole pass of FetchArray with `per_call` elements: rows a second over ExecDirect and
// every call, or -1. Verifying, it hashes the rows and watches the server's memory.
double fetch_pass(Server &s, const ArraySetup &setup, int per_call, bool verify,
                  std::uint64_t &hash, Memory &mem) {
  std::vector<Arg> a{Arg::integer(0), Arg::int_var(0),
                     Arg::string_array(std::vector<std::string>(per_call), kElement)};
  long rows = 0;
  auto t0 = Clock::now();
  int stmt = s.statement("ExecDirect", setup.select);
  if (stmt == 0) return -1;
  a[0] = Arg::integer(stmt);
  for (;;) {
    if (!s.call("FetchArray", a)) return -1;
    int got = a[1].as_int();
    if (got == 0) break;
    if (verify)
      for (int k = 0; k < got; ++k)
        hash = fnv(hash, a[2].strings[k].data(), a[2].strings[k].size());
    rows += got;
    if (verify && mem.at_1000 < 0 && rows >= 1000) mem.at_1000 = peak_kb(s.pid());
  }
  double ns = ns_since(t0);
  if (verify) mem.at_end = peak_kb(s.pid());
  if (!s.drop(stmt)) return -1;
  if (rows != setup.rows) {
    std::fprintf(stderr, "FetchArray delivered %ld rows of %ld\n", rows, setup.rows);
    return -1;
  }
  return static_cast<double>(rows) * 1e9 / ns;
}

// The calls of a load, built before the clock starts as a program would hold its arrays:
// statement, row count, Done, then one array per column.
std::vector<std::vector<Arg>> load_calls(const LoadRows &rows, int stmt) {
  std::vector<std::vector<Arg>> calls;
  for (std::size_t first = 0; first < rows.size(); first += kLoadBatch) {
    std::size_t end = std::min(rows.size(), first + kLoadBatch);
    auto slice = [&](const auto &v) {
      return std::remove_cvref_t<decltype(v)>(v.begin() + first, v.begin() + end);
    };
    std::vector<Arg> a{Arg::integer(stmt), Arg::integer(static_cast<int>(end - first)),
                       Arg::int_var(0), Arg::int_array(slice(rows.row_no), false),
                       Arg::int_array(slice(rows.qty), false)};
    for (const auto &col : rows.text) {
      std::vector<std::string> part = slice(col);
      std::size_t widest = 1;
      for (const auto &t : part)
        widest = std::max(widest, t.size());
      a.push_back(Arg::string_array(std::move(part), static_cast<int>(widest), false));
    }
    calls.push_back(std::move(a));
  }
  return calls;
}

// One load of every row in one transaction: rows a second over the calls and the commit,
// or -1. Autocommit is off on `s`.
double load_pass(Server &s, const ArraySetup &setup, Memory *mem) {
  if (!s.run("DELETE FROM bench_load") || !s.commit()) return -1;
  int stmt = s.statement("Prepare", "INSERT INTO bench_load VALUES (?,?,?,?,?,?,?,?,?,?)");
  if (stmt == 0) return -1;
  std::vector<std::vector<Arg>> calls = load_calls(*setup.load, stmt);
  long done = 0;
  auto t0 = Clock::now();
  for (auto &a : calls) {
    if (!s.call("ExecuteArray", a)) return -1;
    done += a[2].as_int();
    if (mem && mem->at_1000 < 0) mem->at_1000 = peak_kb(s.pid());
  }
  if (!s.commit()) return -1;
  double ns = ns_since(t0);
  if (mem) mem->at_end = peak_kb(s.pid());
  if (!s.drop(stmt)) return -1;
  if (done != static_cast<long>(setup.load->size())) {
    std::fprintf(stderr, "ExecuteArray: %ld rows done of %zu\n", done, setup.load->size());
    return -1;
  }
  return static_cast<double>(done) * 1e9 / ns;
}

// The last non-empty line of a file, for a refusal's reason.
std::string last_line(const std::string &path) {
  std::ifstream in(path);
  std::string last;
  for (std::string line; std::getline(in, line);)
    if (!line.empty()) last = line;
  return last;
}

// One child python3 running bench/peer.py (the system's python3 by default: Debian's
// python3-pyodbc is its module, whatever python3 comes first on PATH) MODE 1 A B with `conn`: its
// rows a second, or a note of how it ended (a signal, or its exit with the last line of its
// errors).
bool run_peer(const ArraySetup &setup, const char *mode, const std::string &conn,
              const std::string &a, const std::string &b, double &rows_s, std::string &note) {
  std::string err = setup.dir + "/peer.err";
  setenv("QZ_PEER", setup.peer.c_str(), 1);
  setenv("QZ_PEER_CONN", conn.c_str(), 1);
  setenv("QZ_PEER_A", a.c_str(), 1);
  setenv("QZ_PEER_B", b.c_str(), 1);
  setenv("QZ_PEER_ERR", err.c_str(), 1);
  std::string cmd = std::string("exec \"${QZ_PEER_PYTHON:-/usr/bin/python3}\" \"$QZ_PEER\" ") +
                    mode + " 1 \"$QZ_PEER_A\" \"$QZ_PEER_B\" 2>\"$QZ_PEER_ERR\"";
  FILE *out = popen(cmd.c_str(), "r");
  if (!out) {
    note = "could not start python3";
    return false;
  }
  char line[256];
  std::string text;
  while (std::fgets(line, sizeof line, out))
    text += line;
  int st = pclose(out);
  if (WIFSIGNALED(st)) {
    note = std::string("crashed: ") + strsignal(WTERMSIG(st));
    return false;
  }
  if (!WIFEXITED(st) || WEXITSTATUS(st) != 0) {
    note = "exited with status " + std::to_string(WEXITSTATUS(st)) + ": " + last_line(err);
    return false;
  }
  std::istringstream in(text);
  std::string word;
  long rows = 0;
  double ns = 0;
  if (!(in >> word >> rows >> ns) || rows != setup.rows || ns <= 0) {
    note = "delivered " + std::to_string(rows) + " rows";
    return false;
  }
  rows_s = static_cast<double>(rows) * 1e9 / ns;
  return true;
}

// `rounds` children of one peer mode; the median, or the first failure's note.
PeerResult peer_rounds(const ArraySetup &setup, const char *mode, const std::string &conn,
                       const std::string &a, const std::string &b, int rounds) {
  PeerResult p;
  if (setup.peer.empty()) {
    p.note = "not measured (no peer)";
    return p;
  }
  std::vector<double> all;
  for (int r = 0; r < rounds; ++r) {
    double x = 0;
    if (!run_peer(setup, mode, conn, a, b, x, p.note)) return p;
    all.push_back(x);
  }
  p.ok = true;
  p.rows_s = median(all);
  return p;
}

// pyodbc in one mode: through the same connection string, else (noted) through the
// fallback one when the first exits with an error (pyodbc's wide characters, which an
// ANSI driver may refuse); else how it ended.
PeerResult peer_either(const ArraySetup &setup, const char *mode, const std::string &a,
                       const std::string &b, int rounds) {
  PeerResult p = peer_rounds(setup, mode, setup.spec, a, b, rounds);
  if (p.ok || setup.peer_spec_unicode.empty() || p.note.rfind("exited", 0) != 0) return p;
  PeerResult q = peer_rounds(setup, mode, setup.peer_spec_unicode, a, b, rounds);
  if (q.ok) q.note = "through the Unicode driver; with the ANSI one it " + p.note;
  return q;
}

bool measure_fetches(Server &s, const ArraySetup &setup, ArrayFigures &f) {
  std::uint64_t h100 = kFnvStart, h1000 = kFnvStart;
  if (fetch_pass(s, setup, 100, true, h100, f.mem100) < 0) return false;
  if (fetch_pass(s, setup, 1000, true, h1000, f.mem1000) < 0) return false;
  f.same_rows = h100 == setup.fetch_hash && h1000 == setup.fetch_hash;
  std::vector<double> a, b, c;
  bool peer_failed = false;
  for (int r = 0; r < setup.rounds; ++r) {
    std::uint64_t h = 0;
    Memory m;
    a.push_back(fetch_pass(s, setup, 100, false, h, m));
    b.push_back(fetch_pass(s, setup, 1000, false, h, m));
    if (a.back() < 0 || b.back() < 0) return false;
    if (peer_failed) continue;
    PeerResult p = peer_either(setup, "fetch", setup.select, "", 1);
    if (p.ok) c.push_back(p.rows_s);
    f.peer_fetch.note = p.note;
    peer_failed = !p.ok;
  }
  if (!peer_failed) f.peer_fetch = {true, median(c), f.peer_fetch.note};
  f.fetch100 = median(a);
  f.fetch1000 = median(b);
  return true;
}

bool measure_loads(Server &s, const ArraySetup &setup, ArrayFigures &f) {
  s.run("DROP TABLE bench_load", true);  // left over from an earlier run, or absent
  if (!s.run(setup.create)) return false;
  std::vector<Arg> off{Arg::integer(s.conn()), Arg::integer(0)};
  if (!s.call("SetAutocommit", off)) return false;
  std::vector<double> loads;
  for (int r = 0; r < setup.load_rounds; ++r) {
    loads.push_back(load_pass(s, setup, r == 0 ? &f.memload : nullptr));
    if (loads.back() < 0) return false;
  }
  f.load = median(loads);
  std::string file = setup.dir + "/load.tsv";
  if (!setup.peer.empty() && !write_load_file(*setup.load, file)) return false;
  f.peer_load = peer_either(setup, "load", file, "bench_load", setup.load_rounds);
  f.peer_fast = peer_either(setup, "fastload", file, "bench_load", setup.load_rounds);
  return true;
}

}  // namespace

bool write_load_file(const LoadRows &rows, const std::string &path) {
  std::ofstream out(path);
  for (std::size_t i = 0; i < rows.size(); ++i) {
    out << rows.row_no[i] << '\t' << rows.qty[i];
    for (const auto &col : rows.text)
      out << '\t' << col[i];
    out << '\n';
  }
  return static_cast<bool>(out.flush());
}

bool measure_arrays(const ArraySetup &setup, ArrayFigures &f) {
  Server s;
  if (!s.open(setup.server, setup.spec)) return false;
  return measure_fetches(s, setup, f) && measure_loads(s, setup, f);
}

}  // namespace qz::bench
