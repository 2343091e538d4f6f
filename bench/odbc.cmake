# Benchmarks of the odbc area.
add_executable(bench_format bench_format.cpp)
target_link_libraries(bench_format PRIVATE qzformat benchmark::benchmark)

# Fetch, FetchArray and ExecuteArray through qzodbc against the same work in-process and
# against pyodbc (bench/peer.py): links the bridge itself (with the server's function
# table, which the callable functions it holds refer to) and the client, and takes the
# connection strings of the ODBC test environment.
add_executable(bench_fetch bench_fetch.cpp bench_arrays.cpp
                           ${PROJECT_SOURCE_DIR}/dll/odbc/odbc_set.cpp)
target_link_libraries(bench_fetch PRIVATE qzbridge qzclient)

# The benchmark's own driver registration: the test environment's drivers, and for
# pyodbc's loads psqlODBC's Unicode driver beside the ANSI one.
set(bench_ini "[QZ SQLite]\nDescription=SQLite 3 through the SQLite ODBC driver\n")
string(APPEND bench_ini "Driver64=${QZ_SQLITE_ODBC_DRIVER}\n")
set(psql_unicode /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/odbc/psqlodbcw.so)
if(QZ_PG)
  string(APPEND bench_ini
         "\n[QZ PostgreSQL]\nDescription=psqlODBC, ANSI driver\nDriver64=${QZ_PSQL_ODBC_DRIVER}\n")
  if(EXISTS ${psql_unicode})
    string(APPEND bench_ini
           "\n[QZ PostgreSQL Unicode]\nDescription=psqlODBC, Unicode driver\nDriver64=${psql_unicode}\n")
  endif()
endif()
if(QZ_MARIADB)
  string(APPEND bench_ini "\n[QZ MariaDB]\nDescription=MariaDB Connector/ODBC\nDriver64=${QZ_MARIADB_ODBC_DRIVER}\n")
endif()
file(GENERATE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/odbc-env/odbcinst.ini CONTENT "${bench_ini}")
