# Benchmarks of the host area.
