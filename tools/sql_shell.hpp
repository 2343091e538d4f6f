// qzcall's SQL shell: connects through the server, then runs SQL statements and backslash
// commands from -c texts, -f files, standard input or an interactive line editor, shows
// results as a table, CSV or packed rows, and reports failures with every diagnostic record of
// GetError.
#pragma once

#include <csignal>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "encoding.hpp"
#include "qzclient.hpp"
#include "result_view.hpp"

namespace qz::call {

enum class OutputFormat { table, csv, packed };

// Widest column of the table format, in characters, unless told otherwise.
inline constexpr int kDefaultMaxWidth = 40;

// A -c text or a -f file of the command line.
struct Input {
  bool file = false;  // text names a file of statements
  std::string text;   // statements and commands, or the file's name
};

struct SqlOptions {
  std::string connstr;                        // connection string, or a data source name
  std::vector<Input> inputs;                  // run in order instead of reading standard input
  OutputFormat format = OutputFormat::table;  // how result rows print
  int max_width = kDefaultMaxWidth;           // table format: widest column (0: no limit)
  Encoding encoding = Encoding::utf8;         // encoding of the terminal and the input
  bool keep_going = false;                    // batch mode: go on after a failing statement
  bool history = true;                        // interactive mode: keep ~/.qzcall_history
  std::string log_file;                       // LogFile before connecting, if set
  std::string log_flags;                      // LogFlags before connecting, if set
  int trace = -1;                             // DllDebug before connecting, if 0 or more
};

// Connects, runs the commands, disconnects. Returns the exit status: 0, or 1 when the
// connection or a command failed. `restart` starts a fresh server on the session after the
// last one ended (the shell then connects again).
int run_sql(client::Session &session, const SqlOptions &options, std::function<bool()> restart);

// What qzcall's SIGINT handler and the shell share: at_prompt is 1 while the shell waits
// for a line at a terminal; an interrupt then sets hit, and the line typed so far goes.
struct PromptInterrupt {
  volatile std::sig_atomic_t at_prompt;
  volatile std::sig_atomic_t hit;
};
extern PromptInterrupt prompt_interrupt;

}  // namespace qz::call
