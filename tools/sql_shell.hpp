// qzcall's SQL shell: connects through the server, then runs SQL statements and backslash
// commands from -e options, standard input or an interactive line editor, shows results as
// a table, CSV or packed rows, and reports failures with every diagnostic record of
// GetError.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "qzclient.hpp"
#include "result_view.hpp"

namespace qz::call {

enum class OutputFormat { table, csv, packed };

// Widest column of the table format, in characters, unless told otherwise.
inline constexpr int kDefaultMaxWidth = 40;

struct SqlOptions {
  std::string connstr;                        // connection string, or a data source name
  std::vector<std::string> execute;           // -e texts, run in order instead of reading input
  OutputFormat format = OutputFormat::table;  // how result rows print
  int max_width = kDefaultMaxWidth;           // table format: widest column (0: no limit)
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
// The user's text as ISO 8859-1, the character set on the ODBC side (the catalog
// functions pass their arguments to the driver unconverted).
std::string to_latin1(std::string_view text, Encoding e);

// Connects, runs the commands, disconnects. Returns the exit status: 0, or 1 when the
// connection or a command failed.
int run_sql(client::Session &session, const SqlOptions &options);

}  // namespace qz::call
