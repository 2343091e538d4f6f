// The variable name a program may use for a result column, derived from the column's
// title: short plain titles become capitalised names, anything else "Column_<n>".
#pragma once

namespace qz {

// Longest variable name, NUL included: 15 title characters or "Column_-2147483648".
constexpr int kVarnameSize = 20;

// Writes the variable name of column column_no (1-based) with the NUL-terminated title
// (already in the interpreter's character set) into out and returns its length.
// A title of at most 15 characters that starts with an ASCII letter and goes on with
// ASCII letters, digits, white space, "_" or "." is used with its first character in
// upper case, "." and white space turned to "_" and the rest in lower case ("ORDER DATE"
// gives "Order_date"); an empty title gives an empty name; every other title, including
// one with a byte of 128 or above among its first 15, gives "Column_<column_no>". The
// tests are plain ASCII and do not depend on the C locale.
int derive_varname(const char *title, int column_no, char (&out)[kVarnameSize]);

}  // namespace qz
