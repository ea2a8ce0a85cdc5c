# nebulex_pack_page(FILE)
#
# Makes the C++ source FILE that holds everything the studio's page consists of: the files of
# studio/web/, OpenSeadragon with its licence as scripts/fetch-openseadragon leaves it, and the user
# guide, from which the page says what warnings and errors mean.
set(OPENSEADRAGON_ROOT "${PROJECT_SOURCE_DIR}/.deps/openseadragon" CACHE PATH
  "The folder with openseadragon.min.js and LICENSE.txt")

function(nebulex_pack_page packed)
  set(library "${OPENSEADRAGON_ROOT}/openseadragon.min.js")
  if(NOT EXISTS "${library}")
    message(FATAL_ERROR "OpenSeadragon is missing. Run scripts/fetch-openseadragon, set "
                        "OPENSEADRAGON_ROOT, or set NEBULEX_BUILD_STUDIO to OFF.")
  endif()
  set(web "${PROJECT_SOURCE_DIR}/studio/web")
  file(GLOB_RECURSE pages CONFIGURE_DEPENDS RELATIVE "${web}" "${web}/*")
  set(guide "${PROJECT_SOURCE_DIR}/docs/user-guide.md")
  set(entries
    "/docs/user-guide.txt=${guide}"
    "/vendor/openseadragon.min.js=${library}"
    "/vendor/openseadragon-LICENSE.txt=${OPENSEADRAGON_ROOT}/LICENSE.txt")
  set(files "${library}" "${OPENSEADRAGON_ROOT}/LICENSE.txt" "${guide}")
  foreach(page IN LISTS pages)
    if(page MATCHES "[.](html|js|mjs|css|svg|png|json|txt)$")
      list(APPEND entries "/${page}=${web}/${page}")
      list(APPEND files "${web}/${page}")
    endif()
  endforeach()
  set(script "${PROJECT_SOURCE_DIR}/cmake/WritePackedFiles.cmake")
  set(list "${packed}.list")
  list(JOIN entries "\n" lines)
  file(CONFIGURE OUTPUT "${list}" CONTENT "@lines@\n" @ONLY)
  add_custom_command(
    OUTPUT "${packed}"
    COMMAND "${CMAKE_COMMAND}" -D "list=${list}" -D "packed=${packed}" -P "${script}"
    DEPENDS ${files} "${list}" "${script}"
    COMMENT "Packing the studio's page"
    VERBATIM)
endfunction()
