// The process-wide log: messages with a category letter and a level, written to a chosen
// stream (long or short line form) or to the system log, hexadecimal dumps, errno texts.
// Not reentrant: the server calls it from its signal handler, one call at a time.
#pragma once

#include <cstdarg>
#include <cstdio>

namespace qz {

// Per letter "A".."Z": the highest level written, read as a signed 8-bit value. Only the
// flag setters below write it; it is declared here so that the flag test can be inlined.
extern signed char log_flags[26];

}  // namespace qz

// 1 when a message of this letter and level would be written, else 0. Letters outside
// "A".."Z" are never logged; level 9 counts as level 0. Inline so that a disabled log call
// costs a compare on the caller's path; the library also carries an out-of-line copy.
inline int qz__IsLog(int letter, int level) {
  unsigned idx = static_cast<unsigned>(letter - 'A');
  if (idx >= 26u) return 0;
  return qz::log_flags[idx] >= (level == 9 ? 0 : level) ? 1 : 0;
}

// A printf-style message, written only when qz__IsLog (letter, level). A message is cut
// to its first 1023 characters.
void qz__Log(int letter, int level, const char *format, ...) __attribute__((format(printf, 3, 4)));
void qz__Logv(int letter, int level, const char *format, va_list args)
    __attribute__((format(printf, 3, 0)));

// The message "<text>: <description of errnum> (errno <errnum>)"; "No associated message
// text" stands for the description of a number the system does not know.
void qz__Log_SysErr(int letter, int level, int errnum, const char *text);

// Hexadecimal dump of length bytes at buffer, to the log stream only (never to the system
// log) and regardless of the flags. From 1024 bytes on, only the first 256 bytes and the
// last 256 (from a 16-byte boundary) are shown.
void qz__Log_Dump(const char *title, const void *buffer, unsigned length);

// Flag strings: a letter or "*" followed by an optional decimal level (default 1), e.g.
// "*1O3". SetFlags2 replaces all flags and, with announce set, writes the flags header to
// a log file (not to a standard stream, not for an empty string). SetFlags announces.
void qz__Log_SetFlags(const char *flags);
void qz__Log_SetFlags2(const char *flags, int announce);
void qz__Log_SetDefaultFlags(const char *flags);  // only while the flags were never set

// Streams: the log owns a file stream handed to it and closes it when another stream is
// chosen; stdout and stderr are never closed. A null stream selects the system log.
void qz__Log_SetFile(FILE *stream);
void qz__Log_SetDefaultFile(FILE *stream);                   // only while the stream was never set
void qz__Log_SetFileFlags(const char *flags, FILE *stream);  // SetFile, then SetFlags

// Sets the stream and the short-form flag as given, closing nothing.
void qz__Log_set_fp(FILE *stream, int short_form);
FILE *qz__Log_get_fp();  // the log stream, null while the system log is used

// Replaces the strftime format of the time text (a copy is kept); null restores
// "%Y-%m-%d %H:%M:%S". If the copy cannot be made the old format stays.
void qz__Log_set_timefmt(const char *format);

void qz__Log_AggBegin();  // entry points without effect
void qz__Log_AggEnd();

// The part of path after its last "/" (a pointer into path), or path itself.
const char *extract_filename(const char *path);
