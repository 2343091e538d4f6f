// The call script notation's parser: line by line, a call a line, variables typed by their
// first use, and errors with line, column and what to write instead.
#include "script.hpp"

#include <cstring>
#include <map>

#include "qzmath.h"

namespace qz::call {

using client::Decimal;
using client::kInteger;
using client::kReal;
using client::kString;

namespace {

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

constexpr const char *kArgForms =
    "an argument is a number (42, -7, 2.5, 1e3), a \"string\", an [array], a $variable or "
    "($variable) for its value";

bool is_name_start(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
}
bool is_name_char(char c) {
  return is_name_start(c) || is_digit(c);
}

std::string show_char(char c) {
  unsigned char u = static_cast<unsigned char>(c);
  if (u >= 0x20 && u < 0x7f) return std::string("'") + c + "'";
  return "byte " + quote(std::string(1, c)).substr(1, 4);
}

class LineParser {
 public:
  LineParser(std::string_view line, int lineno, Script &script, std::map<std::string, int> &vars,
             ParseError &err)
      : s_(line), lineno_(lineno), script_(script), vars_(vars), err_(err) {}

  bool parse() {
    skip_blanks();
    if (at_end()) return true;  // blank or comment line
    std::size_t start = i_;
    CallSpec call;
    call.line = lineno_;
    if (!is_name_start(s_[i_]))
      return fail(
          i_, "a line starts with a function name (or # for a comment), not " + show_char(s_[i_]));
    while (i_ < s_.size() && is_name_char(s_[i_]))
      ++i_;
    call.name = std::string(s_.substr(start, i_ - start));
    std::size_t text_end = i_;
    bool need_sep = true;  // between arguments: blanks or a comma
    for (;;) {
      std::size_t before = i_;
      skip_blanks();
      bool had_blank = i_ > before;
      if (at_end()) break;
      if (s_.compare(i_, 2, "->") == 0) {
        if (!expectation(call)) return false;
        break;
      }
      if (s_[i_] == ',') {
        if (call.args.empty() || !need_sep)
          return fail(i_, "a comma stands only between two arguments");
        ++i_;
        need_sep = false;
        continue;
      }
      if (need_sep && !had_blank) return fail(i_, "put a blank or a comma between arguments");
      ArgSpec a;
      if (!argument(a)) return false;
      call.args.push_back(std::move(a));
      text_end = i_;
      need_sep = true;
    }
    call.text = std::string(s_.substr(start, text_end - start));
    script_.calls.push_back(std::move(call));
    return true;
  }

 private:
  bool at_end() const { return i_ >= s_.size() || s_[i_] == '#'; }
  void skip_blanks() {
    while (i_ < s_.size() && (s_[i_] == ' ' || s_[i_] == '\t'))
      ++i_;
  }
  bool fail(std::size_t at, std::string message) {
    err_.line = lineno_;
    err_.col = static_cast<int>(at) + 1;
    err_.message = std::move(message);
    return false;
  }
  // Characters that end a number or a name.
  bool is_delim(char c) const {
    return c == ' ' || c == '\t' || c == ',' || c == ']' || c == ')' || c == '#';
  }

  bool expectation(CallSpec &call) {
    i_ += 2;
    skip_blanks();
    std::size_t at = i_;
    Value v;
    if (at_end() || !number(v) || v.type != kInteger)
      return fail(at, "after -> comes the status the call should return, an integer");
    call.has_expect = true;
    call.expect = v.ints[0];
    skip_blanks();
    if (!at_end()) return fail(i_, "nothing but a # comment may follow the expected status");
    return true;
  }

