// What the process-boundary benchmarks share: the raw cost of the two signals of a call (a
// SIGUSR2 ping-pong between two processes over a shared segment), pinning to one core and
// its description, and the median of a set of rounds.
#pragma once

#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

namespace qz::bench {

using Clock = std::chrono::steady_clock;

inline double median(std::vector<double> v) {
  if (v.empty()) return 0;
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

inline double ns_since(Clock::time_point t0) {
  return std::chrono::duration<double, std::nano>(Clock::now() - t0).count();
}

// Waits for SIGUSR2, which the caller keeps blocked.
inline void wait_usr2() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGUSR2);
  int sig;
  sigwait(&set, &sig);
}

// How the peer of a ping-pong takes the signal.
enum class Peer {
  sigwait,  // waits in sigwait: the least the kernel can do per exchange
  handler,  // sleeps in sigsuspend and answers from a SIGUSR2 handler, as the server does
};

// The raw exchange: write a word into the segment, signal, wait for the peer's signal.
// The peer is a forked child, so it inherits the caller's pinning. SIGUSR2 must be
// blocked before construction (qz::client::block_call_signal).
class PingPong {
 public:
  explicit PingPong(Peer peer = Peer::sigwait) {
    word_ = static_cast<volatile int *>(
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    parent_ = getpid();
    child_ = fork();
    if (child_ == 0 && peer == Peer::sigwait) {
      for (;;) {
        wait_usr2();
        *word_ = *word_ + 1;
        kill(parent_, SIGUSR2);
      }
    }
    if (child_ == 0) {
      shared_word() = word_;
      peer_parent() = parent_;
      struct sigaction sa {};
      sa.sa_handler = answer;
      sa.sa_flags = SA_RESTART;
      sigaction(SIGUSR2, &sa, nullptr);
      sigset_t wait_set;
      sigprocmask(SIG_BLOCK, nullptr, &wait_set);
      sigdelset(&wait_set, SIGUSR2);
      for (;;)
        sigsuspend(&wait_set);
    }
    // The first exchange waits until the peer is ready: a signal sent earlier stays pending.
    ns_per_trip(1);
  }
  ~PingPong() {
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
    munmap(const_cast<int *>(word_), 4096);
  }
  PingPong(const PingPong &) = delete;
  PingPong &operator=(const PingPong &) = delete;

  // Mean nanoseconds of one exchange over n of them.
  double ns_per_trip(int n) {
    auto t0 = Clock::now();
    for (int i = 0; i < n; ++i) {
      kill(child_, SIGUSR2);
      wait_usr2();
    }
    return ns_since(t0) / n;
  }

 private:
  static volatile int *&shared_word() {
    static volatile int *w;
    return w;
  }
  static pid_t &peer_parent() {
    static pid_t p;
    return p;
  }
  static void answer(int) {
    *shared_word() = *shared_word() + 1;
    kill(peer_parent(), SIGUSR2);
  }

  volatile int *word_;  // the shared word the peer increments
  pid_t parent_;        // this process, which the peer signals
  pid_t child_;         // the peer
};

// Pins the calling process to the core it runs on, for as long as the object lives;
// processes started meanwhile inherit the pinning. With pin false it changes nothing.
class Pinning {
 public:
  explicit Pinning(bool pin) : pinned_(pin) {
    sched_getaffinity(0, sizeof saved_, &saved_);
    if (pin) {
      cpu_set_t one;
      CPU_ZERO(&one);
      CPU_SET(sched_getcpu(), &one);
      sched_setaffinity(0, sizeof one, &one);
    }
  }
  ~Pinning() {
    if (pinned_) sched_setaffinity(0, sizeof saved_, &saved_);
  }
  Pinning(const Pinning &) = delete;
  Pinning &operator=(const Pinning &) = delete;

 private:
  bool pinned_;      // whether the constructor pinned
  cpu_set_t saved_;  // the affinity before
};

// The cores a process may run on, as "cpu 1" or "cpus 0,1".
inline std::string affinity_text(pid_t pid) {
  cpu_set_t set;
  if (sched_getaffinity(pid, sizeof set, &set) != 0) return "?";
  std::string cpus;
  for (int c = 0; c < CPU_SETSIZE; ++c) {
    if (!CPU_ISSET(c, &set)) continue;
    if (!cpus.empty()) cpus += ',';
    cpus += std::to_string(c);
  }
  return (CPU_COUNT(&set) == 1 ? "cpu " : "cpus ") + cpus;
}

}  // namespace qz::bench
