# Unit tests of qzcall's parts: the call script notation, value forms, statement splitting,
# the result layouts of the SQL shell.
qz_unit_test(test_qzcall_script SOURCES test_qzcall_script.cpp test_result_view.cpp LIBS qzcalltool)
