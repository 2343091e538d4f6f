// dll_callback: during a call, sends a request code to the interpreter and waits for its
// answer. The call's own SIGUSR2 handler is swapped for a handler that jumps back to the
// waiting point, so the answer is never taken for a new call.
#include <setjmp.h>
#include <signal.h>
#include <unistd.h>

#include <cstring>

#include "host.hpp"

namespace {

sigjmp_buf dll_callback_jmp;  // the waiting point of the one callback in progress

void dll_callback_handler(int) {
  siglongjmp(dll_callback_jmp, 0);
}

}  // namespace

int dll_callback(int code) {
  const qz::wire::Layout &l = qz::layout();
  qz::wire::put32(dll_info, l.callback, code);
  struct sigaction sa, previous;
  std::memset(&sa, 0, sizeof sa);
  sa.sa_handler = dll_callback_handler;
  sigemptyset(&sa.sa_mask);
  sa.sa_flags = SA_RESTART;
  sigaction(SIGUSR2, &sa, &previous);
  // SIGUSR2 is still blocked here (we run inside the call's handler): an answer that
  // comes before the wait begins stays pending and is delivered by sigsuspend.
  qz::signal_interpreter();
  if (sigsetjmp(dll_callback_jmp, 0) == 0) {
    sigset_t wait_mask;
    sigemptyset(&wait_mask);
    sigaddset(&wait_mask, SIGINT);
    sigaddset(&wait_mask, SIGALRM);
    sigaddset(&wait_mask, SIGIO);
    for (;;)
      sigsuspend(&wait_mask);
  }
  sigaction(SIGUSR2, &previous, nullptr);
  return qz::wire::get32(dll_info, l.status);
}
