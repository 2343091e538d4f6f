// The user's encoding and the conversions of text between it and the server's HP Roman-8.
#pragma once

#include <string>
#include <string_view>

namespace qz::call {

enum class Encoding { utf8, latin1, roman8 };  // the user's text; the server's is Roman-8

// Text conversion between the user's encoding and the server's Roman-8.
std::string to_server(std::string_view text, Encoding e);
std::string from_server(std::string_view text, Encoding e);
// The user's text as ISO 8859-1, the character set on the ODBC side (the catalog
// functions pass their arguments to the driver unconverted).
std::string to_latin1(std::string_view text, Encoding e);

}  // namespace qz::call
