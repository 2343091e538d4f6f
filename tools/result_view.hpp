// How the SQL shell shows a result set: an aligned table with the column titles, NULL as
// such and a row-count footer, or CSV lines; widths counted in characters of the user's
// encoding, long text cut to a column width.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "encoding.hpp"

namespace qz::call {

using Cell = std::optional<std::string>;  // a value in the user's encoding; empty: NULL
using Row = std::vector<Cell>;

// A result as the table format shows it, held whole so that column widths can be known.
struct ResultView {
  std::vector<std::string> titles;  // column titles, in the user's encoding
  std::vector<bool> right;          // per column: numbers, aligned to the right
  std::vector<Row> rows;            // one Cell per title in each row
};

// Characters in `text`: a UTF-8 sequence counts one in utf8, every byte one otherwise.
std::size_t text_width(std::string_view text, Encoding e);

// "(1 row)", "(3 rows)".
std::string rows_footer(std::size_t n);

// The aligned table: titles, a rule, one line per row, then the footer. Every line starts
// with a blank and has no trailing blanks; columns are separated by " | ". NULL shows as
// NULL; tab, newline and carriage return show as \t \n \r, other control characters as
// '?'. A value or title wider than `max_width` characters (0: no limit, at least 4
// otherwise) is cut and ends with "...".
std::string format_table(const ResultView &v, Encoding e, int max_width);

// One column a line, a record after another, for rows too wide for a table:
// "-[ RECORD n ]", then "title | value" with the titles padded to the widest. Values as
// in the table; "(0 rows)" for none.
std::string format_expanded(const ResultView &v, Encoding e, int max_width);

// One CSV record with its newline: a field is quoted (quotes doubled) when it holds a
// comma, a quote, a newline or a carriage return, or is empty text; NULL is an empty
// unquoted field, so that it differs from empty text.
std::string csv_line(const Row &fields);

}  // namespace qz::call
