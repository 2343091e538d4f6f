// The shell's input as commands: see StatementSplitter.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qz::call {

// Splits input lines into commands: a line starting with '\' (nothing pending) is one
// backslash command; SQL runs up to each ';' outside quotes and -- comments.
class StatementSplitter {
 public:
  // Adds one line (without its newline); returns the commands it completes.
  std::vector<std::string> feed(std::string_view line);
  // What is left at the end of the input (a statement without ';'), or "".
  std::string finish();
  bool pending() const;  // a statement is begun but not ended

 private:
  std::string buf_;  // text of the statement begun so far
  char quote_ = 0;   // the quote character open at the end of buf_, or 0
};

// Whether a statement changes rows (its row count is then worth showing even when 0): its
// first word, after blanks, comments and parentheses.
bool changes_rows(std::string_view sql);

}  // namespace qz::call
