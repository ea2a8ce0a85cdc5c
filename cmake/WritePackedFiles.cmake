# cmake -D list=FILE -D packed=FILE -P WritePackedFiles.cmake
#
# Writes the C++ source `packed` with the bytes of all files of `list`, whose lines are PATH=FILE:
# the path in the page's addresses and the file.
cmake_policy(VERSION 3.25)

file(STRINGS "${list}" lines)
set(arrays "")
set(entries "")
set(number 0)
foreach(line IN LISTS lines)
  string(FIND "${line}" "=" equals)
  string(SUBSTRING "${line}" 0 ${equals} path)
  math(EXPR begin "${equals} + 1")
  string(SUBSTRING "${line}" ${begin} -1 file)
  file(READ "${file}" digits HEX)
  string(REGEX REPLACE "(..)" "0x\\1," bytes "${digits}")
  # One byte more, as there are no arrays of none.
  string(APPEND arrays "const unsigned char kFile${number}[] = {${bytes}0};\n")
  string(APPEND entries "    {\"${path}\", kFile${number}, sizeof kFile${number} - 1},\n")
  math(EXPR number "${number} + 1")
endforeach()

file(WRITE "${packed}" "// Made by cmake/WritePackedFiles.cmake.
#include \"studio/page/PackedFiles.h\"

namespace project_lumen::studio {
namespace {

${arrays}
const PackedFile kFiles[] = {
${entries}};

}  // namespace

std::span<const PackedFile> PackedFiles() { return kFiles; }

}  // namespace project_lumen::studio
")
