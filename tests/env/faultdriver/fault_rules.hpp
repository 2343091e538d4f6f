// Fault rules of the test-only ODBC fault driver and of the libodbc interposer: the rule
// record, its text form, and the splitting of an ODBC connection string into attributes.
// Test code only; nothing in the product links this.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qz::fault {

// One injected failure: which function, which of its calls, and what it answers.
struct Rule {
  std::string function;      // ODBC function name as the driver manager calls it, e.g. "SQLFetch"
  unsigned first = 1;        // first call (1-based, counted per rule) that fails
  unsigned last = 0;         // last call that fails; 0: every call from `first` on
  bool ranged = false;       // the rule named calls with '@' (else: every call)
  bool after = false;        // make the real call first, then answer the failure anyway
  bool unsupported = false;  // answer as a function the driver does not have (IM001)
  int rc = -1;               // return code answered (SQL_ERROR unless given)
  std::string sqlstate;      // five characters, put into the diagnostic record
  int native = 0;            // native error code of the diagnostic record
  std::string message;       // message text of the diagnostic record
  unsigned calls = 0;        // calls of `function` seen so far under this rule
};

// Parses one rule:  FUNC[@N | @N.. | @N..M][+]:ACTION
//   ACTION = unsupported | RC[:SQLSTATE[:NATIVE[:MESSAGE]]]
//   RC     = an integer or ERROR, INVALID_HANDLE, SUCCESS_WITH_INFO, NO_DATA,
//            STILL_EXECUTING, NEED_DATA (an "SQL_" prefix is allowed)
// SQLSTATE defaults to HY000, NATIVE to 0, MESSAGE to "Injected failure of FUNC"; the
// message is the rest of the text and may contain colons. `known` is the list of
// function names the caller can fail. False with `error` set when the text is not a rule.
bool parse_rule(std::string_view text, const std::vector<std::string_view> &known, Rule &out,
                std::string &error);

// Parses rules separated by ';' (empty pieces ignored) and appends them to `out`.
bool parse_rules(std::string_view text, const std::vector<std::string_view> &known,
                 std::vector<Rule> &out, std::string &error);

// Counts a call of `function` against every rule naming it and returns the first rule
// that fires for this call, or null.
Rule *match(std::vector<Rule> &rules, std::string_view function);

// One KEY=VALUE attribute of a connection string; VALUE keeps its braces, if any.
struct Attribute {
  std::string key;       // as written
  std::string value;     // as written, braces included
  bool assigned = true;  // false for a piece without '='
};

// Splits a connection string at the semicolons that are not inside braces.
std::vector<Attribute> split_attributes(std::string_view conn);

// VALUE without its surrounding braces, "}}" inside braces read as "}".
std::string unbrace(std::string_view value);

// Joins attributes back into a connection string.
std::string join_attributes(const std::vector<Attribute> &attrs);

bool iequals(std::string_view a, std::string_view b);

// The injected diagnostic record of a handle's last call.
struct Pending {
  int rc;                // return code of the failed call
  std::string sqlstate;  // five characters
  int native;            // native error code
  std::string message;   // message text
  bool drained = false;  // handed out already: the handle has no more records
};

// Copies `text` into an ODBC output buffer of `size` bytes (cut to fit, NUL-terminated) and
// its full length into `len`; either may be null.
void copy_text(const std::string &text, unsigned char *buf, short size, short *len);

}  // namespace qz::fault
