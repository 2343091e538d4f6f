// qzcall's server: where the program is, starting, replacing and stopping it, and the
// signal handler that turns a person's Ctrl-C into the interrupt of a call or the discard
// of a typed line, and any other interrupt into an orderly end.
#include "server.hpp"

#include <limits.h>
#include <signal.h>
#include <sys/shm.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "sql_shell.hpp"

namespace qz::call {

namespace {

// The running server, for the signal handler.
client::Session *volatile g_session = nullptr;
volatile sig_atomic_t g_server_pid = -1;
volatile sig_atomic_t g_shm_id = -1;

extern "C" void on_signal(int sig) {
  if (sig == SIGINT) {
    if (client::Session *s = g_session; s && s->interrupt_call()) return;
    if (prompt_interrupt.at_prompt) {
      prompt_interrupt.hit = 1;  // the line editor returns; the shell drops the line
      return;
    }
  }
  // The server blocks SIGINT: an interrupted qzcall must not leave it waiting forever,
  // nor the segment behind.
  if (g_server_pid > 0) kill(g_server_pid, SIGTERM);
  if (g_shm_id >= 0) shmctl(g_shm_id, IPC_RMID, nullptr);
  _exit(128 + sig);
}

void track(client::Session *s) {
  g_session = s;
  g_server_pid = s ? s->pid() : -1;
  g_shm_id = s ? s->shm_id() : -1;
}

bool executable(const std::string &path) {
  return access(path.c_str(), X_OK) == 0;
}

std::string self_dir() {
  char buf[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
  if (n <= 0) return "";
  std::string p(buf, static_cast<std::size_t>(n));
  return p.substr(0, p.rfind('/'));
}

std::string search_path(const std::string &name) {
  const char *path = std::getenv("PATH");
  std::istringstream in(path ? path : "");
  for (std::string dir; std::getline(in, dir, ':');) {
    std::string p = (dir.empty() ? "." : dir) + "/" + name;
    if (executable(p)) return p;
  }
  return "";
}

}  // namespace

bool find_server(const std::string &given, std::string &out) {
  if (!given.empty()) {
    out = given.find('/') == std::string::npos ? search_path(given) : given;
    if (out.empty() || !executable(out)) {
      std::fprintf(stderr,
                   "qzcall: the server '%s' is not an executable program; give the path of "
                   "qzodbc with --server PATH\n",
                   given.c_str());
      return false;
    }
    return true;
  }
  std::string dir = self_dir();
  for (const std::string &p : {dir + "/qzodbc", dir + "/../dll/qzodbc"}) {
    if (!dir.empty() && executable(p)) {
      out = p;
      return true;
    }
  }
  out = search_path("qzodbc");
  if (!out.empty()) return true;
  std::fprintf(stderr,
               "qzcall: cannot find the qzodbc server next to qzcall (%s) or in PATH; give "
               "its path with --server PATH\n",
               dir.c_str());
  return false;
}

bool start_server(client::Session &s, const client::Options &opt) {
  if (!s.start(opt)) {
    std::fprintf(stderr, "qzcall: %s\n", s.error().c_str());
    return false;
  }
  track(&s);
  struct sigaction sa {};
  sa.sa_handler = on_signal;
  sigemptyset(&sa.sa_mask);  // no SA_RESTART: a read at the prompt returns on Ctrl-C
  for (int sig : {SIGINT, SIGTERM, SIGHUP})
    sigaction(sig, &sa, nullptr);
  return true;
}

bool restart_server(client::Session &s) {
  track(nullptr);
  bool ok = s.restart();
  if (!ok) std::fprintf(stderr, "qzcall: %s\n", s.error().c_str());
  track(ok ? &s : nullptr);
  return ok;
}

bool stop_server(client::Session &s) {
  track(nullptr);  // stopped and reaped below: the handler leaves it alone
  client::ExitInfo e = s.stop();
  if (e.exited && e.code == 0) return true;
  std::fprintf(stderr, "qzcall: the server %s\n", e.describe().c_str());
  return false;
}

}  // namespace qz::call
