// The interpreter's side of one server process: the segment, starting the server on it
// (signals blocked, standard error captured), waiting for its end and the orderly stop.
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "qzclient.hpp"

extern char **environ;

namespace qz::client {

namespace {

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

void block_call_signal() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGUSR2);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

std::string ExitInfo::describe() const {
  if (running) return "still running";
  if (exited) return "exited with status " + std::to_string(code);
  return "killed by signal " + std::to_string(signal) + " (" + strsignal(signal) + ")";
}

Session::~Session() {
  if (pid_ > 0 || codec_.data()) stop();
  if (stderr_fd_ >= 0) close(stderr_fd_);
}

bool Session::start(const Options &options) {
  if (pid_ > 0 || codec_.data()) {
    error_ = "session already started";
    return false;
  }
  options_ = options;
  exit_ = ExitInfo{};
  const BlockLayout &l = block_layout(options_.layout);
  if (options_.segment_size < l.args + l.arg_size) {
    error_ = "segment size " + std::to_string(options_.segment_size) + " is too small";
    return false;
  }
  block_call_signal();
  if (!create_segment()) return false;
  if (options_.before_spawn) options_.before_spawn(codec_.data());
  if (stderr_fd_ >= 0) close(stderr_fd_);  // the capture of a server before this one
  stderr_fd_ = -1;
  if (options_.capture_stderr) {
    stderr_fd_ = memfd_create("qz-server-stderr", MFD_CLOEXEC);
    if (stderr_fd_ < 0) {
      error_ = errno_text("memfd_create");
      stop();
      return false;
    }
  }
  if (spawn_server()) return true;
  stop();
  return false;
}

// A private segment of the options' size, attached, its header filled.
bool Session::create_segment() {
  segment_released_ = false;
  shm_id_ = shmget(IPC_PRIVATE, options_.segment_size, IPC_CREAT | (options_.permissions & 0777));
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
  std::uint64_t base = options_.base ? options_.base : reinterpret_cast<std::uintptr_t>(p);
  codec_ =
      BlockCodec({static_cast<unsigned char *>(p), options_.segment_size}, options_.layout, base);
  codec_.write_header(static_cast<std::int32_t>(getpid()), options_.scratch);
  return true;
}

// The server on the segment, through the launcher: SIGUSR2 and SIGTERM blocked until it
// has its handlers (a call or a stop that comes early then waits instead of killing it),
// standard error into the capture when there is one.
bool Session::spawn_server() {
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
    return false;
  }
  pid_ = pid;
  return true;
}

bool Session::restart() {
  stop();
  pid_ = -1;  // reaped: a new server may start
  return start(Options(options_));
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
  if (codec_.data()) {
    shmdt(codec_.data());
    codec_ = BlockCodec();
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

}  // namespace qz::client
