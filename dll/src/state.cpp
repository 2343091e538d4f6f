// The call host's process-wide state, set at start-up and read by every part of the host,
// and the assertion handler. Apart from the process frame (main), so that a program that
// runs calls in-process (a benchmark) links it without a second main.
#include <assert.h>
#include <signal.h>

#include "host.hpp"

int shm_id = 0;
void *shm_addr = nullptr;
unsigned char *dll_info = nullptr;
int dll_compat = 0;
int dll_debug = 0;
volatile std::sig_atomic_t dll_in_call = 0;

namespace qz {

std::int64_t segment_size = 0;

void signal_interpreter() {
  pid_t pid = wire::get32(dll_info, layout().pid);
  // No getppid check here: it would cost every call a system call, and the kernel's
  // SIGTERM on the parent's death (set up at start-up) ends this process long before the dead
  // interpreter's id could be given to another process.
  if (kill(pid, SIGUSR2) != 0) raise(SIGTERM);
}

void assertion_failed(const char *cond, const char *file, int line, const char *func) {
  __assert_fail(cond, file, static_cast<unsigned>(line), func);
}

}  // namespace qz

void dll_use_block(unsigned char *block, std::size_t size, int bits) {
  shm_addr = dll_info = block;
  dll_compat = bits == 64 ? 64 : 0;
  qz::segment_size = static_cast<std::int64_t>(size);
}
