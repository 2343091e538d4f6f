// The server's process frame: command line, signal dispositions, descriptor clean-up,
// attaching and checking the call block, the sigsuspend loop, the one signal handler that
// runs each call (SIGUSR2) or ends the process (SIGTERM), and the interrupt of a call
// (SIGURG), and the end of the process when its interpreter is gone.
#include <linux/close_range.h>
#include <sys/ipc.h>
#include <sys/prctl.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "host.hpp"

using qz::wire::get32;
using qz::wire::put32;

namespace {

// Closes every descriptor below the system's limit except 2. close_range does it in one
// call; the loop is the fall-back where the kernel (or an emulator) lacks it.
void close_descriptors() {
  long open_max = sysconf(_SC_OPEN_MAX);
  if (open_max <= 0) open_max = 1024;
  close(0);
  close(1);
  if (open_max > 3 && syscall(SYS_close_range, 3u, static_cast<unsigned>(open_max - 1), 0u) == 0)
    return;
  for (long fd = 3; fd < open_max; ++fd)
    close(static_cast<int>(fd));
}

// `blocked`: signals held back while the handler runs (besides `sig` itself).
void set_action(int sig, void (*handler)(int), int flags, std::initializer_list<int> blocked = {}) {
  struct sigaction sa;
  std::memset(&sa, 0, sizeof sa);
  sa.sa_handler = handler;
  sigemptyset(&sa.sa_mask);
  for (int b : blocked)
    sigaddset(&sa.sa_mask, b);
  sa.sa_flags = flags;
  sigaction(sig, &sa, nullptr);
}

// How long the termination path may take inside a call before the process ends anyway.
constexpr suseconds_t kWatchdogMicros = 800000;

extern "C" void watchdog_expired(int) {
  _exit(0);
}

// Inside a call, what dll_cleanup tries (cancelling a statement in the driver) may still
// block on a lock the interrupted code holds. An interval timer whose handler only calls
// _exit bounds that wait: it needs no lock and no allocation.
void arm_watchdog() {
  set_action(SIGALRM, watchdog_expired, 0);
  itimerval it{};
  it.it_value.tv_usec = kWatchdogMicros;
  setitimer(ITIMER_REAL, &it, nullptr);
  sigset_t alarm_only;
  sigemptyset(&alarm_only);
  sigaddset(&alarm_only, SIGALRM);
  sigprocmask(SIG_UNBLOCK, &alarm_only, nullptr);
}

// Every signal to its default action, except those the parent ignored (nohup's SIGHUP
// stays ignored) and the faults, which always kill; SIGUSR2 and SIGTERM get handlers later.
void reset_dispositions() {
  for (int sig = 1; sig <= 64; ++sig) {
    switch (sig) {
      case SIGILL:
      case SIGTRAP:
      case SIGBUS:
      case SIGSEGV:
        set_action(sig, SIG_DFL, 0);
        break;
      case SIGKILL:
      case SIGUSR2:
      case SIGTERM:
      case SIGSTOP:
        break;
      default: {
        struct sigaction old;
        if (sigaction(sig, nullptr, &old) == 0 && old.sa_handler != SIG_IGN)
          set_action(sig, SIG_DFL, 0);
      }
    }
  }
}

// Attaches the segment named on the command line and checks it: who may write it, its
// size, magic and version. Any failure ends the process with status 2.
void attach_block() {
  shm_addr = shmat(shm_id, nullptr, 0);
  if (shm_addr == reinterpret_cast<void *>(-1)) {
    std::perror("shmat");
    std::exit(2);
  }
  dll_info = static_cast<unsigned char *>(shm_addr);
  struct shmid_ds ds;
  bool stat_ok = shmctl(shm_id, IPC_STAT, &ds) == 0;
  qz::segment_size = stat_ok ? static_cast<std::int64_t>(ds.shm_segsz) : 0;
  // The segment carries every call's SQL and results: one that any user of the machine may
  // write could feed this process calls of a stranger's. Group rights are the site's choice.
  if (stat_ok && (ds.shm_perm.mode & S_IWOTH)) {
    std::fprintf(stderr, "Call block writable by every user (mode %03o)\n",
                 static_cast<unsigned>(ds.shm_perm.mode & 0777));
    std::exit(2);
  }

  // A segment too small for the header cannot hold the magic either.
  const qz::wire::Layout &l = qz::layout();
  if (qz::segment_size < static_cast<std::int64_t>(l.args) ||
      std::memcmp(dll_info, qz::wire::kMagic, sizeof qz::wire::kMagic) != 0) {
    std::fputs("Bad DLL_MAGIC\n", stderr);
    std::exit(2);
  }
  std::uint32_t version = static_cast<std::uint32_t>(get32(dll_info, 8));
  if (version != qz::wire::kVersion) {
    std::fprintf(stderr, "Unsupported DLL_VERSION %x\n", version);
    std::exit(2);
  }
}

}  // namespace

