// The ODBC test environment as tests see it: connection strings for the SQLite driver, the
// PostgreSQL cluster and the fault driver, psql against the cluster for independent checks,
// and the launcher that puts the libodbc interposer in front of a program. Everything comes
// from the variables that CTest sets (qz_e2e_env in cmake/QzHelpers.cmake).
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

extern char **environ;

namespace qz::test::odbc {

// Driver names of the private odbcinst.ini (tests/env/CMakeLists.txt).
inline constexpr const char *sqlite_driver = "QZ SQLite";
inline constexpr const char *pg_driver = "QZ PostgreSQL";
inline constexpr const char *fault_driver = "QZ Fault";

inline std::string env_or_empty(const char *name) {
  const char *v = std::getenv(name);
  return v ? v : "";
}

// A fresh directory under /tmp, removed with everything in it when the object goes.
class TempDir {
 public:
  TempDir() {
    char tmpl[] = "/tmp/qz-odbc.XXXXXX";
    if (mkdtemp(tmpl)) path_ = tmpl;
  }
  ~TempDir() {
    std::error_code ec;
    if (!path_.empty()) std::filesystem::remove_all(path_, ec);
  }
  TempDir(const TempDir &) = delete;
  TempDir &operator=(const TempDir &) = delete;
  const std::string &path() const { return path_; }
  std::string file(const std::string &name) const { return path_ + "/" + name; }