  bool number(Value &v) {
    std::size_t start = i_;
    while (i_ < s_.size() && !is_delim(s_[i_]))
      ++i_;
    std::string_view tok = s_.substr(start, i_ - start);
    std::size_t k = tok.size() && (tok[0] == '-' || tok[0] == '+') ? 1 : 0;
    bool integer = k < tok.size();
    for (std::size_t j = k; j < tok.size(); ++j)
      integer = integer && is_digit(tok[j]);
    v = Value{};
    if (integer) {
      long long x = 0;
      bool neg = tok[0] == '-';
      for (std::size_t j = k; j < tok.size() && x <= 1LL << 32; ++j)
        x = x * 10 + (tok[j] - '0');
      if (neg) x = -x;
      if (x < INT32_MIN || x > INT32_MAX)
        return fail(start, "integer " + std::string(tok) +
                               " is outside the 32-bit range; write a real (" + std::string(tok) +
                               ".0) if a real is meant");
      v.type = kInteger;
      v.ints = {static_cast<std::int32_t>(x)};
      return true;
    }
    Decimal d;
    std::string why;
    if (!parse_decimal(tok, d, why)) {
      if (why == "not a number")
        return fail(start, "'" + std::string(tok) + "' is not a number: " + kArgForms);
      return fail(start, std::string(tok) + " is " + why);
    }
    v.type = kReal;
    v.reals = {d};
    return true;
  }

  bool string_literal(Value &v) {
    std::size_t start = i_++;
    std::string bytes;
    for (;;) {
      if (i_ >= s_.size())
        return fail(start, "this string has no closing quote (\"); strings end on their line");
      char c = s_[i_];
      unsigned char u = static_cast<unsigned char>(c);
      if (c == '"') {
        ++i_;
        break;
      }
      if (c == '\\') {
        std::size_t at = i_;
        if (++i_ >= s_.size())
          return fail(at, "a backslash at the end of the line escapes nothing");
        char e = s_[i_++];
        switch (e) {
          case '\\':
          case '"':
            bytes += e;
            break;
          case 'n':
            bytes += '\n';
            break;
          case 't':
            bytes += '\t';
            break;
          case 'r':
            bytes += '\r';
            break;
          case '0':
            bytes += '\0';
            break;
          case 'x': {
            auto hexval = [](char h) {
              return h >= '0' && h <= '9'   ? h - '0'
                     : h >= 'a' && h <= 'f' ? h - 'a' + 10
                     : h >= 'A' && h <= 'F' ? h - 'A' + 10
                                            : -1;
            };
            int hi = i_ < s_.size() ? hexval(s_[i_]) : -1;
            int lo = i_ + 1 < s_.size() ? hexval(s_[i_ + 1]) : -1;
            if (hi < 0 || lo < 0)
              return fail(at, "\\x takes exactly two hexadecimal digits, as in \\xC5");
            bytes += static_cast<char>(hi * 16 + lo);
            i_ += 2;
            break;
          }
          default:
            return fail(at, "unknown escape \\" + std::string(1, e) +
                                "; the escapes are \\\\ \\\" \\n \\t \\r \\0 and \\xNN");
        }
        continue;
      }
      if (u < 0x20 || u == 0x7f)
        return fail(i_, "a control character in a string: write it as an escape (\\t, \\xNN)");
      if (u >= 0x80)
        return fail(i_,
                    "a non-ASCII byte in a string: write the interpreter's (Roman-8) bytes "
                    "as \\xNN, e.g. \\xC5 for e with an acute accent");
      bytes += c;
      ++i_;
    }
    v = Value{};
    v.type = kString;
    v.strings = {std::move(bytes)};
    return true;
  }

  bool scalar(Value &v) {
    if (i_ < s_.size() && s_[i_] == '"') return string_literal(v);
    if (i_ < s_.size() && (is_digit(s_[i_]) || s_[i_] == '-' || s_[i_] == '+' || s_[i_] == '.'))
      return number(v);
    if (i_ >= s_.size() || s_[i_] == '#') return fail(i_, "a value is missing here");
    return fail(i_, "unexpected " + show_char(s_[i_]) + " where a value belongs");
  }

