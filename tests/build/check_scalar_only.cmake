# cmake -DSOURCE_DIR=<checkout> -DWORK_DIR=<dir> -DGENERATOR=<g> -DMAKE_PROGRAM=<p>
#       -DCXX=<compiler> -DNM=<nm> [-DTOOLCHAIN_FILE=<f>] -P check_scalar_only.cmake
# Builds the shipped library with PREVIEWBOKEH_SCALAR_ONLY=ON and fails unless
# it holds no vector kernel (no symbol with _NEON in its name) and its build
# needed no SIMD translation headers.
foreach(var SOURCE_DIR WORK_DIR GENERATOR CXX NM)
  if(NOT DEFINED ${var} OR "${${var}}" STREQUAL "")
    message(FATAL_ERROR "check_scalar_only: ${var} not given")
  endif()
endforeach()
file(REMOVE_RECURSE ${WORK_DIR})
set(args -S ${SOURCE_DIR} -B ${WORK_DIR} -G ${GENERATOR} -DCMAKE_BUILD_TYPE=Release
  -DCMAKE_CXX_COMPILER=${CXX} -DPREVIEWBOKEH_SCALAR_ONLY=ON -DPREVIEWBOKEH_BUILD_TESTS=OFF
  -DPREVIEWBOKEH_BUILD_BENCH=OFF -DPREVIEWBOKEH_BUILD_TOOLS=OFF -DPREVIEWBOKEH_BUILD_FUZZERS=OFF)
if(MAKE_PROGRAM)
  list(APPEND args -DCMAKE_MAKE_PROGRAM=${MAKE_PROGRAM})
endif()
if(TOOLCHAIN_FILE)
  list(APPEND args -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN_FILE})
endif()
execute_process(COMMAND ${CMAKE_COMMAND} ${args} RESULT_VARIABLE rc OUTPUT_VARIABLE out
  ERROR_VARIABLE out)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "configuring the scalar-only build failed:\n${out}")
endif()
file(STRINGS ${WORK_DIR}/CMakeCache.txt simde REGEX "^SIMDE_INCLUDE_DIR:")
if(simde)
  message(FATAL_ERROR "the scalar-only build looked for SIMD translation headers: ${simde}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK_DIR} --target previewbokeh
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "building the scalar-only library failed:\n${out}")
endif()
file(GLOB libs ${WORK_DIR}/libpreviewbokeh.so*)
list(GET libs 0 lib)
execute_process(COMMAND ${NM} ${lib} RESULT_VARIABLE rc OUTPUT_VARIABLE symbols
  ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${NM} ${lib} failed: ${err}")
endif()
string(REGEX MATCHALL "[^\n]*_NEON[^\n]*" neon "${symbols}")
if(neon)
  list(JOIN neon "\n  " text)
  message(FATAL_ERROR "the scalar-only library holds vector kernels:\n  ${text}")
endif()
message(STATUS "check_scalar_only: ${lib} has no _NEON symbol")
file(REMOVE_RECURSE ${WORK_DIR})
