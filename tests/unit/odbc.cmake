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


