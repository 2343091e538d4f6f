// What the call host's own files share and nothing else includes: the process-wide
// variables set at start-up, the unpacked argument descriptor, the call-block accessors.
#pragma once

#include <cstdint>

#include "qzassert.hpp"
#include "qzhost.hpp"
#include "qzstatus.hpp"
#include "qzwire.hpp"

inline constexpr int DLL_INTEGER = qz::wire::kInteger;
inline constexpr int DLL_REAL = qz::wire::kReal;
inline constexpr int DLL_STRING = qz::wire::kString;

// One argument descriptor, unpacked from either layout.
struct t_DLL_ARG {
  int type;            // DLL_INTEGER, DLL_REAL, DLL_STRING; 0 for a missing argument
  int byref;           // non-zero: the interpreter copies the data back after the call
  unsigned char *ptr;  // the data, in the server's mapping of the segment
  int maxlen;          // strings: capacity of each element in bytes
  int elsz;            // distance between elements in units of 4 bytes
  int elcnt;           // number of elements, 1 for a scalar
};

extern int shm_id;               // shared-memory identifier from the command line
extern void *shm_addr;           // what shmat returned; detached at exit
extern unsigned char *dll_info;  // the call block (same address)
extern int dll_compat;           // 0: 32-bit layout, 64: 64-bit layout

unsigned char *u_get_baseptr();
int u_get_argc();
t_DLL_ARG u_get_arg(int i);
int u_unref_arg(int i);

extern "C" void signal_handler(int sig);

namespace qz {

// The layout in force.
const wire::Layout &layout();

// Size the segment really has (from the kernel); the header's shmsz is not trusted
// beyond it.
extern std::int64_t segment_size;

// Sends SIGUSR2 to the interpreter named in the block; if the signal cannot be sent,
// raises SIGTERM instead, which ends this process.
void signal_interpreter();

}  // namespace qz
