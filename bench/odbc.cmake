# Benchmarks of the odbc area.
add_executable(bench_format bench_format.cpp)
target_link_libraries(bench_format PRIVATE qzformat benchmark::benchmark)
