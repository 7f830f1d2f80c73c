# Cross-compiles from Linux with GCC 14's win32 thread model, for msvcrt.
set(triple x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${triple}-gcc-win32)
set(CMAKE_CXX_COMPILER ${triple}-g++-win32)
set(CMAKE_AR ${triple}-gcc-ar-win32)
set(CMAKE_RANLIB ${triple}-gcc-ranlib-win32)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-mingw-w64-common.cmake)
