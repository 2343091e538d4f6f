// The support library: the log as one golden trace (streams, flags, levels, dumps, the
// system log), the character set tables against iconv in both directions, and the list.
#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <iconv.h>
#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>

#include <gtest/gtest.h>

#include "llist.hpp"
#include "qzcharset.hpp"
#include "qzlog.hpp"

namespace {

std::string trace;  // what the log wrote, to its streams and to the system log, in order

}  // namespace

// The system log as the log calls it: defined here, it writes to the trace.
extern "C" void syslog(int priority, const char *format, ...) {
  char msg[2048];
  va_list args;
  va_start(args, format);
  std::vsnprintf(msg, sizeof msg, format, args);
  va_end(args);
  trace += "syslog <" + std::to_string(priority) + "> " + msg + "\n";
}

namespace {

// A stream that appends to the trace and notes when the log closes it.
struct Sink {
  bool closed = false;  // set by the stream's close
  FILE *fp;             // the stream
  Sink() {
    cookie_io_functions_t io{};
    io.write = [](void *, const char *buf, size_t n) -> ssize_t {
      trace.append(buf, n);
      return static_cast<ssize_t>(n);
    };
    io.close = [](void *c) { return static_cast<Sink *>(c)->closed = true, 0; };
    fp = fopencookie(this, "w", io);
  }
};

void logv(int letter, int level, const char *format, ...) __attribute__((format(printf, 3, 4)));
void logv(int letter, int level, const char *format, ...) {
  va_list args;
  va_start(args, format);
  qz__Logv(letter, level, format, args);
  va_end(args);
}

// "T (PID)" is the long form's time text (fixed to "T") and process id; B1023 stands for
// 1023 "b"s and X64 for a time format of 64 "x"s.
const char kGolden[] = R"golden(
** T   Flags = [O2]

T (PID) O2: two 2
T (PID) O0: nine

T (PID) O1: after an empty line
T (PID) O2: through va_list
T (PID) O1: open /nowhere: No such file or directory (errno 2)
T (PID) O0: odd: No associated message text (errno 99999)

** T   Flags = [*1O3P200]

T (PID) O3: three
T (PID) Z1: z
T (PID) A1: B1023
 (PID) A1: a time text of 65 characters does not fit
X64 (PID) A1: 64 do
%Y (PID) A1: a copy
T (PID) five
buffer contains 5 bytes of data
000: 41 20 7e 7f 0a                                  |A ~..           |
A1: short
A0: %d %s 100% verbatim

** T   Flags = [*1]

empty: buffer contains 0 bytes of data
T (PID) A1: handed over: the long form
syslog <3> level 0
syslog <5> level 1: 100% sure %s %n
syslog <4> level 9
syslog <7> level 2
syslog <7> level 2 without its newline
T (PID) O1: to stderr
)golden";

std::string replace_all(std::string s, const std::string &from, const std::string &to) {
  for (size_t at = 0; (at = s.find(from, at)) != std::string::npos; at += to.size())
    s.replace(at, from.size(), to);
  return s;
}

