# Warnings of the project's own code; third-party headers are system headers.
add_library(nebulex_warnings INTERFACE)
target_compile_options(nebulex_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow
  # GCC 12 sees overlapping copies in a literal + std::string that are not there (GCC bug 105651).
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
  $<$<BOOL:${NEBULEX_WARNINGS_AS_ERRORS}>:-Werror>)
