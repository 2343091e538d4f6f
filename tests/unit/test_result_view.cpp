// The SQL shell's result layouts without a server: the aligned table (widths in
// characters, numbers to the right, NULL, control characters, cutting of long text) and
// CSV records (quoting, NULL against empty text).
#include <gtest/gtest.h>

#include "result_view.hpp"

namespace {

using qz::call::Cell;
using qz::call::Encoding;
using qz::call::ResultView;
using qz::call::Row;

TEST(Table, ColumnsAlignNumbersRightAndNullShows) {
  ResultView v;
  v.titles = {"id", "name", "paid"};
  v.right = {true, false, true};
  v.rows = {{"1",
             "Ren\xc3\xa9"
             "e",
             "12.5"},
            {"20", Cell(), Cell()},
            {"3", "", "0"}};
  // "Renée" is five characters in seven bytes: its column is five wide.
  EXPECT_EQ(qz::call::format_table(v, Encoding::utf8, 40),
            " id | name  | paid\n"
            "----+-------+------\n"
            "  1 | Ren\xc3\xa9"
            "e | 12.5\n"
            " 20 | NULL  | NULL\n"
            "  3 |       |    0\n"
            "(3 rows)\n");
  // In a one-byte encoding every byte is a character.
  v.rows = {{"1", "caf\xe9", "1"}};
  EXPECT_EQ(qz::call::format_table(v, Encoding::latin1, 40),
            " id | name | paid\n"
            "----+------+------\n"
            "  1 | caf\xe9 |    1\n"
            "(1 row)\n");
}

TEST(Table, AResultWithoutRowsKeepsItsTitles) {
  ResultView v;
  v.titles = {"?column?"};
  v.right = {true};
  EXPECT_EQ(qz::call::format_table(v, Encoding::utf8, 40),
            " ?column?\n"
            "----------\n"
            "(0 rows)\n");
}

// `n` times the two-byte UTF-8 e acute.
std::string e_acute(int n) {
  std::string s;
  for (int i = 0; i < n; ++i)
    s += "\xc3\xa9";
  return s;
}

TEST(Table, LongTextIsCutAtTheWidthAndControlCharactersShow) {
  ResultView v;
  v.titles = {"t"};
  v.rows = {{std::string(12, 'x')}, {"a\tb\nc\rd\x01"}, {e_acute(11)}};
  // Ten characters at most: seven kept, then "..."; a cut never splits a UTF-8 sequence.
  EXPECT_EQ(qz::call::format_table(v, Encoding::utf8, 10),
            " t\n"
            "------------\n"
            " xxxxxxx...\n"
            " a\\tb\\nc...\n"
            " " +
                e_acute(7) +
                "...\n"
                "(3 rows)\n");
  // No limit: shown whole. A limit below four still leaves one character and "...".
  EXPECT_EQ(qz::call::format_table(v, Encoding::utf8, 0),
            " t\n"
            "--------------\n"
            " xxxxxxxxxxxx\n"
            " a\\tb\\nc\\rd?\n"
            " " +
                e_acute(11) +
                "\n"
                "(3 rows)\n");
  v.rows.resize(1);
  EXPECT_EQ(qz::call::format_table(v, Encoding::utf8, 2), " t\n------\n x...\n(1 row)\n");
}

TEST(Table, WidthsAndFooters) {
  EXPECT_EQ(qz::call::text_width("J\xc3\xbcrgen", Encoding::utf8), 6u);
  EXPECT_EQ(qz::call::text_width("J\xc3\xbcrgen", Encoding::roman8), 7u);
  EXPECT_EQ(qz::call::rows_footer(0), "(0 rows)");
  EXPECT_EQ(qz::call::rows_footer(1), "(1 row)");
  EXPECT_EQ(qz::call::rows_footer(2), "(2 rows)");
}

TEST(Csv, QuotingAndNullAgainstEmptyText) {
  EXPECT_EQ(qz::call::csv_line({"1", "plain", "x y"}), "1,plain,x y\n");
  EXPECT_EQ(qz::call::csv_line({"a,b", "say \"hi\"", "two\nlines", "cr\r"}),
            "\"a,b\",\"say \"\"hi\"\"\",\"two\nlines\",\"cr\r\"\n");
  // NULL is nothing between the commas; empty text is quoted.
  EXPECT_EQ(qz::call::csv_line({Cell(), "", Cell()}), ",\"\",\n");
  EXPECT_EQ(qz::call::csv_line(Row{Cell()}), "\n");
}

}  // namespace
