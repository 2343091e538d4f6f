# Benchmarks of the odbc area.
