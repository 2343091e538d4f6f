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
  target_link_libraries(${name} PRIVATE ${A_LIBS} GTest::gtest GTest::gtest_main)
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES LABELS "unit;${A_LABELS}" TIMEOUT 600)
  if(A_ENV)
    set_tests_properties(${name} PROPERTIES ENVIRONMENT "${A_ENV}")
  endif()
endfunction()
