// Running a parsed call script on a server: arguments laid out as the interpreter would,
// each call's status and the variables it changed printed, packed rows read out.
#pragma once

#include <cstdio>
#include <string>

#include "qzclient.hpp"
#include "script.hpp"

namespace qz::call {

// Segment size that fits the largest call of the script, at least the library's default.
std::size_t segment_bytes(const Script &script);

// Runs every call in order, writing the report to `out`. Returns 0 when every call was
// answered with its expected status, 1 otherwise. A call without an answer (timeout, dead
// server) ends the run.
int run_script(client::Session &session, const Script &script, std::FILE *out);

}  // namespace qz::call
