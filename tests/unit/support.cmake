# Unit tests of the support area.
qz_unit_test(test_log SOURCES test_log.cpp LIBS qzsupport)
qz_unit_test(test_log_defaults SOURCES test_log_defaults.cpp LIBS qzsupport)
qz_unit_test(test_charset SOURCES test_charset.cpp LIBS qzsupport)
qz_unit_test(test_llist SOURCES test_llist.cpp LIBS qzsupport)
