// The call host as a process, driven through libqzclient: command line and start-up
// failures, signal and descriptor state, calls in both layouts, SIGTERM while waiting and
// during a call, an interpreter that has gone away, and the protocol assertions.
#include <dirent.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <optional>
#include <set>
#include <thread>

#include "e2e_env.hpp"

namespace {

using namespace std::chrono_literals;
using qz::client::Arg;
using qz::client::CallResult;
using qz::client::Layout;
using qz::client::Options;
using qz::client::Session;

Options host_options(Layout l = Layout::bits32) {
  return qz::test::server_options("QZ_SERVER_HOST_TEST", l);
}

// A server refused at start-up: its exit status, its standard error, and whether it had
// attached the segment (the last process to attach or detach it is the server's).
struct Refusal {
  qz::client::ExitInfo exit;  // how the server ended
  std::string err;            // its standard error
  bool attached;              // it attached the segment at some point
};

Refusal start_refused(Options o) {
  Session s;
  EXPECT_TRUE(s.start(o)) << s.error();
  Refusal r;
  r.exit = s.wait_exit(20s);
  r.err = s.stderr_text();
  struct shmid_ds ds;
  r.attached = shmctl(s.shm_id(), IPC_STAT, &ds) == 0 && ds.shm_lpid == s.pid();
  s.stop();
  return r;
}

// A refused command line or segment: exit status 2, the exact text on standard error, and
// (for a refused command line) nothing attached.
TEST(HostStartup, RefusedCommandLinesAndSegments) {
  const std::string prog = host_options().server;
  struct Case {
    std::optional<std::vector<std::string>> argv;  // the command line, default if none
    void (*patch)(unsigned char *);                // changes the header before the spawn
    std::string err;
  } cases[] = {
      {std::vector<std::string>{}, nullptr, prog + ": Illegal call\n"},
      {std::vector<std::string>{"{id}", "extra"}, nullptr, prog + ": Illegal call\n"},
      {std::vector<std::string>{"{id}:16"}, nullptr, prog + ": Illegal argument: "},
      {std::vector<std::string>{"999999999"}, nullptr, "shmat: Invalid argument\n"},  // no such
      {std::nullopt, [](unsigned char *b) { b[5] = 'X'; }, "Bad DLL_MAGIC\n"},
      {std::nullopt, [](unsigned char *b) { b[7] = 1; }, "Bad DLL_MAGIC\n"},  // all 8 bytes count
      {std::nullopt, [](unsigned char *b) { b[8] = 0x02; }, "Unsupported DLL_VERSION 102\n"},
  };
  for (const Case &c : cases) {
    Options o = host_options();
    o.argv = c.argv;
    if (c.patch) o.before_spawn = c.patch;
    Refusal r = start_refused(o);
    EXPECT_TRUE(r.exit.exited && r.exit.code == 2) << r.exit.describe() << c.err;
    if (c.err.ends_with(": ")) {  // the argument follows, as the server was given it
      EXPECT_EQ(r.err.rfind(c.err, 0), 0u) << r.err;
      EXPECT_TRUE(r.err.ends_with(":16\n")) << r.err;
    } else {
      EXPECT_EQ(r.err, c.err);
    }
    // The emulator does not hand the segment's last attaching pid through as the kernel
    // records it: only a native test program can tell.
    if (!qz::test::emulated()) {
      EXPECT_EQ(r.attached, !c.argv) << c.err;
    }
  }
}

TEST(HostStartup, SuffixesSelectingTheLayout) {
  struct Case {
    std::string arg;
    Layout layout;
  };
  for (const Case &c : std::vector<Case>{{"{id}", Layout::bits32},
                                         {"{id}:32", Layout::bits32},
                                         {"{id}:0", Layout::bits32},
                                         {"{id}:", Layout::bits32},
                                         {"{id}:x64", Layout::bits32},
                                         {"{id}:64", Layout::bits64}}) {
    Options o = host_options(c.layout);
    o.argv = std::vector<std::string>{c.arg};
    Session s;
    ASSERT_TRUE(s.start(o)) << s.error();
    CallResult r = s.call("SetInt", {Arg::int_var(0), Arg::integer(77)});
    ASSERT_TRUE(r.ok()) << c.arg << ": " << r.error;
    EXPECT_EQ(r.status, 0) << c.arg;
    EXPECT_EQ(r.args[0].as_int(), 77) << c.arg;
    // SIGTERM while waiting: exit status 0, nothing said.
    qz::client::ExitInfo e = s.stop();
    EXPECT_TRUE(e.exited && e.code == 0) << e.describe();
    EXPECT_EQ(s.stderr_text(), "");
  }
}

// Signal dispositions as /proc shows them: mask of ignored signals.
std::uint64_t ignored_signals(int pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(in, line);)
    if (line.rfind("SigIgn:", 0) == 0) return std::stoull(line.substr(7), nullptr, 16);
  return ~0ULL;
}

