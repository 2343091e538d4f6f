// libqzclient: the interpreter's side of the call protocol. It creates the shared-memory
// segment, starts a server on it, lays out each call's arguments in either call-block
// layout, signals the server and waits for the answer (serving callbacks meanwhile), and
// stops the server. Every failure comes back as an error value with a message.
//
// Threads and signals: the server answers with SIGUSR2 sent to this process. Block
// SIGUSR2 in every thread before starting threads (qz::client::block_call_signal() in
// main), so that it can only be taken by the thread that waits for it; one call may be in
// progress per process at a time.
#pragma once

#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "qzwire.hpp"

namespace qz::client {

enum class Layout { bits32, bits64 };

inline constexpr int kInteger = wire::kInteger;  // interpreter types, as in the call block
inline constexpr int kReal = wire::kReal;
inline constexpr int kString = wire::kString;

// An interpreter real: the 12-byte decimal record, as bytes.
struct Decimal {
  unsigned char bytes[12];
  static Decimal from_double(double d);  // 15 significant digits, as the server converts
  double to_double() const;              // rounded to 14 significant digits first
};

// One argument of a call: a scalar or an array of one interpreter type, by value or as a
// variable (byref). After a call, the values of an argument whose byref the server left
// set are read back into it; `unref` tells that the server cleared byref.
struct Arg {
  int type = kInteger;               // kInteger, kReal or kString
  bool byref = false;                // a variable: the data is copied back after the call
  int maxlen = 0;                    // strings: capacity of each element
  int elsz = 0;                      // element distance in 4-byte units; 0: the natural one
  std::vector<std::int32_t> ints;    // kInteger elements
  std::vector<Decimal> reals;        // kReal elements
  std::vector<std::string> strings;  // kString elements
  bool unref = false;                // after the call: the server cleared byref

  static Arg integer(std::int32_t v);
  static Arg int_var(std::int32_t v = 0);
  static Arg int_array(std::vector<std::int32_t> v, bool byref = true);
  static Arg real(const Decimal &d);
  static Arg real_var(const Decimal &d);
  static Arg real_array(std::vector<Decimal> v, bool byref = true);
  // Reals from doubles, through the decimal library's conversion (15 significant digits).
  static Arg real(double d);
  static Arg real_var(double d);
  static Arg real_array(const std::vector<double> &v, bool byref = true);
  static Arg string(std::string_view s);  // capacity = its length
  static Arg string_var(std::string_view s, int capacity);
  static Arg string_array(std::vector<std::string> v, int capacity, bool byref = true);

  int elcnt() const;         // number of elements
  int natural_elsz() const;  // 4-byte units one element needs
  std::int32_t as_int() const { return ints.at(0); }
  double as_double(std::size_t k = 0) const;  // element k of a real, as a double
  const std::string &as_string() const { return strings.at(0); }
};

struct ExitInfo {
  bool running = true;  // not yet reaped
  bool exited = false;  // ended by exit; `code` holds its status
  int code = 0;         // exit status
  int signal = 0;       // terminating signal when not exited
  std::string describe() const;
};

struct CallResult {
  enum class Kind { answered, server_died, timeout, failed };
  Kind kind = Kind::failed;
  int status = 0;         // the call's status, when answered
  std::string error;      // what went wrong otherwise
  std::vector<Arg> args;  // the arguments after the call (call with a list only)
  bool ok() const { return kind == Kind::answered; }
};

struct Options {
  std::string server;                 // path of the server program
  std::vector<std::string> launcher;  // programs put before it, e.g. {"qemu-i386"}
  Layout layout = sizeof(void *) == 8 ? Layout::bits64 : Layout::bits32;
  std::string suffix = "auto";  // after the id: "auto" (none or ":64"), "", ":32", ...
  // If set, the exact arguments instead of ID[suffix]; "{id}" in them becomes the id.
  std::optional<std::vector<std::string>> argv;
  std::size_t segment_size = 1 << 20;  // bytes
  int permissions = 0600;  // of the segment: the owner's; a site may let its group in (0660)
  std::chrono::milliseconds timeout{30000};  // per call
  bool capture_stderr = true;                // false: the server writes to our standard error
  std::uint64_t base = 0;                    // interpreter base address to announce; 0: real one
  std::uint64_t scratch = 0;                 // interpreter address of a scratch area, 0: none
  // Called with the block after its header is filled, before the server starts.
  std::function<void(unsigned char *block)> before_spawn;
};

// Blocks SIGUSR2 in the calling thread (threads created afterwards inherit it).
void block_call_signal();

// Offsets of the call block fields in one layout (the wire format).
using BlockLayout = wire::Layout;
const BlockLayout &block_layout(Layout l);

// The call block of one layout over bytes of the caller's: what an interpreter writes into
// it (header, descriptors, the arguments of a call) and reads back (statuses, variables).
// Interpreter addresses are `base` plus the offset in the bytes.
class BlockCodec {
 public:
  BlockCodec() = default;
  BlockCodec(std::span<unsigned char> bytes, Layout layout, std::uint64_t base);

  const BlockLayout &layout() const { return *layout_; }
  unsigned char *data() const { return bytes_.data(); }
  std::size_t size() const { return bytes_.size(); }
  std::uint64_t address_of(std::size_t offset) const { return base_ + offset; }
  std::int32_t get32(std::size_t offset) const;
  void put32(std::size_t offset, std::int32_t v);
  void put_address(std::size_t offset, std::uint64_t address);

