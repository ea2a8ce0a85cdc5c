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

# nebulex_place_runtime(TARGET)
#
# Makes the executable TARGET ready to run from the build tree and to be installed: ONNX Runtime's
# library lies beside it, because that library loads its providers from the folder it lies in, and
# is found there wherever the tree is moved; the network is in its place before it.
function(nebulex_place_runtime target)
  nebulex_read_soname("${ONNXRuntime_LIBRARY}" soname)
  set(placed_library "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${soname}")

  add_custom_command(
    OUTPUT "${placed_library}"
    COMMAND "${CMAKE_COMMAND}" -E copy "${ONNXRuntime_LIBRARY}" "${placed_library}"
    DEPENDS "${ONNXRuntime_LIBRARY}"
    COMMENT "Placing ${soname}"
    VERBATIM)
  add_custom_target(${target}_runtime DEPENDS "${placed_library}")
  add_dependencies(${target} ${target}_runtime nebulex_model)

  # One file for both trees: what was tested is what gets installed.
  set_target_properties(${target} PROPERTIES
    BUILD_WITH_INSTALL_RPATH ON
    INSTALL_RPATH "$ORIGIN")
  install(TARGETS ${target} RUNTIME DESTINATION bin)
  install(PROGRAMS "${placed_library}" DESTINATION bin)
endfunction()