  bool array_literal(Value &v) {
    std::size_t start = i_++;
    v = Value{};
    v.array = true;
    bool first = true;
    for (;;) {
      skip_blanks();
      if (i_ >= s_.size()) return fail(start, "this array has no closing ]");
      if (s_[i_] == ']') {
        if (first)
          return fail(start, "an array needs at least one element: its type comes from them");
        ++i_;
        return true;
      }
      if (!first) {
        if (s_[i_] != ',') return fail(i_, "array elements are separated by commas");
        ++i_;
        skip_blanks();
      }
      std::size_t at = i_;
      Value e;
      if (!scalar(e)) return false;
      if (first) {
        v.type = e.type;
      } else if (e.type != v.type) {
        bool numbers = e.type != kString && v.type != kString;
        if (!numbers) return fail(at, "an array holds one type: strings and numbers do not mix");
        if (v.type == kInteger) {  // integers so far: the array becomes one of reals
          for (std::int32_t x : v.ints)
            v.reals.push_back(from_int(x));
          v.ints.clear();
          v.type = kReal;
        } else {
          e.reals = {from_int(e.ints[0])};
          e.type = kReal;
        }
      }
      if (v.type == kInteger) v.ints.push_back(e.ints[0]);
      if (v.type == kReal) v.reals.push_back(e.reals[0]);
      if (v.type == kString) v.strings.push_back(e.strings[0]);
      first = false;
    }
  }

  static Decimal from_int(std::int32_t x) {
    t_DECIMAL t;
    m_cv_int(x, &t);
    Decimal d;
    std::memcpy(d.bytes, &t, sizeof d.bytes);
    return d;
  }

  bool value(Value &v) {
    if (i_ < s_.size() && s_[i_] == '[') return array_literal(v);
    return scalar(v);
  }

  bool name(std::string &out) {
    std::size_t start = i_;
    if (i_ >= s_.size() || !is_name_start(s_[i_]))
      return fail(i_,
                  "a variable name follows $: letters, digits and _, not starting with a digit");
    while (i_ < s_.size() && is_name_char(s_[i_]))
      ++i_;
    out = std::string(s_.substr(start, i_ - start));
    return true;
  }

  std::string where(const VarInfo &v) const {
    return "$" + v.name + " (line " + std::to_string(v.line) + ")";
  }

  // Fits `v` to variable `var`'s type: integers become reals for a real variable.
  bool fit(Value &v, const VarInfo &var, std::size_t at) {
    static const char *names[] = {"", "an integer", "a real", "a string"};
    if (v.type == kInteger && var.type == kReal) {
      for (std::int32_t x : v.ints)
        v.reals.push_back(from_int(x));
      v.ints.clear();
      v.type = kReal;
    }
    if (v.type != var.type)
      return fail(at, where(var) + " is " + std::string(names[var.type]) +
                          (var.array ? " array" : "") + " variable; this value is " +
                          names[v.type]);
    if (v.array != var.array)
      return fail(at, where(var) + (var.array ? " is an array: write the value as [...]"
                                              : " is not an array"));
    if (var.array && v.count() != var.initial.count())
      return fail(at, where(var) + " has " + std::to_string(var.initial.count()) +
                          " elements; this value has " + std::to_string(v.count()));
    if (v.type == kString)
      for (const std::string &s : v.strings)
        if (static_cast<int>(s.size()) > var.capacity)
          return fail(at, "this text has " + std::to_string(s.size()) + " bytes; " + where(var) +
                              " holds " + std::to_string(var.capacity));
    return true;
  }

  bool argument(ArgSpec &a) {
    a.line = lineno_;
    a.col = static_cast<int>(i_) + 1;
    if (s_[i_] == '(') return var_value(a);
    if (s_[i_] == '$') return variable(a);
    if (s_[i_] == '[' || s_[i_] == '"' || is_digit(s_[i_]) || s_[i_] == '-' || s_[i_] == '+' ||
        s_[i_] == '.') {
      a.kind = ArgSpec::Kind::literal;
      return value(a.literal);
    }
    return fail(i_, "unexpected " + show_char(s_[i_]) + ": " + kArgForms);
  }

  // ($name): the value of a variable that has one.
  bool var_value(ArgSpec &a) {
    std::size_t start = i_++;
    skip_blanks();
    if (i_ >= s_.size() || s_[i_] != '$')
      return fail(i_, "(...) passes a variable's value: write ($name)");
    ++i_;
    std::string n;
    if (!name(n)) return false;
    skip_blanks();
    if (i_ >= s_.size() || s_[i_] != ')') return fail(i_, "missing ) after ($" + n);
    ++i_;
    auto it = vars_.find(n);
    if (it == vars_.end())
      return fail(start, "$" + n + " has no value yet: give it one first, e.g. $" + n + "=0");
    a.kind = ArgSpec::Kind::var_value;
    a.var = it->second;
    return true;
  }

