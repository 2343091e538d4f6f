# Whole-process tests of the odbc area.
