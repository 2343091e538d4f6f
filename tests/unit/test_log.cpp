// Tests of the log: the flag test, long and short line forms, the flags header, stream
// ownership, time texts, errno texts, hexadecimal dumps and delivery to the system log.
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <syslog.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "log_sink.hpp"
#include "qzlog.hpp"

namespace {

using qz_test::Sink;

// The process id as the long form prints it.
std::string pid5() {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%5d", static_cast<int>(getpid()));
  return buf;
}

// Every test starts from the system log, no flags and the fixed time text "T".
class Log : public ::testing::Test {
 protected:
  void SetUp() override {
    qz__Log_set_fp(nullptr, 0);
    qz__Log_SetFlags2("", 0);
    qz__Log_set_timefmt("T");
  }
  void TearDown() override {
    qz__Log_set_fp(nullptr, 0);  // never leave a stream that a test is about to close
    qz__Log_SetFlags2("", 0);
    qz__Log_set_timefmt(nullptr);
  }
};

// Each row sets the flag string, then asks the flag test about letters and levels: in
// "O2+ P1-", O at level 2 must pass and P at level 1 must not.
TEST_F(Log, FlagTestFollowsTheFlagString) {
  const struct {
    const char *flags;    // given to qz__Log_SetFlags2
    const char *queries;  // letter, level, + (logged) or - (not), separated by blanks
  } cases[] = {
      {"", "O0+ O9+ O1-"},  // nothing set: only levels 0 and 9 pass
      {"O2", "O2+ O3- P1- P0+"},
      {"*1O3", "A1+ Z1+ A2- O3+ O4-"},
      {"O", "O1+ O2-"},               // a lone letter means level 1
      {"O12P", "O12+ O13- P1+ P2-"},  // several digits, then a letter without a number
      {"*3O0", "B3+ O1- O0+"},        // a later entry overrides "*"
      {"o3", "O1- B1-"},              // lower case sets nothing
      // levels are stored as signed 8-bit values: 200 is -56, so even level 0 is off
      {"O200", "O0- O9- O-56+ O-55-"},
      {"O256", "O0+ O1-"},  // 256 is 0
      {"O127", "O127+ O128-"},
  };
  for (const auto &c : cases) {
    qz__Log_SetFlags2("*5", 0);  // each string replaces what was there
    qz__Log_SetFlags2(c.flags, 0);
    for (const char *q = c.queries; *q; q += *q == ' ') {
      char *end;
      int letter = *q, level = static_cast<int>(std::strtol(q + 1, &end, 10));
      EXPECT_EQ(qz__IsLog(letter, level), *end == '+') << "flags \"" << c.flags << "\", " << q;
      q = end + 1;
    }
  }
  qz__Log_SetFlags2("*9", 0);  // only upper-case letters are ever logged
  for (int letter : {int{'o'}, int{'@'}, int{'['}, 0, 'A' + 256, -1})
    EXPECT_EQ(qz__IsLog(letter, 0), 0) << letter;
}

TEST_F(Log, LongFormLines) {
  Sink s;
  qz__Log_set_fp(s.fp, 0);
  qz__Log('O', 0, "hello %d", 42);
  qz__Log('O', 9, "nine");  // level 9 is printed as 0
  qz__Log('O', 1, "not written");
  qz__Log_SetFlags2("O2", 0);
  qz__Log('O', 2, "two");
  qz__Log('O', 3, "not written");
  qz__Log('P', 1, "not written");
  qz__Log('O', 1, "\nafter an empty line");
  const std::string p = pid5();
  EXPECT_EQ(s.text, "T (" + p + ") O0: hello 42\n" + "T (" + p + ") O0: nine\n" + "T (" + p +
                        ") O2: two\n" + "\nT (" + p + ") O1: after an empty line\n");
}

void logv(int letter, int level, const char *format, ...) __attribute__((format(printf, 3, 4)));
void logv(int letter, int level, const char *format, ...) {
  va_list args;
  va_start(args, format);
  qz__Logv(letter, level, format, args);
  va_end(args);
}

TEST_F(Log, ShortFormLines) {
  Sink s;
  qz__Log_set_fp(s.fp, 1);
  qz__Log_SetFlags2("O3", 0);
  qz__Log('O', 3, "short %s", "form");
  qz__Log('O', 9, "nine");
  qz__Log('O', 1, "\nafter an empty line");
  logv('O', 2, "through %s", "va_list");
  logv('O', 4, "not written");
  qz__Log_AggBegin();  // entry points without effect
  qz__Log_AggEnd();
  EXPECT_EQ(s.text,
            "O3: short form\n"
            "O0: nine\n"
            "\nO1: after an empty line\n"
            "O2: through va_list\n");
}

TEST_F(Log, LongMessagesAreCutTo1023Characters) {
  Sink s;
  qz__Log_set_fp(s.fp, 1);
  const std::string fits(1023 - 4, 'a');  // "O0: " is not part of the message
  qz__Log('O', 0, "%s", fits.c_str());
  ASSERT_EQ(s.text, "O0: " + fits + "\n");

  s.text.clear();
  const std::string exact(1023, 'b');
  qz__Log('O', 0, "%s", exact.c_str());
  EXPECT_EQ(s.text, "O0: " + exact + "\n");

  s.text.clear();
  qz__Log('O', 0, "%s%s", exact.c_str(), "tail that is cut");
  EXPECT_EQ(s.text, "O0: " + exact + "\n");
  s.text.clear();
  qz__Log_SysErr('O', 0, ENOENT, exact.c_str());
  EXPECT_EQ(s.text, "O0: " + exact + "\n");
}

TEST_F(Log, TimeText) {
  Sink s;
  qz__Log_set_fp(s.fp, 0);
  const std::string p = pid5();

  qz__Log_set_timefmt(nullptr);  // the default format
  qz__Log('O', 0, "default");
  EXPECT_TRUE(std::regex_match(
      s.text, std::regex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} \\(" + p +
                         "\\) O0: default\n")))
      << s.text;

