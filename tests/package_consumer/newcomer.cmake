# What a newcomer does with the package alone, in an empty folder: the README's program, as the quick start says, then the examples.
#   cmake -D PACKAGE=installed tree -D WORK=folder -D RUN_WITH=wine -P newcomer.cmake
cmake_minimum_required(VERSION 3.25)

set(ENV{CMAKE_GENERATOR} Ninja)
set(texts ${PACKAGE}/share/ZarvoConcurrency)

# The number-th block of a page in a language.
function(read_block page language number result)
    file(READ ${page} rest)
    foreach(index RANGE 1 ${number})
        string(FIND "${rest}" "\n```${language}\n" begin)
        if(begin EQUAL -1)
            message(FATAL_ERROR "${page} has no block ${number} in ${language}")
        endif()
        string(LENGTH "\n```${language}\n" length)
        math(EXPR begin "${begin} + ${length}")
        string(SUBSTRING "${rest}" ${begin} -1 rest)
    endforeach()
    string(FIND "${rest}" "\n```\n" end)
    string(SUBSTRING "${rest}" 0 ${end} block)
    set(${result} "${block}\n" PARENT_SCOPE)
endfunction()

function(run)
    cmake_parse_arguments(PARSE_ARGV 0 arg "" "CODE;SAYS" "COMMAND")
    execute_process(COMMAND ${arg_COMMAND} WORKING_DIRECTORY ${WORK}
        RESULT_VARIABLE code OUTPUT_VARIABLE output ERROR_VARIABLE error
    )
    if(NOT code EQUAL "${arg_CODE}" OR NOT output MATCHES "${arg_SAYS}")
        message(FATAL_ERROR "${arg_COMMAND}\nended with ${code} instead of ${arg_CODE}; '${arg_SAYS}' not in:\n${output}${error}")
    endif()
endfunction()

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
read_block(${texts}/README.md cpp 1 program)
file(WRITE ${WORK}/main.cpp "${program}")
read_block(${texts}/docs/quick-start.md cmake 1 lists)
file(WRITE ${WORK}/CMakeLists.txt "${lists}")
read_block(${texts}/docs/quick-start.md sh 1 commands)

# The package has the name that the page gives it.
if(NOT commands MATCHES "([^ \n]+)\\.zip")
    message(FATAL_ERROR "The quick start unpacks no package")
endif()
set(name ${CMAKE_MATCH_1})
file(COPY ${PACKAGE}/ DESTINATION ${WORK}/${name})
run(CODE 0 COMMAND ${CMAKE_COMMAND} -E tar cf ${name}.zip --format=zip ${name})
file(REMOVE_RECURSE ${WORK}/${name})

run(CODE 0 SAYS "The sum is 42" COMMAND bash -e -c "${commands}")
string(REGEX MATCHALL "[^\n]+" lines "${commands}")
list(LENGTH lines count)
file(READ ${texts}/docs/quick-start.md page)
if(NOT page MATCHES "It takes ${count} commands and no edit")
    message(FATAL_ERROR "The quick start does not say that it takes ${count} commands and no edit")
endif()
message(STATUS "newcomer: 2 files, ${count} commands, no edit")

# Its own cancelled job: the quick start's second program in place of the first.
read_block(${texts}/docs/quick-start.md cpp 1 program)
file(WRITE ${WORK}/main.cpp "${program}")
run(CODE 0 COMMAND ${CMAKE_COMMAND} --build build)
run(CODE 0 SAYS "The time is up" COMMAND ${RUN_WITH} build/nap.exe)

# Without a DLL beside it the program does not start, and the loader names the DLL, as docs/faq.md says.
file(MAKE_DIRECTORY ${WORK}/away) # not where it is started: the loader looks there, too
file(RENAME ${WORK}/build/ZarvoLogging.dll ${WORK}/away/ZarvoLogging.dll)
execute_process(COMMAND ${CMAKE_COMMAND} -E env WINEDEBUG=err+module ${RUN_WITH} build/nap.exe WORKING_DIRECTORY ${WORK}
    RESULT_VARIABLE code OUTPUT_QUIET ERROR_VARIABLE error
)
if(NOT code EQUAL 53 OR NOT error MATCHES "Library ZarvoLogging.dll [^\n]*not found")
    message(FATAL_ERROR "The program ended with ${code} instead of 53 without ZarvoLogging.dll:\n${error}")
endif()
file(RENAME ${WORK}/away/ZarvoLogging.dll ${WORK}/build/ZarvoLogging.dll)

# The flags for those who build without CMake.
find_program(pkg_config pkg-config REQUIRED)
set(ENV{PKG_CONFIG_PATH} ${WORK}/${name}/lib/pkgconfig)
execute_process(COMMAND ${pkg_config} --define-prefix --cflags --libs zarvo-concurrency
    OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY
)
separate_arguments(flags UNIX_COMMAND "${flags}")
file(STRINGS ${WORK}/build/CMakeCache.txt compiler REGEX "^CMAKE_CXX_COMPILER:")
if(NOT compiler) # the toolchain file sets it
    file(GLOB info ${WORK}/build/CMakeFiles/*/CMakeCXXCompiler.cmake)
    file(STRINGS ${info} compiler REGEX "^set\\(CMAKE_CXX_COMPILER \"")
endif()
string(REGEX REPLACE "^[^\"=]*[\"=]([^\"]*).*$" "\\1" compiler "${compiler}")
run(CODE 0 COMMAND ${compiler} main.cpp ${flags} -o build/by_hand.exe)
run(CODE 0 SAYS "The time is up" COMMAND ${RUN_WITH} build/by_hand.exe)

# Every example that is installed: all are built, and each runs.
run(CODE 0 COMMAND ${CMAKE_COMMAND} -S ${name}/share/ZarvoConcurrency/examples -B examples
    --toolchain ${WORK}/${name}/toolchain.cmake
)
run(CODE 0 COMMAND ${CMAKE_COMMAND} --build examples)
file(GLOB folders RELATIVE ${texts}/examples ${texts}/examples/*/CMakeLists.txt)
set(expected cancel_sleep file_digests folder_watch heartbeat parallel_map plugin_host shared_counter time_limit)
foreach(folder IN LISTS folders)
    cmake_path(GET folder PARENT_PATH example)
    if(NOT example IN_LIST expected)
        message(FATAL_ERROR "No test runs the example ${example}")
    endif()
endforeach()
function(runs example)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "CODE;SAYS" "WITH")
    run(CODE "${arg_CODE}" SAYS "${arg_SAYS}" COMMAND ${RUN_WITH} examples/${example}/${example}.exe ${arg_WITH})
endfunction()
file(WRITE ${WORK}/digested/file "abc")
runs(cancel_sleep CODE 0 SAYS "The sum is 42")
runs(file_digests CODE 0 SAYS "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad" WITH digested)
runs(folder_watch CODE 1 SAYS "The folder cannot be watched" WITH no_such_folder)
runs(heartbeat CODE 0 SAYS "Sleeper has ended")
runs(parallel_map CODE 0 SAYS "The sum is 1878.342")
runs(plugin_host CODE 0 SAYS "taken out 3 times" WITH 3)
runs(shared_counter CODE 0 SAYS "total: ")
runs(time_limit CODE 1 SAYS "The time is up" WITH 3600000 50)
message(STATUS "newcomer: ${expected} run from the package")