// The only test that touches the log, so that it starts from a fresh process's state:
// the defaults apply while nothing was set.
TEST(Log, GoldenTrace) {
  EXPECT_EQ(qz__Log_get_fp(), nullptr);  // the system log, levels 0 and 9 only
  EXPECT_EQ(std::to_string(qz__IsLog('O', 0)) + std::to_string(qz__IsLog('A', 9)) +
                std::to_string(qz__IsLog('O', 1)),
            "110");
  qz__Log_set_timefmt("T");
  Sink a, b, c;
  qz__Log_SetDefaultFile(a.fp);
  qz__Log_SetDefaultFile(stdout);  // a stream was set: no longer applies
  qz__Log_SetDefaultFlags("O2");   // announced in the file
  qz__Log_SetDefaultFlags("*9");
  qz__Log('O', 2, "two %d", 2);
  qz__Log('O', 3, "not written");
  qz__Log('P', 1, "not written");
  qz__Log('O', 9, "nine");  // level 9 is shown as 0
  qz__Log('O', 1, "\nafter an empty line");
  logv('O', 2, "through %s", "va_list");
  qz__Log_SysErr('O', 1, ENOENT, "open /nowhere");
  qz__Log_SysErr('O', 9, 99999, "odd");
  qz__Log_SysErr('O', 3, EACCES, "not written");
  qz__Log_SetFlags2("*9", 0);  // not announced
  qz__Log_SetFlags("");        // nothing to announce; everything off
  qz__Log('O', 1, "not written");
  qz__Log_SetFlags("*1O3P200");  // 200 is -56 as a signed byte: P is off even at level 0
  qz__Log('O', 3, "three");
  qz__Log('Z', 1, "z");
  for (auto [letter, level] : {std::pair{'O', 4}, {'A', 2}, {'P', 0}, {'a', 0}, {'[', 0}})
    qz__Log(letter, level, "not written");  // only upper-case letters are ever logged
  qz__Log('A', 1, "%s%s", std::string(1023, 'b').c_str(), "cut");
  qz__Log_set_timefmt(std::string(65, 'x').c_str());
  qz__Log('A', 1, "a time text of 65 characters does not fit");
  std::string format(64, 'x');
  qz__Log_set_timefmt(format.c_str());
  qz__Log('A', 1, "64 do");
  format = "%%Y";
  qz__Log_set_timefmt(format.c_str());
  format[1] = 'Q';  // the log keeps its own copy
  qz__Log('A', 1, "a copy");
  qz__Log_set_timefmt("T");
  qz__Log_Dump("five", "A ~\x7f\n", 5);  // dumps do not look at the flags
  qz__Log_set_fp(a.fp, 1);               // the short form
  qz__Log('A', 1, "short");
  qz__Log('A', 0, "%s", "%d %s 100% verbatim");
  qz__Log_SetFlags("*1");  // a file in the short form still gets the header
  qz__Log_Dump("empty", "", 0);
  qz__Log_SetFile(a.fp);  // the same stream again: nothing closed, the form stays
  EXPECT_FALSE(a.closed);
  qz__Log_SetFile(b.fp);  // a stream handed over: the old one closed, the long form
  EXPECT_TRUE(a.closed);
  qz__Log('A', 1, "handed over: the long form");
  qz__Log_SetFileFlags("O2", nullptr);  // the system log: no header, b closed
  EXPECT_TRUE(b.closed);
  EXPECT_EQ(qz__Log_get_fp(), nullptr);
  for (int level : {0, 1, 9, 2, 3})
    qz__Log('O', level, level == 1 ? "level %d: 100%% sure %%s %%n" : "level %d", level);
  qz__Log('O', 2, "\nlevel 2 without its newline");
  qz__Log_Dump("never to the system log", "x", 1);
  qz__Log_set_fp(c.fp, 0);  // set_fp never closes
  qz__Log_set_fp(nullptr, 0);
  EXPECT_FALSE(c.closed);
  // Standard error, not a terminal here: the long form, no header, never closed.
  FILE *err = std::tmpfile();
  int saved = dup(2);
  dup2(fileno(err), 2);
  qz__Log_SetFile(stderr);
  qz__Log_SetFlags("O1");
  qz__Log('O', 1, "to stderr");
  qz__Log_SetFile(nullptr);
  dup2(saved, 2);
  close(saved);
  EXPECT_NE(fcntl(2, F_GETFD), -1) << "descriptor 2 was closed";
  char got[256] = "";
  std::rewind(err);
  trace += std::string(got, std::fread(got, 1, sizeof got, err));
  std::fclose(err);
  char pid[16];
  std::snprintf(pid, sizeof pid, "%5d", static_cast<int>(getpid()));
  std::string golden = replace_all(replace_all(kGolden, "PID", pid), "X64", std::string(64, 'x'));
  EXPECT_EQ(trace, replace_all(golden, "B1023", std::string(1023, 'b')));
  // Long dumps: from 1024 bytes on the first 256 bytes, a skip line, and the lines from
  // the 16-byte boundary 256 bytes before the end.
  qz__Log_set_fp(c.fp, 1);
  unsigned char buf[1030];
  for (unsigned i = 0; i < sizeof buf; ++i)
    buf[i] = static_cast<unsigned char>(i);
  for (unsigned length : {1023u, 1024u, 1030u}) {
    trace.clear();
    qz__Log_Dump("d", buf, length);
    size_t skip = trace.find("\n... skipped ...\n300: 00 01 02 03 04 05 06 07 08 09 0a 0b");
    EXPECT_EQ(std::count(trace.begin(), trace.end(), '\n'), length == 1023   ? 65
                                                            : length == 1024 ? 34
                                                                             : 35);
    EXPECT_EQ(skip, length == 1023 ? std::string::npos : 38 + 16 * 72 - 1);
    EXPECT_NE(
        trace.find("\n070: 70 71 72 73 74 75 76 77 78 79 7a 7b 7c 7d 7e 7f |pqrstuvwxyz{|}~.|\n"),
        std::string::npos);
  }
  EXPECT_EQ(trace.substr(trace.size() - 72),
            "400: 00 01 02 03 04 05                               |......          |\n");
  qz__Log_set_fp(nullptr, 0);
  for (const char *path : {"dll/odbc/statement.cpp", "util.cpp", "dll/odbc/", ""})
    EXPECT_STREQ(extract_filename(path),
                 std::strrchr(path, '/') ? std::strrchr(path, '/') + 1 : path);
  std::fclose(c.fp);
}

