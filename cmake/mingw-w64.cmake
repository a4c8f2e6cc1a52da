# Toolchain file: cross-compiles for 64-bit Windows with MinGW-w64 GCC (posix threads). CTest runs programs under Wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

# The target's libraries are in CMAKE_PREFIX_PATH, in the package that holds this file, or in the folder that
# scripts/setup makes.
list(APPEND CMAKE_FIND_ROOT_PATH ${CMAKE_PREFIX_PATH} /usr/x86_64-w64-mingw32)
foreach(folder IN ITEMS .. ../build/boost)
  get_filename_component(folder ${CMAKE_CURRENT_LIST_DIR}/${folder} ABSOLUTE)
  list(APPEND CMAKE_FIND_ROOT_PATH ${folder})
endforeach()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)

# Ends a test after 600 seconds. Even on a busy machine only a test that hangs takes so long.
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/run_under_wine 600)
