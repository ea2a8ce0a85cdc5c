# Copies the shared libraries that a program needs, and those that they need, beside it, each under
# the name by which it is asked for, with its licence in licenses/. What belongs to the C and C++
# runtime stays the system's. Set before: program, destination, build (the build folder).
file(GET_RUNTIME_DEPENDENCIES
  EXECUTABLES "${program}"
  RESOLVED_DEPENDENCIES_VAR libraries
  PRE_EXCLUDE_REGEXES "^libonnxruntime"
    "^ld-linux" "^lib(c|m|dl|rt|pthread|stdc\\+\\+|gcc_s|mvec)\\.so")

foreach(library IN LISTS libraries)
  cmake_path(GET library FILENAME name)
  file(REAL_PATH "${library}" file)
  message(STATUS "Bringing: ${name}")
  file(COPY_FILE "${file}" "${destination}/${name}")

  cmake_path(IS_PREFIX build "${file}" own)
  if(own)
    continue() # its licence is installed with the others of what was built for the archive
  endif()
  # Debian merges /lib into /usr/lib, but its packages may know a file by its older place.
  string(REGEX REPLACE "^/usr" "" older "${file}")
  execute_process(COMMAND dpkg-query --search "${file}" "${older}"
    OUTPUT_VARIABLE owner ERROR_QUIET)
  if(NOT owner MATCHES "^([^:]+)")
    message(FATAL_ERROR "No package owns ${file}, so its licence is not known.")
  endif()
  file(MAKE_DIRECTORY "${destination}/licenses/${CMAKE_MATCH_1}")
  file(REAL_PATH "/usr/share/doc/${CMAKE_MATCH_1}/copyright" licence)
  file(COPY_FILE "${licence}" "${destination}/licenses/${CMAKE_MATCH_1}/copyright")
endforeach()
