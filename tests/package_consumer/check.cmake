# Installs a build, then configures, builds and runs the consumer against it:
#   cmake -D BUILD=folder -D INSTALL=folder [-D CONFIG=Debug] [-D RUN_WITH=wine] [-D INSTALL_OPTIONS=...] [-D CONSUMER_OPTIONS=...] -P check.cmake
cmake_minimum_required(VERSION 3.25)

function(run)
    execute_process(COMMAND ${ARGV} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

set(consumer ${BUILD}/package_consumer)
set(config "")
if(CONFIG) # for a generator of several
    set(config --config ${CONFIG})
endif()
file(REMOVE_RECURSE ${INSTALL})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${INSTALL} ${config} ${INSTALL_OPTIONS})

# The debug data of its DLLs is found beside it.
load_cache(${BUILD} READ_WITH_PREFIX built_ CMAKE_OBJCOPY CMAKE_OBJDUMP)
if(built_CMAKE_OBJCOPY)
    file(REMOVE_RECURSE ${INSTALL}-symbols)
    run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${INSTALL}-symbols ${config} --component symbols)
    run(${CMAKE_COMMAND} -D PACKAGE=${INSTALL} -D SYMBOLS=${INSTALL}-symbols -D OBJCOPY=${built_CMAKE_OBJCOPY}
        -D OBJDUMP=${built_CMAKE_OBJDUMP} -P ${CMAKE_CURRENT_LIST_DIR}/symbols.cmake
    )
endif()

