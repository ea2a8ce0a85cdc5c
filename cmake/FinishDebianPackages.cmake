# Takes the scripts that call ldconfig out of the packages that cpack has made (CPACK_PACKAGE_FILES).
# It adds them, and they are the business of a trigger.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
  set(folder "${package}.contents")
  execute_process(COMMAND dpkg-deb --raw-extract "${package}" "${folder}"
    COMMAND_ERROR_IS_FATAL ANY)
  file(GLOB scripts "${folder}/DEBIAN/post*")
  foreach(script IN LISTS scripts)
    file(STRINGS "${script}" calls REGEX "ldconfig")
    if(NOT calls)
      list(REMOVE_ITEM scripts "${script}")
    endif()
  endforeach()
  if(scripts)
    file(REMOVE ${scripts})
    execute_process(COMMAND dpkg-deb --root-owner-group -Zgzip --build "${folder}" "${package}"
      OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  endif()
  file(REMOVE_RECURSE "${folder}")
endforeach()
