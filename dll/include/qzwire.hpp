// The call block as a wire format: byte offsets of the header and descriptor fields in
// the 32-bit and 64-bit layouts, and the protocol constants. Shared by the server and
// libqzclient; both read and write the block only through these offsets (memcpy).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace qz::wire {

inline constexpr char kMagic[8] = {'Q', 'Z', '.', 'D', 'L', 'L', '\0', '\0'};
inline constexpr std::uint32_t kVersion = 0x101;

inline constexpr int kInteger = 1;  // DLL_INTEGER: signed 32-bit
inline constexpr int kReal = 2;     // DLL_REAL: 12-byte decimal record
inline constexpr int kString = 3;   // DLL_STRING: 32-bit length, then the characters

inline constexpr std::size_t kRealSize = 12;  // bytes of one decimal record

// Offsets of one layout. Addresses are 4 bytes wide in the 32-bit layout and 8 in the
// 64-bit one; the server uses only their low 4 bytes.
struct Layout {
  bool wide;              // true for the 64-bit layout
  std::size_t pid;        // interpreter's process id
  std::size_t base;       // interpreter address of the segment
  std::size_t status;     // call status / callback answer
  std::size_t shmsz;      // segment size in bytes
  std::size_t scratch;    // interpreter address of the scratch area, 0 for none
  std::size_t callback;   // callback request code written by the server
  std::size_t argc;       // number of descriptors, the function name included
  std::size_t args;       // first descriptor
  std::size_t arg_size;   // bytes per descriptor
  std::size_t addr_size;  // bytes of an address field (base, scratch, ptr)
  // descriptor fields, relative to the descriptor
  std::size_t a_type, a_byref, a_ptr, a_maxlen, a_elsz, a_elcnt;
};

inline constexpr Layout kLayout32{false, 12, 16, 20, 24, 28, 32, 36, 40,
                                  24,    4,  0,  4,  8,  12, 16, 20};
inline constexpr Layout kLayout64{true, 12, 16, 24, 28, 32, 40, 44, 48, 32, 8, 0, 4, 8, 16, 20, 24};

inline std::int32_t get32(const void *base, std::size_t off) {
  std::int32_t v;
  std::memcpy(&v, static_cast<const unsigned char *>(base) + off, sizeof v);
  return v;
}
inline void put32(void *base, std::size_t off, std::int32_t v) {
  std::memcpy(static_cast<unsigned char *>(base) + off, &v, sizeof v);
}

}  // namespace qz::wire
