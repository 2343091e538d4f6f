// The log's process-wide state, its flag parser, the line writer for streams and the
// system log, and the hexadecimal dump. Nothing on the message path allocates: messages
// are formatted into one static buffer and the time text into a stack buffer.
#include <syslog.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "qzlog.hpp"

namespace qz {

signed char log_flags[26];  // all 0 at start: only levels 0 and 9 are written

namespace {

FILE *log_fp = nullptr;                          // the log stream; null means the system log
int log_flags_set = 0;                           // calls that set the flags
int log_file_set = 0;                            // calls that set the stream
int log_file_std = 0;                            // 1 when log_fp is stdout or stderr
int log_file_tty = 0;                            // 1 for the short line form
char *log_timefmt = nullptr;                     // owned time format, null for def_timefmt
const char def_timefmt[] = "%Y-%m-%d %H:%M:%S";  // the default time format

// A formatted message longer than 1023 characters is cut to its first 1023 characters
// (vsnprintf stops there); the rest is dropped without a mark.
char tmp_msg[1024];  // the message being written; shared by all messages

constexpr std::size_t kTimeTextSize = 65;  // at most 64 characters and the terminator

// The time text of this moment in the current format. When the text would not fit in 64
// characters strftime fails and leaves the buffer undefined; the line then gets an empty
// time text rather than whatever strftime left behind.
void time_text(char (&buf)[kTimeTextSize]) {
  std::time_t now = std::time(nullptr);
  struct tm tm;
  if (localtime_r(&now, &tm) == nullptr ||
      std::strftime(buf, sizeof buf, log_timefmt ? log_timefmt : def_timefmt, &tm) == 0) {
    buf[0] = '\0';
  }
}

int is_std_stream(FILE *stream) {
  return stream == stdout || stream == stderr ? 1 : 0;
}

int syslog_priority(int level) {
  switch (level) {
    case 0:
      return LOG_ERR;
    case 1:
      return LOG_NOTICE;
    case 9:
      return LOG_WARNING;
    default:
      return LOG_DEBUG;
  }
}

// Writes one formatted message. The system log never sees the leading newline, and gets
// the message as an argument of "%s" so that "%" in it is never read as a conversion.
void log_string(int letter, int level, const char *msg) {
  bool newline = msg[0] == '\n';
  if (newline) ++msg;
  if (log_fp == nullptr) {
    syslog(syslog_priority(level), "%s", msg);
    return;
  }
  if (newline) std::fputc('\n', log_fp);
  int shown = level == 9 ? 0 : level;
  if (log_file_tty) {
    std::fprintf(log_fp, "%c%d: %s\n", letter, shown, msg);
  } else {
    char when[kTimeTextSize];
    time_text(when);
    std::fprintf(log_fp, "%s (%5d) %c%d: %s\n", when, static_cast<int>(getpid()), letter, shown,
                 msg);
  }
  std::fflush(log_fp);
}

// One dump line per 16 bytes of [start, end): offset, bytes in hexadecimal, then the bytes
// as characters with "." for anything outside 0x20..0x7E; short lines are padded.
void dump_block(const unsigned char *buf, unsigned end, unsigned start) {
  for (unsigned o = start; o < end; o += 16) {
    unsigned n = end - o < 16 ? end - o : 16;
    std::fprintf(log_fp, "%03x:", o);
    for (unsigned i = 0; i < n; ++i)
      std::fprintf(log_fp, " %02x", buf[o + i]);
    for (unsigned i = n; i < 16; ++i)
      std::fputs("   ", log_fp);
    std::fputs(" |", log_fp);
    for (unsigned i = 0; i < n; ++i) {
      unsigned char c = buf[o + i];
      std::fputc(c >= 0x20 && c <= 0x7E ? c : '.', log_fp);
    }
    for (unsigned i = n; i < 16; ++i)
      std::fputc(' ', log_fp);
    std::fputs("|\n", log_fp);
  }
}

}  // namespace
}  // namespace qz

using namespace qz;

// The out-of-line copy of the inline flag test, for callers that take its address.
[[gnu::used]] static int (*const keep_is_log)(int, int) = &qz__IsLog;

void qz__Logv(int letter, int level, const char *format, va_list args) {
  if (!qz__IsLog(letter, level)) return;
  std::vsnprintf(tmp_msg, sizeof tmp_msg, format, args);
  log_string(letter, level, tmp_msg);
}

