// What the call host offers a function set, and what a function set must provide.
// A function set (the ODBC bridge, the test set) includes this header, declares its
// functions once with qzfuncs.hpp, and is linked with the static library qzhost.
#pragma once

#include <csignal>
#include <cstddef>

// ---- provided by the function set -------------------------------------------------

// One row of the function table: a callable function and where its prototypes are.
struct QzFuncDesc {
  const char *name;  // name the interpreter calls; null in the terminating row
  int first_arg;     // index in QzArgList of the first prototype
  int arg_cnt;       // number of prototypes
};

// One argument prototype.
struct QzArgDesc {
  const char *name;  // argument name ("..." for VarArg); null in the terminating row
  int type;          // prototype type code, QzArgType
  int min_elcnt;     // least element count of an array argument (status 17 otherwise)
};

extern const QzFuncDesc *const QzFuncList;  // rows, then a row with a null name
extern const QzArgDesc *const QzArgList;    // prototypes, then an all-zero row
int QzCall(int index, void **av);           // calls row `index`; -1 for an unknown row
void dll_setup();                           // once, after the block was validated
void dll_cleanup();                         // on SIGTERM; safe at any moment
// On SIGURG during a call, in the signal handler: stop what the call waits for, if it can
// (an ODBC set cancels the statement in the driver); the call then returns as it will.
void dll_interrupt();

// ---- provided by the host ---------------------------------------------------------

// Prototype type codes.
enum QzArgType {
  VarArg = 0,
  IntByValue = 1,
  IntByReference = 2,
  IntArray = 3,
  RealByValue = 4,
  RealByReference = 5,
  RealArray = 6,
  zString = 7,
  String = 8,
  StringArray = 9,
};

// Type code / name pairs for the trace, ended by code -1 named "Unknown".
struct QzArgTypeName {
  int type;          // prototype type code, -1 in the terminating row
  const char *name;  // its name
};
inline constexpr QzArgTypeName QzArgTypeNames[] = {
    {VarArg, "VarArg"},
    {IntByValue, "IntByValue"},
    {IntByReference, "IntByReference"},
    {IntArray, "IntArray"},
    {RealByValue, "RealByValue"},
    {RealByReference, "RealByReference"},
    {RealArray, "RealArray"},
    {zString, "zString"},
    {String, "String"},
    {StringArray, "StringArray"},
    {-1, "Unknown"},
};

// An interpreter string: capacity, current length, and the bytes (no terminator).
struct QzStr {
  int maxlen;  // capacity in bytes
  int len;     // current length, 0 <= len <= maxlen
  char *text;  // first byte; not owned unless stated
};

extern int dll_debug;  // dispatcher trace level; set by the function set (DllDebug)

// 1 while a call runs (between the arrival of SIGUSR2 and the status being stored). A
// SIGTERM that arrives then interrupts arbitrary code, possibly inside malloc or a
// driver holding a lock: dll_cleanup must then release only what is safe to release.
extern volatile std::sig_atomic_t dll_in_call;

// Every allocation on the call path goes through dll_alloc (a malloc that a test can
// make fail): dll_alloc_fail_at(n) makes the n-th allocation from now return null once.
void *dll_alloc(std::size_t size);
void dll_alloc_fail_at(int n);

// Address, in the server's mapping, of the interpreter's scratch area when it exists
// and holds at least `size` bytes up to the end of the segment; null otherwise.
void *dll_scratch(int size);

// Sends request `code` to the interpreter and returns its answer. Only inside a call.
int dll_callback(int code);

// Calls in this process, without a server process (benchmarks): makes `block` (`size`
// bytes in the layout of `bits`, 32 or 64) the call block, as start-up makes the attached
// segment; dll_main then carries out the call the block describes and returns its status.
void dll_use_block(unsigned char *block, std::size_t size, int bits);
int dll_main();

// Introspection during a call.
struct QzFuncInfoRec {
  const char *name;  // name of the function being called
  int arg_cnt;       // number of arguments of the call, the name not counted
};
struct QzArgInfoRec {
  int type;          // resolved prototype type code
  const char *name;  // prototype name
  int elcnt;         // element count of the argument
};
QzFuncInfoRec *QzFuncInfo();
// `p` is a slot value the function received, or a 0-based position cast to a pointer.
QzArgInfoRec *QzArgInfo(const void *p);

// Operations on interpreter strings. Bytes are compared and copied as they are (no
// terminator, no character set conversion); the storing ones return 0, or 18 when the
// result does not fit the target's capacity, which then stays unchanged.
int QzStrlen(const QzStr *s);     // len
int QzMaxStrlen(const QzStr *s);  // maxlen
// A view of n bytes of s from the 1-based position pos (fewer at the end of s), or null
// for pos outside 1..len or a negative n. The record is static: the next QzSubstr
// overwrites it; the bytes are s's own.
QzStr *QzSubstr(const QzStr *s, int pos, int n);
// Copies s's bytes up to its len or its first NUL into buf and terminates them; returns
// the number copied. buf must hold len + 1 bytes.
int QzStr2str(const QzStr *s, char *buf);
// A descriptor of capacity `size`, length 0, over a new buffer, or null when none can be
// had. The record is static (the next QzMkstr overwrites it); the buffer is the caller's,
// who frees it with free().
QzStr *QzMkstr(int size);
int str2QzStr(const char *src, QzStr *s);    // stores NUL-terminated src into s
int QzStrcpy(QzStr *dst, const QzStr *src);  // dst = src
int QzStrcat(QzStr *dst, const QzStr *src);  // dst += src
// -1 or 1 at the first differing byte (unsigned), else len of a minus len of b.
int QzStrcmp(const QzStr *a, const QzStr *b);
