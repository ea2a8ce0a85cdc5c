# Where installed files go. NEBULEX_LAYOUT is one of
#
#   prefix     bin/ and lib/nebulex2/, for cmake --install
#   debian     the program, ONNX Runtime and the network together in lib/nebulex2/ and a link in
#              bin/, for the .deb packages: no library lies in a folder for programs
#   portable   everything in one folder, for the archive that runs from anywhere
#   wheel      everything in the folder of the Python package, for pip
#
# Program and library find the network and ONNX Runtime, which lies beside the program, in each of
# them.
set(NEBULEX_LAYOUT "prefix" CACHE STRING "Layout of the install: prefix, debian, portable or wheel")

set(NEBULEX_DOC_DIR share/doc/nebulex2)
set(NEBULEX_ZSH_DIR share/zsh/site-functions)
if(NEBULEX_LAYOUT STREQUAL "prefix")
  set(NEBULEX_PROGRAM_DIR bin)
  set(NEBULEX_MODEL_DIR lib/nebulex2)
  set(NEBULEX_LIBRARY_DIR lib)
  set(NEBULEX_DEVELOPMENT_DIR lib)
  set(NEBULEX_LIBRARY_RPATH "$ORIGIN/../bin")
elseif(NEBULEX_LAYOUT STREQUAL "debian")
  set(NEBULEX_PROGRAM_DIR lib/nebulex2)
  set(NEBULEX_MODEL_DIR lib/nebulex2)
  set(NEBULEX_LIBRARY_DIR "lib/${CMAKE_LIBRARY_ARCHITECTURE}")
  set(NEBULEX_DEVELOPMENT_DIR "${NEBULEX_LIBRARY_DIR}")
  set(NEBULEX_LIBRARY_RPATH "$ORIGIN/../nebulex2")
  set(NEBULEX_ZSH_DIR share/zsh/vendor-completions)
elseif(NEBULEX_LAYOUT STREQUAL "portable")
  set(NEBULEX_PROGRAM_DIR .)
  set(NEBULEX_MODEL_DIR .)
  set(NEBULEX_LIBRARY_DIR .)
  set(NEBULEX_DEVELOPMENT_DIR lib)
  set(NEBULEX_LIBRARY_RPATH "$ORIGIN")
  set(NEBULEX_DOC_DIR .)
elseif(NEBULEX_LAYOUT STREQUAL "wheel")
  set(NEBULEX_PROGRAM_DIR nebulex)
  set(NEBULEX_MODEL_DIR nebulex)
  set(NEBULEX_LIBRARY_DIR nebulex)
  set(NEBULEX_DEVELOPMENT_DIR nebulex)
  set(NEBULEX_LIBRARY_RPATH "$ORIGIN")
else()
  message(FATAL_ERROR "NEBULEX_LAYOUT is ${NEBULEX_LAYOUT}, not prefix, debian, portable or wheel.")
endif()
