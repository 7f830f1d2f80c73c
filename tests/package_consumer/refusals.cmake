# Each compiler of this machine that a package was not built for is refused by the package's headers, without CMake, and that it
# was built for is not. A program of another flavour that finds the package's DLLs ends at its start.
#   cmake -D PACKAGE=installed tree [-D REFUSED=how many compilers at least] [-D PROGRAM=exe of another flavour -D RUN_WITH=wine] -P refusals.cmake
cmake_minimum_required(VERSION 3.25)

cmake_path(ABSOLUTE_PATH PACKAGE)
set(program ${CMAKE_CURRENT_LIST_DIR}/package_consumer.cpp)
file(STRINGS ${PACKAGE}/include/concurrency/base/built_for.h built_for REGEX "^#define ")
list(JOIN built_for " " built_for)
set(refused 0)
foreach(compiler_of IN ITEMS
    "WIN32_THREADS 1 .*UCRT 0 x86_64-w64-mingw32-g++-win32"
    "WIN32_THREADS 0 .*UCRT 0 x86_64-w64-mingw32-g++-posix"
    "WIN32_THREADS 0 .*UCRT 1 x86_64-w64-mingw32ucrt-g++"
)
    string(REGEX MATCH "^(.*) ([^ ]+)$" compiler_of "${compiler_of}")
    set(flavour "${CMAKE_MATCH_1}")
    find_program(compiler NAMES ${CMAKE_MATCH_2} NO_CACHE)
    if(compiler)
        execute_process(COMMAND ${compiler} -std=c++20 -fsyntax-only -I ${PACKAGE}/include ${program}
            RESULT_VARIABLE result OUTPUT_QUIET ERROR_VARIABLE error
        )
        if(built_for MATCHES "${flavour}")
            if(NOT result EQUAL 0)
                message(FATAL_ERROR "${PACKAGE} refuses its own compiler ${compiler}: ${error}")
            endif()
        elseif(result EQUAL 0 OR NOT error MATCHES "#error \"(This ZarvoConcurrency was built for [^\"]*)\"")
            message(FATAL_ERROR "${PACKAGE} does not refuse ${compiler}: ${error}")
        else()
            math(EXPR refused "${refused} + 1")
            message(STATUS "${compiler}: ${CMAKE_MATCH_1}")
        endif()
    endif()
    unset(compiler)
endforeach()
if(REFUSED AND refused LESS REFUSED)
    message(FATAL_ERROR "${PACKAGE}: ${refused} compilers were refused, there should be ${REFUSED}")
endif()

if(PROGRAM)
    set(ENV{WINEPATH} ${PACKAGE}/bin)
    execute_process(COMMAND ${RUN_WITH} ${PROGRAM} RESULT_VARIABLE code OUTPUT_VARIABLE output ERROR_VARIABLE error)
    if(NOT code EQUAL 3 OR output OR NOT error MATCHES "ship the DLLs of the package")
        message(FATAL_ERROR "${PROGRAM} ended with ${code} and not with a word about layouts: ${output}${error}")
    endif()
    message(STATUS "${PROGRAM} ends at its start, as it finds the DLLs of ${PACKAGE}")
endif()
