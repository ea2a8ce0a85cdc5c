# The processing core of nebulex2 as a library: the target Nebulex::nebulex_core.
#
#     find_package(Nebulex 2.6 REQUIRED)
#     target_link_libraries(program PRIVATE Nebulex::nebulex_core)
include(CMakeFindDependencyMacro)

list(APPEND CMAKE_MODULE_PATH "${CMAKE_CURRENT_LIST_DIR}")
find_dependency(OpenCVModules)
list(POP_BACK CMAKE_MODULE_PATH)

include("${CMAKE_CURRENT_LIST_DIR}/NebulexTargets.cmake")
