# Benchmarks of the math area: ns per operation of the conversions and the arithmetic.
add_executable(bench_math math/bench_math.cpp)
target_link_libraries(bench_math PRIVATE qzmath benchmark::benchmark)
