// Round trip of a call that does nothing, through libqzclient and a server, against the
// raw cost of the two signals: a SIGUSR2 ping-pong between two processes over a shared
// segment. Rounds of the two alternate so that both see the same machine state; the
// medians are compared, with both processes pinned to one core and unpinned.
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "qzclient.hpp"

namespace {

using Clock = std::chrono::steady_clock;

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

void wait_usr2() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGUSR2);
  int sig;
  sigwait(&set, &sig);
}

// The raw exchange: write a word into the segment, signal, wait for the peer's signal.
class PingPong {
 public:
  PingPong() {
    word_ = static_cast<volatile int *>(
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    parent_ = getpid();
    child_ = fork();
    if (child_ == 0) {
      for (;;) {
        wait_usr2();
        *word_ = *word_ + 1;
        kill(parent_, SIGUSR2);
      }
    }
  }
  ~PingPong() {
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
    munmap(const_cast<int *>(word_), 4096);
  }
  double ns_per_trip(int n) {
    auto t0 = Clock::now();
    for (int i = 0; i < n; ++i) {
      kill(child_, SIGUSR2);
      wait_usr2();
    }
    return std::chrono::duration<double, std::nano>(Clock::now() - t0).count() / n;
  }

 private:
  volatile int *word_;
  pid_t parent_, child_;
};

struct Figures {
  double raw, call;
};

bool measure(const std::string &server, const std::string &function, bool pinned, int rounds, int n,
             Figures &out) {
  cpu_set_t all, one;
  sched_getaffinity(0, sizeof all, &all);
  if (pinned) {
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu(), &one);
    sched_setaffinity(0, sizeof one, &one);  // inherited by both peers
  }
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
  sched_setaffinity(0, sizeof all, &all);
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
