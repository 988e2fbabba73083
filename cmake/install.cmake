# Install layout (GNUInstallDirs):
#   <includedir>/previewbokeh/*.h                   public C API
#   <libdir>/libpreviewbokeh.so*                    the shipped library
#   <libdir>/cmake/previewbokeh/                    find_package(previewbokeh) -> previewbokeh::previewbokeh
#   <libdir>/pkgconfig/previewbokeh.pc              pkg-config --cflags --libs previewbokeh
#   <bindir>/previewbokeh                           command-line tool, when built
# Components: runtime (the library), development (headers, CMake package,
# pkg-config file), tool. A device image needs only the runtime component.
include(CMakePackageConfigHelpers)

set(PB_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/previewbokeh
  CACHE STRING "Install directory of the CMake package files, relative to the prefix")
set(PB_INSTALL_PKGCONFIGDIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  CACHE STRING "Install directory of previewbokeh.pc, relative to the prefix")

install(TARGETS previewbokeh
  EXPORT previewbokehTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    COMPONENT runtime
    NAMELINK_COMPONENT development
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

file(GLOB PB_PUBLIC_HEADERS ${CMAKE_CURRENT_SOURCE_DIR}/include/previewbokeh/*.h)
install(FILES ${PB_PUBLIC_HEADERS}
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/previewbokeh
  COMPONENT development)

install(EXPORT previewbokehTargets
  NAMESPACE previewbokeh::
  DESTINATION ${PB_INSTALL_CMAKEDIR}
  COMPONENT development)

configure_package_config_file(
  ${CMAKE_CURRENT_LIST_DIR}/previewbokehConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/previewbokehConfig.cmake
  INSTALL_DESTINATION ${PB_INSTALL_CMAKEDIR})
write_basic_package_version_file(
  ${CMAKE_CURRENT_BINARY_DIR}/previewbokehConfigVersion.cmake
  VERSION ${PROJECT_VERSION}
  COMPATIBILITY SameMajorVersion)
install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/previewbokehConfig.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/previewbokehConfigVersion.cmake
  DESTINATION ${PB_INSTALL_CMAKEDIR}
  COMPONENT development)

# The .pc file locates the prefix from its own directory, so the tree can be
# installed with any --prefix (or DESTDIR) and moved afterwards.
if(IS_ABSOLUTE "${PB_INSTALL_PKGCONFIGDIR}")
  set(PB_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
  set(PB_PC_PKGCONFIGDIR "${PB_INSTALL_PKGCONFIGDIR}")
else()
  set(PB_PC_PKGCONFIGDIR "/${PB_INSTALL_PKGCONFIGDIR}")
  file(RELATIVE_PATH PB_PC_UP "${PB_PC_PKGCONFIGDIR}" "/")
  string(REGEX REPLACE "/$" "" PB_PC_UP "${PB_PC_UP}")
  set(PB_PC_PREFIX "\${pcfiledir}/${PB_PC_UP}")
endif()
foreach(dir LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${dir}}")
    set(PB_PC_${dir} "${CMAKE_INSTALL_${dir}}")
  else()
    set(PB_PC_${dir} "\${prefix}/${CMAKE_INSTALL_${dir}}")
  endif()
endforeach()
configure_file(${CMAKE_CURRENT_LIST_DIR}/previewbokeh.pc.in
  ${CMAKE_CURRENT_BINARY_DIR}/previewbokeh.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/previewbokeh.pc
  DESTINATION ${PB_INSTALL_PKGCONFIGDIR}
  COMPONENT development)

if(PB_TOOL_TARGET)
  # The installed tool finds the installed library beside it.
  set_target_properties(${PB_TOOL_TARGET} PROPERTIES
    INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  install(TARGETS ${PB_TOOL_TARGET} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
endif()
