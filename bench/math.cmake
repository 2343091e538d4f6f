# Benchmarks of the math area.
