# cmake -DSRC=<src directory> -P check_layers.cmake
# Fails when a file of the library includes a header of a folder at its own
# level or above: the folders form layers, each including only lower ones.
#   platform  host and Android services, clock and dumps
#   simd      the kernel table and the vector abstraction
#   pool      the worker pool
#   scale     downscale and composite kernels
#   blur      smoothing kernels, working state, frame driver, strip tasks
#   weight    the depth-weight engine and its kernels
#   api       the exported entry points
if(NOT DEFINED SRC)
  message(FATAL_ERROR "check_layers: SRC not given")
endif()
set(layers platform simd pool scale blur weight api)

file(GLOB_RECURSE files RELATIVE ${SRC} ${SRC}/*.h ${SRC}/*.cc)
set(violations "")
foreach(file IN LISTS files)
  string(REGEX MATCH "^[^/]+" folder "${file}")
  list(FIND layers ${folder} rank)
  if(rank LESS 0)
    list(APPEND violations "${file}: folder '${folder}' has no layer")
    continue()
  endif()
  file(STRINGS ${SRC}/${file} includes REGEX "^#include \"[a-z_]+/")
  foreach(line IN LISTS includes)
    string(REGEX REPLACE "^#include \"([a-z_]+)/.*" "\\1" target "${line}")
    if(target STREQUAL folder OR target STREQUAL "previewbokeh")
      continue()
    endif()
    list(FIND layers ${target} target_rank)
    if(target_rank LESS 0 OR NOT target_rank LESS rank)
      list(APPEND violations "${file}: ${line}")
    endif()
  endforeach()
endforeach()
if(violations)
  list(JOIN violations "\n  " text)
  message(FATAL_ERROR "includes against the layering (${layers}):\n  ${text}")
endif()
list(LENGTH files n)
message(STATUS "check_layers: ${n} files follow the layering")
