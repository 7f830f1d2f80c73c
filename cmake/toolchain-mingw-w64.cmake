# Cross-compiles from Linux with GCC 14's win32 thread model: condition variables of the posix model ride on
# winpthreads and are many times slower. Programs that the build or the tests start go through Wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_VERSION 10.0)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(triple x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${triple}-gcc-win32)
set(CMAKE_CXX_COMPILER ${triple}-g++-win32)
set(CMAKE_RC_COMPILER ${triple}-windres)
set(CMAKE_AR ${triple}-gcc-ar-win32)
set(CMAKE_RANLIB ${triple}-gcc-ranlib-win32)

set(CMAKE_FIND_ROOT_PATH /usr/${triple})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_CROSSCOMPILING_EMULATOR wine)
