# The name under which programs ask for a shared library, which may be longer or shorter than the
# name of its file.
function(nebulex_read_soname library result)
  execute_process(COMMAND "${CMAKE_READELF}" -d "${library}"
    OUTPUT_VARIABLE dynamic_section COMMAND_ERROR_IS_FATAL ANY)
  if(NOT dynamic_section MATCHES "SONAME[^\n]*\\[([^]\n]+)\\]")
    message(FATAL_ERROR "No name is recorded in the shared library ${library}.")
  endif()
  set(${result} "${CMAKE_MATCH_1}" PARENT_SCOPE)
endfunction()

# Copies a library to another file when it is newer, as part of the build.
function(nebulex_place_library library placed)
  cmake_path(GET placed FILENAME name)
  add_custom_command(
    OUTPUT "${placed}"
    COMMAND "${CMAKE_COMMAND}" -E copy "${library}" "${placed}"
    DEPENDS "${library}"
    COMMENT "Placing ${name}"
    VERBATIM)
endfunction()

# nebulex_place_runtime(TARGET)
#
# Makes the executable TARGET ready to run from the build tree and to be installed. ONNX Runtime's
# library lies beside it and is found there wherever the tree is moved to. That library loads its
# providers from the folder it lies in, so those that came with it lie there too. The network is in
# its place.
function(nebulex_place_runtime target)
  nebulex_read_soname("${ONNXRuntime_LIBRARY}" soname)
  set(placed_libraries "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${soname}")
  nebulex_place_library("${ONNXRuntime_LIBRARY}" "${placed_libraries}")

  cmake_path(GET ONNXRuntime_LIBRARY PARENT_PATH folder)
  foreach(provider shared cuda)
    set(name "libonnxruntime_providers_${provider}.so")
    if(EXISTS "${folder}/${name}")
      nebulex_place_library("${folder}/${name}" "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${name}")
      list(APPEND placed_libraries "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${name}")
    else()
      # An earlier build with another ONNX Runtime may have left its own.
      file(REMOVE "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${name}")
    endif()
  endforeach()

  foreach(library IN LISTS placed_libraries)
    cmake_path(GET library FILENAME name)
    set_property(GLOBAL APPEND PROPERTY NEBULEX_PLACED_LIBRARIES "${name}")
  endforeach()

  add_custom_target(${target}_runtime DEPENDS ${placed_libraries})
  add_dependencies(${target} ${target}_runtime nebulex_model)

  # One file for both trees: what was tested is what gets installed.
  set_target_properties(${target} PROPERTIES
    BUILD_WITH_INSTALL_RPATH ON
    INSTALL_RPATH "$ORIGIN")
  install(TARGETS ${target} RUNTIME DESTINATION "${NEBULEX_PROGRAM_DIR}" COMPONENT Program)
  install(FILES ${placed_libraries} DESTINATION "${NEBULEX_PROGRAM_DIR}" COMPONENT Library)
endfunction()
