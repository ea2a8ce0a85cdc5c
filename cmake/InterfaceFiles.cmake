# nebulex_compress(FILE COMPRESSED)
#
# Makes a gzip file as Debian wants it: as small as can be, the same at every build.
function(nebulex_compress file compressed)
  add_custom_command(
    OUTPUT "${compressed}"
    COMMAND gzip -9nc "${file}" > "${compressed}"
    DEPENDS "${file}"
    COMMENT "Compressing ${file}"
    VERBATIM)
endfunction()

# nebulex_interface_files(TARGET)
#
# Makes and installs the manual page and the shell completions of the executable TARGET. They are
# made from what the program says of itself, so the two cannot disagree.
function(nebulex_interface_files target)
  set(share "${PROJECT_BINARY_DIR}/share")
  set(man "${share}/man/man1/nebulex2.1")
  set(bash "${share}/bash-completion/completions/nebulex2")
  set(zsh "${share}/zsh/site-functions/_nebulex2")
  set(fish "${share}/fish/vendor_completions.d/nebulex2.fish")
  set(script "${PROJECT_SOURCE_DIR}/cmake/GenerateInterfaceFiles.cmake")
  set(template "${PROJECT_SOURCE_DIR}/docs/nebulex2.1.in")

  add_custom_command(
    OUTPUT "${man}" "${bash}" "${zsh}" "${fish}"
    COMMAND "${CMAKE_COMMAND}"
      -D "program=$<TARGET_FILE:${target}>" -D "man_template=${template}" -D "man=${man}"
      -D "bash=${bash}" -D "zsh=${zsh}" -D "fish=${fish}" -P "${script}"
    DEPENDS ${target} "${script}" "${template}"
    COMMENT "Making the manual page and the shell completions"
    VERBATIM)
  add_custom_target(${target}_interface_files ALL DEPENDS "${man}" "${bash}" "${zsh}" "${fish}")

  if(NEBULEX_LAYOUT STREQUAL "portable")
    return() # no folder to be found in
  endif()
  if(NEBULEX_LAYOUT STREQUAL "debian")
    nebulex_compress("${man}" "${man}.gz")
    add_custom_target(${target}_manual ALL DEPENDS "${man}.gz")
    set(man "${man}.gz")
  endif()
  install(FILES "${man}" DESTINATION share/man/man1 COMPONENT Program)
  install(FILES "${bash}" DESTINATION share/bash-completion/completions COMPONENT Program)
  install(FILES "${zsh}" DESTINATION "${NEBULEX_ZSH_DIR}" COMPONENT Program)
  install(FILES "${fish}" DESTINATION share/fish/vendor_completions.d COMPONENT Program)
endfunction()