 private:
  std::string path_;  // empty when the directory could not be made
};

// The PostgreSQL cluster of this run, as pg-cluster.sh recorded it.
struct PgCluster {
  std::string dir;       // temporary directory, also the socket directory
  std::string port;      // port number, which names the socket
  std::string user;      // superuser
  std::string database;  // the LATIN1 test database
};

// Reads the record named by QZ_PG_ENV. False when this build has no PostgreSQL or the
// cluster is not running (the fixture test failed or did not run).
inline bool pg_cluster(PgCluster &out) {
  std::string path = env_or_empty("QZ_PG_ENV");
  if (path.empty()) return false;
  std::ifstream in(path);
  std::map<std::string, std::string> vars;
  for (std::string line; std::getline(in, line);) {
    size_t eq = line.find('=');
    if (eq != std::string::npos) vars[line.substr(0, eq)] = line.substr(eq + 1);
  }
  out =
      PgCluster{vars["QZ_PG_DIR"], vars["QZ_PG_PORT"], vars["QZ_PG_USER"], vars["QZ_PG_DATABASE"]};
  return !out.dir.empty() && std::filesystem::exists(out.dir);
}

// Whether this build reaches PostgreSQL: x86-64 only, with the cluster fixture running.
inline bool pg_available() {
  PgCluster c;
  return pg_cluster(c);
}

// SQLite database `db_file` (created on first use) through the SQLite ODBC driver.
inline std::string sqlite_conn(const std::string &db_file) {
  return std::string("Driver={") + sqlite_driver + "};Database=" + db_file;
}

// The test database of the cluster through psqlODBC's ANSI driver. The client encoding is
// pinned to LATIN1: the ANSI driver would otherwise take it from the locale. `extra` is
// appended as further attributes (e.g. "Username=nobody" to be refused).
inline std::string pg_conn(const std::string &extra = "") {
  PgCluster c;
  pg_cluster(c);
  std::string s = std::string("Driver={") + pg_driver + "};Servername=" + c.dir +
                  ";Port=" + c.port + ";Database=" + c.database;
  s += extra.find("Username=") == std::string::npos ? ";Username=" + c.user : "";
  s += ";ConnSettings={SET client_encoding TO 'LATIN1'}";
  if (!extra.empty()) s += ";" + extra;
  return s;
}

// The fault driver over SQLite database `db_file`, failing what `faults` says (rules
// separated by ';', grammar in tests/env/README.md); `trace`, if given, is a file that
// gets one line "FUNCTION RC" per driver call of the connection.
inline std::string fault_conn(const std::string &db_file, const std::string &faults,
                              const std::string &trace = "") {
  std::string s = std::string("Driver={") + fault_driver + "};Database=" + db_file;
  if (!faults.empty()) s += ";QzFault={" + faults + "}";
  if (!trace.empty()) s += ";QzTrace=" + trace;
  return s;
}

// The driver function names of a trace file, in call order.
inline std::vector<std::string> trace_calls(const std::string &trace) {
  std::vector<std::string> out;
  std::ifstream in(trace);
  for (std::string line; std::getline(in, line);)
    out.push_back(line.substr(0, line.find(' ')));
  return out;
}

// Output of a program run to its end.
struct RunResult {
  int status = -1;  // exit status; -1 when it did not exit normally or did not start
  std::string out;  // standard output, bytes as written
  std::string err;  // standard error
};

// Runs argv[0] (searched in PATH) with `extra_env` added to the environment, waits for it
// and collects both output streams (through files, read once it has ended).
inline RunResult run_program(const std::vector<std::string> &argv,
                             const std::vector<std::string> &extra_env = {}) {
  RunResult r;
  TempDir dir;
  const std::string out = dir.file("out"), err = dir.file("err");
  std::vector<std::string> envs;
  for (char **e = environ; *e; e++)
    envs.push_back(*e);
  envs.insert(envs.end(), extra_env.begin(), extra_env.end());
  std::vector<char *> cargv, cenv;
  for (const std::string &a : argv)
    cargv.push_back(const_cast<char *>(a.c_str()));
  for (std::string &e : envs)
    cenv.push_back(e.data());
  cargv.push_back(nullptr);
  cenv.push_back(nullptr);
  posix_spawn_file_actions_t fa;
  posix_spawn_file_actions_init(&fa);
  posix_spawn_file_actions_addopen(&fa, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_addopen(&fa, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  pid_t pid;
  int rc = posix_spawnp(&pid, cargv[0], &fa, nullptr, cargv.data(), cenv.data());
  posix_spawn_file_actions_destroy(&fa);
  if (rc != 0) {
    r.err = "cannot start " + argv[0];
    return r;
  }
  int ws;
  while (waitpid(pid, &ws, 0) < 0 && errno == EINTR) {
  }
  r.status = WIFEXITED(ws) ? WEXITSTATUS(ws) : -1;
  auto text_of = [](const std::string &file) {
    std::ifstream in(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  };
  r.out = text_of(out);
  r.err = text_of(err);
  return r;
}

// Runs `sql` through psql against the cluster's test database, independently of any ODBC
// path: unaligned, tuples only, stops at the first error. The client encoding is LATIN1, so
// stored text comes back as its LATIN1 bytes.
inline RunResult psql(const std::string &sql) {
  std::string state = std::filesystem::path(env_or_empty("QZ_PG_ENV")).parent_path().string();
  return run_program({env_or_empty("QZ_PG_CLUSTER"), "psql", state, "-A", "-t", "-q", "-v",
                      "ON_ERROR_STOP=1", "-c", sql},
                     {"PGCLIENTENCODING=LATIN1"});
}

// The LD_PRELOAD value that puts the libodbc interposer in front: this build's, or with
// `i386` the i386 build's (for the i386 server started by an x86-64 test).
inline std::string interposer_preload(bool i386 = false) {
  return env_or_empty(i386 ? "QZ_ODBC_INTERPOSER_I386" : "QZ_ODBC_INTERPOSER");
}

// Launcher words that start a program with the interposer and `rules` (QZ_ODBC_INTERPOSE).
// A native program is started through env(1); an emulated one (a launcher such as
// "qemu-i386") gets both variables with the emulator's -E option, which sets them for the
// emulated program only. -E splits its argument at commas, so rules for an emulated program
// must not contain any.
inline std::vector<std::string> interposer_launcher(const std::string &rules,
                                                    const std::vector<std::string> &launcher,
                                                    const std::string &preload) {
  std::vector<std::string> out;
  if (launcher.empty()) {
    out = {"/usr/bin/env", "LD_PRELOAD=" + preload, "QZ_ODBC_INTERPOSE=" + rules};
  } else {
    out = launcher;
    out.insert(out.end(), {"-E", "LD_PRELOAD=" + preload, "-E", "QZ_ODBC_INTERPOSE=" + rules});
  }
  return out;
}

}  // namespace qz::test::odbc
