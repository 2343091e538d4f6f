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

# Environment every whole-process test gets: the servers of this build, and in the
# i386 build the emulator that starts them.
set(QZ_I386_BUILD_DIR "" CACHE PATH "i386 build directory whose servers the x86-64 tests also run")
function(qz_e2e_env out)
  set(env "QZ_SERVER_HOST_TEST=$<TARGET_FILE:qzhost-test>")
  if(TARGET qzodbc)
    list(APPEND env "QZ_SERVER_ODBC=$<TARGET_FILE:qzodbc>")
  endif()
  if(QZ_I386)
    list(APPEND env "QZ_LAUNCHER=${CMAKE_CROSSCOMPILING_EMULATOR}")
  elseif(QZ_I386_BUILD_DIR)
    list(APPEND env "QZ_SERVER_HOST_TEST_I386=${QZ_I386_BUILD_DIR}/tests/host/qzhost-test")
    list(APPEND env "QZ_SERVER_ODBC_I386=${QZ_I386_BUILD_DIR}/dll/qzodbc")
  endif()
  set(${out} "${env}" PARENT_SCOPE)
endfunction()

# qz_e2e_test(NAME SOURCES src... [LIBS lib...] [ENV VAR=value...] [FIXTURES f...])
# A whole-process test: a GoogleTest program that starts servers through libqzclient.
function(qz_e2e_test name)
  cmake_parse_arguments(A "" "" "SOURCES;LIBS;ENV;FIXTURES" ${ARGN})
  add_executable(${name} ${A_SOURCES})
  target_link_libraries(${name} PRIVATE GTest::gtest_main qzclient ${A_LIBS} GTest::gtest)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests/e2e)
  add_test(NAME ${name} COMMAND ${name})
  qz_e2e_env(env)
  set_tests_properties(${name} PROPERTIES LABELS e2e TIMEOUT 900 ENVIRONMENT "${env};${A_ENV}")
  if(A_FIXTURES)
    set_tests_properties(${name} PROPERTIES FIXTURES_REQUIRED "${A_FIXTURES}")
  endif()
endfunction()
