# Benchmarks of the support area.
add_executable(bench_support bench_support.cpp)
target_link_libraries(bench_support PRIVATE qzsupport benchmark::benchmark)
