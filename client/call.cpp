// One call's round trip: the call written into the block, SIGUSR2 to the server, and the
// wait for its answer, serving callback requests meanwhile and noticing a server that died.
#include <signal.h>
#include <sys/shm.h>
#include <time.h>

#include <cerrno>
#include <cstring>

#include "qzclient.hpp"

namespace qz::client {

namespace {

constexpr std::chrono::milliseconds kSlice{20};  // how often a wait looks for a dead server

}  // namespace

CallResult Session::call(std::string_view name, std::span<Arg> args) {
  CallResult r;
  if (!codec_.data() || pid_ <= 0) {
    r.error = "no server: the session is not started";
    return r;
  }
  if (!write_call(name, args)) {
    r.error = error_;
    return r;
  }
  r = raw_call();
  if (r.ok()) codec_.read_back(args);
  return r;
}

CallResult Session::call(std::string_view name, std::initializer_list<Arg> args) {
  std::vector<Arg> copy(args);
  CallResult r = call(name, std::span<Arg>(copy));
  r.args = std::move(copy);
  return r;
}

bool Session::ping() {
  if (!codec_.data()) return false;
  put32(layout().argc, 0);
  CallResult r = raw_call();
  if (!r.ok()) error_ = r.error;
  return r.ok();
}

CallResult Session::died(const std::string &what) {
  CallResult r;
  r.kind = CallResult::Kind::server_died;
  r.error = what + ": the server " + exit_.describe();
  std::string err = stderr_text();
  if (!err.empty()) r.error += "; its standard error:\n" + err;
  return r;
}

CallResult Session::raw_call() {
  if (!codec_.data() || pid_ <= 0) {
    CallResult r;
    r.error = "no server: the session is not started";
    return r;
  }
  // No liveness check here (a system call per call): a dead server shows as a failed
  // kill or, while waiting, in the wait's time slices.
  if (!exit_.running) return died("cannot call");
  put32(layout().callback, 0);
  interrupts_ = 0;
  calling_ = 1;
  if (kill(pid_, SIGUSR2) != 0) {
    calling_ = 0;
    exit_info();
    return died("cannot signal the server");
  }
  CallResult r = wait_answer();
  calling_ = 0;
  return r;
}

bool Session::interrupt_call() {
  if (!calling_ || pid_ <= 0) return false;
  interrupts_ = interrupts_ + 1;
  kill(pid_, interrupts_ == 1 ? SIGURG : SIGTERM);
  return true;
}

CallResult Session::wait_answer() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGUSR2);
  auto until = std::chrono::steady_clock::now() + options_.timeout;
  for (;;) {
    auto left = until - std::chrono::steady_clock::now();
    if (left <= std::chrono::nanoseconds::zero()) {
      CallResult r;
      r.kind = CallResult::Kind::timeout;
      r.error =
          "no answer from the server within " + std::to_string(options_.timeout.count()) + " ms";
      return r;
    }
    auto slice = left < kSlice ? std::chrono::duration_cast<std::chrono::nanoseconds>(left)
                               : std::chrono::nanoseconds(kSlice);
    struct timespec ts {
      static_cast<time_t>(slice.count() / 1000000000), static_cast<long>(slice.count() % 1000000000)
    };
    siginfo_t info;
    int sig = sigtimedwait(&set, &info, &ts);
    if (sig == SIGUSR2) {
      if (info.si_pid != pid_) continue;  // not from our server
      std::int32_t code = get32(layout().callback);
      if (code != 0) {
        put32(layout().callback, 0);
        int answer = callback_ ? callback_(code) : 0;
        put32(layout().status, answer);
        if (kill(pid_, SIGUSR2) != 0) {
          exit_info();
          return died("cannot answer a callback");
        }
        continue;
      }
      // The server has attached: the segment may now go with the last process that
      // detaches, so that an interpreter killed leaves none behind.
      if (!segment_released_) segment_released_ = shmctl(shm_id_, IPC_RMID, nullptr) == 0;
      CallResult r;
      r.kind = CallResult::Kind::answered;
      r.status = get32(layout().status);
      return r;
    }
    if (sig < 0 && errno != EAGAIN && errno != EINTR) {
      CallResult r;
      r.error = std::string("sigtimedwait: ") + std::strerror(errno);
      return r;
    }
    if (!exit_info().running) return died("no answer");
  }
}

}  // namespace qz::client
