// Tests of the log's start-up state and of the defaults, which apply only while nothing
// was set. Each case runs in a child forked from a parent that never touched the log, so
// every case starts from the state of a fresh process.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include "log_sink.hpp"
#include "qzlog.hpp"

namespace {

using qz_test::Sink;

// Runs a case in a fresh child; the case returns 0, or the number of its first failing
// check, which becomes the child's exit status.
int run_fresh(int (*fn)()) {
  std::fflush(nullptr);
  pid_t pid = fork();
  if (pid == 0) _exit(fn());
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) != pid) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + status;
}

int start_state() {
  if (qz__Log_get_fp() != nullptr) return 1;
  if (qz__IsLog('O', 1) != 0) return 2;
  if (qz__IsLog('O', 0) != 1) return 3;
  if (qz__IsLog('A', 9) != 1) return 4;
  return 0;
}

int default_flags_apply_until_flags_are_set() {
  qz__Log_SetDefaultFlags("O3");
  if (qz__IsLog('O', 3) != 1) return 1;
  qz__Log_SetDefaultFlags("O1");  // already set (by the default itself)
  if (qz__IsLog('O', 3) != 1) return 2;
  qz__Log_SetFlags2("O1", 0);
  if (qz__IsLog('O', 3) != 0) return 3;
  qz__Log_SetDefaultFlags("O3");
  if (qz__IsLog('O', 3) != 0) return 4;
  return 0;
}

int setting_flags_without_announce_blocks_the_default() {
  qz__Log_SetFlags2("", 0);
  qz__Log_SetDefaultFlags("O3");
  return qz__IsLog('O', 1) == 0 ? 0 : 1;
}

int default_file_applies_until_a_stream_is_set() {
  Sink a, b;
  qz__Log_set_timefmt("T");
  qz__Log_SetDefaultFile(a.fp);
  if (qz__Log_get_fp() != a.fp) return 1;
  qz__Log_SetDefaultFile(b.fp);
  if (qz__Log_get_fp() != a.fp) return 2;
  if (a.closed || b.closed) return 3;
  qz__Log_SetDefaultFlags("O2");  // flags never set: applies, with its header
  if (qz__IsLog('O', 2) != 1) return 4;
  if (a.text != "\n** T   Flags = [O2]\n\n") return 5;
  return 0;
}

int set_fp_blocks_the_default_file() {
  Sink a;
  qz__Log_set_fp(nullptr, 0);
  qz__Log_SetDefaultFile(a.fp);
  return qz__Log_get_fp() == nullptr ? 0 : 1;
}

int choosing_the_system_log_blocks_the_default_file() {
  Sink a;
  qz__Log_SetFile(nullptr);
  qz__Log_SetDefaultFile(a.fp);
  return qz__Log_get_fp() == nullptr ? 0 : 1;
}

TEST(LogDefaults, StartStateAndDefaultsEachInAFreshProcess) {
  const struct {
    const char *name;  // the case
    int (*fn)();       // runs it: 0, or the number of its first failing check
  } cases[] = {
      {"start state", start_state},
      {"default flags", default_flags_apply_until_flags_are_set},
      {"flags without announce", setting_flags_without_announce_blocks_the_default},
      {"default file", default_file_applies_until_a_stream_is_set},
      {"set_fp", set_fp_blocks_the_default_file},
      {"system log chosen", choosing_the_system_log_blocks_the_default_file},
  };
  for (const auto &c : cases)
    EXPECT_EQ(run_fresh(c.fn), 0) << c.name;
}

}  // namespace
