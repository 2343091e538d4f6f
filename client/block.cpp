// The call block codec: an interpreter's writing of a call (header, descriptors, argument
// data at 8-byte aligned offsets) into bytes of the caller's, and the reading back of the
// variables the server changed, in either layout, through the wire offsets alone.
#include <algorithm>
#include <cstring>

#include "qzclient.hpp"

namespace qz::client {

namespace {

std::size_t align_up(std::size_t n, std::size_t a) {
  return (n + a - 1) / a * a;
}

// Bytes of one argument's data: its elements `step` apart, the last one whole.
std::size_t data_bytes(const Arg &a, std::size_t step) {
  std::size_t elem = a.type == kReal     ? wire::kRealSize
                     : a.type == kString ? 4 + static_cast<std::size_t>(a.maxlen)
                                         : 4;
  int n = a.elcnt();
  return n > 0 ? step * static_cast<std::size_t>(n - 1) + elem : elem;
}

int elsz_of(const Arg &a) {
  return a.elsz > 0 ? a.elsz : a.natural_elsz();
}

}  // namespace

const BlockLayout &block_layout(Layout l) {
  return l == Layout::bits64 ? wire::kLayout64 : wire::kLayout32;
}

BlockCodec::BlockCodec(std::span<unsigned char> bytes, Layout layout, std::uint64_t base)
    : bytes_(bytes),
      layout_(&block_layout(layout)),
      base_(layout_->wide ? base : base & 0xffffffffu) {}

std::int32_t BlockCodec::get32(std::size_t offset) const {
  return wire::get32(bytes_.data(), offset);
}

void BlockCodec::put32(std::size_t offset, std::int32_t v) {
  wire::put32(bytes_.data(), offset, v);
}

void BlockCodec::put_address(std::size_t offset, std::uint64_t address) {
  if (layout_->addr_size == 8)
    std::memcpy(bytes_.data() + offset, &address, 8);
  else
    put32(offset, static_cast<std::int32_t>(static_cast<std::uint32_t>(address)));
}

void BlockCodec::write_header(std::int32_t pid, std::uint64_t scratch) {
  const BlockLayout &l = *layout_;
  std::memset(bytes_.data(), 0, l.args);
  std::memcpy(bytes_.data(), wire::kMagic, sizeof wire::kMagic);
  put32(8, static_cast<std::int32_t>(wire::kVersion));
  put32(l.pid, pid);
  put_address(l.base, base_);
  put32(l.shmsz, static_cast<std::int32_t>(bytes_.size()));
  put_address(l.scratch, scratch);
}

void BlockCodec::write_descriptor(int i, int type, int byref, std::uint64_t ptr, int maxlen,
                                  int elsz, int elcnt) {
  const BlockLayout &l = *layout_;
  std::size_t d = l.args + l.arg_size * static_cast<std::size_t>(i);
  if (l.addr_size == 8) std::memset(bytes_.data() + d, 0, l.arg_size);  // the filler too
  put32(d + l.a_type, type);
  put32(d + l.a_byref, byref);
  put_address(d + l.a_ptr, ptr);
  put32(d + l.a_maxlen, maxlen);
  put32(d + l.a_elsz, elsz);
  put32(d + l.a_elcnt, elcnt);
}

bool BlockCodec::write_call(std::string_view name, std::span<const Arg> args, std::string &error) {
  const BlockLayout &l = *layout_;
  std::size_t argc = args.size() + 1;
  std::size_t at = align_up(l.args + l.arg_size * argc, 8);
  if (at + 4 + name.size() > bytes_.size()) {
    error = "call does not fit the " + std::to_string(bytes_.size()) + "-byte segment";
    return false;
  }
  arg_data_.assign(argc, 0);
  // Argument 0: the function name.
  arg_data_[0] = at;
  put32(at, static_cast<std::int32_t>(name.size()));
  std::memcpy(bytes_.data() + at + 4, name.data(), name.size());
  write_descriptor(0, kString, 0, address_of(at), static_cast<int>(name.size()),
                   static_cast<int>((4 + name.size() + 3) / 4), 1);
  at = align_up(at + 4 + name.size(), 8);
  for (std::size_t i = 0; i < args.size(); ++i) {
    const Arg &a = args[i];
    std::size_t step = 4 * static_cast<std::size_t>(elsz_of(a));
    std::size_t bytes = data_bytes(a, step);
    if (at + bytes > bytes_.size()) {
      error = "argument " + std::to_string(i + 1) + " does not fit the segment";
      return false;
    }
    arg_data_[i + 1] = at;
    std::memset(bytes_.data() + at, 0, bytes);
    for (std::size_t k = 0; k < static_cast<std::size_t>(a.elcnt()); ++k) {
      unsigned char *e = bytes_.data() + at + step * k;
      if (a.type == kInteger) {
        wire::put32(e, 0, a.ints[k]);
      } else if (a.type == kReal) {
        std::memcpy(e, a.reals[k].bytes, wire::kRealSize);
      } else if (a.type == kString) {
        std::size_t len = std::min(a.strings[k].size(), static_cast<std::size_t>(a.maxlen));
        wire::put32(e, 0, static_cast<std::int32_t>(len));
        std::memcpy(e + 4, a.strings[k].data(), len);
      }
    }
    write_descriptor(static_cast<int>(i + 1), a.type, a.byref ? 1 : 0, address_of(at), a.maxlen,
                     elsz_of(a), a.elcnt());
    at = align_up(at + bytes, 8);
  }
  put32(l.argc, static_cast<std::int32_t>(argc));
  return true;
}

void BlockCodec::read_back(std::span<Arg> args) const {
  const BlockLayout &l = *layout_;
  for (std::size_t i = 0; i < args.size() && i + 1 < arg_data_.size(); ++i) {
    Arg &a = args[i];
    bool still = get32(l.args + l.arg_size * (i + 1) + l.a_byref) != 0;
    a.unref = a.byref && !still;
    if (!a.byref || !still) continue;
    std::size_t step = 4 * static_cast<std::size_t>(elsz_of(a));
    for (std::size_t k = 0; k < static_cast<std::size_t>(a.elcnt()); ++k) {
      const unsigned char *e = bytes_.data() + arg_data_[i + 1] + step * k;
      if (a.type == kInteger) {
        a.ints[k] = wire::get32(e, 0);
      } else if (a.type == kReal) {
        std::memcpy(a.reals[k].bytes, e, wire::kRealSize);
      } else if (a.type == kString) {
        std::int32_t len = std::clamp(wire::get32(e, 0), 0, a.maxlen);
        a.strings[k].assign(reinterpret_cast<const char *>(e + 4), static_cast<std::size_t>(len));
      }
    }
  }
}

}  // namespace qz::client