  s.text.clear();
  const std::string f64(64, 'x');  // 64 characters still fit
  qz__Log_set_timefmt(f64.c_str());
  qz__Log('O', 0, "m");
  EXPECT_EQ(s.text, f64 + " (" + p + ") O0: m\n");

  s.text.clear();
  const std::string f65(65, 'y');  // one more, and the time text is empty
  qz__Log_set_timefmt(f65.c_str());
  qz__Log('O', 0, "m");
  EXPECT_EQ(s.text, " (" + p + ") O0: m\n");

  s.text.clear();
  std::string owned = "%%Y";  // the log keeps its own copy
  qz__Log_set_timefmt(owned.c_str());
  owned[1] = 'Q';
  qz__Log('O', 0, "m");
  EXPECT_EQ(s.text, "%Y (" + p + ") O0: m\n");
}

TEST_F(Log, SysErrTexts) {
  Sink s;
  qz__Log_set_fp(s.fp, 1);
  qz__Log_SysErr('O', 0, ENOENT, "open /nowhere");
  qz__Log_SysErr('O', 9, 99999, "odd");
  qz__Log_SysErr('O', 0, -3, "negative");
  qz__Log_SysErr('O', 1, EACCES, "not written");
  EXPECT_EQ(s.text, "O0: open /nowhere: No such file or directory (errno " +
                        std::to_string(ENOENT) +
                        ")\n"
                        "O0: odd: No associated message text (errno 99999)\n"
                        "O0: negative: No associated message text (errno -3)\n");
}

TEST_F(Log, FlagsHeader) {
  Sink s;
  qz__Log_set_fp(s.fp, 0);
  qz__Log_SetFlags("O2");
  EXPECT_EQ(s.text, "\n** T   Flags = [O2]\n\n");
  EXPECT_EQ(qz__IsLog('O', 2), 1);

  s.text.clear();
  qz__Log_SetFlags("");        // no header for an empty flag string
  qz__Log_SetFlags2("O3", 0);  // nor without announce
  EXPECT_EQ(s.text, "");
  EXPECT_EQ(qz__IsLog('O', 3), 1);

  qz__Log_set_fp(s.fp, 1);  // the short form still gets it: only standard streams do not
  qz__Log_SetFlags("*1");
  EXPECT_EQ(s.text, "\n** T   Flags = [*1]\n\n");

  Sink t;  // SetFileFlags: the new stream first, then the flags with their header
  qz__Log_SetFile(s.fp);
  qz__Log_SetFileFlags("O1", t.fp);
  EXPECT_TRUE(s.closed);
  EXPECT_EQ(t.text, "\n** T   Flags = [O1]\n\n");
  EXPECT_EQ(qz__Log_get_fp(), t.fp);
}

