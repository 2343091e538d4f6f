# Benchmarks of the host area.
add_executable(bench_roundtrip bench_roundtrip.cpp)
target_link_libraries(bench_roundtrip PRIVATE qzclient)
add_executable(bench_dispatch bench_dispatch.cpp ${PROJECT_SOURCE_DIR}/tests/process/test_funcs.cpp)
target_link_libraries(bench_dispatch PRIVATE benchmark::benchmark qzhost qzclient)
