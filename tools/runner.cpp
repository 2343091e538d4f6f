// Executes a call script: builds the arguments of each call from literals and variables,
// makes the call, copies the variables back and reports status and changes.
#include "runner.hpp"

#include <algorithm>
#include <cstring>

#include "qzstatus.hpp"

namespace qz::call {

using client::Arg;
using client::CallResult;
using client::kInteger;
using client::kReal;
using client::kString;

namespace {

Arg to_arg(const Value &v, bool byref, int capacity) {
  Arg a;
  a.type = v.type;
  a.byref = byref;
  a.ints = v.ints;
  a.reals = v.reals;
  a.strings = v.strings;
  if (v.type == kString) {
    if (capacity < 0) {  // a literal: as long as its longest element
      capacity = 0;
      for (const std::string &s : v.strings)
        capacity = std::max(capacity, static_cast<int>(s.size()));
    }
    a.maxlen = capacity;
  }
  return a;
}

void from_arg(const Arg &a, Value &v) {
  v.ints = a.ints;
  v.reals = a.reals;
  v.strings = a.strings;
}

// Bytes one argument takes in the block, with its alignment.
std::size_t arg_bytes(const Value &v, int capacity) {
  std::size_t elem = v.type == kReal     ? 12
                     : v.type == kString ? 4 + static_cast<std::size_t>(capacity)
                                         : 4;
  return (elem + 3) / 4 * 4 * std::max<std::size_t>(v.count(), 1) + 8;
}

void print_packed(const std::string &text, std::FILE *out) {
  client::PackedRow row = client::read_packed_row(text);
  if (row.entries.empty()) return;  // not a packed row
  for (const client::PackedEntry &e : row.entries) {
    std::string num;  // built piece by piece: g++ 12 at -O3 warns falsely on "[" + string
    if (e.number) {
      num = "[";
      num += std::to_string(e.number);
      num += "]";
    }
    bool plain = e.numeric && !e.value.empty() &&
                 std::all_of(e.value.begin(), e.value.end(),
                             [](char c) { return c > 0x20 && c < 0x7f && c != '"'; });
    std::fprintf(out, "    %c %s%s = %s\n", e.numeric ? 'N' : 'X', e.name.c_str(), num.c_str(),
                 plain ? e.value.c_str() : quote(e.value).c_str());
  }
  if (!row.ok())
    std::fprintf(out, "    (not a complete packed row: %s at byte %zu)\n", row.error.c_str(),
                 row.error_offset);
}

}  // namespace

std::size_t segment_bytes(const Script &script) {
  std::size_t most = 0;
  for (const CallSpec &c : script.calls) {
    std::size_t n = 64 * (c.args.size() + 1) + c.name.size() + 16;
    for (const ArgSpec &a : c.args) {
      if (a.kind == ArgSpec::Kind::literal) {
        n += arg_bytes(a.literal, -1);
        for (const std::string &s : a.literal.strings)
          n += s.size() * a.literal.count();
      } else {
        const VarInfo &v = script.vars[static_cast<std::size_t>(a.var)];
        n += arg_bytes(v.initial, v.capacity);
      }
    }
    most = std::max(most, n);
  }
  return std::max<std::size_t>(1 << 20, most + 4096);
}

int run_script(client::Session &session, const Script &script, std::FILE *out) {
  std::vector<Value> vars;
  for (const VarInfo &v : script.vars)
    vars.push_back(v.initial);
  int failed = 0;
  for (const CallSpec &c : script.calls) {
    std::vector<Arg> args;
    for (const ArgSpec &a : c.args) {
      if (a.kind == ArgSpec::Kind::literal) {
        args.push_back(to_arg(a.literal, false, -1));
        continue;
      }
      std::size_t k = static_cast<std::size_t>(a.var);
      const VarInfo &info = script.vars[k];
      if (a.assign) {
        vars[k] = a.init;
        vars[k].array = info.array;
      }
      if (a.kind == ArgSpec::Kind::variable)
        args.push_back(to_arg(vars[k], true, info.capacity));
      else
        args.push_back(
            to_arg(vars[k], false, info.type == kString && !info.array ? -1 : info.capacity));
    }
    std::vector<Value> before = vars;
    CallResult r = session.call(c.name, std::span<Arg>(args));
    if (!r.ok()) {
      bool sent = r.kind != CallResult::Kind::failed;
      std::fprintf(out, "%s -> %s: %s\n", c.text.c_str(), sent ? "no answer" : "not sent",
                   r.error.c_str());
      std::fflush(out);
      ++failed;
      if (sent) {
        std::fprintf(stderr, "qzcall: line %d: the server gave no answer; the run stops here\n",
                     c.line);
        return 1;
      }
      continue;
    }
    std::string line = c.text + " -> " + std::to_string(r.status);
    if (const char *m = r.status ? status_meaning(r.status) : nullptr)
      line += std::string(" (") + m + ")";
    if (r.status != c.expect) {
      line += "; expected " + std::to_string(c.expect);
      ++failed;
    }
    std::fprintf(out, "%s\n", line.c_str());
    // Copy the variables back, then report each changed one once, in argument order.
    std::vector<int> shown;
    for (std::size_t i = 0; i < c.args.size(); ++i) {
      const ArgSpec &a = c.args[i];
      if (a.kind != ArgSpec::Kind::variable || args[i].unref) continue;
      from_arg(args[i], vars[static_cast<std::size_t>(a.var)]);
    }
    for (const ArgSpec &a : c.args) {
      std::size_t k = static_cast<std::size_t>(a.var);
      if (a.kind != ArgSpec::Kind::variable ||
          std::find(shown.begin(), shown.end(), a.var) != shown.end() || vars[k] == before[k])
        continue;
      shown.push_back(a.var);
      std::fprintf(out, "  $%s = %s\n", script.vars[k].name.c_str(), format_value(vars[k]).c_str());
      if (vars[k].type == kString && !vars[k].array) print_packed(vars[k].strings[0], out);
    }
    std::fflush(out);
  }
  if (failed)
    std::fprintf(stderr, "qzcall: %d of %zu calls did not return the expected status\n", failed,
                 script.calls.size());
  return failed ? 1 : 0;
}

}  // namespace qz::call