TEST_F(Log, StreamsHandedToTheLogAreClosedWhenReplaced) {
  Sink a, b, c;
  qz__Log_SetFile(a.fp);
  qz__Log_SetFile(a.fp);  // the same stream again changes nothing and closes nothing
  EXPECT_FALSE(a.closed);
  EXPECT_EQ(qz__Log_get_fp(), a.fp);

  qz__Log_SetFile(b.fp);
  EXPECT_TRUE(a.closed);
  EXPECT_FALSE(b.closed);
  EXPECT_EQ(qz__Log_get_fp(), b.fp);

  qz__Log_SetFile(nullptr);  // back to the system log
  EXPECT_TRUE(b.closed);
  EXPECT_EQ(qz__Log_get_fp(), nullptr);

  qz__Log_set_fp(c.fp, 0);  // set_fp never closes
  qz__Log_set_fp(nullptr, 0);
  EXPECT_FALSE(c.closed);

  qz__Log_SetFile(c.fp);  // a file handed over always gets the long form
  qz__Log('O', 0, "long");
  EXPECT_EQ(c.text, "T (" + pid5() + ") O0: long\n");
}

// Points descriptor 2 at fd for the life of the object.
struct StderrRedirect {
  int saved;  // the original descriptor 2
  explicit StderrRedirect(int fd) : saved(dup(2)) {
    std::fflush(stderr);
    dup2(fd, 2);
  }
  ~StderrRedirect() {
    std::fflush(stderr);
    dup2(saved, 2);
    close(saved);
  }
};

std::string read_file(FILE *f) {
  std::string text;
  std::rewind(f);
  char buf[4096];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0)
    text.append(buf, n);
  return text;
}

TEST_F(Log, StandardErrorIsNeverClosedAndGetsNoHeader) {
  FILE *tmp = std::tmpfile();
  ASSERT_NE(tmp, nullptr);
  {
    StderrRedirect redirect(fileno(tmp));
    qz__Log_SetFile(stderr);
    qz__Log_SetFlags("O2");        // no header on a standard stream
    qz__Log('O', 1, "to stderr");  // not a terminal: long form
    Sink s;
    qz__Log_SetFile(s.fp);
    EXPECT_NE(fcntl(2, F_GETFD), -1) << "descriptor 2 was closed";
    qz__Log_set_fp(nullptr, 0);
  }
  EXPECT_EQ(read_file(tmp), "T (" + pid5() + ") O1: to stderr\n");
  std::fclose(tmp);
}

TEST_F(Log, StandardErrorOnATerminalGetsTheShortForm) {
  int master = posix_openpt(O_RDWR | O_NOCTTY);
  if (master < 0) GTEST_SKIP() << "no pseudo-terminal: posix_openpt: " << std::strerror(errno);
  ASSERT_EQ(grantpt(master), 0);
  ASSERT_EQ(unlockpt(master), 0);
  int slave = open(ptsname(master), O_RDWR | O_NOCTTY);
  ASSERT_GE(slave, 0) << std::strerror(errno);
  struct termios tio;
  ASSERT_EQ(tcgetattr(slave, &tio), 0);
  cfmakeraw(&tio);  // no "\r\n" translation
  ASSERT_EQ(tcsetattr(slave, TCSANOW, &tio), 0);
  {
    StderrRedirect redirect(slave);
    qz__Log_SetFile(stderr);
    qz__Log('O', 0, "on a terminal");
    qz__Log_SetFlags("O1");  // no header either
    qz__Log('O', 1, "\nagain");
    qz__Log_SetFile(nullptr);
    EXPECT_NE(fcntl(2, F_GETFD), -1) << "descriptor 2 was closed";
  }
  close(slave);
  std::string got;
  const std::string want = "O0: on a terminal\n\nO1: again\n";
  char buf[256];
  struct pollfd pfd {
    master, POLLIN, 0
  };
  // The bytes are in the terminal already; the wait only guards against a hang.
  while (got.size() < want.size() && poll(&pfd, 1, 10000) == 1) {
    ssize_t n = read(master, buf, sizeof buf);
    if (n <= 0) break;
    got.append(buf, static_cast<std::size_t>(n));
  }
  close(master);
  EXPECT_EQ(got, want);
}

