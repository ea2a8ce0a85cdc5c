# cmake -D build=DIR -D source=DIR -D compiler=FILE -D flags=FLAGS -D build_type=TYPE
#       -P CheckEmbedding.cmake
#
# Fails unless a program outside of the tree builds against the installed processing core and takes
# the stars out of its image with it.
cmake_policy(VERSION 3.25)

set(folder "${build}/embedding_check")
file(REMOVE_RECURSE "${folder}")
execute_process(COMMAND "${CMAKE_COMMAND}" --install "${build}" --prefix "${folder}/prefix"
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)

# The public headers show no third-party type.
file(GLOB_RECURSE headers "${folder}/prefix/include/*")
list(LENGTH headers count)
if(NOT count EQUAL 2)
  message(FATAL_ERROR "Installed as public headers are ${headers}")
endif()
foreach(header IN LISTS headers)
  file(STRINGS "${header}" includes REGEX "^#include")
  foreach(include IN LISTS includes)
    if(NOT include MATCHES "^#include (<[a-z]+>|\"core/Image.h\")$")
      message(FATAL_ERROR "${header} says ${include}")
    endif()
  endforeach()
endforeach()

# From a copy, so that nothing of the tree is found by accident.
file(COPY "${source}/" DESTINATION "${folder}/source")
execute_process(
  COMMAND "${CMAKE_COMMAND}" -G Ninja -S "${folder}/source" -B "${folder}/build"
    "-DCMAKE_PREFIX_PATH=${folder}/prefix" "-DCMAKE_CXX_COMPILER=${compiler}"
    "-DCMAKE_CXX_FLAGS=${flags}" "-DCMAKE_BUILD_TYPE=${build_type}"
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${CMAKE_COMMAND}" --build "${folder}/build"
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${folder}/build/embedding"
  OUTPUT_VARIABLE answer COMMAND_ERROR_IS_FATAL ANY)

# 700 x 600 pixels at a stride of 256 are 3 x 3 tiles. A star of 0.9 over a sky of 0.1 is the layer
# (0.9 - 0.1) / (1 - 0.1) = 0.888889.
set(expected "Tile 9 of 9
Brightest sample before: 0.9
Brightest sample without stars: 0.1
Brightest sample of the stars: 0.888889
")
string(FIND "${answer}" "${expected}" place)
if(place EQUAL -1)
  message(FATAL_ERROR "The program says\n${answer}")
endif()
file(REMOVE_RECURSE "${folder}")
