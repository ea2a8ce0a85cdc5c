# cmake -D build=DIR -D version=X.Y.Z -D libraries=NAME;... -D python_files=FILE;...
#       -D build_type=TYPE -D studio=BOOL -P CheckInstalledProgram.cmake
#
# Fails unless the install holds exactly the files it should, and the program runs and finds its
# network after the whole tree was moved.
cmake_policy(VERSION 3.25)

set(first "${build}/install_check/first place")
string(TOLOWER "${build_type}" build_type)
set(second "${build}/install_check/second place")
file(REMOVE_RECURSE "${build}/install_check")
execute_process(COMMAND "${CMAKE_COMMAND}" --install "${build}" --prefix "${first}"
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
file(RENAME "${first}" "${second}")

set(expected
  "bin/nebulex2"
  "include/nebulex/nebulex.h"
  "include/nebulex/nebulex.hpp"
  "include/nebulex/version.h"
  "lib/cmake/Nebulex/NebulexConfig-${build_type}.cmake"
  "lib/cmake/Nebulex/NebulexConfig.cmake"
  "lib/cmake/Nebulex/NebulexConfigVersion.cmake"
  "lib/libnebulex.so"
  "lib/libnebulex.so.1"
  "lib/libnebulex.so.1.${version}"
  "lib/nebulex2/Nebulex2_weights.onnx"
  "lib/pkgconfig/nebulex.pc"
  "share/bash-completion/completions/nebulex2"
  "share/fish/vendor_completions.d/nebulex2.fish"
  "share/man/man1/nebulex2.1"
  "share/zsh/site-functions/_nebulex2")
foreach(library IN LISTS libraries)
  list(APPEND expected "bin/${library}")
endforeach()
list(APPEND expected ${python_files})
if(studio)
  list(APPEND expected
    "bin/nebulex2-studio"
    "share/applications/nebulex2-studio.desktop"
    "share/icons/hicolor/scalable/apps/nebulex2-studio.svg")
endif()
list(SORT expected)
file(GLOB_RECURSE installed RELATIVE "${second}" "${second}/*")
list(SORT installed)
if(NOT installed STREQUAL expected)
  message(FATAL_ERROR "Installed are\n  ${installed}\nbut should be\n  ${expected}")
endif()

execute_process(COMMAND "${second}/bin/nebulex2" --version
  OUTPUT_VARIABLE answer COMMAND_ERROR_IS_FATAL ANY)
if(NOT answer MATCHES "version: ${version}")
  message(FATAL_ERROR "Asked for its version, the installed program says\n${answer}")
endif()

if(studio)
  execute_process(COMMAND "${second}/bin/nebulex2-studio" --version
    OUTPUT_VARIABLE answer COMMAND_ERROR_IS_FATAL ANY)
  if(NOT answer MATCHES "${version}")
    message(FATAL_ERROR "Asked for its version, the installed studio says\n${answer}")
  endif()
endif()

# A run that fails for want of an input says where it found its network.
execute_process(
  COMMAND "${second}/bin/nebulex2" --input "${second}/missing.tif" --output "${second}/out.tif"
  ERROR_VARIABLE answer RESULT_VARIABLE status)
set(network "resolved path='${second}/lib/nebulex2/Nebulex2_weights.onnx'; path kind=regular file")
string(FIND "${answer}" "${network}" place)
if(status EQUAL 0 OR place EQUAL -1)
  message(FATAL_ERROR "Status ${status}; the installed program does not find its network:\n${answer}")
endif()

file(REMOVE_RECURSE "${build}/install_check")
