// The unit tests' table runner: every row "input = outcome" through a function, "^" in an
// input standing for a blank and "~" for a NUL. A long table (the oracle's vectors)
// reports the first three differences of each operation, an input's first word, and
// then how many rows of it differ.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

inline void expect_rows(const std::vector<std::string> &rows,
                        const std::function<std::string(std::string)> &fn) {
  std::map<std::string, long> failed;
  for (const std::string &row : rows) {
    size_t eq = row.rfind(" = ");
    std::string in = row.substr(0, eq), got;
    for (char &c : in)
      c = c == '^' ? ' ' : c == '~' ? '\0' : c;
    if ((got = fn(in)) != row.substr(eq + 3) && failed[in.substr(0, in.find(' '))]++ < 3)
      ADD_FAILURE() << row << "\n  got: " << got;
  }
  for (const auto &[op, n] : failed)
    ADD_FAILURE() << op << ": " << n << " rows differ";
}