  // What may follow a variable's name: ":CAPACITY" and "=VALUE".
  struct VarSuffix {
    bool has_cap = false;
    int cap = 0;
    std::size_t cap_at = 0;  // where the capacity starts
    bool has_init = false;
    Value init;
    std::size_t init_at = 0;  // where the value starts
  };

  bool var_suffix(const std::string &n, VarSuffix &x) {
    x.cap_at = x.init_at = i_;
    if (i_ < s_.size() && s_[i_] == ':') {
      x.cap_at = ++i_;
      long long c = 0;
      while (i_ < s_.size() && is_digit(s_[i_]) && c <= kMaxCapacity)
        c = c * 10 + (s_[i_++] - '0');
      if (i_ == x.cap_at || c > kMaxCapacity || (i_ < s_.size() && is_digit(s_[i_])))
        return fail(x.cap_at, "a capacity follows ':': a byte count from 0 to " +
                                  std::to_string(kMaxCapacity));
      x.has_cap = true;
      x.cap = static_cast<int>(c);
    }
    x.init_at = i_;
    if (i_ < s_.size() && s_[i_] == '=') {
      x.init_at = ++i_;
      if (i_ >= s_.size() || s_[i_] == ' ' || s_[i_] == '\t')
        return fail(i_, "write the value right after '=', without blanks: $" + n + "=VALUE");
      if (!value(x.init)) return false;
      x.has_init = true;
    } else if (i_ < s_.size() && !is_delim(s_[i_])) {
      return fail(i_, "unexpected " + show_char(s_[i_]) + " after $" + n);
    }
    return true;
  }

  // $name[:CAPACITY][=VALUE]: a variable, declared by its first use.
  bool variable(ArgSpec &a) {
    ++i_;
    std::string n;
    VarSuffix x;
    if (!name(n) || !var_suffix(n, x)) return false;
    a.kind = ArgSpec::Kind::variable;
    auto it = vars_.find(n);
    if (it == vars_.end()) return declare(a, n, x);
    a.var = it->second;
    const VarInfo &v = script_.vars[static_cast<std::size_t>(a.var)];
    if (x.has_cap && (v.type != kString || x.cap != v.capacity))
      return fail(x.cap_at - 1,
                  "the type and capacity of " + where(v) + " are fixed where it is first used");
    if (x.has_init) {
      if (!fit(x.init, v, x.init_at)) return false;
      a.assign = true;
      a.init = std::move(x.init);
    }
    return true;
  }

  // A variable's first use: its type, capacity and initial value are fixed here.
  bool declare(ArgSpec &a, const std::string &n, VarSuffix &x) {
    VarInfo v;
    v.name = n;
    v.line = a.line;
    v.col = a.col;
    if (x.has_init) {
      if (x.has_cap && x.init.type != kString)
        return fail(x.cap_at - 1, "a capacity belongs to string variables only");
      v.type = x.init.type;
      v.array = x.init.array;
      if (x.init.type == kString) {
        std::size_t longest = 0;
        for (const std::string &s : x.init.strings)
          longest = s.size() > longest ? s.size() : longest;
        v.capacity = x.has_cap ? x.cap : static_cast<int>(longest);
      }
      v.initial = x.init;
      v.initial.array = v.array;
      Value check = x.init;
      if (!fit(check, v, x.init_at)) return false;
    } else if (x.has_cap) {
      v.type = kString;
      v.capacity = x.cap;
      v.initial.type = kString;
      v.initial.strings = {""};
    } else {
      v.type = kInteger;
      v.initial.ints = {0};
    }
    a.var = static_cast<int>(script_.vars.size());
    vars_[n] = a.var;
    script_.vars.push_back(std::move(v));
    return true;
  }

  std::string_view s_;
  std::size_t i_ = 0;
  int lineno_;
  Script &script_;
  std::map<std::string, int> &vars_;
  ParseError &err_;
};

}  // namespace

bool ScriptReader::line(std::string_view text, int lineno, ParseError &err) {
  if (!text.empty() && text.back() == '\r') text.remove_suffix(1);
  LineParser p(text, lineno, script, vars_, err);
  return p.parse();
}

}  // namespace qz::call