# What a text of the package refers to is in the package.
set(texts_dir ${INSTALL}/share/ZarvoConcurrency)
file(GLOB_RECURSE texts ${texts_dir}/*.md)
foreach(needed IN ITEMS README.md CONTRIBUTING.md CHANGELOG.md docs/architecture.md)
    if(NOT "${texts_dir}/${needed}" IN_LIST texts)
        message(FATAL_ERROR "The package has no ${needed}")
    endif()
endforeach()
foreach(needed IN ITEMS zarvo_gdb.py zarvo.natvis) # docs/debugging.md says that they are there
    if(NOT EXISTS ${texts_dir}/debugger/${needed})
        message(FATAL_ERROR "The package has no debugger/${needed}")
    endif()
endforeach()
# What others have written has its licence there.
file(READ ${texts_dir}/licences/third-party.md licences)
file(GLOB dlls RELATIVE ${INSTALL}/bin ${INSTALL}/bin/*.dll)
list(FILTER dlls EXCLUDE REGEX "^Zarvo")
foreach(dll IN LISTS dlls)
    string(FIND "${licences}" "`${dll}`" place)
    if(place EQUAL -1)
        message(FATAL_ERROR "licences/third-party.md does not name ${dll}")
    endif()
endforeach()
foreach(text IN LISTS texts)
    file(READ ${text} content)
    string(REGEX REPLACE "```[^`]*```" "" content "${content}")  # a lambda is no link
    string(REPLACE "](" "\nlink " content "${content}")
    string(REGEX MATCHALL "\nlink [^):\n]+\\)" links "${content}")
    cmake_path(GET text PARENT_PATH folder)
    foreach(link IN LISTS links)
        string(REGEX REPLACE "^\nlink ([^#)]*).*$" "\\1" target "${link}")
        if(NOT EXISTS ${folder}/${target})
            message(FATAL_ERROR "${text} refers to ${target}, which is not in the package")
        endif()
    endforeach()
endforeach()

# Another compiler is told so, instead of failing at link time.
block()
    set(CMAKE_CXX_COMPILER_ID Another)
    find_package(ZarvoConcurrency QUIET CONFIG NO_DEFAULT_PATH PATHS ${INSTALL})
    if(ZarvoConcurrency_FOUND OR NOT ZarvoConcurrency_NOT_FOUND_MESSAGE MATCHES "compiler")
        message(FATAL_ERROR "The package was found by another compiler")
    endif()
endblock()

# So is another kind of the same compiler. It is played by a header that is included before all others.
function(refuses what prelude)
    file(WRITE ${consumer}_refused.h "${prelude}\n")
    execute_process(
        COMMAND ${CMAKE_COMMAND} -S ${CMAKE_CURRENT_LIST_DIR} -B ${consumer}_refused --fresh ${CONSUMER_OPTIONS}
            -DZarvoConcurrency_DIR=${INSTALL}/lib/cmake/ZarvoConcurrency
            "-DCMAKE_CXX_FLAGS=-include ${consumer}_refused.h"
        RESULT_VARIABLE result OUTPUT_QUIET ERROR_VARIABLE error
    )
    string(REGEX REPLACE "[ \n]+" " " error "${error}")
    if(result EQUAL 0 OR NOT error MATCHES "another kind of .*${what} instead of")
        message(FATAL_ERROR "The package was found by another kind of compiler (${what}): ${error}")
    endif()
endfunction()

# Without CMake the headers refuse: refuses_header(MESSAGE COMPILER HEADER [OPTIONS...])
function(refuses_header message compiler header)
    execute_process(
        COMMAND ${compiler} -std=c++20 -E -Wfatal-errors -I ${INSTALL}/include ${ARGN} -x c++ ${header}
        RESULT_VARIABLE result OUTPUT_QUIET ERROR_VARIABLE error
    )
    if(result EQUAL 0 OR NOT error MATCHES "This ZarvoConcurrency was built ${message}")
        message(FATAL_ERROR "${header} was taken by ${compiler} ${ARGN}: ${error}")
    endif()
endfunction()

load_cache(${BUILD} READ_WITH_PREFIX built_ ZARVO_GLIBCXX ZARVO_WIN32_THREADS ZARVO_UCRT)
file(GLOB compiler_file ${BUILD}/CMakeFiles/*/CMakeCXXCompiler.cmake)
file(STRINGS ${compiler_file} compiler_line REGEX "^set\\(CMAKE_CXX_COMPILER \"")
string(REGEX REPLACE "^[^\"]*\"(.*)\".*$" "\\1" built_compiler "${compiler_line}")
if(built_ZARVO_GLIBCXX)
    set(threads_win32 "#include <mutex>\n#define GCC_GTHR_WIN32_H")
    set(threads_posix "#include <mutex>\n#undef GCC_GTHR_WIN32_H")
    set(runtime_ucrt "#include <mutex>\n#define _UCRT")
    set(runtime_msvcrt "#include <mutex>\n#undef _UCRT")
    if(built_ZARVO_WIN32_THREADS)
        refuses("win32 thread model '1'" "${threads_posix}")
        set(other_threads "${threads_posix}")
        set(threads_message "for GCC's win32 thread model")
    else()
        refuses("win32 thread model ''" "${threads_win32}")
        set(other_threads "${threads_win32}")
        set(threads_message "for GCC's posix thread model")
    endif()
    if(built_ZARVO_UCRT)
        refuses("UCRT '1'" "${runtime_msvcrt}")
        set(other_runtime "${runtime_msvcrt}")
        set(runtime_message "for the UCRT")
    else()
        refuses("UCRT ''" "${runtime_ucrt}")
        set(other_runtime "${runtime_ucrt}")
        set(runtime_message "for msvcrt")
    endif()

    # Every header with something of the DLL's, and the templates above. The others carry nothing across.
    file(WRITE ${consumer}_threads.h "${other_threads}\n")
    file(WRITE ${consumer}_runtime.h "${other_runtime}\n")
    file(WRITE ${consumer}_library.h "#include <mutex>\n#undef __GLIBCXX__\n")
    file(GLOB_RECURSE headers ${INSTALL}/include/concurrency/*.h)
    foreach(header IN LISTS headers)
        file(STRINGS ${header} uses_the_dll REGEX "ORVANE_CONCURRENCY_API|concurrency/jobs/")
        if(NOT uses_the_dll)
            continue()
        endif()
        refuses_header("${threads_message}" ${built_compiler} ${header} -include ${consumer}_threads.h)
    endforeach()
    set(program ${CMAKE_CURRENT_LIST_DIR}/package_consumer.cpp)
    refuses_header("${runtime_message}" ${built_compiler} ${program} -include ${consumer}_runtime.h)
    refuses_header("with GCC's standard library" ${built_compiler} ${program} -include ${consumer}_library.h)
    refuses_header("with the release runtime" ${built_compiler} ${program} -D_GLIBCXX_DEBUG)

    # The other compilers themselves, as far as this machine has them.
    run(${CMAKE_COMMAND} -D PACKAGE=${INSTALL} -P ${CMAKE_CURRENT_LIST_DIR}/refusals.cmake)
endif()

run(${CMAKE_COMMAND} -S ${CMAKE_CURRENT_LIST_DIR} -B ${consumer} --fresh ${CONSUMER_OPTIONS}
    -DZarvoConcurrency_DIR=${INSTALL}/lib/cmake/ZarvoConcurrency
)
run(${CMAKE_COMMAND} --build ${consumer} ${config})

# The program finds its DLLs in the package alone: nothing but a program is in its own folder.
if(RUN_WITH)
    set(ENV{WINEPATH} ${INSTALL}/bin)
else()
    cmake_path(NATIVE_PATH INSTALL bin)
    set(ENV{PATH} "${bin}\\bin;$ENV{PATH}")
endif()
set(program ${consumer}/package_consumer.exe)
if(NOT EXISTS ${program})
    set(program ${consumer}/${CONFIG}/package_consumer.exe)
endif()
run(${RUN_WITH} ${program})
