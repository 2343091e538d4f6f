// The interpreter's side of one server: segment, process, argument layout, the signal
// round trip with callbacks, and the orderly stop. Failures become error values.
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "qzclient.hpp"
#include "qzmath.h"
#include "qzwire.hpp"

extern char **environ;

namespace qz::client {

namespace {

constexpr std::chrono::milliseconds kSlice{20};  // how often a wait looks for a dead server

const wire::Layout &wire_layout(Layout l) {
  return l == Layout::bits64 ? wire::kLayout64 : wire::kLayout32;
}

BlockLayout to_block_layout(const wire::Layout &w) {
  return BlockLayout{w.pid,   w.base,     w.status,   w.shmsz,     w.scratch, w.callback,
                     w.argc,  w.args,     w.arg_size, w.addr_size, w.a_type,  w.a_byref,
                     w.a_ptr, w.a_maxlen, w.a_elsz,   w.a_elcnt};
}

const BlockLayout kBlock32 = to_block_layout(wire::kLayout32);
const BlockLayout kBlock64 = to_block_layout(wire::kLayout64);

std::size_t align_up(std::size_t n, std::size_t a) {
  return (n + a - 1) / a * a;
}

std::string errno_text(const char *what) {
  return std::string(what) + ": " + std::strerror(errno);
}

ExitInfo decode(int st) {
  ExitInfo e;
  e.running = false;
  if (WIFEXITED(st)) {
    e.exited = true;
    e.code = WEXITSTATUS(st);
  } else if (WIFSIGNALED(st)) {
    e.signal = WTERMSIG(st);
  }
  return e;
}

}  // namespace

// ---- arguments ------------------------------------------------------------------

Arg Arg::integer(std::int32_t v) {
  Arg a;
  a.type = kInteger;
  a.ints = {v};
  return a;
}
Arg Arg::int_var(std::int32_t v) {
  Arg a = integer(v);
  a.byref = true;
  return a;
}
Arg Arg::int_array(std::vector<std::int32_t> v, bool byref) {
  Arg a;
  a.type = kInteger;
  a.byref = byref;
  a.ints = std::move(v);
  return a;
}
Arg Arg::real(const Decimal &d) {
  Arg a;
  a.type = kReal;
  a.reals = {d};
  return a;
}
Arg Arg::real_var(const Decimal &d) {
  Arg a = real(d);
  a.byref = true;
  return a;
}
Arg Arg::real_array(std::vector<Decimal> v, bool byref) {
  Arg a;
  a.type = kReal;
  a.byref = byref;
  a.reals = std::move(v);
  return a;
}
Decimal Decimal::from_double(double d) {
  static_assert(sizeof(t_DECIMAL) == sizeof(Decimal::bytes));
  t_DECIMAL t;
  m_cv_dbl(d, &t);
  Decimal r;
  std::memcpy(r.bytes, &t, sizeof r.bytes);
  return r;
}

double Decimal::to_double() const {
  t_DECIMAL t;
  std::memcpy(&t, bytes, sizeof t);
  double d = 0;
  m_to_dbl(&t, &d);
  return d;
}

Arg Arg::real(double d) {
  return real(Decimal::from_double(d));
}
Arg Arg::real_var(double d) {
  return real_var(Decimal::from_double(d));
}
Arg Arg::real_array(const std::vector<double> &v, bool byref) {
  std::vector<Decimal> r;
  for (double d : v)
    r.push_back(Decimal::from_double(d));
  return real_array(std::move(r), byref);
}
double Arg::as_double(std::size_t k) const {
  return reals.at(k).to_double();
}

Arg Arg::string(std::string_view s) {
  Arg a;
  a.type = kString;
  a.maxlen = static_cast<int>(s.size());
  a.strings = {std::string(s)};
  return a;
}
Arg Arg::string_var(std::string_view s, int capacity) {
  Arg a = string(s);
  a.byref = true;
  a.maxlen = capacity;
  return a;
}
Arg Arg::string_array(std::vector<std::string> v, int capacity, bool byref) {
  Arg a;
  a.type = kString;
  a.byref = byref;
  a.maxlen = capacity;
  a.strings = std::move(v);
  return a;
}

int Arg::elcnt() const {
  switch (type) {
    case kInteger:
      return static_cast<int>(ints.size());
    case kReal:
      return static_cast<int>(reals.size());
    case kString:
      return static_cast<int>(strings.size());
    default:
      return 0;
  }
}

int Arg::natural_elsz() const {
  switch (type) {
    case kReal:
      return 3;
    case kString:
      return (4 + (maxlen > 0 ? maxlen : 0) + 3) / 4;
    default:
      return 1;
  }
}

std::string ExitInfo::describe() const {
  if (running) return "still running";
  if (exited) return "exited with status " + std::to_string(code);
  return "killed by signal " + std::to_string(signal) + " (" + strsignal(signal) + ")";
}

void block_call_signal() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGUSR2);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

