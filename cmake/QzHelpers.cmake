# Small helpers shared by the subdirectories.

# GoogleTest from Debian's sources, built with this build's flags (so that the
# i386 and the sanitizer builds get a matching library).
macro(qz_use_gtest)
  if(NOT TARGET gtest)
    set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
    set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
    add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
    # Debian's gtest sources do not build cleanly with -Wpedantic -Werror everywhere.
    foreach(t gtest gtest_main gmock gmock_main)
      if(TARGET ${t})
        target_compile_options(${t} PRIVATE -w)
      endif()
    endforeach()
  endif()
endmacro()

# qz_unit_test(NAME SOURCES src... LIBS lib... [LABELS l...] [ENV VAR=value...])
# One GoogleTest executable registered as one CTest test. In the i386 build CTest
# runs it under qemu-i386 through CMAKE_CROSSCOMPILING_EMULATOR.
function(qz_unit_test name)
  cmake_parse_arguments(A "" "" "SOURCES;LIBS;LABELS;ENV" ${ARGN})
  add_executable(${name} ${A_SOURCES})
  # gtest_main first: qzhost also holds a main, which must not be pulled in.
  target_link_libraries(${name} PRIVATE GTest::gtest_main ${A_LIBS} GTest::gtest)
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES LABELS "unit;${A_LABELS}" TIMEOUT 600)
  if(A_ENV)
    set_tests_properties(${name} PROPERTIES ENVIRONMENT "${A_ENV}")
  endif()
endfunction()

# The ODBC test environment (tests/env): where the private odbcinst.ini and the records of
# the throwaway database servers live, the installed drivers of this build's architecture,
# and whether this build has PostgreSQL and MariaDB (x86-64 only: their drivers have no
# i386 packages).
set(QZ_ODBC_ENV_DIR ${CMAKE_BINARY_DIR}/odbc-env)
set(QZ_SQLITE_ODBC_DRIVER /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/odbc/libsqlite3odbc.so)
set(QZ_PSQL_ODBC_DRIVER /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/odbc/psqlodbca.so)
set(QZ_PG OFF)
set(QZ_PG_FIXTURE "")
if(NOT QZ_I386 AND EXISTS ${QZ_PSQL_ODBC_DRIVER} AND EXISTS /usr/lib/postgresql/15/bin/initdb)
  set(QZ_PG ON)
  set(QZ_PG_FIXTURE qz_pg)  # FIXTURES of every test that reaches PostgreSQL
endif()
set(QZ_MARIADB_ODBC_DRIVER /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/odbc/libmaodbc.so)
set(QZ_MARIADB OFF)
if(NOT QZ_I386 AND EXISTS ${QZ_MARIADB_ODBC_DRIVER} AND EXISTS /usr/sbin/mariadbd)
  set(QZ_MARIADB ON)
endif()
# An ASan program refuses to start unless the runtime is the first library it loads, so
# in the sanitizer build the interposer is preloaded after it. The SQLite driver opens
# libodbcinst to read a data source and closes it again, and leak reports of what
# libodbcinst keeps would then name no module: preloaded, it stays and can be suppressed.
set(QZ_PRELOAD_FIRST "")
if(QZ_SANITIZE)
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libasan.so
                  OUTPUT_VARIABLE QZ_PRELOAD_FIRST OUTPUT_STRIP_TRAILING_WHITESPACE)
  string(APPEND QZ_PRELOAD_FIRST ":libodbcinst.so.2:")
endif()

# Environment of every whole-process test and scenario: the servers of this build (in the
# i386 build with the emulator that starts them, QZ_LAUNCHER), the private driver
# registration (ODBCSYSINI), the LD_PRELOAD value that puts the libodbc interposer in
# front (QZ_INTERPOSER), and the records of the database servers this build has.
set(QZ_I386_BUILD_DIR "" CACHE PATH "i386 build directory whose server the x86-64 tests also run")
function(qz_e2e_env out)
  set(env "QZ_SERVER_HOST_TEST=$<TARGET_FILE:qzhost-test>" "QZ_SERVER_ODBC=$<TARGET_FILE:qzodbc>"
          "QZ_SERVER_ODBC_TEST=$<TARGET_FILE:qzodbc-test>" "ODBCSYSINI=${QZ_ODBC_ENV_DIR}"
          "QZ_INTERPOSER=${QZ_PRELOAD_FIRST}$<TARGET_FILE:qzinterpose>")
  if(QZ_PG)
    list(APPEND env "QZ_PG_ENV=${QZ_ODBC_ENV_DIR}/pg-cluster.env")
  endif()
  if(QZ_MARIADB)
    list(APPEND env "QZ_MARIADB_ENV=${QZ_ODBC_ENV_DIR}/mariadb.env")
  endif()
  if(QZ_SANITIZE)
    # Quiet about the suppressions it used: the servers' standard error is compared as text.
    list(APPEND env
         "LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/env/lsan.supp:print_suppressions=0")
  endif()
  if(QZ_I386)
    list(APPEND env "QZ_LAUNCHER=${CMAKE_CROSSCOMPILING_EMULATOR}")
  endif()
  set(${out} "${env}" PARENT_SCOPE)
endfunction()
