# Unit tests of the odbc area.
