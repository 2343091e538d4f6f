// The interpreter's values as call scripts write them and qzcall prints them: a value (a
// scalar or an array of one type) and its text forms, which read back as the same value.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "qzclient.hpp"

namespace qz::call {

// A value of the interpreter: a scalar or an array of one type.
struct Value {
  int type = client::kInteger;            // client::kInteger, kReal or kString
  bool array = false;                     // written as [...]: an array even of one element
  std::vector<std::int32_t> ints;         // kInteger elements
  std::vector<client::Decimal> reals;     // kReal elements
  std::vector<std::string> strings;       // kString elements, bytes as they are
  std::size_t count() const;              // number of elements
  bool operator==(const Value &o) const;  // same type, shape and elements (reals by bytes)
};

// A string literal that reads back as the same bytes: printable ASCII as it is, '"' and
// '\' escaped, \n \t \r, every other byte as \xNN.
std::string quote(std::string_view bytes);
// A decimal record's exact value: "0.1", "-12.5", "3.0", "1.5e+100", "null". Always with
// a point or an exponent, so that it reads back as a real.
std::string format_decimal(const client::Decimal &d);
// Parses a real literal exactly (no binary double in between). False for text that is not
// a number or out of the record's range; `why` then says which.
bool parse_decimal(std::string_view text, client::Decimal &out, std::string &why);
// A value as the notation writes it: 42, 2.5, "text", [1, 2].
std::string format_value(const Value &v);

}  // namespace qz::call