const BlockLayout &block_layout(Layout l) {
  return l == Layout::bits64 ? kBlock64 : kBlock32;
}

// ---- process and segment --------------------------------------------------------

Session::~Session() {
  if (pid_ > 0 || block_) stop();
}

bool Session::start(const Options &options) {
  if (pid_ > 0 || block_) {
    error_ = "session already started";
    return false;
  }
  options_ = options;
  exit_ = ExitInfo{};
  const wire::Layout &w = wire_layout(options_.layout);
  if (options_.segment_size < w.args + w.arg_size) {
    error_ = "segment size " + std::to_string(options_.segment_size) + " is too small";
    return false;
  }
  block_call_signal();

  shm_id_ = shmget(IPC_PRIVATE, options_.segment_size, IPC_CREAT | 0600);
  if (shm_id_ < 0) {
    error_ = errno_text("shmget");
    return false;
  }
  void *p = shmat(shm_id_, nullptr, 0);
  if (p == reinterpret_cast<void *>(-1)) {
    error_ = errno_text("shmat");
    shmctl(shm_id_, IPC_RMID, nullptr);
    shm_id_ = -1;
    return false;
  }
  block_ = static_cast<unsigned char *>(p);
  size_ = options_.segment_size;
  base_ = options_.base ? options_.base : reinterpret_cast<std::uintptr_t>(p);
  if (!w.wide) base_ &= 0xffffffffu;  // a 32-bit interpreter's addresses

  std::memset(block_, 0, w.args);
  std::memcpy(block_, wire::kMagic, sizeof wire::kMagic);
  put32(8, static_cast<std::int32_t>(wire::kVersion));
  put32(w.pid, static_cast<std::int32_t>(getpid()));
  put_address(w.base, base_);
  put32(w.shmsz, static_cast<std::int32_t>(size_));
  put_address(w.scratch, options_.scratch);

  if (options_.before_spawn) options_.before_spawn(block_);

  stderr_fd_ = -1;
  if (options_.capture_stderr) {
    stderr_fd_ = memfd_create("qz-server-stderr", MFD_CLOEXEC);
    if (stderr_fd_ < 0) {
      error_ = errno_text("memfd_create");
      stop();
      return false;
    }
  }

  std::vector<std::string> words = options_.launcher;
  words.push_back(options_.server);
  if (options_.argv) {
    for (std::string w : *options_.argv) {
      for (std::size_t at; (at = w.find("{id}")) != std::string::npos;)
        w.replace(at, 4, std::to_string(shm_id_));
      words.push_back(w);
    }
  } else {
    std::string suffix = options_.suffix;
    if (suffix == "auto") suffix = options_.layout == Layout::bits64 ? ":64" : "";
    words.push_back(std::to_string(shm_id_) + suffix);
  }
  std::vector<char *> argv;
  for (std::string &s : words)
    argv.push_back(s.data());
  argv.push_back(nullptr);

  // The server inherits SIGUSR2 and SIGTERM blocked: a call or a stop that arrives before
  // it has installed its handler then waits instead of killing it.
  posix_spawnattr_t attr;
  posix_spawnattr_init(&attr);
  sigset_t mask;
  sigemptyset(&mask);
  sigaddset(&mask, SIGUSR2);
  sigaddset(&mask, SIGTERM);
  posix_spawnattr_setsigmask(&attr, &mask);
  posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (stderr_fd_ >= 0) posix_spawn_file_actions_adddup2(&actions, stderr_fd_, 2);
  pid_t pid;
  int rc = posix_spawnp(&pid, argv[0], &actions, &attr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attr);
  if (rc != 0) {
    error_ = "cannot start " + words[0] + ": " + std::strerror(rc);
    stop();
    return false;
  }
  pid_ = pid;
  return true;
}

