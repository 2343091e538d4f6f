# Fails when an object of the call path (the comma-separated ARCHIVES) imports an
# allocation function other than where listed below: everything else allocates through
# dll_alloc, the hook that tests use to make an allocation fail.
cmake_minimum_required(VERSION 3.25)
set(allowed
    alloc.cpp.o:malloc   # dll_alloc itself
    llist.cpp.o:malloc   # the registries' list items, whose failure stops the process
    qzlog.cpp.o:strdup)  # the log's time format, copied when it is set
# operator new and new[] are _Znw... and _Zna...
string(CONCAT allocators "^(malloc|calloc|realloc|reallocarray|strn?dup|aligned_alloc|"
       "posix_memalign|memalign|valloc|v?asprintf|_Zn[wa].*)$")
string(REPLACE "," ";" archives "${ARCHIVES}")
execute_process(COMMAND ${NM} -A --undefined-only ${archives} OUTPUT_VARIABLE out
                RESULT_VARIABLE rc)
if(NOT rc EQUAL 0 OR archives STREQUAL "")
  message(FATAL_ERROR "nm failed on [${archives}]")
endif()
string(REPLACE "\n" ";" lines "${out}")
set(seen "")
foreach(line ${lines})
  # "archive:object.o: U symbol"
  if(NOT line MATCHES "([^:/]+\\.o): +U ([A-Za-z_0-9]+)$")
    continue()
  endif()
  set(import "${CMAKE_MATCH_1}:${CMAKE_MATCH_2}")
  if(CMAKE_MATCH_2 MATCHES "${allocators}")
    if(NOT import IN_LIST allowed)
      message(SEND_ERROR "${import}: allocates outside the hook")
    endif()
    list(APPEND seen ${import})
  endif()
endforeach()
foreach(a ${allowed})
  if(NOT a IN_LIST seen)
    message(SEND_ERROR "${a} is listed but not imported: update the list")
  endif()
endforeach()
message(STATUS "allocation imports: ${seen}")
