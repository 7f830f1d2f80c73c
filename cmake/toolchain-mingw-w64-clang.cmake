# Cross-compiles from Linux with clang and lld on GCC's standard library, for msvcrt. A check of the sources, no flavour
# that is tested: some classes' type information stays in each module.
set(triple x86_64-w64-mingw32)
set(CMAKE_C_COMPILER clang-19)
set(CMAKE_CXX_COMPILER clang++-19)
set(CMAKE_C_COMPILER_TARGET x86_64-w64-windows-gnu)
set(CMAKE_CXX_COMPILER_TARGET x86_64-w64-windows-gnu)
foreach(language IN ITEMS C CXX)
    set(CMAKE_${language}_FLAGS_INIT -femulated-tls)  # as GCC's library has it
endforeach()
foreach(kind IN ITEMS EXE SHARED MODULE)
    set(CMAKE_${kind}_LINKER_FLAGS_INIT -fuse-ld=lld)
endforeach()
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-mingw-w64-common.cmake)