bool Session::running() {
  return exit_info().running;
}

ExitInfo Session::exit_info() {
  if (pid_ > 0 && exit_.running) {
    int st;
    pid_t r = waitpid(pid_, &st, WNOHANG);
    if (r == pid_) exit_ = decode(st);
  }
  return exit_;
}

ExitInfo Session::wait_exit(std::chrono::milliseconds timeout) {
  auto until = std::chrono::steady_clock::now() + timeout;
  while (pid_ > 0 && exit_info().running && std::chrono::steady_clock::now() < until) {
    struct timespec ts {
      0, 1000000
    };
    nanosleep(&ts, nullptr);
  }
  return exit_;
}

ExitInfo Session::stop() {
  if (pid_ > 0 && exit_info().running) {
    kill(pid_, SIGTERM);
    if (wait_exit(options_.timeout).running) {
      kill(pid_, SIGKILL);
      int st;
      if (waitpid(pid_, &st, 0) == pid_) exit_ = decode(st);
    }
  }
  if (block_) {
    shmdt(block_);
    block_ = nullptr;
  }
  if (shm_id_ >= 0) {
    shmctl(shm_id_, IPC_RMID, nullptr);
    shm_id_ = -1;
  }
  return exit_;
}

std::string Session::stderr_text() const {
  std::string out;
  if (stderr_fd_ < 0) return out;
  char buf[4096];
  off_t at = 0;
  for (;;) {
    ssize_t n = pread(stderr_fd_, buf, sizeof buf, at);
    if (n <= 0) break;
    out.append(buf, static_cast<std::size_t>(n));
    at += n;
  }
  return out;
}

// ---- the block --------------------------------------------------------------------

std::int32_t Session::get32(std::size_t offset) const {
  return wire::get32(block_, offset);
}
void Session::put32(std::size_t offset, std::int32_t v) {
  wire::put32(block_, offset, v);
}

void Session::put_address(std::size_t offset, std::uint64_t address) {
  if (layout().addr_size == 8)
    std::memcpy(block_ + offset, &address, 8);
  else
    put32(offset, static_cast<std::int32_t>(static_cast<std::uint32_t>(address)));
}

void Session::write_descriptor(int i, int type, int byref, std::uint64_t ptr, int maxlen, int elsz,
                               int elcnt) {
  const BlockLayout &l = layout();
  std::size_t d = l.args + l.arg_size * static_cast<std::size_t>(i);
  if (l.addr_size == 8) std::memset(block_ + d, 0, l.arg_size);
  put32(d + l.a_type, type);
  put32(d + l.a_byref, byref);
  put_address(d + l.a_ptr, ptr);
  put32(d + l.a_maxlen, maxlen);
  put32(d + l.a_elsz, elsz);
  put32(d + l.a_elcnt, elcnt);
}

bool Session::write_call(std::string_view name, std::span<const Arg> args) {
  const BlockLayout &l = layout();
  std::size_t argc = args.size() + 1;
  std::size_t at = align_up(l.args + l.arg_size * argc, 8);
  arg_data_.assign(argc, 0);

  auto reserve = [&](std::size_t bytes) -> bool {
    if (at + bytes > size_) return false;
    return true;
  };
  // Argument 0: the function name.
  if (l.args + l.arg_size * argc > size_ || !reserve(4 + name.size())) {
    error_ = "call does not fit the " + std::to_string(size_) + "-byte segment";
    return false;
  }
  arg_data_[0] = at;
  put32(at, static_cast<std::int32_t>(name.size()));
  std::memcpy(block_ + at + 4, name.data(), name.size());
  write_descriptor(0, kString, 0, address_of(at), static_cast<int>(name.size()),
                   static_cast<int>((4 + name.size() + 3) / 4), 1);
  at = align_up(at + 4 + name.size(), 8);

  for (std::size_t i = 0; i < args.size(); ++i) {
    const Arg &a = args[i];
    int n = a.elcnt();
    int elsz = a.elsz > 0 ? a.elsz : a.natural_elsz();
    std::size_t step = 4 * static_cast<std::size_t>(elsz);
    std::size_t elem = a.type == kReal     ? 12
                       : a.type == kString ? 4 + static_cast<std::size_t>(a.maxlen)
                                           : 4;
    std::size_t bytes = n > 0 ? step * static_cast<std::size_t>(n - 1) + elem : elem;
    if (!reserve(bytes)) {
      error_ = "argument " + std::to_string(i + 1) + " does not fit the segment";
      return false;
    }
    arg_data_[i + 1] = at;
    std::memset(block_ + at, 0, bytes);
    for (int k = 0; k < n; ++k) {
      unsigned char *e = block_ + at + step * static_cast<std::size_t>(k);
      if (a.type == kInteger) {
        wire::put32(e, 0, a.ints[static_cast<std::size_t>(k)]);
      } else if (a.type == kReal) {
        std::memcpy(e, a.reals[static_cast<std::size_t>(k)].bytes, 12);
      } else if (a.type == kString) {
        const std::string &s = a.strings[static_cast<std::size_t>(k)];
        std::size_t len = s.size() < static_cast<std::size_t>(a.maxlen)
                              ? s.size()
                              : static_cast<std::size_t>(a.maxlen);
        wire::put32(e, 0, static_cast<std::int32_t>(len));
        std::memcpy(e + 4, s.data(), len);
      }
    }
    write_descriptor(static_cast<int>(i + 1), a.type, a.byref ? 1 : 0, address_of(at), a.maxlen,
                     elsz, n);
    at = align_up(at + bytes, 8);
  }
  put32(l.argc, static_cast<std::int32_t>(argc));
  return true;
}

