// The SQL shell's backslash commands: one table of name, usage, help and handler, from
// which \? prints the list; and the handlers.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "shell.hpp"

namespace qz::call {

namespace {

constexpr int kMaxDepth = 16;  // files read through \i within one another

}  // namespace

const std::vector<Shell::Backslash> &Shell::backslash_commands() {
  static const std::vector<Backslash> table{
      {{"d"},
       "\\d [NAME]",
       "without NAME the tables, with it the columns of table NAME",
       &Shell::describe_command},
      {{"dt", "tables"},
       "\\dt [PATTERN]",
       "tables and views (PATTERN: name or schema.name, % and _\nas wildcards; also \\tables)",
       &Shell::tables},
      {{"columns"},
       "\\columns TABLE",
       "columns of a table (TABLE: name or schema.name)",
       &Shell::columns},
      {{"copy"},
       "\\copy TABLE FROM FILE",
       "load a CSV file into a table; also \\copy TABLE TO FILE,\n\\copy (SELECT ...) TO "
       "FILE; WITH CSV HEADER: a title line",
       &Shell::copy},
      {{"i", "include"}, "\\i FILE", "run the statements and commands of FILE", &Shell::include},
      {{"format"},
       "\\format [table|csv|packed]",
       "how result rows print (without: the one in use)",
       &Shell::format},
      {{"x"},
       "\\x [on|off]",
       "one column a line for wide rows (without: toggle)",
       &Shell::expanded},
      {{"width"},
       "\\width [N]",
       "widest column of a table, in characters (0: no limit)",
       &Shell::width},
      {{"timing"},
       "\\timing [on|off]",
       "the time of each statement (without: toggle)",
       &Shell::timing},
      {{"autocommit"},
       "\\autocommit on|off",
       "commit every statement by itself, or not",
       &Shell::autocommit},
      {{"commit"}, "\\commit", "commit the open transaction", &Shell::commit},
      {{"rollback"}, "\\rollback", "roll the open transaction back", &Shell::rollback},
      {{"trace"},
       "\\trace N",
       "the server's call trace on standard error (0 off, 1 to 4)",
       &Shell::trace},
      {{"log"},
       "\\log FILE [FLAGS]",
       "the server's log to FILE (console: standard error); FLAGS\nas LogFlags takes them, O2 "
       "when not given",
       &Shell::log},
      {{"conninfo"}, "\\conninfo", "the completed connection string", &Shell::conninfo},
      {{"version"}, "\\version", "the server's version texts", &Shell::version},
      {{"?", "help"}, "\\?", "this list", &Shell::help},
      {{"q", "quit"}, "\\q", "quit", &Shell::quit},
  };
  return table;
}

bool Shell::backslash(const std::string &text) {
  std::istringstream in(text.substr(1));
  std::string name;
  in >> name;
  raw_ = text.substr(std::min(text.size(), 1 + name.size()));
  Words words;
  for (std::string w; in >> w;)
    words.push_back(w);
  for (const Backslash &c : backslash_commands())
    for (const char *n : c.names)
      if (name == n) return (this->*c.run)(words);
  return usage("unknown command \\" + name + "; \\? lists the commands");
}

bool Shell::help(const Words &) {
  std::puts("SQL statements end with ';' (outside quotes and -- comments) or with the input.");
  std::puts("Backslash commands (one a line):");
  for (const Backslash &c : backslash_commands()) {
    std::string_view h = c.help;
    std::size_t nl = h.find('\n');
    std::printf("  %-26s %.*s\n", c.usage, static_cast<int>(h.substr(0, nl).size()), h.data());
    if (nl != std::string_view::npos) std::printf("%29s%s\n", "", c.help + nl + 1);
  }
  return true;
}

bool Shell::quit(const Words &) {
  quit_ = true;
  return true;
}

bool Shell::tables(const Words &words) {
  if (words.size() > 1) return usage("\\dt takes at most one pattern, e.g. \\dt cust%");
  return catalog("\\dt", false, words.empty() ? "" : words[0]);
}

bool Shell::columns(const Words &words) {
  if (words.size() != 1) return usage("\\columns takes a table name, e.g. \\columns customer");
  return catalog("\\columns", true, words[0]);
}

bool Shell::describe_command(const Words &words) {
  if (words.size() > 1) return usage("\\d takes at most one table name, e.g. \\d customer");
  return words.empty() ? catalog("\\d", false, "") : catalog("\\d", true, words[0]);
}

bool Shell::include(const Words &words) {
  if (words.size() != 1) return usage("\\i takes a file name");
  if (depth_ >= kMaxDepth) return usage("\\i: files included more than 16 deep");
  int status = 0;
  run_file(words[0], status);
  return status == 0;
}

// Sets `flag` by on or off, or toggles it; says what it is now.
bool Shell::on_off(const char *name, bool &flag, const Words &words) {
  if (words.size() > 1 || (words.size() == 1 && words[0] != "on" && words[0] != "off"))
    return usage(std::string("\\") + name + " takes on or off");
  flag = words.empty() ? !flag : words[0] == "on";
  return true;
}

bool Shell::timing(const Words &words) {
  if (!on_off("timing", timing_, words)) return false;
  std::printf("Timing is %s.\n", timing_ ? "on" : "off");
  return true;
}

bool Shell::expanded(const Words &words) {
  if (!on_off("x", expanded_, words)) return false;
  std::printf("Expanded display is %s.\n", expanded_ ? "on" : "off");
  return true;
}

bool Shell::autocommit(const Words &words) {
  if (words.size() != 1 || (words[0] != "on" && words[0] != "off"))
    return usage("\\autocommit takes on or off");
  std::vector<Arg> a{Arg::integer(conn_), Arg::integer(words[0] == "on" ? 1 : 0)};
  if (!call("\\autocommit " + words[0], "SetAutocommit", a)) return false;
  autocommit_ = words[0] == "on";
  std::printf("autocommit %s\n", words[0].c_str());
  return true;
}

bool Shell::commit(const Words &words) {
  return transact("commit", "Commit", "committed", words);
}

bool Shell::rollback(const Words &words) {
  return transact("rollback", "Rollback", "rolled back", words);
}

bool Shell::transact(const char *name, const char *fn, const char *done, const Words &words) {
  if (!words.empty()) return usage(std::string("\\") + name + " takes no argument");
  std::vector<Arg> a{Arg::integer(conn_)};
  if (!call(std::string("\\") + name, fn, a)) return false;
  std::printf("%s\n", done);
  return true;
}

bool Shell::trace(const Words &words) {
  char *end = nullptr;
  long level = words.size() == 1 ? std::strtol(words[0].c_str(), &end, 10) : -1;
  if (words.size() != 1 || *end || level < 0 || level > 100)
    return usage("\\trace takes a level: 0 (off) to 4 (the call block too)");
  std::vector<Arg> a{Arg::integer(static_cast<std::int32_t>(level))};
  if (!call("\\trace", "DllDebug", a)) return false;
  std::printf("trace level %ld\n", level);
  return true;
}

bool Shell::log(const Words &words) {
  if (words.empty() || words.size() > 2)
    return usage(
        "\\log takes a file (console for standard error) and optionally flags, "
        "e.g. \\log console O2");
  std::vector<Arg> a{Arg::string(words[0])};
  if (!call("\\log " + words[0], "LogFile", a)) return false;
  std::string flags = words.size() == 2 ? words[1] : "O2";
  a = {Arg::string(flags)};
  if (!call("\\log", "LogFlags", a)) return false;
  std::printf("logging %s to %s\n", flags.c_str(), words[0].c_str());
  return true;
}

bool Shell::conninfo(const Words &) {
  std::vector<Arg> a{Arg::integer(conn_), Arg::string_var("", 32767)};
  if (!call("\\conninfo", "GetConnection", a)) return false;
  std::printf("connection %d: %s\n", conn_, from_server(a[1].as_string(), o_.encoding).c_str());
  return true;
}

bool Shell::version(const Words &) {
  for (const char *f : {"VersionID", "BuildID", "Revision"}) {
    std::vector<Arg> a{Arg::string_var("", 256)};
    if (!call(std::string("\\version: ") + f, f, a)) return false;
    std::printf("%-9s %s\n", f, from_server(a[0].as_string(), o_.encoding).c_str());
  }
  return true;
}

bool Shell::format(const Words &words) {
  static const char *names[] = {"table", "csv", "packed"};
  if (words.empty()) {  // the format in use
    std::printf("format %s\n", names[static_cast<int>(format_)]);
    return true;
  }
  for (int k = 0; k < 3 && words.size() == 1; ++k) {
    if (words[0] != names[k]) continue;
    format_ = static_cast<OutputFormat>(k);
    std::printf("format %s\n", names[k]);
    return true;
  }
  return usage("\\format takes table, csv or packed");
}

bool Shell::width(const Words &words) {
  if (words.size() > 1) return usage("\\width takes a number of characters (0: no limit)");
  if (words.size() == 1) {
    char *end = nullptr;
    long w = std::strtol(words[0].c_str(), &end, 10);
    if (*end || words[0].empty() || w < 0 || w > 100000)
      return usage("\\width takes a number of characters (0: no limit)");
    max_width_ = static_cast<int>(w);
  }
  if (max_width_ == 0)
    std::printf("width unlimited\n");
  else
    std::printf("width %d\n", max_width_);
  return true;
}

}  // namespace qz::call