std::set<std::string> open_descriptors(int pid) {
  std::set<std::string> fds;
  DIR *d = opendir(("/proc/" + std::to_string(pid) + "/fd").c_str());
  if (!d) return fds;
  while (dirent *e = readdir(d))
    if (e->d_name[0] != '.') fds.insert(e->d_name);
  closedir(d);
  return fds;
}

TEST(HostStartup, IgnoredSignalsStayIgnoredAndOnlyStandardErrorStaysOpen) {
  // The parent ignores SIGHUP (as under nohup) and SIGSEGV.
  struct sigaction ign {
  }, old_hup{}, old_segv{};
  ign.sa_handler = SIG_IGN;
  sigaction(SIGHUP, &ign, &old_hup);
  sigaction(SIGSEGV, &ign, &old_segv);
  Session s;
  bool started = s.start(host_options());
  sigaction(SIGHUP, &old_hup, nullptr);
  sigaction(SIGSEGV, &old_segv, nullptr);
  ASSERT_TRUE(started) << s.error();
  ASSERT_TRUE(s.ping()) << s.error();

  if (!qz::test::emulated()) {  // the emulator's own state is what /proc shows there
    std::uint64_t ign_mask = ignored_signals(s.pid());
    EXPECT_TRUE(ign_mask & (1ULL << (SIGHUP - 1)));
    EXPECT_FALSE(ign_mask & (1ULL << (SIGSEGV - 1)));
    EXPECT_EQ(open_descriptors(s.pid()), std::set<std::string>{"2"});
  }
  kill(s.pid(), SIGHUP);
  std::this_thread::sleep_for(50ms);
  EXPECT_TRUE(s.ping()) << s.error();
  EXPECT_TRUE(s.running());
}

class HostCalls : public ::testing::TestWithParam<Layout> {
 protected:
  void SetUp() override { ASSERT_TRUE(s.start(host_options(GetParam()))) << s.error(); }
  Session s;
};

TEST_P(HostCalls, TermDuringACallExitsZeroWithoutAnswering) {
  ASSERT_TRUE(s.ping());
  Arg ms = Arg::integer(10000);
  ASSERT_TRUE(s.write_call("Sleep", std::span<const Arg>(&ms, 1)));
  s.put32(s.layout().status, 12345);
  ASSERT_EQ(kill(s.pid(), SIGUSR2), 0);
  std::this_thread::sleep_for(200ms);
  kill(s.pid(), SIGTERM);
  qz::client::ExitInfo e = s.wait_exit(5s);
  EXPECT_TRUE(e.exited && e.code == 0) << e.describe();
  EXPECT_EQ(s.get32(s.layout().status), 12345);  // no status was stored
  sigset_t pending;
  sigpending(&pending);
  EXPECT_FALSE(sigismember(&pending, SIGUSR2));  // and no answer was sent
}

