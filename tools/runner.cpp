// Runs the calls of a script: builds the arguments of each call from literals and
// variables, makes the call, copies the variables back and reports status and changes.
#include "runner.hpp"

#include <algorithm>
#include <cstring>

#include "odbc_prototypes.hpp"
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

// "  Prepare takes ConnId (IntByValue), Sql (zString), StmtId (IntByReference)" for a
// function of the ODBC function set; nothing for another name.
void print_prototypes(const std::string &name, std::FILE *out) {
  for (const fn::Proto &p : kOdbcPrototypes) {
    if (name != p.name) continue;
    std::string line = "  " + name + (p.arg_cnt ? " takes " : " takes no arguments");
    for (int k = 0; k < p.arg_cnt; ++k) {
      const QzArgTypeName *t = QzArgTypeNames;
      while (t->type != -1 && t->type != p.args[k].type)
        ++t;
      line += k ? ", " : "";
      line += p.args[k].type == VarArg ? std::string("... (any further arguments)")
                                       : std::string(p.args[k].name) + " (" + t->name + ")";
    }
    std::fprintf(out, "%s\n", line.c_str());
  }
}

}  // namespace

std::size_t call_bytes(const CallSpec &c, const std::vector<VarInfo> &vars) {
  std::size_t n = 64 * (c.args.size() + 1) + c.name.size() + 16;
  for (const ArgSpec &a : c.args) {
    if (a.kind == ArgSpec::Kind::literal) {
      n += arg_bytes(a.literal, -1);
      for (const std::string &s : a.literal.strings)
        n += s.size() * a.literal.count();
    } else {
      const VarInfo &v = vars[static_cast<std::size_t>(a.var)];
      n += arg_bytes(v.initial, v.capacity);
    }
  }
  return n;
}

bool Runner::run(const CallSpec &c, const std::vector<VarInfo> &vars) {
  for (std::size_t k = values_.size(); k < vars.size(); ++k)
    values_.push_back(vars[k].initial);  // variables first used by this call
  ++calls_;
  std::vector<Arg> args;
  for (const ArgSpec &a : c.args) {
    if (a.kind == ArgSpec::Kind::literal) {
      args.push_back(to_arg(a.literal, false, -1));
      continue;
    }
    std::size_t k = static_cast<std::size_t>(a.var);
    const VarInfo &info = vars[k];
    if (a.assign) {
      values_[k] = a.init;
      values_[k].array = info.array;
    }
    if (a.kind == ArgSpec::Kind::variable)
      args.push_back(to_arg(values_[k], true, info.capacity));
    else
      args.push_back(
          to_arg(values_[k], false, info.type == kString && !info.array ? -1 : info.capacity));
  }
  std::vector<Value> before = values_;
  CallResult r = session_.call(c.name, std::span<Arg>(args));
  if (!r.ok()) {
    bool sent = r.kind != CallResult::Kind::failed;
    std::fprintf(out_, "%s -> %s: %s\n", c.text.c_str(), sent ? "no answer" : "not sent",
                 r.error.c_str());
    std::fflush(out_);
    ++failed_;
    if (!sent) return true;
    std::fprintf(stderr, "qzcall: line %d: the server gave no answer; the run stops here\n",
                 c.line);
    stopped_ = true;
    return false;
  }
  std::string line = c.text + " -> " + std::to_string(r.status);
  if (const char *m = r.status ? status_meaning(r.status) : nullptr)
    line += std::string(" (") + m + ")";
  if (r.status != c.expect) {
    line += "; expected " + std::to_string(c.expect);
    ++failed_;
  }
  std::fprintf(out_, "%s\n", line.c_str());
  if (r.status != c.expect && (r.status == kBadArgument || r.status == kArgCount))
    print_prototypes(c.name, out_);
  // Copy the variables back, then report each changed one once, in argument order.
  std::vector<int> shown;
  for (std::size_t i = 0; i < c.args.size(); ++i) {
    const ArgSpec &a = c.args[i];
    if (a.kind != ArgSpec::Kind::variable || args[i].unref) continue;
    from_arg(args[i], values_[static_cast<std::size_t>(a.var)]);
  }
  for (const ArgSpec &a : c.args) {
    std::size_t k = static_cast<std::size_t>(a.var);
    if (a.kind != ArgSpec::Kind::variable ||
        std::find(shown.begin(), shown.end(), a.var) != shown.end() || values_[k] == before[k])
      continue;
    shown.push_back(a.var);
    std::fprintf(out_, "  $%s = %s\n", vars[k].name.c_str(), format_value(values_[k]).c_str());
    if (values_[k].type == kString && !values_[k].array) print_packed(values_[k].strings[0], out_);
  }
  std::fflush(out_);
  return true;
}

int Runner::finish() const {
  if (failed_ && !stopped_)
    std::fprintf(stderr, "qzcall: %d of %zu calls did not return the expected status\n", failed_,
                 calls_);
  return failed_ ? 1 : 0;
}

}  // namespace qz::call
