# Takes the scripts out of the packages that cpack has made (CPACK_PACKAGE_FILES). It adds scripts that
# call ldconfig, which is the business of a trigger.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
  set(folder "${package}.contents")
  execute_process(COMMAND dpkg-deb --raw-extract "${package}" "${folder}"
    COMMAND_ERROR_IS_FATAL ANY)
  file(GLOB scripts "${folder}/DEBIAN/post*")
  if(scripts)
    file(REMOVE ${scripts})
    execute_process(COMMAND dpkg-deb --root-owner-group -Zxz --build "${folder}" "${package}"
      OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  endif()
  file(REMOVE_RECURSE "${folder}")
endforeach()