// ---- Character sets -----------------------------------------------------------------------

// Our whole table of one direction next to iconv's conversion of each single byte (-1
// where iconv has none): every byte must agree, except those listed ("a827": 0xA8 gives
// 0x27), where iconv must say otherwise.
void expect_iconv_except(int from, int to, const char *from_name, const char *to_name,
                         const char *listed) {
  std::map<int, int> intended;
  for (const char *p = listed; *p; p += p[4] ? 5 : 4)
    intended[std::stoi(std::string(p, 2), nullptr, 16)] =
        std::stoi(std::string(p + 2, 2), nullptr, 16);
  iconv_t cd = iconv_open(to_name, from_name);
  if (cd == reinterpret_cast<iconv_t>(-1)) GTEST_SKIP() << "iconv lacks " << from_name;
  unsigned char ours[256];
  for (int c = 0; c < 256; ++c)
    ours[c] = static_cast<unsigned char>(c);
  ASSERT_EQ(qz__charset_map(from, to, ours, 256), 0);
  for (int c = 0; c < 256; ++c) {
    char in = static_cast<char>(c), res[8], *ip = &in, *op = res;
    size_t il = 1, ol = sizeof res;
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    bool none = iconv(cd, &ip, &il, &op, &ol) == static_cast<size_t>(-1) || op - res != 1;
    int theirs = none ? -1 : static_cast<unsigned char>(res[0]);
    auto it = intended.find(c);
    EXPECT_EQ(ours[c], it == intended.end() ? theirs : it->second) << from_name << " " << c;
    if (it != intended.end()) {
      EXPECT_NE(theirs, it->second) << "listed, yet iconv agrees: " << c;
    }
  }
  iconv_close(cd);
}

TEST(Charset, Roman8ToLatin1AgreesWithIconvExceptWhereIntended) {
  // Acute and grave accents to ASCII; the accents, florin, S/s caron and Y diaeresis that
  // ISO 8859-1 lacks to C1 positions (so they survive a round trip); lira to pound (the
  // collision); the long dash to "-"; the rest to a space.
  expect_iconv_except(0, 1, "HP-ROMAN8", "ISO-8859-1",
                      "a020 a827 a960 aa88 ac98 afa3 be83 eb8a ec9a ee9f f62d fc20 ff20");
}

TEST(Charset, Latin1ToRoman8AgreesWithIconvExceptWhereIntended) {
  // The C1 positions back to their Roman-8 characters; codes no Roman-8 character maps
  // to give a space. Pound goes back to Roman-8 0xBB, as with iconv.
  expect_iconv_except(1, 0, "ISO-8859-1", "HP-ROMAN8",
                      "83be 88aa 8aeb 98ac 9aec 9fee a020 a620 a920 ac20 ad20 ae20 b220 b320 "
                      "b420 b820 b920 d720 f720");
}

