// Running a parsed call script on a server: arguments laid out as the interpreter would,
// each call's status and the variables it changed printed, packed rows read out.
#pragma once

#include <cstdio>
#include <string>

#include "qzclient.hpp"
#include "script.hpp"

namespace qz::call {

// Bytes one call takes in the segment, with `vars` the script's variables.
std::size_t call_bytes(const CallSpec &c, const std::vector<VarInfo> &vars);

// Runs calls one after another on a server, writing the report to `out`: each call with its
// status (and, for an unexpected 8 or 9, the function's prototypes when the ODBC function
// set has it), then the variables it changed.
class Runner {
 public:
  Runner(client::Session &session, std::FILE *out) : session_(session), out_(out) {}
  // Runs one call; false when the run must stop (the server gave no answer).
  bool run(const CallSpec &c, const std::vector<VarInfo> &vars);
  // 0 when every call returned its expected status, 1 otherwise (said on standard error).
  int finish() const;

 private:
  client::Session &session_;
  std::FILE *out_;
  std::vector<Value> values_;  // the variables' values, by index in the script's variables
  std::size_t calls_ = 0;      // calls run
  int failed_ = 0;             // calls without their expected status
  bool stopped_ = false;       // a call had no answer: the run ended there
};

}  // namespace qz::call
