// query: runs one SQL query through qzodbc and prints each row of its result.
//   query SERVER CONNSTR SQL
//   query /usr/bin/qzodbc "Driver={SQLite3};Database=/tmp/t.db" "SELECT * FROM t"
#include <cstdio>
#include <qzclient.hpp>

using qz::client::Arg;
using qz::client::CallResult;
using qz::client::Session;

// Says why a call failed: no answer, or its status and the driver's diagnostics.
static int report(Session &s, const char *what, const CallResult &r) {
  if (!r.ok()) {
    std::fprintf(stderr, "%s: %s\n", what, r.error.c_str());
    return 1;
  }
  std::fprintf(stderr, "%s: status %d\n", what, r.status);
  for (;;) {  // GetError(Message, SqlState, NativeCode, HasData) until HasData is 0
    CallResult e = s.call("GetError", {Arg::string_var("", 1000), Arg::string_var("", 5),
                                       Arg::int_var(), Arg::int_var()});
    if (!e.ok() || e.status != 0 || e.args[3].as_int() == 0) break;
    std::fprintf(stderr, "  %s %s\n", e.args[1].as_string().c_str(), e.args[0].as_string().c_str());
  }
  return 1;
}

int main(int argc, char **argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: query SERVER CONNSTR SQL\n");
    return 2;
  }
  qz::client::block_call_signal();  // before any thread starts: answers come as SIGUSR2
  qz::client::Options options;
  options.server = argv[1];
  Session s;
  if (!s.start(options)) {
    std::fprintf(stderr, "%s\n", s.error().c_str());
    return 1;
  }
  // Text goes as it is: the server takes it as HP Roman-8.
  CallResult r = s.call("Connect", {Arg::string(argv[2]), Arg::int_var()});
  if (!r.ok() || r.status != 0) return report(s, "Connect", r);
  const int conn = r.args[1].as_int();
  r = s.call("ExecDirect", {Arg::integer(conn), Arg::string(argv[3]), Arg::int_var()});
  if (!r.ok() || r.status != 0) return report(s, "ExecDirect", r);
  const int stmt = r.args[2].as_int();
  for (;;) {
    // The status variable becomes 1 for a row, 0 after the last; the row comes packed.
    r = s.call("Fetch", {Arg::integer(stmt), Arg::int_var(), Arg::string_var("", 65536)});
    if (!r.ok() || r.status != 0) return report(s, "Fetch", r);
    if (r.args[1].as_int() == 0) break;
    qz::client::PackedRow row = qz::client::read_packed_row(r.args[2].as_string());
    for (std::size_t k = 0; k < row.entries.size(); ++k)
      std::printf("%s%s=%s", k ? " " : "", row.entries[k].name.c_str(),
                  row.entries[k].value.c_str());
    std::printf("\n");
  }
  s.call("DropStatement", {Arg::integer(stmt)});
  s.call("Disconnect", {Arg::integer(conn)});
  qz::client::ExitInfo end = s.stop();  // SIGTERM: the server releases all and exits 0
  return end.exited && end.code == 0 ? 0 : 1;
}
