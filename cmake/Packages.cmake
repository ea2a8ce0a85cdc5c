# The packages that cpack makes: .deb files in the layout debian, a .tar.gz in the layout portable.
# What they hold besides program and library: licences, notices and, in the archive, the libraries.
#
# Included last, when everything else that gets installed is known.
cmake_path(GET ONNXRuntime_LIBRARY PARENT_PATH onnxruntime_root)
cmake_path(GET onnxruntime_root PARENT_PATH onnxruntime_root)
set(packaging "${PROJECT_SOURCE_DIR}/packaging")
set(tclap_licence /usr/share/doc/libtclap-dev/copyright)

# The licences of what a component brings along.
function(nebulex_install_notices component folder)
  install(FILES "${PROJECT_SOURCE_DIR}/THIRD_PARTY_NOTICES.md"
    DESTINATION "${folder}" RENAME THIRD_PARTY_NOTICES.txt COMPONENT ${component})
endfunction()

function(nebulex_install_onnxruntime_licences component folder)
  # As scripts/fetch-onnxruntime leaves them, or as an official release has them.
  install(DIRECTORY "${onnxruntime_root}/licenses/"
    DESTINATION "${folder}/licenses" COMPONENT ${component} OPTIONAL)
  install(FILES "${onnxruntime_root}/LICENSE" "${onnxruntime_root}/ThirdPartyNotices.txt"
    DESTINATION "${folder}/licenses/onnxruntime" COMPONENT ${component} OPTIONAL)
endfunction()

function(nebulex_install_tclap_licence component folder)
  install(FILES "${tclap_licence}" DESTINATION "${folder}/licenses/tclap" COMPONENT ${component})
endfunction()

if(NEBULEX_BUILD_STUDIO AND NOT NEBULEX_LAYOUT STREQUAL "prefix")
  install(FILES "${OPENSEADRAGON_ROOT}/LICENSE.txt"
    DESTINATION "${NEBULEX_DOC_DIR}/licenses/openseadragon" COMPONENT Program)
  # A library of headers, so no package that is depended on brings its licence.
  install(FILES /usr/share/doc/nlohmann-json3-dev/copyright
    DESTINATION "${NEBULEX_DOC_DIR}/licenses/nlohmann-json" COMPONENT Program)
endif()

if(NEBULEX_LAYOUT STREQUAL "portable")
  nebulex_install_notices(Program .)
  nebulex_install_onnxruntime_licences(Library .)
  nebulex_install_tclap_licence(Program .)
  install(FILES "${packaging}/README.txt" DESTINATION . COMPONENT Program)
  install(FILES "${PROJECT_SOURCE_DIR}/LICENSE"
    DESTINATION . RENAME LICENSE.txt COMPONENT Program)
  set(portable "${PROJECT_SOURCE_DIR}/.deps/portable")
  install(DIRECTORY "${portable}/licenses/" DESTINATION licenses COMPONENT Program)
  # Beside the program it is found before the system's.
  file(MAKE_DIRECTORY "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}")
  file(REAL_PATH "${portable}/lib/libtiff.so.6" libtiff)
  file(COPY_FILE "${libtiff}" "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/libtiff.so.6" ONLY_IF_DIFFERENT)
  # A library that was brought along finds those that it needs itself only by the older kind of
  # search path, which counts for all that is loaded.
  target_link_options(nebulex2 PRIVATE LINKER:--disable-new-dtags)
  target_link_options(nebulex PRIVATE LINKER:--disable-new-dtags)
  install(CODE "
    set(program \"$<TARGET_FILE:nebulex2>\")
    set(build \"${PROJECT_BINARY_DIR}\")
    set(destination \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}\")
    include(\"${PROJECT_SOURCE_DIR}/cmake/BringLibraries.cmake\")"
    COMPONENT Program)
endif()

set(CPACK_PACKAGE_NAME nebulex2)
set(CPACK_PACKAGE_VENDOR "The nebulex2 developers")
set(CPACK_PACKAGE_CONTACT "The nebulex2 developers <developers@nebulex2.invalid>")
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/packages")

if(NEBULEX_LAYOUT STREQUAL "portable")
  set(CPACK_GENERATOR TGZ)
  string(TOLOWER "${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR}" system)
  set(CPACK_PACKAGE_FILE_NAME "nebulex2-${PROJECT_VERSION}-${system}")
  # The folder in the archive is nebulex2/, whatever the archive is called.
  set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY OFF)
  set(CPACK_PACKAGING_INSTALL_PREFIX "/nebulex2")
elseif(NEBULEX_LAYOUT STREQUAL "debian")
  include(DebianPackages)
endif()
include(CPack)