void Session::read_back(std::span<Arg> args) const {
  const BlockLayout &l = layout();
  for (std::size_t i = 0; i < args.size() && i + 1 < arg_data_.size(); ++i) {
    Arg &a = args[i];
    std::size_t d = l.args + l.arg_size * (i + 1);
    bool still = get32(d + l.a_byref) != 0;
    a.unref = a.byref && !still;
    if (!a.byref || !still) continue;
    int elsz = a.elsz > 0 ? a.elsz : a.natural_elsz();
    std::size_t step = 4 * static_cast<std::size_t>(elsz);
    for (int k = 0; k < a.elcnt(); ++k) {
      const unsigned char *e = block_ + arg_data_[i + 1] + step * static_cast<std::size_t>(k);
      if (a.type == kInteger) {
        a.ints[static_cast<std::size_t>(k)] = wire::get32(e, 0);
      } else if (a.type == kReal) {
        std::memcpy(a.reals[static_cast<std::size_t>(k)].bytes, e, 12);
      } else if (a.type == kString) {
        std::int32_t len = wire::get32(e, 0);
        if (len < 0) len = 0;
        if (len > a.maxlen) len = a.maxlen;
        a.strings[static_cast<std::size_t>(k)].assign(reinterpret_cast<const char *>(e + 4),
                                                      static_cast<std::size_t>(len));
      }
    }
  }
}

// ---- calls ------------------------------------------------------------------------

CallResult Session::call(std::string_view name, std::span<Arg> args) {
  CallResult r;
  if (!block_ || pid_ <= 0) {
    r.error = "no server: the session is not started";
    return r;
  }
  if (!write_call(name, args)) {
    r.error = error_;
    return r;
  }
  r = raw_call();
  if (r.ok()) read_back(args);
  return r;
}

CallResult Session::call(std::string_view name, std::initializer_list<Arg> args) {
  std::vector<Arg> copy(args);
  CallResult r = call(name, std::span<Arg>(copy));
  r.args = std::move(copy);
  return r;
}

bool Session::ping() {
  if (!block_) return false;
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
  CallResult r;
  if (!block_ || pid_ <= 0) {
    r.error = "no server: the session is not started";
    return r;
  }
  // No liveness check here (a system call per call): a dead server shows as a failed
  // kill or, while waiting, in the wait's time slices.
  if (!exit_.running) return died("cannot call");
  put32(layout().callback, 0);
  if (kill(pid_, SIGUSR2) != 0) {
    exit_info();
    return died("cannot signal the server");
  }
  return wait_answer();
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
      CallResult r;
      r.kind = CallResult::Kind::answered;
      r.status = get32(layout().status);
      return r;
    }
    if (sig < 0 && errno != EAGAIN && errno != EINTR) {
      CallResult r;
      r.error = errno_text("sigtimedwait");
      return r;
    }
    if (!exit_info().running) return died("no answer");
  }
}

}  // namespace qz::client