extern "C" void signal_handler(int sig) {
  if (sig == SIGTERM) {
    bool in_call = dll_in_call != 0;
    if (in_call) arm_watchdog();
    shmdt(shm_addr);
    dll_cleanup();
    // Inside a call the interrupted code may hold the allocator's or a driver's lock:
    // exit handlers could deadlock there, so the process ends without them.
    if (in_call) _exit(0);
    std::exit(0);
  }
  dll_in_call = 1;
  int status = dll_main();
  put32(dll_info, qz::layout().status, status);  // status first: read on the signal
  dll_in_call = 0;
  qz::signal_interpreter();
}

// SIGURG: the interpreter asks to stop the call in progress (a user's interrupt). Outside a
// call there is nothing to stop.
extern "C" void interrupt_handler(int) {
  if (dll_in_call) dll_interrupt();
}

int main(int argc, char **argv) {
  const pid_t parent = getppid();  // the interpreter
  if (argc != 2) {
    std::fprintf(stderr, "%s: Illegal call\n", argv[0]);
    std::exit(2);
  }
  shm_id = static_cast<int>(std::strtol(argv[1], nullptr, 10));
  dll_compat = 0;
  if (const char *colon = std::strchr(argv[1], ':')) {
    dll_compat = static_cast<int>(std::strtol(colon + 1, nullptr, 10));
    if (dll_compat != 0 && dll_compat != 32 && dll_compat != 64) {
      std::fprintf(stderr, "%s: Illegal argument: %s\n", argv[0], argv[1]);
      std::exit(2);
    }
    if (dll_compat == 32) dll_compat = 0;
  }

  sigset_t set;
  sigemptyset(&set);
  for (int sig : {SIGINT, SIGUSR1, SIGUSR2, SIGALRM, SIGIO})
    sigaddset(&set, sig);
  sigprocmask(SIG_BLOCK, &set, nullptr);

  reset_dispositions();

  close_descriptors();

  attach_block();

  dll_setup();

  // A call that arrives while SIGTERM releases everything waits and is never run: the
  // block is detached by then, and the interpreter learns that the server has ended.
  set_action(SIGTERM, signal_handler, SA_RESTART, {SIGUSR2, SIGURG});
  set_action(SIGUSR2, signal_handler, SA_RESTART);
  set_action(SIGURG, interrupt_handler, SA_RESTART);

  // The interpreter started this process: when it dies, the kernel sends SIGTERM, which
  // ends the process as the interpreter's own SIGTERM would (statements cancelled, sessions
  // closed, the watchdog inside a call), and no signal goes to a process that reuses its
  // id. A parent that died before the request took effect is seen in getppid.
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() != parent) raise(SIGTERM);

  sigdelset(&set, SIGUSR2);
  sigdelset(&set, SIGTERM);
  for (;;)
    sigsuspend(&set);
}
