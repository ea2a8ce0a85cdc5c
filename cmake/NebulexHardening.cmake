# Makes faults in memory handling harder to exploit, in every target. None of it changes a result.
include(CheckCXXCompilerFlag)
include(CheckPIESupported)

# Position-independent executables, as far as CMAKE_POSITION_INDEPENDENT_CODE asks for them.
check_pie_supported(LANGUAGES CXX)

foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection)
  string(MAKE_C_IDENTIFIER "NEBULEX_HAS${flag}" is_supported)
  check_cxx_compiler_flag(${flag} ${is_supported})
  if(${is_supported})
    add_compile_options(${flag})
  endif()
endforeach()

# Checked variants of the C library's functions need an optimised build, and the sanitizers have
# checks of their own. Compilers that do not know level 3 take it for level 2.
if(NOT NEBULEX_SANITIZERS)
  add_compile_options($<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE>
                      $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=3>)
endif()

if(NOT WIN32)
  add_link_options(LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
endif()
