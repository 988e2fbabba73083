# cmake -DBUILD_DIR=... -DWORK_DIR=... -DCONSUMER_SRC=... [options, see artefact_tests.cmake] -P check_install.cmake
# Installs the build into a prefix under WORK_DIR (component by component),
# checks the tree, then builds and runs a consumer with find_package and one
# with pkg-config against it.
foreach(var BUILD_DIR WORK_DIR CONSUMER_SRC GENERATOR CXX ASSIST_DIR LIBDIR INCLUDEDIR
            CMAKEDIR PKGCONFIGDIR VERSION PUBLIC_HEADERS_DIR)
  if(NOT DEFINED ${var} OR "${${var}}" STREQUAL "")
    message(FATAL_ERROR "check_install: ${var} not given")
  endif()
endforeach()
string(REPLACE "|" ";" emulator "${EMULATOR}")
set(san_flags "")
if(SANITIZE)
  set(san_flags -fsanitize=${SANITIZE})
endif()

function(run what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${what} failed (${rc})\n${out}\n${err}")
  endif()
  message(STATUS "${what}: ok")
  set(run_output "${out}" PARENT_SCOPE)
endfunction()

# Relative paths of the regular files and symlinks under a directory.
function(tree dir out_var)
  file(GLOB_RECURSE files LIST_DIRECTORIES false RELATIVE ${dir} ${dir}/*)
  list(SORT files)
  set(${out_var} ${files} PARENT_SCOPE)
endfunction()

function(expect_tree dir expected what)
  tree(${dir} actual)
  list(SORT expected)
  if(NOT "${actual}" STREQUAL "${expected}")
    list(JOIN actual "\n    " actual_text)
    list(JOIN expected "\n    " expected_text)
    message(FATAL_ERROR "${what}: installed files differ\n  expected:\n    ${expected_text}\n  found:\n    ${actual_text}")
  endif()
  message(STATUS "${what}: ok")
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

# The library files: the unversioned name is a link (namelink) on Linux hosts.
file(GLOB lib_files RELATIVE ${BUILD_DIR} ${BUILD_DIR}/libpreviewbokeh.so*)
if(NOT lib_files)
  message(FATAL_ERROR "no libpreviewbokeh.so* in ${BUILD_DIR}")
endif()
set(runtime_files "")
foreach(f IN LISTS lib_files)
  if(NOT f STREQUAL "libpreviewbokeh.so")
    list(APPEND runtime_files ${LIBDIR}/${f})
  endif()
endforeach()
if(NOT runtime_files)
  set(runtime_files ${LIBDIR}/libpreviewbokeh.so)
  set(namelink "")
else()
  set(namelink ${LIBDIR}/libpreviewbokeh.so)
endif()

# A device image takes the runtime component alone: the library, nothing else.
set(runtime_prefix ${WORK_DIR}/runtime)
run("install runtime component"
  ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${runtime_prefix} --component runtime)
expect_tree(${runtime_prefix} "${runtime_files}" "runtime component")

# Runtime and development together: what a HAL build or host program needs.
set(prefix ${WORK_DIR}/prefix)
foreach(component runtime development)
  run("install ${component} component"
    ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix} --component ${component})
endforeach()
file(GLOB headers RELATIVE ${PUBLIC_HEADERS_DIR} ${PUBLIC_HEADERS_DIR}/*.h)
set(expected ${runtime_files} ${namelink}
  ${CMAKEDIR}/previewbokehConfig.cmake
  ${CMAKEDIR}/previewbokehConfigVersion.cmake
  ${CMAKEDIR}/previewbokehTargets.cmake
  ${PKGCONFIGDIR}/previewbokeh.pc)
file(GLOB target_configs RELATIVE ${prefix} ${prefix}/${CMAKEDIR}/previewbokehTargets-*.cmake)
if(NOT target_configs)
  message(FATAL_ERROR "no previewbokehTargets-<config>.cmake installed")
endif()
list(APPEND expected ${target_configs})
foreach(h IN LISTS headers)
  list(APPEND expected ${INCLUDEDIR}/previewbokeh/${h})
  file(READ ${PUBLIC_HEADERS_DIR}/${h} source_text)
  file(READ ${prefix}/${INCLUDEDIR}/previewbokeh/${h} installed_text)
  if(NOT source_text STREQUAL installed_text)
    message(FATAL_ERROR "installed ${h} differs from the source")
  endif()
endforeach()
expect_tree(${prefix} "${expected}" "runtime + development")

set(lib_env LD_LIBRARY_PATH=${ASSIST_DIR})
set(toolchain_args "")
if(TOOLCHAIN_FILE)
  set(toolchain_args -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN_FILE})
endif()

# Consumer 1: find_package(previewbokeh) -> previewbokeh::previewbokeh.
set(cmake_build ${WORK_DIR}/find_package)
set(make_args "")
if(MAKE_PROGRAM)
  set(make_args -DCMAKE_MAKE_PROGRAM=${MAKE_PROGRAM})
endif()
run("configure find_package consumer"
  ${CMAKE_COMMAND} -S ${CONSUMER_SRC} -B ${cmake_build} -G ${GENERATOR} ${make_args}
    ${toolchain_args} -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_BUILD_TYPE=Release
    "-DCMAKE_CXX_FLAGS=${san_flags}" "-DCMAKE_EXE_LINKER_FLAGS=${san_flags}"
    -Dpreviewbokeh_DIR=${prefix}/${CMAKEDIR})
run("build find_package consumer" ${CMAKE_COMMAND} --build ${cmake_build})
run("run find_package consumer"
  ${CMAKE_COMMAND} -E env ${lib_env} ${emulator} ${cmake_build}/consumer)

# Consumer 2: pkg-config, with no other .pc files in sight. No RPATH: the
# loader finds the library through LD_LIBRARY_PATH.
if(PKG_CONFIG)
  set(pc_env PKG_CONFIG_LIBDIR=${prefix}/${PKGCONFIGDIR} PKG_CONFIG_PATH=)
  run("pkg-config --modversion"
    ${CMAKE_COMMAND} -E env ${pc_env} ${PKG_CONFIG} --modversion previewbokeh)
  string(STRIP "${run_output}" modversion)
  if(NOT modversion STREQUAL VERSION)
    message(FATAL_ERROR "previewbokeh.pc says version '${modversion}', expected '${VERSION}'")
  endif()
  run("pkg-config --cflags --libs"
    ${CMAKE_COMMAND} -E env ${pc_env} ${PKG_CONFIG} --cflags --libs previewbokeh)
  separate_arguments(pc_flags UNIX_COMMAND "${run_output}")
  set(pc_build ${WORK_DIR}/pkgconfig)
  file(MAKE_DIRECTORY ${pc_build})
  run("build pkg-config consumer"
    ${CXX} ${san_flags} ${CONSUMER_SRC}/consumer.cc ${pc_flags} -ldl
      -o ${pc_build}/consumer)
  run("run pkg-config consumer"
    ${CMAKE_COMMAND} -E env
      LD_LIBRARY_PATH=${prefix}/${LIBDIR}:${ASSIST_DIR} ${emulator} ${pc_build}/consumer)
else()
  message(STATUS "pkg-config not found: pkg-config consumer skipped")
endif()
