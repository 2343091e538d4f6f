# Unit tests of the host area.
qz_unit_test(test_qzstr SOURCES test_qzstr.cpp LIBS qzhost)
qz_unit_test(test_functable SOURCES test_functable.cpp ${PROJECT_SOURCE_DIR}/tests/process/test_funcs.cpp
             LIBS qzhost)