// One dump line as documented: the offset, " xx" per byte (blanks past the end), " |",
// the printable characters with '.' for the others, and "|".
std::string dump_line(const unsigned char *buf, unsigned length, unsigned offset) {
  char hex[8];
  std::snprintf(hex, sizeof hex, "%03x:", offset);
  std::string line = hex, chars;
  for (unsigned i = offset; i < offset + 16; ++i) {
    std::snprintf(hex, sizeof hex, " %02x", i < length ? buf[i] : 0);
    line += i < length ? hex : "   ";
    chars += i >= length ? ' ' : buf[i] >= 0x20 && buf[i] <= 0x7E ? static_cast<char>(buf[i]) : '.';
  }
  return line + " |" + chars + "|\n";
}

TEST_F(Log, DumpOfThreeBytes) {
  Sink s;
  qz__Log_set_fp(s.fp, 0);
  qz__Log_Dump("three", "AB\n", 3);  // dumps do not look at the flags
  const std::string line =
      "000: 41 42 0a" + std::string(13 * 3, ' ') + " |AB." + std::string(13, ' ') + "|\n";
  EXPECT_EQ(s.text, "T (" + pid5() + ") three\nbuffer contains 3 bytes of data\n" + line);

  s.text.clear();
  qz__Log_set_fp(s.fp, 1);
  qz__Log_Dump("three", "AB\n", 3);
  EXPECT_EQ(s.text, "three: buffer contains 3 bytes of data\n" + line);

  s.text.clear();
  qz__Log_Dump("empty", "", 0);
  EXPECT_EQ(s.text, "empty: buffer contains 0 bytes of data\n");
}

// Long dumps line for line: up to 1023 bytes every line, from 1024 on the first 256 bytes,
// a skip line, and the lines from offset 0x300 to the end.
TEST_F(Log, DumpsOfLongBuffersSkipTheMiddle) {
  unsigned char buf[1030];  // byte i holds i modulo 256
  for (unsigned i = 0; i < sizeof buf; ++i)
    buf[i] = static_cast<unsigned char>(i);
  const struct {
    unsigned length;      // bytes dumped
    unsigned skip_to;     // offset of the first line after the skip line; 0: no skip
    unsigned last;        // offset of the last line
    const char *literal;  // one line written out, against a shared misreading
  } cases[] = {
      {1023, 0, 0x3f0, "070: 70 71 72 73 74 75 76 77 78 79 7a 7b 7c 7d 7e 7f |pqrstuvwxyz{|}~.|\n"},
      {1024, 0x300, 0x3f0,
       "3f0: f0 f1 f2 f3 f4 f5 f6 f7 f8 f9 fa fb fc fd fe ff |................|\n"},
      {1030, 0x300, 0x400,
       "400: 00 01 02 03 04 05                               |......          |\n"},
  };
  for (const auto &c : cases) {
    Sink s;
    qz__Log_set_fp(s.fp, 1);
    qz__Log_Dump("d", buf, c.length);
    std::string want = "d: buffer contains " + std::to_string(c.length) + " bytes of data\n";
    for (unsigned o = 0; o <= c.last; o += 16) {
      if (c.skip_to && o == 0x100) {
        want += "... skipped ...\n";
        o = c.skip_to;
      }
      want += dump_line(buf, c.length, o);
    }
    EXPECT_EQ(s.text, want) << c.length << " bytes";
    EXPECT_NE(s.text.find(c.literal), std::string::npos) << c.length << " bytes";
    qz__Log_set_fp(nullptr, 0);
  }
}

TEST(LogNames, ExtractFilenamePointsPastTheLastSlash) {
  for (const char *path : {"dll/odbc/statement.cpp", "util.cpp", "dll/odbc/", "/abs", ""}) {
    const char *slash = std::strrchr(path, '/');
    EXPECT_EQ(extract_filename(path), slash ? slash + 1 : path) << path;
  }
}

// ---- the system log, for real -------------------------------------------------------

// Records sent from the child to the parent, each ended by a NUL (datagrams hold none).
void put_record(int fd, const std::string &text) {
  std::string rec = text + '\0';
  for (std::size_t at = 0; at < rec.size();) {
    ssize_t w = write(fd, rec.data() + at, rec.size() - at);
    if (w <= 0) return;
    at += static_cast<std::size_t>(w);
  }
}

std::vector<std::string> get_records(const std::string &stream) {
  std::vector<std::string> out;
  for (std::size_t at = 0, end; (end = stream.find('\0', at)) != std::string::npos; at = end + 1)
    out.push_back(stream.substr(at, end - at));
  return out;
}

