# Whole-process tests of the odbc area.

# The ODBC test environment itself, through the driver manager: the private registration,
# the PostgreSQL cluster (x86-64), the fault driver and the interposer.
find_library(QZ_ODBC_LIBRARY odbc REQUIRED)
qz_e2e_test(test_odbc_env SOURCES test_odbc_env.cpp LIBS ${QZ_ODBC_LIBRARY}
            FIXTURES ${QZ_PG_FIXTURE})
add_dependencies(test_odbc_env qzfaultodbc qzodbcinterpose)
