// qzcall's hold on its server: finding the qzodbc program, starting it as the interpreter
// does, replacing it, and stopping it; and the signals a person sends meanwhile.
#pragma once

#include <string>

#include "qzclient.hpp"

namespace qz::call {

// The server: `given` as is (searched in PATH without a '/'), else the qzodbc installed
// next to qzcall, else the one of the build tree, else PATH. False (said) when none is.
bool find_server(const std::string &given, std::string &out);

// Starts the server; false (said) when it cannot be. From then on Ctrl-C during a call
// interrupts the call (the first time: its statement is cancelled; the second: the server
// is ended), Ctrl-C at the shell's prompt discards the line, and any other interrupt
// stops the server and ends qzcall (status 128 + the signal).
bool start_server(client::Session &s, const client::Options &opt);

// A fresh server on the session after the last one ended; false (said) when it cannot start.
bool restart_server(client::Session &s);

// Stops the server; false (said) when it ended otherwise than with status 0.
bool stop_server(client::Session &s);

}  // namespace qz::call
