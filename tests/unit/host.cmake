# Unit tests of the host area.
qz_unit_test(test_block SOURCES test_block.cpp LIBS qzhost)
