// What whole-process tests need to start servers: paths and the launcher come from the
// environment that CTest sets for them.
#pragma once

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "qzclient.hpp"

namespace qz::test {

inline std::string env(const char *name) {
  const char *v = std::getenv(name);
  return v ? v : "";
}

// Words of a launcher command such as "qemu-i386" (empty for native programs).
inline std::vector<std::string> words(const std::string &text) {
  std::istringstream in(text);
  std::vector<std::string> out;
  for (std::string w; in >> w;)
    out.push_back(w);
  return out;
}

// Options for a server of this build (QZ_SERVER_<name> and QZ_LAUNCHER).
inline client::Options server_options(const char *var, client::Layout layout) {
  client::Options o;
  o.server = env(var);
  o.launcher = words(env("QZ_LAUNCHER"));
  o.layout = layout;
  o.timeout = std::chrono::milliseconds(20000);
  return o;
}

inline bool emulated() {
  return !env("QZ_LAUNCHER").empty();
}

inline const char *layout_name(client::Layout l) {
  return l == client::Layout::bits64 ? "bits64" : "bits32";
}

}  // namespace qz::test
