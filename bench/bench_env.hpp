// Where the benchmarks find their databases: a temporary directory for SQLite, and the
// PostgreSQL cluster and MariaDB server that bench/report starts (their records named by
// QZ_PG_ENV and QZ_MARIADB_ENV).
#pragma once

#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

namespace qz::bench {

// A fresh directory under /tmp, removed with everything in it when the object goes.
class TempDir {
 public:
  TempDir() {
    char tmpl[] = "/tmp/qz-bench-db.XXXXXX";
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
  std::string path_;
};

inline std::string sqlite_conn(const std::string &db_file) {
  return "Driver={QZ SQLite};Database=" + db_file;
}

// The variables of the record that the environment variable `record` names (the
// cluster's QZ_PG_DIR, QZ_PG_PORT, ...; the MariaDB server's QZ_MARIADB_SOCKET, ...);
// empty when there is none.
inline std::map<std::string, std::string> pg_cluster(const char *record = "QZ_PG_ENV") {
  std::map<std::string, std::string> vars;
  const char *path = std::getenv(record);
  std::ifstream in(path ? path : "");
  for (std::string line; std::getline(in, line);)
    if (line.find('=') != std::string::npos)
      vars[line.substr(0, line.find('='))] = line.substr(line.find('=') + 1);
  return vars;
}

inline bool pg_available() {
  auto v = pg_cluster();
  return !v["QZ_PG_DIR"].empty() && std::filesystem::exists(v["QZ_PG_DIR"]);
}

// The cluster's database through psqlODBC's ANSI driver, client encoding pinned to LATIN1.
inline std::string pg_conn() {
  auto v = pg_cluster();
  return "Driver={QZ PostgreSQL};Servername=" + v["QZ_PG_DIR"] + ";Port=" + v["QZ_PG_PORT"] +
         ";Database=" + v["QZ_PG_DATABASE"] + ";Username=" + v["QZ_PG_USER"] +
         ";ConnSettings={SET client_encoding TO 'LATIN1'}";
}

// The same database through psqlODBC's Unicode driver, which the benchmark registers for
// pyodbc's loads: pyodbc binds text as wide characters, which the ANSI driver may refuse.
inline std::string pg_unicode_conn() {
  auto v = pg_cluster();
  return "Driver={QZ PostgreSQL Unicode};Servername=" + v["QZ_PG_DIR"] +
         ";Port=" + v["QZ_PG_PORT"] + ";Database=" + v["QZ_PG_DATABASE"] +
         ";Username=" + v["QZ_PG_USER"];
}

inline bool mariadb_available() {
  auto v = pg_cluster("QZ_MARIADB_ENV");
  return !v["QZ_MARIADB_SOCKET"].empty() && std::filesystem::exists(v["QZ_MARIADB_SOCKET"]);
}

// The MariaDB server's latin1 database through MariaDB's driver, exchanging ISO 8859-1.
inline std::string mariadb_conn() {
  auto v = pg_cluster("QZ_MARIADB_ENV");
  return "Driver={QZ MariaDB};Socket=" + v["QZ_MARIADB_SOCKET"] +
         ";Database=" + v["QZ_MARIADB_DATABASE"] + ";User=" + v["QZ_MARIADB_USER"] +
         ";Charset=latin1";
}

}  // namespace qz::bench
