// qzcall's call scripts: the notation (one call a line: a function name, literal
// arguments and $variables typed by their first use), its parser with line:column errors,
// and the exact text forms of values that the runner prints.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "qzclient.hpp"

namespace qz::call {

// A value of the interpreter: a scalar or an array of one type.
struct Value {
  int type = client::kInteger;            // client::kInteger, kReal or kString
  bool array = false;                     // written as [...]: an array even of one element
  std::vector<std::int32_t> ints;         // kInteger elements
  std::vector<client::Decimal> reals;     // kReal elements
  std::vector<std::string> strings;       // kString elements, bytes as they are
  std::size_t count() const;              // number of elements
  bool operator==(const Value &o) const;  // same type, shape and elements (reals by bytes)
};

// One argument as written.
struct ArgSpec {
  enum class Kind { literal, variable, var_value };
  Kind kind = Kind::literal;  // a literal, $name (passed as a variable) or ($name) (its value)
  Value literal;              // kind literal: the value passed
  int var = -1;               // variable kinds: index in Script::vars
  bool assign = false;        // $name=VALUE: the variable takes `init` before the call
  Value init;                 // the value assigned
  int line = 0;               // where the argument starts (1-based)
  int col = 0;
};

// A variable: its type is fixed by its first use.
struct VarInfo {
  std::string name;             // without the '$'
  int type = client::kInteger;  // client::kInteger, kReal or kString
  bool array = false;           // an array variable
  int capacity = 0;             // strings: capacity of each element in bytes
  Value initial;                // its value before the first call that uses it
  int line = 0;                 // first use
  int col = 0;
};

// One call line.
struct CallSpec {
  std::string name;           // function name
  std::vector<ArgSpec> args;  // arguments in order
  std::string text;           // the call as written, without comment and expectation
  bool has_expect = false;    // written with "-> N"
  std::int32_t expect = 0;    // the status the call should return (0 unless given)
  int line = 0;               // source line
};

struct Script {
  std::vector<VarInfo> vars;    // every variable, in order of first use
  std::vector<CallSpec> calls;  // every call, in order
};

struct ParseError {
  int line = 0;  // 1-based position of the fault
  int col = 0;
  std::string message;  // what is wrong and how to write it instead
};

// Parses a whole script. False: `err` says where and what; `out` is then incomplete.
bool parse_script(std::string_view text, Script &out, ParseError &err);

// Largest string capacity a variable may declare.
inline constexpr int kMaxCapacity = 1 << 20;

// ---- text forms ---------------------------------------------------------------------

// A string literal that reads back as the same bytes: printable ASCII as it is, '"' and
// '\' escaped, \n \t \r, every other byte as \xNN.
std::string quote(std::string_view bytes);
// A decimal record's exact value: "0.1", "-12.5", "3.0", "1.5e+100", "null". Always with
// a point or an exponent, so that it reads back as a real.
std::string format_decimal(const client::Decimal &d);
// Parses a real literal exactly (no binary double in between). False for text that is not
// a number or out of the record's range; `why` then says which.
bool parse_decimal(std::string_view text, client::Decimal &out, std::string &why);
// A value as the notation writes it: 42, 2.5, "text", [1, 2].
std::string format_value(const Value &v);

}  // namespace qz::call
