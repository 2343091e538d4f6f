# Whole-process tests of the odbc area.

# The ODBC test environment itself, through the driver manager: the private registration,
# the PostgreSQL cluster (x86-64), the fault driver and the interposer.
find_library(QZ_ODBC_LIBRARY odbc REQUIRED)
qz_e2e_test(test_odbc_env SOURCES test_odbc_env.cpp LIBS ${QZ_ODBC_LIBRARY}
            FIXTURES ${QZ_PG_FIXTURE})
add_dependencies(test_odbc_env qzfaultodbc qzodbcinterpose)

# qzodbc-test: qzodbc's function table plus rows that only tests use (allocation failures,
# options read back, a statement with diagnostics on every handle level).
add_executable(qzodbc-test odbc_test_funcs.cpp)
target_link_libraries(qzodbc-test PRIVATE qzbridge)

# Connections, diagnostics, settings and shutdown through the real servers.
qz_e2e_test(test_connections SOURCES test_connections.cpp
            ENV QZ_SERVER_ODBC_TEST=$<TARGET_FILE:qzodbc-test>
            FIXTURES ${QZ_PG_FIXTURE})
target_include_directories(test_connections PRIVATE ${PROJECT_SOURCE_DIR}/dll/odbc
                                                    ${PROJECT_SOURCE_DIR}/support)
add_dependencies(test_connections qzodbc qzodbc-test qzfaultodbc qzodbcinterpose)

# Statements, parameters, results and data on SQLite and PostgreSQL.
qz_e2e_test(test_statements SOURCES test_statements.cpp FIXTURES ${QZ_PG_FIXTURE})
target_include_directories(test_statements PRIVATE ${PROJECT_SOURCE_DIR}/dll/odbc
                                                   ${PROJECT_SOURCE_DIR}/support)
add_dependencies(test_statements qzodbc)

# What one driver alone expresses: typed parameters and NUMERIC rules on PostgreSQL, the
# fault driver's work-arounds and failures, SIGTERM with sessions open or a statement
# running in the database.
qz_e2e_test(test_statement_drivers SOURCES test_statement_drivers.cpp
            ENV QZ_SERVER_ODBC_TEST=$<TARGET_FILE:qzodbc-test> FIXTURES ${QZ_PG_FIXTURE})
target_include_directories(test_statement_drivers PRIVATE ${PROJECT_SOURCE_DIR}/dll/odbc
                                                          ${PROJECT_SOURCE_DIR}/support)
add_dependencies(test_statement_drivers qzodbc qzodbc-test qzfaultodbc)

# The fetch benchmark's two routes give the same bytes: Fetch through qzodbc, and the
# bridge's statement object in the test process with qz::pack_row.
qz_e2e_test(test_fetch_routes SOURCES test_fetch_routes.cpp
            ${PROJECT_SOURCE_DIR}/dll/odbc/odbc_set.cpp LIBS qzbridge FIXTURES ${QZ_PG_FIXTURE})
target_include_directories(test_fetch_routes PRIVATE ${PROJECT_SOURCE_DIR}/support)
add_dependencies(test_fetch_routes qzodbc)
