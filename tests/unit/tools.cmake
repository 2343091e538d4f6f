# Unit tests of qzcall's parts: the call script notation, value forms, statement splitting.
qz_unit_test(test_qzcall_script SOURCES test_qzcall_script.cpp LIBS qzcalltool)
