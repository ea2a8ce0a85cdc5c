# The packages that cpack makes: a .deb in the layout debian, a .tar.gz in the layout portable. What
# they hold besides the program: licences, notices and, in the archive, the libraries.
#
# Included last, when everything else that gets installed is known.
cmake_path(GET ONNXRuntime_LIBRARY PARENT_PATH onnxruntime_root)
cmake_path(GET onnxruntime_root PARENT_PATH onnxruntime_root)
set(packaging "${PROJECT_SOURCE_DIR}/packaging")
set(tclap_licence /usr/share/doc/libtclap-dev/copyright)

if(NOT NEBULEX_LAYOUT STREQUAL "prefix")
  install(FILES "${PROJECT_SOURCE_DIR}/THIRD_PARTY_NOTICES.md"
    DESTINATION "${NEBULEX_DOC_DIR}" RENAME THIRD_PARTY_NOTICES.txt COMPONENT Program)
  # As scripts/fetch-onnxruntime leaves them, or as an official release has them.
  install(DIRECTORY "${onnxruntime_root}/licenses/"
    DESTINATION "${NEBULEX_DOC_DIR}/licenses" COMPONENT Program OPTIONAL)
  install(FILES "${onnxruntime_root}/LICENSE" "${onnxruntime_root}/ThirdPartyNotices.txt"
    DESTINATION "${NEBULEX_DOC_DIR}/licenses/onnxruntime" COMPONENT Program OPTIONAL)
  install(FILES "${tclap_licence}"
    DESTINATION "${NEBULEX_DOC_DIR}/licenses/tclap" COMPONENT Program)
endif()

if(NEBULEX_LAYOUT STREQUAL "debian")
  install(CODE "
    file(MAKE_DIRECTORY \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/bin\")
    file(CREATE_LINK ../lib/nebulex2/nebulex2
      \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/bin/nebulex2\" SYMBOLIC)"
    COMPONENT Program)
  install(FILES "${packaging}/debian-copyright"
    DESTINATION "${NEBULEX_DOC_DIR}" RENAME copyright COMPONENT Program)
  install(FILES "${PROJECT_SOURCE_DIR}/CHANGELOG.md"
    DESTINATION "${NEBULEX_DOC_DIR}" COMPONENT Program)
endif()

if(NEBULEX_LAYOUT STREQUAL "portable")
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
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "take the stars out of astronomical images")
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_CMAKE_PROJECTS "${PROJECT_BINARY_DIR};nebulex2;Program;/")
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/packages")

if(NEBULEX_LAYOUT STREQUAL "portable")
  set(CPACK_GENERATOR TGZ)
  string(TOLOWER "${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR}" system)
  set(CPACK_PACKAGE_FILE_NAME "nebulex2-${PROJECT_VERSION}-${system}")
  # The folder in the archive is nebulex2/, whatever the archive is called.
  set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY OFF)
  set(CPACK_PACKAGING_INSTALL_PREFIX "/nebulex2")
else()
  set(CPACK_GENERATOR DEB)
  set(CPACK_PACKAGING_INSTALL_PREFIX "/usr")
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}")
  set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"Removes the stars from astronomical images with a neural network, and writes
the image without stars and, on request, the stars themselves as a mask and as
a layer. Reads and writes TIFF, PNG and FITS, stretched or linear. The network
and ONNX Runtime, which runs it on the processor, are part of the package.")
endif()
include(CPack)
