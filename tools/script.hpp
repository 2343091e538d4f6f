// qzcall's call scripts: the notation (one call a line: a function name, literal
// arguments and $variables typed by their first use) and its parser with line:column
// errors. The values and their text forms are values.hpp's.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "qzclient.hpp"
#include "values.hpp"

namespace qz::call {

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

// Reads a script a line at a time and keeps only its variables: a line gives at most one
// call, which waits in script.calls until the reader's user takes it.
class ScriptReader {
 public:
  // Parses line number `lineno` (1-based, without its newline). False: `err` says where
  // and what.
  bool line(std::string_view text, int lineno, ParseError &err);
  Script script;  // the variables so far, and the calls not yet taken

 private:
  std::map<std::string, int> vars_;  // variable name -> index in script.vars
};

// Largest string capacity a variable may declare.
inline constexpr int kMaxCapacity = 1 << 20;

}  // namespace qz::call
