# Benchmarks of the host area.
add_executable(bench_roundtrip bench_roundtrip.cpp)
target_link_libraries(bench_roundtrip PRIVATE qzclient)
