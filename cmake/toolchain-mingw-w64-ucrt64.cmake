# Cross-compiles from Linux with GCC 14's posix thread model, for the UCRT: what MSYS2 calls UCRT64.
set(triple x86_64-w64-mingw32ucrt)
set(CMAKE_C_COMPILER ${triple}-gcc)
set(CMAKE_CXX_COMPILER ${triple}-g++)
set(CMAKE_AR ${triple}-gcc-ar)
set(CMAKE_RANLIB ${triple}-gcc-ranlib)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-mingw-w64-common.cmake)
