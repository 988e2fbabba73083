# Checks of the built artefacts, registered with CTest (label "build"):
#   build.exports  the shared library defines exactly the public API
#   build.dynamic  no RPATH/RUNPATH, no text relocations, non-executable stack,
#                  and only the allowed NEEDED libraries
#   build.install  install tree, and consumers built with find_package and pkg-config
#   build.layers   source folders include only the folders below them
#   build.scalar_only  a PREVIEWBOKEH_SCALAR_ONLY library holds no vector kernel
# Binutils are the toolchain's own (aarch64-linux-gnu-* in a cross build).

set(PB_CHECK_DIR ${CMAKE_CURRENT_LIST_DIR})

foreach(tool NM READELF)
  if(NOT CMAKE_${tool})
    string(TOLOWER ${tool} tool_name)
    find_program(CMAKE_${tool} NAMES ${CMAKE_LIBRARY_ARCHITECTURE}-${tool_name} ${tool_name})
  endif()
endforeach()

set(PB_EXPECTED_EXPORTS
  iBokehInit iBokehCreateWeightMap iBokehBlurImage iBokehDeinit
  weight_init weight_async_process weight_deinit
  _Z17velk_load_caa_apiP23camalg_assist_lib_api_t)

# Libraries the shipped library may need. The C++ runtime only when it is not
# linked in; sanitizer runtimes only in sanitizer builds.
set(PB_ALLOWED_NEEDED "libc\\.so.*" "libm\\.so.*" "libdl\\.so.*" "libpthread\\.so.*"
  "liblog\\.so" "ld-linux.*")
set(PB_IGNORED_EXPORTS "")
if(NOT PREVIEWBOKEH_STATIC_RUNTIME OR PREVIEWBOKEH_SANITIZE)
  list(APPEND PB_ALLOWED_NEEDED "libstdc\\+\\+\\.so.*" "libgcc_s\\.so.*")
endif()
if(PREVIEWBOKEH_SANITIZE)
  list(APPEND PB_ALLOWED_NEEDED "lib(a|ub|t|l)san\\.so.*")
  # Instrumented code defines a few runtime hooks of its own.
  list(APPEND PB_IGNORED_EXPORTS "__(asan|ubsan|tsan|sanitizer|lsan)_.*")
endif()

set(PB_CHECK_ARGS -DLIB=$<TARGET_FILE:previewbokeh>)

add_test(NAME build.exports
  COMMAND ${CMAKE_COMMAND} ${PB_CHECK_ARGS}
    -DNM=${CMAKE_NM}
    "-DEXPECTED=${PB_EXPECTED_EXPORTS}"
    "-DIGNORED=${PB_IGNORED_EXPORTS}"
    -P ${PB_CHECK_DIR}/check_exports.cmake)

add_test(NAME build.dynamic
  COMMAND ${CMAKE_COMMAND} ${PB_CHECK_ARGS}
    -DREADELF=${CMAKE_READELF}
    "-DALLOWED_NEEDED=${PB_ALLOWED_NEEDED}"
    -P ${PB_CHECK_DIR}/check_dynamic.cmake)

# The consumer is built with the same compiler and toolchain file; in a cross
# build it runs through the emulator.
find_program(PB_PKG_CONFIG NAMES pkg-config pkgconf)
string(REPLACE ";" "|" PB_EMULATOR "${CMAKE_CROSSCOMPILING_EMULATOR}")
add_test(NAME build.install
  COMMAND ${CMAKE_COMMAND}
    -DBUILD_DIR=${CMAKE_BINARY_DIR}
    -DWORK_DIR=${CMAKE_CURRENT_BINARY_DIR}/install_check
    -DCONSUMER_SRC=${PB_CHECK_DIR}/consumer
    -DGENERATOR=${CMAKE_GENERATOR}
    -DMAKE_PROGRAM=${CMAKE_MAKE_PROGRAM}
    -DTOOLCHAIN_FILE=${CMAKE_TOOLCHAIN_FILE}
    -DCXX=${CMAKE_CXX_COMPILER}
    -DPKG_CONFIG=${PB_PKG_CONFIG}
    "-DEMULATOR=${PB_EMULATOR}"
    "-DSANITIZE=${PREVIEWBOKEH_SANITIZE}"
    -DASSIST_DIR=$<TARGET_FILE_DIR:velkcamalgassist>
    -DLIBDIR=${CMAKE_INSTALL_LIBDIR}
    -DINCLUDEDIR=${CMAKE_INSTALL_INCLUDEDIR}
    -DCMAKEDIR=${PB_INSTALL_CMAKEDIR}
    -DPKGCONFIGDIR=${PB_INSTALL_PKGCONFIGDIR}
    -DVERSION=${PROJECT_VERSION}
    -DPUBLIC_HEADERS_DIR=${CMAKE_SOURCE_DIR}/include/previewbokeh
    -P ${PB_CHECK_DIR}/check_install.cmake)

add_test(NAME build.layers
  COMMAND ${CMAKE_COMMAND} -DSRC=${CMAKE_SOURCE_DIR}/src -P ${PB_CHECK_DIR}/check_layers.cmake)

# A second build of the library: once per host toolchain, not per sanitizer.
if(NOT PREVIEWBOKEH_SANITIZE)
  add_test(NAME build.scalar_only
    COMMAND ${CMAKE_COMMAND}
      -DSOURCE_DIR=${CMAKE_SOURCE_DIR}
      -DWORK_DIR=${CMAKE_CURRENT_BINARY_DIR}/scalar_only_check
      -DGENERATOR=${CMAKE_GENERATOR}
      -DMAKE_PROGRAM=${CMAKE_MAKE_PROGRAM}
      -DTOOLCHAIN_FILE=${CMAKE_TOOLCHAIN_FILE}
      -DCXX=${CMAKE_CXX_COMPILER}
      -DNM=${CMAKE_NM}
      -P ${PB_CHECK_DIR}/check_scalar_only.cmake)
  set_tests_properties(build.scalar_only PROPERTIES LABELS build TIMEOUT 600)
endif()

set_tests_properties(build.exports build.dynamic build.install build.layers
  PROPERTIES LABELS build TIMEOUT 300)
