# Cross-compiles from Linux with GCC 14's posix thread model, for msvcrt.
set(triple x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${triple}-gcc-posix)
set(CMAKE_CXX_COMPILER ${triple}-g++-posix)
set(CMAKE_AR ${triple}-gcc-ar-posix)
set(CMAKE_RANLIB ${triple}-gcc-ranlib-posix)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-mingw-w64-common.cmake)
