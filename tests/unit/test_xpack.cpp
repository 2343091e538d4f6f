// Packed rows: the server's writer (xpack_*) byte for byte, its room rules at the exact
// boundaries, and the client's reader on what the writer produces and on malformed text.
#include <gtest/gtest.h>

#include <string>

#include "bridge.hpp"
#include "qzclient.hpp"
#include "util.hpp"

namespace {

using qz::client::PackedEntry;
using qz::client::read_packed_row;

// An interpreter string variable of the given capacity, prefilled with '#' so that bytes
// written past the length would show.
struct Buffer {
  explicit Buffer(int capacity) : bytes(static_cast<std::size_t>(capacity), '#') {
    str = QzStr{capacity, 7, bytes.data()};
  }
  std::string text() const { return std::string(str.text, static_cast<std::size_t>(str.len)); }
  std::string bytes;
  QzStr str;
};

TEST(XpackWriter, TheTwoColumnExample) {
  Buffer b(100);
  xpack_begin(&b.str);
  EXPECT_EQ(b.str.len, 0);
  EXPECT_EQ(xpack_var(&b.str, nullptr, "Qty", 1, 0, "42"), qz::kOk);
  EXPECT_EQ(xpack_var(&b.str, nullptr, "Name", 0, 0, "Smith"), qz::kOk);
  EXPECT_EQ(xpack_end(&b.str), qz::kOk);
  EXPECT_EQ(b.text(), "NQty~0~2~42XName~0~5~Smith$");
  EXPECT_EQ(b.str.len, 27);
  EXPECT_EQ(b.bytes[27], '#');
}

TEST(XpackWriter, PrefixNegativeNumberEmptyAndNullValues) {
  Buffer b(200);
  xpack_begin(&b.str);
  EXPECT_EQ(xpack_var(&b.str, "row.", "Id", 1, -2147483647 - 1, "-5"), qz::kOk);
  EXPECT_EQ(xpack_var(&b.str, nullptr, "Empty", 0, 0, ""), qz::kOk);
  EXPECT_EQ(xpack_var(&b.str, nullptr, "Null", 1, 3, nullptr), qz::kOk);
  EXPECT_EQ(xpack_var(&b.str, nullptr, "", 0, 0, "~$~"), qz::kOk);
  EXPECT_EQ(xpack_end(&b.str), qz::kOk);
  EXPECT_EQ(b.text(), "Nrow.Id~-2147483648~2~-5XEmpty~0~0~NNull~3~0~X~0~3~~$~$");
}

// The room test asks one byte more than the entry needs, so the terminator always fits.
TEST(XpackWriter, RoomBoundaries) {
  const std::string entry = "XName~0~3~abc";
  const int size = static_cast<int>(entry.size());
  for (int start : {0, 5}) {
    {
      Buffer b(start + size);  // free space equal to the entry: refused, nothing written
      b.str.len = start;
      EXPECT_EQ(xpack_var(&b.str, nullptr, "Name", 0, 0, "abc"), qz::kNoRoom);
      EXPECT_EQ(b.str.len, start);
      EXPECT_EQ(b.bytes, std::string(static_cast<std::size_t>(start + size), '#'));
    }
    {
      Buffer b(start + size + 1);  // one byte more: accepted, one byte left for '$'
      b.str.len = start;
      EXPECT_EQ(xpack_var(&b.str, nullptr, "Name", 0, 0, "abc"), qz::kOk);
      EXPECT_EQ(b.str.len, start + size);
      EXPECT_EQ(xpack_end(&b.str), qz::kOk);
      EXPECT_EQ(b.str.len, b.str.maxlen);
      EXPECT_EQ(b.bytes.substr(static_cast<std::size_t>(start)), entry + "$");
      EXPECT_EQ(xpack_end(&b.str), qz::kNoRoom);  // full
      EXPECT_EQ(b.str.len, b.str.maxlen);
    }
  }
  Buffer empty(0);
  xpack_begin(&empty.str);
  EXPECT_EQ(xpack_end(&empty.str), qz::kNoRoom);
  EXPECT_EQ(empty.str.len, 0);
}

// A row that ran out of room keeps its complete entries: the reader sees them and the
// missing terminator.
TEST(XpackWriter, FullBufferLeavesTheEntriesWrittenSoFar) {
  Buffer b(30);
  xpack_begin(&b.str);
  EXPECT_EQ(xpack_var(&b.str, nullptr, "A", 1, 0, "1"), qz::kOk);
  EXPECT_EQ(xpack_var(&b.str, nullptr, "B", 0, 0, std::string(40, 'x').c_str()), qz::kNoRoom);
  EXPECT_EQ(b.text(), "NA~0~1~1");
  qz::client::PackedRow row = read_packed_row(b.text());
  EXPECT_FALSE(row.ok());
  EXPECT_EQ(row.error, "no terminator");
  ASSERT_EQ(row.entries.size(), 1u);
  EXPECT_EQ(row.entries[0].value, "1");
}

TEST(XpackReader, ReadsWhatTheWriterWrote) {
  Buffer b(500);
  xpack_begin(&b.str);
  const std::string tricky = "a~2~b$X~0~1~";  // delimiters inside a value are data
  ASSERT_EQ(xpack_var(&b.str, nullptr, "Note", 0, -12, tricky.c_str()), qz::kOk);
  ASSERT_EQ(xpack_var(&b.str, nullptr, "Qty", 1, 0, "42"), qz::kOk);
  ASSERT_EQ(xpack_var(&b.str, nullptr, "Nothing", 1, 0, nullptr), qz::kOk);
  ASSERT_EQ(xpack_end(&b.str), qz::kOk);
  qz::client::PackedRow row = read_packed_row(b.text());
  ASSERT_TRUE(row.ok()) << row.error << " at " << row.error_offset;
  ASSERT_EQ(row.entries.size(), 3u);
  auto same = [](const PackedEntry &e, bool numeric, const char *name, int number,
                 const std::string &value) {
    return e.numeric == numeric && e.name == name && e.number == number && e.value == value;
  };
  EXPECT_TRUE(same(row.entries[0], false, "Note", -12, tricky));
  EXPECT_TRUE(same(row.entries[1], true, "Qty", 0, "42"));
  EXPECT_TRUE(same(row.entries[2], true, "Nothing", 0, ""));
  EXPECT_TRUE(read_packed_row("$").ok());  // a row without columns
  EXPECT_TRUE(read_packed_row("$").entries.empty());
}

TEST(XpackReader, MalformedRowsAreReportedWhereTheyGoWrong) {
  struct Case {
    std::string text;
    const char *error;
    std::size_t offset;
    std::size_t entries;
  };
  for (const Case &c : {
           Case{"", "no terminator", 0, 0},
           Case{"NA~0~1~1", "no terminator", 8, 1},
           Case{"$$", "bytes after the terminator", 1, 0},
           Case{"NA~0~1~1$x", "bytes after the terminator", 9, 1},
           Case{"ZA~0~1~1$", "bad lead byte", 0, 0},
           Case{"NA~0~1~1QB~0~1~1$", "bad lead byte", 8, 1},
           Case{"NA", "name without '~'", 0, 0},
           Case{"NA~~1~1$", "bad number field", 0, 0},
           Case{"NA~-~1~1$", "bad number field", 0, 0},
           Case{"NA~1x~1~1$", "bad number field", 0, 0},
           Case{"NA~2147483648~1~1$", "bad number field", 0, 0},
           Case{"NA~-2147483649~1~1$", "bad number field", 0, 0},
           Case{"NA~99999999999999999999~1~1$", "bad number field", 0, 0},
           Case{"NA~0~-1~1$", "bad length field", 0, 0},
           Case{"NA~0~1", "bad length field", 0, 0},
           Case{"NA~0~5~abc$", "value runs past the end", 0, 0},
           Case{"NA~0~4~abc$", "no terminator", 11, 1},
       }) {
    qz::client::PackedRow row = read_packed_row(c.text);
    EXPECT_EQ(row.error, c.error) << c.text;
    EXPECT_EQ(row.error_offset, c.offset) << c.text;
    EXPECT_EQ(row.entries.size(), c.entries) << c.text;
  }
  qz::client::PackedRow min = read_packed_row("NA~-2147483648~0~$");
  ASSERT_TRUE(min.ok()) << min.error;
  EXPECT_EQ(min.entries[0].number, -2147483647 - 1);
}

}  // namespace
