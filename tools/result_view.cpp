// The SQL shell's result layouts: the aligned table (display form of each value, column
// widths in characters, cutting of long text) and CSV records.
#include "result_view.hpp"

#include <algorithm>

namespace qz::call {

namespace {

bool continuation(unsigned char c, Encoding e) {
  return e == Encoding::utf8 && (c & 0xC0) == 0x80;
}

// The value as one line of the table: control characters made visible.
std::string displayable(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char ch : text) {
    unsigned char c = static_cast<unsigned char>(ch);
    if (c == '\t')
      out += "\\t";
    else if (c == '\n')
      out += "\\n";
    else if (c == '\r')
      out += "\\r";
    else if (c < 0x20 || c == 0x7F)
      out += '?';
    else
      out += ch;
  }
  return out;
}

// The first `n` characters of `text`.
std::string first_chars(const std::string &text, std::size_t n, Encoding e) {
  std::size_t chars = 0, i = 0;
  for (; i < text.size(); ++i) {
    if (continuation(static_cast<unsigned char>(text[i]), e)) continue;
    if (chars == n) break;
    ++chars;
  }
  return text.substr(0, i);
}

// A cell's text as shown: NULL spelt out, cut to `max_width` characters.
std::string shown(const Cell &c, Encoding e, std::size_t max_width) {
  std::string s = c ? displayable(*c) : "NULL";
  if (max_width > 0 && text_width(s, e) > max_width) s = first_chars(s, max_width - 3, e) + "...";
  return s;
}

void pad(std::string &line, std::size_t n) {
  line.append(n, ' ');
}

}  // namespace

std::size_t text_width(std::string_view text, Encoding e) {
  std::size_t n = 0;
  for (char c : text)
    n += continuation(static_cast<unsigned char>(c), e) ? 0 : 1;
  return n;
}

std::string rows_footer(std::size_t n) {
  // Appended piece by piece: g++ 12 at -O3 warns falsely about "literal" + string.
  std::string s = "(";
  s += std::to_string(n);
  s += n == 1 ? " row)" : " rows)";
  return s;
}

std::string format_table(const ResultView &v, Encoding e, int max_width) {
  const std::size_t limit = max_width <= 0 ? 0 : static_cast<std::size_t>(std::max(max_width, 4));
  const std::size_t ncols = v.titles.size();
  // Every cell in its shown form first, so that each column's width is known.
  std::vector<std::string> titles;
  std::vector<std::size_t> width(ncols);
  for (std::size_t c = 0; c < ncols; ++c) {
    titles.push_back(shown(v.titles[c], e, limit));
    width[c] = text_width(titles[c], e);
  }
  std::vector<std::vector<std::string>> cells;
  cells.reserve(v.rows.size());
  for (const Row &row : v.rows) {
    std::vector<std::string> line;
    for (std::size_t c = 0; c < ncols; ++c) {
      line.push_back(c < row.size() ? shown(row[c], e, limit) : std::string());
      width[c] = std::max(width[c], text_width(line.back(), e));
    }
    cells.push_back(std::move(line));
  }
  auto right = [&](std::size_t c) { return c < v.right.size() && v.right[c]; };
  auto emit = [&](const std::vector<std::string> &line, std::string &out) {
    std::string s;
    for (std::size_t c = 0; c < ncols; ++c) {
      s += c == 0 ? " " : " | ";
      std::size_t gap = width[c] - text_width(line[c], e);
      if (right(c)) pad(s, gap);
      s += line[c];
      if (!right(c)) pad(s, gap);
    }
    s.erase(s.find_last_not_of(' ') + 1);
    out += s;
    out += '\n';
  };
  std::string out;
  emit(titles, out);
  for (std::size_t c = 0; c < ncols; ++c) {
    if (c) out += '+';
    out.append(width[c] + 2, '-');
  }
  out += '\n';
  for (const std::vector<std::string> &line : cells)
    emit(line, out);
  out += rows_footer(v.rows.size());
  out += '\n';
  return out;
}

std::string format_expanded(const ResultView &v, Encoding e, int max_width) {
  const std::size_t limit = max_width <= 0 ? 0 : static_cast<std::size_t>(std::max(max_width, 4));
  std::size_t name_width = 0;
  for (const std::string &t : v.titles)
    name_width = std::max(name_width, text_width(t, e));
  std::string out;
  for (std::size_t r = 0; r < v.rows.size(); ++r) {
    out += "-[ RECORD " + std::to_string(r + 1) + " ]\n";
    for (std::size_t c = 0; c < v.titles.size(); ++c) {
      out += v.titles[c];
      pad(out, name_width - text_width(v.titles[c], e));
      std::string value = c < v.rows[r].size() ? shown(v.rows[r][c], e, limit) : std::string();
      out += value.empty() ? " |" : " | " + value;
      out += '\n';
    }
  }
  if (v.rows.empty()) out += "(0 rows)\n";
  return out;
}

std::string csv_line(const Row &fields) {
  std::string out;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (i) out += ',';
    if (!fields[i]) continue;  // NULL: nothing between the commas
    const std::string &f = *fields[i];
    if (!f.empty() && f.find_first_of(",\"\n\r") == std::string::npos) {
      out += f;
      continue;
    }
    out += '"';
    for (char c : f) {
      if (c == '"') out += '"';
      out += c;
    }
    out += '"';
  }
  out += '\n';
  return out;
}

}  // namespace qz::call
