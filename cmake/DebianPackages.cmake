# The Debian packages, a component each: nebulex2 (Program), libnebulex1 (Library), libnebulex-dev
# (Development) and python3-nebulex (Python). Included by Packages.cmake.

# Which package a component becomes.
set(NEBULEX_PACKAGE_OF_Program nebulex2)
set(NEBULEX_PACKAGE_OF_Library "libnebulex${NEBULEX_ABI}")
set(NEBULEX_PACKAGE_OF_Development libnebulex-dev)
set(NEBULEX_PACKAGE_OF_Python python3-nebulex)
set(components Program Library Development Python)

# --- What every package has: the copyright and the changelog ---

set(changelog "${PROJECT_BINARY_DIR}/package/changelog")
configure_file("${packaging}/debian-changelog.in" "${changelog}" @ONLY)
nebulex_compress("${changelog}" "${changelog}.gz")
add_custom_target(debian_changelog ALL DEPENDS "${changelog}.gz")

foreach(component IN LISTS components)
  set(documents "share/doc/${NEBULEX_PACKAGE_OF_${component}}")
  install(FILES "${packaging}/debian-copyright"
    DESTINATION "${documents}" RENAME copyright COMPONENT ${component})
  install(FILES "${changelog}.gz" DESTINATION "${documents}" COMPONENT ${component})
endforeach()

# --- What some have ---

set(library_documents "share/doc/${NEBULEX_PACKAGE_OF_Library}")
nebulex_install_notices(Program "${NEBULEX_DOC_DIR}")
nebulex_install_tclap_licence(Program "${NEBULEX_DOC_DIR}")
nebulex_install_notices(Library "${library_documents}")
nebulex_install_onnxruntime_licences(Library "${library_documents}")

set(programs nebulex2)
if(NEBULEX_BUILD_STUDIO)
  list(APPEND programs nebulex2-studio)
endif()
foreach(program IN LISTS programs)
  install(CODE "
    file(MAKE_DIRECTORY \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/bin\")
    file(CREATE_LINK ../lib/nebulex2/${program}
      \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/bin/${program}\" SYMBOLIC)"
    COMPONENT Program)
endforeach()

# --- The packages ---

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX "/usr")
set(CPACK_DEB_COMPONENT_INSTALL ON)
# The first line of each component's description is its own.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_COMPONENTS_ALL ${components})
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
  "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}" "${PROJECT_BINARY_DIR}/lib")
set(CPACK_POST_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/FinishDebianPackages.cmake")

set(same_version "${NEBULEX_PACKAGE_OF_Library} (= ${PROJECT_VERSION})")

set(CPACK_DEBIAN_PROGRAM_PACKAGE_NAME "${NEBULEX_PACKAGE_OF_Program}")
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_DEPENDS "${same_version}")
set(CPACK_COMPONENT_PROGRAM_DESCRIPTION
"take the stars out of astronomical images
Removes the stars from astronomical images with a neural network, and writes
the image without stars and, on request, the stars themselves as a mask and as
a layer. Reads and writes TIFF, PNG and FITS, stretched or linear.")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME "${NEBULEX_PACKAGE_OF_Library}")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION
"take the stars out of astronomical images - shared library
Removes the stars from astronomical images in memory with a neural network.
The network and ONNX Runtime, which runs it on the processor, are part of the
package.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME "${NEBULEX_PACKAGE_OF_Development}")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${same_version}")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
"take the stars out of astronomical images - development files
Headers for C and C++, a CMake package and a pkg-config file for programs that
remove the stars from astronomical images with libnebulex.")

# The compiled module is for one minor version of Python.
set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME "${NEBULEX_PACKAGE_OF_Python}")
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
math(EXPR next_minor "${NEBULEX_PYTHON_MINOR} + 1")
string(CONCAT CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
  "${same_version}, python3-numpy, "
  "python3 (>= 3.${NEBULEX_PYTHON_MINOR}), python3 (<< 3.${next_minor})")
set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS
  "python3-astropy, python3-dask, python3-matplotlib, python3-tqdm")
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA
  "${packaging}/python3-nebulex/postinst" "${packaging}/python3-nebulex/prerm")
set(CPACK_COMPONENT_PYTHON_DESCRIPTION
"take the stars out of astronomical images - Python package
Removes the stars from NumPy arrays with a neural network, and from the images
of astropy with their world coordinates, units, masks and headers.")

# What packages of programs that use the library depend on, and what makes the loader find it.
set(control "${PROJECT_BINARY_DIR}/package/control")
file(WRITE "${control}/shlibs"
  "libnebulex ${NEBULEX_ABI} ${NEBULEX_PACKAGE_OF_Library} (>= ${PROJECT_VERSION})\n")
file(WRITE "${control}/triggers" "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA "${control}/shlibs" "${control}/triggers")