// The next datagram on the socket, or "(none)" when nothing was sent.
std::string next_datagram(int sock) {
  char buf[2048];
  ssize_t n = recv(sock, buf, sizeof buf, MSG_DONTWAIT);
  return n < 0 ? std::string("(none)") : std::string(buf, static_cast<std::size_t>(n));
}

// Runs in a child: takes over /dev/log inside a private mount namespace, logs through the
// system log and sends what arrived to the parent. The first record is "ok", or
// "skip: <reason>" when the machine does not allow the set-up.
int syslog_child(int out) {
  auto refuse = [out](const char *what) {
    put_record(out, std::string("skip: ") + what + ": " + std::strerror(errno));
    return 0;
  };
  if (unshare(CLONE_NEWNS) != 0) return refuse("unshare(CLONE_NEWNS)");
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    return refuse("making the mounts private");
  if (mount("qzlogtest", "/dev", "tmpfs", 0, "mode=0755") != 0)
    return refuse("mounting a tmpfs over /dev");
  int sock = socket(AF_UNIX, SOCK_DGRAM, 0);
  if (sock < 0) return refuse("socket(AF_UNIX, SOCK_DGRAM)");
  struct sockaddr_un addr {};
  addr.sun_family = AF_UNIX;
  std::strcpy(addr.sun_path, "/dev/log");
  if (bind(sock, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0)
    return refuse("binding /dev/log");
  put_record(out, "ok");
  closelog();  // forget any connection made before the take-over

  qz__Log_set_fp(nullptr, 0);
  qz__Log_SetFlags2("O2", 0);
  for (int level : {0, 1, 9, 2}) {
    qz__Log('O', level, "level %d", level);
    put_record(out, next_datagram(sock));
  }
  qz__Log('O', 1, "%s", "100% sure: %s %d %n %%");
  put_record(out, next_datagram(sock));
  qz__Log('O', 1, "\nno newline");
  put_record(out, next_datagram(sock));
  qz__Log('O', 3, "disabled");
  put_record(out, next_datagram(sock));
  qz__Log_Dump("dump", "abc", 3);
  put_record(out, next_datagram(sock));
  return 0;
}

// What the system log receives for a message of this priority: "<facility|priority>",
// the time stamp, the program's name, ": " and the message.
std::string syslog_pattern(int priority, const std::string &message) {
  std::string quoted;
  for (char c : message) {
    if (std::strchr("\\^$.|?*+()[]{}", c)) quoted += '\\';
    quoted += c;
  }
  return "<" + std::to_string(LOG_USER | priority) + ">[A-Z][a-z]{2} [ 0-9][0-9] " +
         "[0-9]{2}:[0-9]{2}:[0-9]{2} " + program_invocation_short_name + ": " + quoted;
}

TEST_F(Log, SystemLogReceivesMessagesVerbatimWithTheirPriorities) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  std::fflush(nullptr);
  pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    close(fds[0]);
    _exit(syslog_child(fds[1]));
  }
  close(fds[1]);
  std::string stream;
  char buf[4096];
  ssize_t n;
  while ((n = read(fds[0], buf, sizeof buf)) > 0)
    stream.append(buf, static_cast<std::size_t>(n));
  close(fds[0]);
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;

  std::vector<std::string> got = get_records(stream);
  ASSERT_FALSE(got.empty());
  if (got[0].rfind("skip: ", 0) == 0) GTEST_SKIP() << "cannot take over /dev/log: " << got[0];
  ASSERT_EQ(got[0], "ok");
  ASSERT_EQ(got.size(), 9u);
  const struct {
    int priority;         // what the level must map to
    const char *message;  // what must arrive, byte for byte
  } want[] = {
      {LOG_ERR, "level 0"},
      {LOG_NOTICE, "level 1"},
      {LOG_WARNING, "level 9"},
      {LOG_DEBUG, "level 2"},
      {LOG_NOTICE, "100% sure: %s %d %n %%"},
      {LOG_NOTICE, "no newline"},
  };
  for (std::size_t i = 0; i < std::size(want); ++i) {
    EXPECT_TRUE(
        std::regex_match(got[1 + i], std::regex(syslog_pattern(want[i].priority, want[i].message))))
        << "datagram " << i << ": [" << got[1 + i] << "]";
  }
  EXPECT_EQ(got[7], "(none)") << "a disabled message reached the system log";
  EXPECT_EQ(got[8], "(none)") << "a dump reached the system log";
}

}  // namespace
