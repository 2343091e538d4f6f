// qzcall's SQL shell: connects through the server, then takes SQL statements and backslash
// commands from -e options, standard input or an interactive line editor, and reports
// failures with every diagnostic record of GetError.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "qzclient.hpp"

namespace qz::call {

enum class OutputFormat { table, csv, packed };
enum class Encoding { utf8, latin1, roman8 };  // the user's text; the server's is Roman-8

struct SqlOptions {
  std::string connstr;                        // connection string, or a data source name
  std::vector<std::string> execute;           // -e texts, run in order instead of reading input
  OutputFormat format = OutputFormat::table;  // how result rows print
  Encoding encoding = Encoding::utf8;         // encoding of the terminal and the input
  bool keep_going = false;                    // batch mode: go on after a failing statement
  bool history = true;                        // interactive mode: keep ~/.qzcall_history
  std::string log_file;                       // LogFile before connecting, if set
  std::string log_flags;                      // LogFlags before connecting, if set
  int trace = -1;                             // DllDebug before connecting, if 0 or more
};

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

// Text conversion between the user's encoding and the server's Roman-8.
std::string to_server(std::string_view text, Encoding e);
std::string from_server(std::string_view text, Encoding e);

// Connects, runs the commands, disconnects. Returns the exit status: 0, or 1 when the
// connection or a command failed.
int run_sql(client::Session &session, const SqlOptions &options);

}  // namespace qz::call
