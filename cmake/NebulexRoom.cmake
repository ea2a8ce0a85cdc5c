# nebulex_room(NAME SOURCES ... [USES ROOM ...] [PUBLIC_LIBRARIES ...] [PRIVATE_LIBRARIES ...])
#
# One room of the source tree: the static library nebulex_NAME over src/NAME. Its headers are
# included as "NAME/Header.h". Each room has an include root of its own that shows nothing but
# itself, so a room sees only the rooms it USES, and a wrong include does not compile.
function(nebulex_room name)
  cmake_parse_arguments(ROOM "" "" "SOURCES;USES;PUBLIC_LIBRARIES;PRIVATE_LIBRARIES" ${ARGN})
  set(include_root "${PROJECT_BINARY_DIR}/rooms/${name}")
  file(MAKE_DIRECTORY "${include_root}")
  file(CREATE_LINK "${CMAKE_CURRENT_SOURCE_DIR}" "${include_root}/${name}" SYMBOLIC)

  add_library(nebulex_${name} STATIC ${ROOM_SOURCES})
  target_include_directories(nebulex_${name} PUBLIC "$<BUILD_INTERFACE:${include_root}>")
  # No code looks at floating-point exceptions, so both sides of a choice may be computed and loops
  # with choices vectorise. Values stay what they are.
  target_compile_options(nebulex_${name} PRIVATE
    $<$<CXX_COMPILER_ID:GNU,Clang>:-fno-trapping-math>)
  list(TRANSFORM ROOM_USES PREPEND nebulex_)
  target_link_libraries(nebulex_${name}
    PUBLIC ${ROOM_USES} ${ROOM_PUBLIC_LIBRARIES}
    PRIVATE $<BUILD_INTERFACE:nebulex_warnings> ${ROOM_PRIVATE_LIBRARIES})
endfunction()