  // Magic, version, the interpreter's pid, base address, size and scratch address.
  void write_header(std::int32_t pid, std::uint64_t scratch);
  void write_descriptor(int i, int type, int byref, std::uint64_t ptr, int maxlen, int elsz,
                        int elcnt);
  // Lays out the name and the arguments and sets argc. False, with `error` saying why, when
  // they do not fit.
  bool write_call(std::string_view name, std::span<const Arg> args, std::string &error);
  // Reads the variables of the last call back into `args`; sets each argument's unref.
  void read_back(std::span<Arg> args) const;

 private:
  std::span<unsigned char> bytes_;
  const BlockLayout *layout_ = nullptr;
  std::uint64_t base_ = 0;
  std::vector<std::size_t> arg_data_;  // offset of each argument's data in the last call
};

class Session {
 public:
  Session() = default;
  ~Session();
  Session(const Session &) = delete;
  Session &operator=(const Session &) = delete;

  // Creates the segment, fills its header and starts the server. False: see error().
  bool start(const Options &options);
  const std::string &error() const { return error_; }

  // Writes the call into the block, signals and waits; by-reference values are read
  // back into `args` (or into the result's copy for the list form).
  CallResult call(std::string_view name, std::span<Arg> args);
  CallResult call(std::string_view name, std::initializer_list<Arg> args);

  // Answers to callback requests arrive here; without a handler the answer is 0.
  void on_callback(std::function<int(int code)> handler) { callback_ = std::move(handler); }

  // Sends an empty call (no descriptors, status 9) and waits for it: the server is then
  // past start-up and waiting.
  bool ping();

  // For a signal handler (async-signal-safe): asks the server to stop the call in progress,
  // which then returns as it will (SIGURG; qzodbc cancels the statement in the driver); a
  // second time during the same call ends the server (SIGTERM), and the call then reports
  // that the server died. False when no call is in progress.
  bool interrupt_call();

  // Stops the server and starts a new one on a new segment, with the same options.
  bool restart();

  // SIGTERM, reap (SIGKILL after the timeout), detach and remove the segment.
  ExitInfo stop();
  // Waits until the server ends by itself, up to the timeout.
  ExitInfo wait_exit(std::chrono::milliseconds timeout);
  ExitInfo exit_info();             // reaps without waiting
  std::string stderr_text() const;  // everything the server wrote to standard error
  int pid() const { return pid_; }
  int shm_id() const { return shm_id_; }
  bool running();

  // Low level, for tests and tools that lay out a block themselves: the segment's codec.
  BlockCodec &codec() { return codec_; }
  unsigned char *block() const { return codec_.data(); }
  std::size_t block_size() const { return codec_.size(); }
  const BlockLayout &layout() const { return block_layout(options_.layout); }
  std::uint64_t address_of(std::size_t offset) const { return codec_.address_of(offset); }
  std::int32_t get32(std::size_t offset) const { return codec_.get32(offset); }
  void put32(std::size_t offset, std::int32_t v) { codec_.put32(offset, v); }
  void put_address(std::size_t offset, std::uint64_t a) { codec_.put_address(offset, a); }
  // Lays out name and arguments; false (see error()) when they do not fit the segment.
  bool write_call(std::string_view name, std::span<const Arg> args) {
    return codec_.write_call(name, args, error_);
  }
  // Signals the server and waits for its answer; the block is left as it is.
  CallResult raw_call();

 private:
  bool create_segment();
  bool spawn_server();
  CallResult wait_answer();
  CallResult died(const std::string &what);

  Options options_;
  std::string error_;
  int pid_ = -1;
  int shm_id_ = -1;
  bool segment_released_ = false;  // marked for removal once the server is attached
  BlockCodec codec_;               // over the attached segment; empty while there is none
  int stderr_fd_ = -1;
  ExitInfo exit_;
  std::function<int(int)> callback_;
  volatile std::sig_atomic_t calling_ = 0;     // a call waits for its answer
  volatile std::sig_atomic_t interrupts_ = 0;  // interrupt_call during that call
};

// ---- packed rows ------------------------------------------------------------------
// Fetch returns a row as entries followed by one '$':
//   'N' or 'X', name, '~', number, '~', value length, '~', exactly that many value bytes
// The value is taken by its length, never scanned, so it may hold any byte ('~' and '$'
// included).

struct PackedEntry {
  bool numeric = false;     // lead byte 'N' (a number's text) rather than 'X' (text)
  std::string name;         // bytes between the lead byte and the first '~'
  std::int32_t number = 0;  // the number field
  std::string value;        // the value bytes
};

struct PackedRow {
  std::vector<PackedEntry> entries;  // the entries read, in order
  std::string error;                 // empty for a well-formed row; else what is wrong
  std::size_t error_offset = 0;      // where the malformed part starts
  bool ok() const { return error.empty(); }
};

// Splits a packed row. Malformed input (a bad lead byte, a number that is not a signed
// 32-bit decimal, a length past the end, a missing terminator or bytes after it) gives an
// error; the entries before the fault are kept (a row cut short by a full buffer thus
// reads as its complete entries plus the error "no terminator").
PackedRow read_packed_row(std::string_view text);

}  // namespace qz::client
