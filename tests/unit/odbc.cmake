# Unit tests of the odbc area.
qz_unit_test(test_format SOURCES test_format.cpp LIBS qzformat)
if(QZ_I386)
  # Under qemu a million values per set take some forty seconds; a tenth keeps it short.
  target_compile_definitions(test_format PRIVATE QZ_FORMAT_SAMPLES=100000)
endif()
qz_unit_test(test_sqltypes SOURCES test_sqltypes.cpp LIBS qzstmtparts)
qz_unit_test(test_varname SOURCES test_varname.cpp LIBS qzstmtparts)
qz_unit_test(test_datetime SOURCES test_datetime.cpp LIBS qzstmtparts)
qz_unit_test(test_numtext SOURCES test_numtext.cpp LIBS qzstmtparts)


# The bridge's registries, packed rows (with the client's reader), the connection object on
# the SQLite driver of the private registration, and the function table of qzodbc.
qz_unit_test(test_odbc_registry SOURCES test_odbc_registry.cpp LIBS qzbridge)
qz_unit_test(test_xpack SOURCES test_xpack.cpp LIBS qzbridge qzclient)
set(odbc_unit_env ODBCSYSINI=${QZ_ODBC_ENV_DIR})
if(QZ_SANITIZE)
  list(APPEND odbc_unit_env LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/env/lsan.supp)
endif()
qz_unit_test(test_odbc_connection SOURCES test_odbc_connection.cpp LIBS qzbridge
             ENV ${odbc_unit_env})
qz_unit_test(test_odbc_table SOURCES test_odbc_table.cpp ${PROJECT_SOURCE_DIR}/dll/odbc/odbc_set.cpp
             LIBS qzbridge)
