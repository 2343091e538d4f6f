# Fails when the shared math library imports a way to end or unwind the process other
# than abort (and the assertion handler that calls it).
cmake_minimum_required(VERSION 3.25)
execute_process(COMMAND ${NM} -D --undefined-only ${LIB} OUTPUT_VARIABLE out RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "nm failed on ${LIB}")
endif()
string(REGEX REPLACE "@[^\n]*" "" out "${out}")  # symbol versions
string(REGEX MATCHALL "[A-Za-z_][A-Za-z0-9_]*" imports "${out}")
foreach(bad exit _exit _Exit quick_exit raise kill pthread_kill longjmp siglongjmp
            __cxa_throw _Unwind_RaiseException signal sigaction)
  if(bad IN_LIST imports)
    message(FATAL_ERROR "libqzmath imports ${bad}")
  endif()
endforeach()
if(NOT "abort" IN_LIST imports)
  message(FATAL_ERROR "libqzmath does not import abort: where did the fatal stop go?")
endif()
message(STATUS "imports checked: ${imports}")
