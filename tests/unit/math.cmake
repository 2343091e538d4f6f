# Unit tests of the math area: documented examples and edge cases, the fatal stops, the
# C interface through the shared library, the library's imports, and randomized
# cross-checks against an oracle written in Python from the design's words.
set(QZ_MATH_TESTS ${CMAKE_CURRENT_SOURCE_DIR}/math)

qz_unit_test(math_decimal SOURCES ${QZ_MATH_TESTS}/test_decimal.cpp LIBS qzmath)
target_include_directories(math_decimal PRIVATE ${QZ_MATH_TESTS})

qz_unit_test(math_shared SOURCES ${QZ_MATH_TESTS}/test_shared.cpp ${QZ_MATH_TESTS}/test_header.c
             LIBS qzmath_shared)

# The library ends the process only through abort (its fatal stops and assertion).
add_test(NAME math_imports
         COMMAND ${CMAKE_COMMAND} -DNM=${CMAKE_NM} -DLIB=$<TARGET_FILE:qzmath_shared>
                 -P ${QZ_MATH_TESTS}/check_imports.cmake)
set_tests_properties(math_imports PROPERTIES LABELS unit)

# The oracle writes its vectors before the cross-check runs (a CTest fixture).
find_package(Python3 COMPONENTS Interpreter REQUIRED)
set(QZ_MATH_VECTORS ${CMAKE_CURRENT_BINARY_DIR}/decimal_vectors.bin)
add_test(NAME math_oracle_vectors
         COMMAND ${Python3_EXECUTABLE} ${QZ_MATH_TESTS}/decimal_oracle.py ${QZ_MATH_VECTORS} 100000)
set_tests_properties(math_oracle_vectors PROPERTIES FIXTURES_SETUP math_vectors LABELS unit)
qz_unit_test(math_oracle SOURCES ${QZ_MATH_TESTS}/test_decimal_oracle.cpp LIBS qzmath
             ENV QZ_MATH_VECTORS=${QZ_MATH_VECTORS})
target_include_directories(math_oracle PRIVATE ${QZ_MATH_TESTS})
set_tests_properties(math_oracle PROPERTIES FIXTURES_REQUIRED math_vectors)

# The direct double conversions against their text routes on ten million operands.
# Ten million each natively (about ten seconds); the sanitizer build and the i386 build
# (emulated, about 8 us a conversion) check one million unless QZ_ROUTES_COUNT is set in
# the environment when the build is configured.
if(QZ_SANITIZE OR QZ_I386)
  set(qz_routes_env QZ_ROUTES_COUNT=1000000)
else()
  set(qz_routes_env QZ_ROUTES_COUNT=10000000)
endif()
if(DEFINED ENV{QZ_ROUTES_COUNT})
  set(qz_routes_env QZ_ROUTES_COUNT=$ENV{QZ_ROUTES_COUNT})
endif()
qz_unit_test(math_routes SOURCES ${QZ_MATH_TESTS}/test_decimal_routes.cpp LIBS qzmath
             ENV ${qz_routes_env})
target_include_directories(math_routes PRIVATE ${QZ_MATH_TESTS})
set_tests_properties(math_routes PROPERTIES LABELS "unit;long")