void qz__Log(int letter, int level, const char *format, ...) {
  if (!qz__IsLog(letter, level)) return;
  va_list args;
  va_start(args, format);
  std::vsnprintf(tmp_msg, sizeof tmp_msg, format, args);
  va_end(args);
  log_string(letter, level, tmp_msg);
}

void qz__Log_SysErr(int letter, int level, int errnum, const char *text) {
  if (!qz__IsLog(letter, level)) return;
  // strerrordesc_np, unlike strerror, tells an unknown number apart (null) and only reads
  // a constant table, which suits a signal handler.
  const char *desc = strerrordesc_np(errnum);
  if (desc == nullptr) desc = "No associated message text";
  std::snprintf(tmp_msg, sizeof tmp_msg, "%s: %s (errno %d)", text, desc, errnum);
  log_string(letter, level, tmp_msg);
}

void qz__Log_Dump(const char *title, const void *buffer, unsigned length) {
  if (log_fp == nullptr) return;
  const auto *buf = static_cast<const unsigned char *>(buffer);
  if (log_file_tty) {
    std::fprintf(log_fp, "%s: buffer contains %u bytes of data\n", title, length);
  } else {
    char when[kTimeTextSize];
    time_text(when);
    std::fprintf(log_fp, "%s (%5d) %s\n", when, static_cast<int>(getpid()), title);
    std::fprintf(log_fp, "buffer contains %u bytes of data\n", length);
  }
  if (length >= 1024) {
    dump_block(buf, 256, 0);
    std::fputs("... skipped ...\n", log_fp);
    dump_block(buf, length, (length - 256) & ~15u);
  } else {
    dump_block(buf, length, 0);
  }
  std::fflush(log_fp);
}

void qz__Log_SetFlags2(const char *flags, int announce) {
  ++log_flags_set;
  std::memset(log_flags, 0, sizeof log_flags);
  const char *p = flags;
  while (*p != '\0') {
    char c = *p++;
    signed char n = 1;
    if (std::isdigit(static_cast<unsigned char>(*p))) {
      char *end = nullptr;
      // Only the low 8 bits are kept: "200" becomes -56, which disables the letter.
      n = static_cast<signed char>(std::strtol(p, &end, 10));
      p = end;
    }
    if (c >= 'A' && c <= 'Z') {
      log_flags[c - 'A'] = n;
    } else if (c == '*') {
      std::memset(log_flags, static_cast<unsigned char>(n), sizeof log_flags);
    }
  }
  if (announce && flags[0] != '\0' && log_fp != nullptr && !log_file_std) {
    char when[kTimeTextSize];
    time_text(when);
    std::fprintf(log_fp, "\n** %s", when);
    std::fprintf(log_fp, "   Flags = [%s]\n\n", flags);
    std::fflush(log_fp);
  }
}

void qz__Log_SetFlags(const char *flags) {
  qz__Log_SetFlags2(flags, 1);
}

void qz__Log_SetDefaultFlags(const char *flags) {
  if (log_flags_set == 0) qz__Log_SetFlags(flags);
}

void qz__Log_SetFile(FILE *stream) {
  ++log_file_set;
  if (stream == log_fp) return;
  if (log_fp != nullptr && !log_file_std) std::fclose(log_fp);
  log_file_std = is_std_stream(stream);
  log_file_tty = log_file_std && isatty(fileno(stream)) ? 1 : 0;
  log_fp = stream;
}

void qz__Log_SetDefaultFile(FILE *stream) {
  if (log_file_set == 0) qz__Log_SetFile(stream);
}

void qz__Log_SetFileFlags(const char *flags, FILE *stream) {
  qz__Log_SetFile(stream);
  qz__Log_SetFlags(flags);
}

void qz__Log_set_fp(FILE *stream, int short_form) {
  ++log_file_set;
  log_file_std = is_std_stream(stream);
  log_fp = stream;
  log_file_tty = short_form;
}

FILE *qz__Log_get_fp() {
  return log_fp;
}

void qz__Log_set_timefmt(const char *format) {
  if (format == nullptr) {
    std::free(log_timefmt);
    log_timefmt = nullptr;
    return;
  }
  char *copy = strdup(format);
  if (copy == nullptr) return;
  std::free(log_timefmt);
  log_timefmt = copy;
}

void qz__Log_AggBegin() {}
void qz__Log_AggEnd() {}

const char *extract_filename(const char *path) {
  const char *slash = std::strrchr(path, '/');
  return slash ? slash + 1 : path;
}