TEST_P(HostCalls, InterpreterGoneEndsTheServerAfterTheCall) {
  ASSERT_TRUE(s.ping());
  pid_t gone = fork();
  if (gone == 0) _exit(0);
  waitpid(gone, nullptr, 0);
  s.put32(s.layout().pid, gone);
  Arg args[] = {Arg::int_var(0), Arg::integer(3)};
  ASSERT_TRUE(s.write_call("SetInt", args));
  s.put32(s.layout().status, -77);
  ASSERT_EQ(kill(s.pid(), SIGUSR2), 0);
  qz::client::ExitInfo e = s.wait_exit(10s);
  EXPECT_TRUE(e.exited && e.code == 0) << e.describe();
  EXPECT_EQ(s.get32(s.layout().status), 0);  // the status was stored before the signal
}

// A descriptor whose data starts outside the segment, or an array that runs past its end,
// stops the server with the assertion's condition text.
TEST_P(HostCalls, DataOutsideTheSegmentFailsTheAssertion) {
  const std::string ptr_cond = GetParam() == Layout::bits64
                                   ? "`ofs >= 0 && ofs < ((t_DLL_INFO64 *)dll_info)->shmsz' failed"
                                   : "`ofs >= 0 && ofs < dll_info->shmsz' failed";
  const struct {
    long from_end;     // where the integer data starts, relative to the segment's end
    int elcnt;         // integers in it
    std::string cond;  // the start of the assertion text
  } cases[] = {{64, 1, ptr_cond}, {-8, 3, "Assertion `end >= 0 && end <= "}};
  for (const auto &c : cases) {
    Session t;  // each case ends its own server
    ASSERT_TRUE(t.start(host_options(GetParam()))) << t.error();
    Arg args[] = {Arg::int_var(0), Arg::integer(3)};
    ASSERT_TRUE(t.write_call("SetInt", args));
    const auto &l = t.layout();
    std::size_t d1 = l.args + l.arg_size;
    t.put_address(d1 + l.a_ptr, t.address_of(t.block_size() + c.from_end));
    t.put32(d1 + l.a_elcnt, c.elcnt);
    CallResult r = t.raw_call();
    EXPECT_EQ(r.kind, CallResult::Kind::server_died) << r.error;
    EXPECT_EQ(t.exit_info().signal, SIGABRT);
    EXPECT_NE(t.stderr_text().find(c.cond), std::string::npos) << t.stderr_text();
  }
}

INSTANTIATE_TEST_SUITE_P(Layouts, HostCalls, ::testing::Values(Layout::bits32, Layout::bits64),
                         [](const auto &info) { return qz::test::layout_name(info.param); });

// The i386 server, under the emulator, from this (x86-64) client in both layouts.
TEST(HostCrossArch, I386ServerFromThisClient) {
  std::string server = qz::test::env("QZ_SERVER_HOST_TEST_I386");
  if (qz::test::emulated() || server.empty())
    GTEST_SKIP()
        << "only in the x86-64 build, with the i386 build's server (QZ_SERVER_HOST_TEST_I386)";
  ASSERT_EQ(access(server.c_str(), X_OK), 0) << server;
  for (Layout l : {Layout::bits32, Layout::bits64}) {
    Options o = host_options(l);
    o.server = server;
    o.launcher = {"qemu-i386"};
    Session s;
    ASSERT_TRUE(s.start(o)) << s.error();
    CallResult r = s.call("SetInt", {Arg::int_var(0), Arg::integer(2024)});
    ASSERT_TRUE(r.ok()) << r.error;
    EXPECT_EQ(r.args[0].as_int(), 2024) << qz::test::layout_name(l);
    EXPECT_EQ(s.call("ReturnStatus", {Arg::integer(-3)}).status, -3);
    qz::client::ExitInfo e = s.stop();
    EXPECT_TRUE(e.exited && e.code == 0) << e.describe();
  }
}

}  // namespace
