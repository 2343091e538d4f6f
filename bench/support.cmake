# Benchmarks of the support area.
