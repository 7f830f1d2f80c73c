# Installs a build, then configures, builds and runs the consumer against it:
#   cmake -D BUILD=folder -D INSTALL=folder [-D RUN_WITH=wine] [-D INSTALL_OPTIONS=...] [-D CONSUMER_OPTIONS=...] -P check.cmake
cmake_minimum_required(VERSION 3.25)

function(run)
    execute_process(COMMAND ${ARGV} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

set(consumer ${BUILD}/package_consumer)
file(REMOVE_RECURSE ${INSTALL})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${INSTALL} ${INSTALL_OPTIONS})

# What a text of the package refers to is in the package.
set(texts_dir ${INSTALL}/share/ZarvoConcurrency)
file(GLOB_RECURSE texts ${texts_dir}/*.md)
foreach(needed IN ITEMS README.md CONTRIBUTING.md CHANGELOG.md docs/architecture.md)
    if(NOT "${texts_dir}/${needed}" IN_LIST texts)
        message(FATAL_ERROR "The package has no ${needed}")
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
file(STRINGS ${INSTALL}/lib/cmake/ZarvoConcurrency/ZarvoConcurrencyConfig.cmake is_gcc REGEX "another kind of GNU")
if(is_gcc)
    refuses("win32 thread model '1'" "#include <mutex>\n#undef GCC_GTHR_WIN32_H")
    refuses("UCRT ''" "#define _UCRT")
endif()

run(${CMAKE_COMMAND} -S ${CMAKE_CURRENT_LIST_DIR} -B ${consumer} --fresh ${CONSUMER_OPTIONS}
    -DZarvoConcurrency_DIR=${INSTALL}/lib/cmake/ZarvoConcurrency
)
run(${CMAKE_COMMAND} --build ${consumer})

# The program finds its DLLs in the package alone: nothing but a program is in its own folder.
if(RUN_WITH)
    set(ENV{WINEPATH} ${INSTALL}/bin)
else()
    cmake_path(NATIVE_PATH INSTALL bin)
    set(ENV{PATH} "${bin}\\bin;$ENV{PATH}")
endif()
run(${RUN_WITH} ${consumer}/package_consumer.exe)