TEST(Charset, LengthPairsAndNames) {
  unsigned char buf[] = {0xC8, 0xC8, 0xC8};
  EXPECT_EQ(qz__charset_map(0, 1, buf, 2), 0);  // only the first length bytes
  EXPECT_EQ(qz__charset_map(7, 7, buf, 3), 0);  // equal ids: nothing to do, whatever they are
  EXPECT_EQ(std::string(reinterpret_cast<char *>(buf), 3), "\xE0\xE0\xC8");
  for (const auto &pair : {std::pair{0, 2}, {2, 1}, {1, -1}, {-1, 0}}) {
    errno = 0;
    EXPECT_EQ(qz__charset_map(pair.first, pair.second, buf, 3), -1) << pair.first << pair.second;
    EXPECT_EQ(errno, EINVAL);
  }
  EXPECT_EQ(std::string(reinterpret_cast<char *>(buf), 3), "\xE0\xE0\xC8");
  // Every accepted name, in any case, with its id and short name; an unknown name or id has
  // none. Each id's short, long and old names.
  std::string names;
  for (const char *name : {"hp-roman8", "HPROMAN8", "Roman8", "iso8859/1", "Iso88591", "ISO8859-1",
                           "iso-8859-1", "latin1", "", "ROMAN8 "}) {
    const char *def = qz__charset_def_name(name);
    names += std::to_string(qz__charset(name)) + (def ? def : "-") + " ";
  }
  EXPECT_EQ(names, "0roman8 0roman8 0roman8 1iso88591 1iso88591 1iso88591 1iso88591 -1- -1- -1- ");
  names = "";
  for (int id : {0, 1, 2, -1})
    for (const char *name :
         {qz__charset_name(id), qz__charset_long_name(id), qz__charset_old_name(id)})
      names += std::string(name ? name : "-") + " ";
  EXPECT_EQ(names, "roman8 hp-roman8 HPROMAN8 iso88591 iso-8859-1 ISO8859/1 - - - - - - ");
}

// ---- The list ---------------------------------------------------------------------------

// The list walked forward and backward as its items' tags ("abc|cba"), then its count; "!"
// marks an item whose back link or list is wrong, "!last" a last item that is not the end.
std::string walk(const Llist &list) {
  std::string fwd = "|", back;
  Llist_Item *prev = nullptr;
  for (Llist_Item *i = list.first; i; prev = i, i = i->next)
    fwd.insert(fwd.size() - 1, 1,
               i->prev == prev && i->list == &list ? *static_cast<char *>(qz::llist_data(i)) : '!');
  for (Llist_Item *i = list.last; i; i = i->prev)
    back += *static_cast<char *>(qz::llist_data(i));
  return fwd + back + " " + std::to_string(list.count) + (list.last == prev ? "" : " !last");
}

// Steps: "aX" adds X, "iXY" inserts X before Y, "dY" deletes Y, "c" cleans up; then the list.
TEST(Llist, AddInsertDeleteAndCleanup) {
  Llist list;
  ASSERT_EQ(Llist_Init(&list), &list);
  std::map<char, void *> items;
  for (std::string step :
       {"aa a|a 1", "ab ab|ba 2", "ica cab|bac 3", "idb cadb|bdac 4", "ae cadbe|ebdac 5",
        "dc adbe|ebda 4", "dd abe|eba 3", "de ab|ba 2", "da b|b 1", "db | 0", "af f|f 1",
        "igf gf|fg 2", "c | 0", "c | 0", "ah h|h 1"}) {
    void *d = nullptr;
    if (step[0] == 'a') d = Llist_AddItem(&list, 1 + step[1] % 7);  // sizes vary
    if (step[0] == 'i') d = Llist_InsertItem(items[step[2]], 1);
    if (step[0] == 'd') Llist_DeleteItem(items[step[1]]);
    if (step[0] == 'c') Llist_Cleanup(&list);
    if (d) *static_cast<char *>(d) = step[1], items[step[1]] = d;
    EXPECT_EQ(walk(list), step.substr(step.find(' ') + 1)) << step;
  }
  EXPECT_EQ(static_cast<char *>(items['h']),
            reinterpret_cast<char *>(list.first) + 3 * sizeof(void *));
  EXPECT_EQ(qz::llist_item(items['h']), list.first);  // the handle lies right after the header
  Llist_Cleanup(&list);
  if (sizeof(size_t) == sizeof(unsigned)) {  // a header plus this size would wrap size_t
    EXPECT_EQ(Llist_AddItem(&list, ~0u), nullptr);
    EXPECT_EQ(walk(list), "| 0");
  }
}

}  // namespace
