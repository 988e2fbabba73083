# cmake -DLIB=<shared library> -DNM=<nm> -DEXPECTED=<names> [-DIGNORED=<regexes>] -P check_exports.cmake
# Fails unless the dynamic symbols the library defines are exactly EXPECTED
# (symbols matching an IGNORED regex aside).
foreach(var LIB NM EXPECTED)
  if(NOT DEFINED ${var} OR "${${var}}" STREQUAL "")
    message(FATAL_ERROR "check_exports: ${var} not given")
  endif()
endforeach()

execute_process(COMMAND ${NM} -D --defined-only ${LIB}
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${NM} -D --defined-only ${LIB} failed (${rc}): ${err}")
endif()

# Lines read "<value> <type> <name>[@version]"; absolute symbols ('A', such as
# version nodes) are not code or data of the library.
string(REPLACE "\n" ";" lines "${out}")
set(defined "")
foreach(line IN LISTS lines)
  if(line MATCHES "^[0-9a-fA-F]* *([A-Za-z]) ([^ @]+)")
    set(type ${CMAKE_MATCH_1})
    set(name ${CMAKE_MATCH_2})
    if(type STREQUAL "A")
      continue()
    endif()
    set(ignored FALSE)
    foreach(re IN LISTS IGNORED)
      if(name MATCHES "^${re}$")
        set(ignored TRUE)
      endif()
    endforeach()
    if(NOT ignored)
      list(APPEND defined ${name})
    endif()
  endif()
endforeach()

set(missing ${EXPECTED})
list(REMOVE_ITEM missing ${defined})
set(extra ${defined})
list(REMOVE_ITEM extra ${EXPECTED})
list(REMOVE_DUPLICATES extra)

message(STATUS "Defined dynamic symbols of ${LIB}:")
foreach(name IN LISTS defined)
  message(STATUS "  ${name}")
endforeach()
if(missing OR extra)
  list(JOIN missing " " missing_text)
  list(JOIN extra " " extra_text)
  message(FATAL_ERROR "Exported API mismatch\n  missing:    ${missing_text}\n  unexpected: ${extra_text}")
endif()
