# Whole-process tests of the host area.
qz_e2e_test(test_host_process SOURCES test_host_process.cpp)
add_dependencies(test_host_process qzhost-test)
qz_e2e_test(test_dispatch SOURCES test_dispatch.cpp)
add_dependencies(test_dispatch qzhost-test)
