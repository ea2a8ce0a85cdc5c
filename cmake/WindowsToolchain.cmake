# Cross-compiles for 64-bit Windows with mingw-w64's GCC (the one with POSIX threads) against what
# scripts/fetch-windows-libraries has built. Everything but the system's own DLLs is linked in.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR AMD64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

set(NEBULEX_WINDOWS_LIBRARIES "${CMAKE_CURRENT_LIST_DIR}/../.deps/windows/libraries")
cmake_path(NORMAL_PATH NEBULEX_WINDOWS_LIBRARIES)
set(CMAKE_FIND_ROOT_PATH "${NEBULEX_WINDOWS_LIBRARIES}" /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Files may be larger than 2 GiB.
set(CMAKE_C_FLAGS_INIT -D_FILE_OFFSET_BITS=64)
set(CMAKE_CXX_FLAGS_INIT -D_FILE_OFFSET_BITS=64)

# The linker brings the stack protector's own library when it is told so too.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -fstack-protector-strong")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static -fstack-protector-strong")
