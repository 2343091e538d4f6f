// Splitting the shell's input into commands: SQL up to each ';' outside quotes and --
// comments, a backslash command a line; and whether a statement changes rows.
#include "statements.hpp"

#include <cctype>
#include <cstring>

namespace qz::call {

std::vector<std::string> StatementSplitter::feed(std::string_view line) {
  std::vector<std::string> out;
  if (buf_.empty()) {
    std::size_t i = line.find_first_not_of(" \t");
    if (i == std::string_view::npos) return out;
    if (line[i] == '\\') {
      std::string cmd(line.substr(i));
      while (!cmd.empty() && (cmd.back() == ' ' || cmd.back() == '\t' || cmd.back() == '\r'))
        cmd.pop_back();
      out.push_back(cmd);
      return out;
    }
  }
  std::size_t start = 0, end = line.size();
  for (std::size_t i = 0; i < line.size(); ++i) {
    char c = line[i];
    if (quote_) {
      if (c == quote_) quote_ = 0;  // a doubled quote reopens at once: same effect
    } else if (c == '\'' || c == '"') {
      quote_ = c;
    } else if (c == '-' && i + 1 < line.size() && line[i + 1] == '-') {
      end = i;  // a comment to the end of the line: kept in the text, ';' inside ignored
      break;
    } else if (c == ';') {
      buf_.append(line.substr(start, i - start));
      std::size_t b = buf_.find_first_not_of(" \t\r\n");
      if (b != std::string::npos) out.push_back(buf_.substr(b));
      buf_.clear();
      start = i + 1;
    }
  }
  // Nothing begun and nothing but blanks or a comment left: no statement is pending.
  std::string_view code = line.substr(start, end - start);
  if (buf_.empty() && code.find_first_not_of(" \t\r") == std::string_view::npos) return out;
  std::string rest(line.substr(start));
  buf_ += rest;
  buf_ += '\n';
  return out;
}

std::string StatementSplitter::finish() {
  std::string s;
  std::size_t b = buf_.find_first_not_of(" \t\r\n");
  if (b != std::string::npos) {
    std::size_t e = buf_.find_last_not_of(" \t\r\n");
    s = buf_.substr(b, e - b + 1);
  }
  buf_.clear();
  quote_ = 0;
  return s;
}

bool StatementSplitter::pending() const {
  return buf_.find_first_not_of(" \t\r\n") != std::string::npos;
}

bool changes_rows(std::string_view sql) {
  std::size_t i = 0;
  while (i < sql.size()) {
    if (std::strchr(" \t\r\n(", sql[i])) {
      ++i;
    } else if (sql.substr(i, 2) == "--") {
      i = sql.find('\n', i);
      if (i == std::string_view::npos) return false;
    } else {
      break;
    }
  }
  std::string word;
  for (; i < sql.size() && std::isalpha(static_cast<unsigned char>(sql[i])); ++i)
    word += static_cast<char>(std::toupper(static_cast<unsigned char>(sql[i])));
  for (const char *w : {"INSERT", "UPDATE", "DELETE", "MERGE", "REPLACE", "UPSERT"})
    if (word == w) return true;
  return false;
}

}  // namespace qz::call
