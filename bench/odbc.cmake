# Benchmarks of the odbc area.
add_executable(bench_format bench_format.cpp)
target_link_libraries(bench_format PRIVATE qzformat benchmark::benchmark)

# Fetch through qzodbc against the same work in-process: links the bridge itself (with the
# server's function table, which the callable functions it holds refer to) and the
# client, and takes the connection strings of the ODBC test environment.
add_executable(bench_fetch bench_fetch.cpp ${PROJECT_SOURCE_DIR}/dll/odbc/odbc_set.cpp)
target_link_libraries(bench_fetch PRIVATE qzbridge qzclient)
