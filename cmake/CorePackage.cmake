# Installs the processing core as a library for other programs: find_package(Nebulex) brings the
# target Nebulex::nebulex_core. Its public headers, core/Image.h and core/StarRemoval.h, need nothing
# but the standard library; linking needs OpenCV's core and imgproc.
include(CMakePackageConfigHelpers)

set(package lib/cmake/Nebulex)

install(TARGETS nebulex_core nebulex_common
  EXPORT NebulexTargets
  ARCHIVE DESTINATION lib COMPONENT Development
  INCLUDES DESTINATION include/nebulex)
install(FILES
    "${PROJECT_SOURCE_DIR}/src/core/Image.h"
    "${PROJECT_SOURCE_DIR}/src/core/StarRemoval.h"
  DESTINATION include/nebulex/core COMPONENT Development)
install(EXPORT NebulexTargets
  NAMESPACE Nebulex:: DESTINATION "${package}" COMPONENT Development)

write_basic_package_version_file("${PROJECT_BINARY_DIR}/NebulexConfigVersion.cmake"
  COMPATIBILITY SameMajorVersion)
install(FILES
    "${PROJECT_SOURCE_DIR}/cmake/NebulexConfig.cmake"
    "${PROJECT_SOURCE_DIR}/cmake/FindOpenCVModules.cmake"
    "${PROJECT_BINARY_DIR}/NebulexConfigVersion.cmake"
  DESTINATION "${package}" COMPONENT Development)
