// Round trip of a call that does nothing, through libqzclient and a server, against the
// raw cost of the two signals: a SIGUSR2 ping-pong between two processes over a shared
// segment. Rounds of the two alternate so that both see the same machine state; the
// medians are compared, with both processes pinned to one core and unpinned.
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>
#include <vector>

#include "pingpong.hpp"
#include "qzclient.hpp"

namespace {

using qz::bench::Clock;
using qz::bench::median;
using qz::bench::PingPong;

struct Figures {
  double raw, call;
};

bool measure(const std::string &server, const std::string &function, bool pinned, int rounds, int n,
             Figures &out) {
  qz::bench::Pinning pin(pinned);  // inherited by both peers
  qz::client::Session s;
  qz::client::Options o;
  o.server = server;
  bool ok = s.start(o);
  PingPong raw;
  std::vector<double> raws, calls;
  if (ok) {
    std::vector<qz::client::Arg> none;
    for (int r = 0; r < rounds && ok; ++r) {
      raws.push_back(raw.ns_per_trip(n));
      auto t0 = Clock::now();
      for (int i = 0; i < n && ok; ++i) {
        qz::client::CallResult c = s.call(function, std::span<qz::client::Arg>(none));
        if (!c.ok() || c.status != 0) {
          std::fprintf(stderr, "call %s failed: %s (status %d)\n", function.c_str(),
                       c.error.c_str(), c.status);
          ok = false;
        }
      }
      calls.push_back(std::chrono::duration<double, std::nano>(Clock::now() - t0).count() / n);
    }
  } else {
    std::fprintf(stderr, "cannot start %s: %s\n", server.c_str(), s.error().c_str());
  }
  s.stop();
  if (!ok) return false;
  out = Figures{median(raws), median(calls)};
  return true;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: %s SERVER FUNCTION [ROUNDS [CALLS_PER_ROUND]]\n", argv[0]);
    return 2;
  }
  qz::client::block_call_signal();
  std::string server = argv[1], function = argv[2];
  int rounds = argc > 3 ? std::atoi(argv[3]) : 15;
  int n = argc > 4 ? std::atoi(argv[4]) : 2000;
  std::printf("null call \"%s\" through %s: %d rounds of %d calls, medians\n", function.c_str(),
              server.c_str(), rounds, n);
  std::printf("  %-10s %14s %14s %8s %s\n", "pinning", "raw ns/trip", "call ns/trip", "ratio",
              "target");
  bool all_ok = true;
  for (bool pinned : {true, false}) {
    Figures f{};
    if (!measure(server, function, pinned, rounds, n, f)) return 1;
    double ratio = f.call / f.raw;
    bool ok = ratio <= 1.2;
    all_ok = all_ok && ok;
    std::printf("  %-10s %14.0f %14.0f %8.3f <= 1.2 %s\n", pinned ? "one core" : "unpinned", f.raw,
                f.call, ratio, ok ? "met" : "MISSED");
  }
  return all_ok ? 0 : 3;
}
