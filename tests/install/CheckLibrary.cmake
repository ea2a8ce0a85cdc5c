# cmake -D build=DIR -D source=DIR -D models=DIR -D compiler=FILE -D flags=FLAGS -D build_type=TYPE
#       -P CheckLibrary.cmake
#
# Fails unless programs outside of the tree build against the installed library, with CMake and with
# pkg-config, and take the stars out of their images with it.
cmake_policy(VERSION 3.25)

set(folder "${build}/library_check")
file(REMOVE_RECURSE "${folder}")
execute_process(COMMAND "${CMAKE_COMMAND}" --install "${build}" --prefix "${folder}/first"
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
# Everything is found wherever the tree is moved to.
set(prefix "${folder}/second place")
file(RENAME "${folder}/first" "${prefix}")

# From a copy, so that nothing of the tree is found by accident.
file(COPY "${source}/" DESTINATION "${folder}/source")
execute_process(
  COMMAND "${CMAKE_COMMAND}" -G Ninja -S "${folder}/source" -B "${folder}/build"
    "-DCMAKE_PREFIX_PATH=${prefix}" "-DCMAKE_CXX_COMPILER=${compiler}"
    "-DCMAKE_C_FLAGS=${flags}" "-DCMAKE_CXX_FLAGS=${flags}" "-DCMAKE_BUILD_TYPE=${build_type}"
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${CMAKE_COMMAND}" --build "${folder}/build"
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)

# A picture of 512 x 512 pixels whose rows are dark and bright by turns. Its samples are characters:
# " " is 32, "x" 120. The network "dimmer" brings everything above 0.4 down to it, which is 102, or "f".
function(write_picture path first second)
  string(REPEAT "${first}" 1536 one)
  string(REPEAT "${second}" 1536 other)
  string(REPEAT "${one}${other}" 256 rows)
  file(WRITE "${path}" "P6\n512 512\n255\n${rows}")
endfunction()

function(require_picture program)
  execute_process(COMMAND "${program}" "${folder}/in.ppm" "${folder}/out.ppm" "${models}/dimmer.onnx"
    OUTPUT_VARIABLE answer COMMAND_ERROR_IS_FATAL ANY)
  if(NOT answer MATCHES "^tile 0 of 4\ntile 1 of 4\n.*tile 4 of 4\n$")
    message(FATAL_ERROR "${program} says\n${answer}")
  endif()
  execute_process(COMMAND "${CMAKE_COMMAND}" -E compare_files "${folder}/out.ppm"
    "${folder}/expected.ppm" COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE "${folder}/out.ppm")
endfunction()

write_picture("${folder}/in.ppm" " " "x")
write_picture("${folder}/expected.ppm" " " "f")
require_picture("${folder}/build/remove_stars")

# A fault is a sentence.
execute_process(COMMAND "${folder}/build/remove_stars" in.ppm out.ppm /no/such/model.onnx
  WORKING_DIRECTORY "${folder}" ERROR_VARIABLE answer RESULT_VARIABLE status)
if(status EQUAL 0 OR NOT answer MATCHES "^Unable to open ONNX model file: /no/such/model.onnx\n")
  message(FATAL_ERROR "Status ${status} for a model that is not there:\n${answer}")
endif()

# The network that comes with the library.
execute_process(COMMAND "${folder}/build/split_stars" OUTPUT_VARIABLE answer COMMAND_ERROR_IS_FATAL ANY)
if(NOT answer MATCHES "tile 9 of 9\nbrightest before: 0\\.[6-9][0-9]*\nbrightest without stars: 0\\.[0-4]")
  message(FATAL_ERROR "split_stars says\n${answer}")
endif()
if(NOT answer MATCHES "differs by: ([0-9.]+)(e-[0-9]+)?\n$" OR
   (NOT CMAKE_MATCH_2 AND CMAKE_MATCH_1 GREATER 0.000001))
  message(FATAL_ERROR "split_stars does not put its sky together again:\n${answer}")
endif()

# pkg-config leads to the same files.
set(ENV{PKG_CONFIG_PATH} "${prefix}/lib/pkgconfig")
execute_process(COMMAND pkg-config --cflags --libs nebulex
  OUTPUT_VARIABLE answer OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
separate_arguments(answer UNIX_COMMAND "${answer}")
separate_arguments(flags UNIX_COMMAND "${flags}")
execute_process(COMMAND cc -std=c99 -Wall -Wextra -Wpedantic -Wstrict-prototypes -Werror ${flags}
  "${folder}/source/remove_stars.c" -o "${folder}/by_pkg_config"
  ${answer} "-Wl,-rpath,${prefix}/lib" COMMAND_ERROR_IS_FATAL ANY)
require_picture("${folder}/by_pkg_config")

file(REMOVE_RECURSE "${folder}")
