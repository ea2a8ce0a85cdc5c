# nebulex_library_package(TARGET)
#
# Installs the shared library TARGET with what other programs need to use it: headers, a pkg-config
# file, and a CMake package whose target is Nebulex::nebulex. It finds ONNX Runtime and the network
# wherever the tree is moved to.
#
# What installs has a component: Program, Library (what program and library need to run) or
# Development.
include(CMakePackageConfigHelpers)

function(nebulex_library_package target)
  set_target_properties(${target} PROPERTIES
    BUILD_WITH_INSTALL_RPATH ON
    INSTALL_RPATH "${NEBULEX_LIBRARY_RPATH}")
  add_dependencies(${target} nebulex2_runtime nebulex_model)

  set(package "${NEBULEX_DEVELOPMENT_DIR}/cmake/Nebulex")
  set(pkgconfig "${NEBULEX_DEVELOPMENT_DIR}/pkgconfig")
  set(generated "${PROJECT_BINARY_DIR}/package")
  install(TARGETS ${target} EXPORT NebulexTargets
    LIBRARY DESTINATION "${NEBULEX_LIBRARY_DIR}"
      COMPONENT Library NAMELINK_COMPONENT Development)
  install(EXPORT NebulexTargets
    FILE NebulexConfig.cmake NAMESPACE Nebulex:: DESTINATION "${package}" COMPONENT Development)
  write_basic_package_version_file("${generated}/NebulexConfigVersion.cmake"
    COMPATIBILITY SameMajorVersion)
  install(FILES "${generated}/NebulexConfigVersion.cmake"
    DESTINATION "${package}" COMPONENT Development)

  # The prefix as it is seen from the folder of the pkg-config file, unless it is known.
  if(NEBULEX_LAYOUT STREQUAL "debian")
    set(NEBULEX_PKGCONFIG_PREFIX "/usr")
  else()
    file(RELATIVE_PATH to_prefix "/prefix/${pkgconfig}" "/prefix")
    string(REGEX REPLACE "/$" "" to_prefix "${to_prefix}")
    set(NEBULEX_PKGCONFIG_PREFIX "\${pcfiledir}/${to_prefix}")
  endif()
  configure_file("${PROJECT_SOURCE_DIR}/cmake/nebulex.pc.in" "${generated}/nebulex.pc" @ONLY)
  install(FILES "${generated}/nebulex.pc" DESTINATION "${pkgconfig}" COMPONENT Development)

  install(FILES
      "${PROJECT_SOURCE_DIR}/src/lib/include/nebulex/nebulex.h"
      "${PROJECT_SOURCE_DIR}/src/lib/include/nebulex/nebulex.hpp"
      "${PROJECT_BINARY_DIR}/include/nebulex/version.h"
    DESTINATION include/nebulex COMPONENT Development)
endfunction()
