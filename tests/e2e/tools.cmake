# Whole-process tests of qzcall against the test server and qzodbc.
qz_e2e_test(test_qzcall SOURCES test_qzcall.cpp ENV QZ_QZCALL=$<TARGET_FILE:qzcall>
            FIXTURES ${QZ_PG_FIXTURE})
add_dependencies(test_qzcall qzcall qzodbc qzhost-test qzfaultodbc)
target_link_libraries(test_qzcall PRIVATE util)
