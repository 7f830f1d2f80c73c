# The debug data beside a package, a file for each of its DLLs:
#   cmake -D PACKAGE=installed tree -D SYMBOLS=tree with the debug data -D OBJCOPY=program -D OBJDUMP=program -P symbols.cmake
#
# Each DLL has a link that names the file and has its checksum, and no time stamp; the library's own have debug data in it.
cmake_minimum_required(VERSION 3.25)

function(read_link file result)
    execute_process(COMMAND ${OBJCOPY} --dump-section .gnu_debuglink=${SYMBOLS}/link ${file} ${SYMBOLS}/copy ERROR_VARIABLE error)
    if(NOT EXISTS ${SYMBOLS}/link)
        message(FATAL_ERROR "${file} has no link to its debug data: ${error}")
    endif()
    file(READ ${SYMBOLS}/link link HEX)
    file(REMOVE ${SYMBOLS}/link ${SYMBOLS}/copy)
    set(${result} ${link} PARENT_SCOPE)
endfunction()

file(GLOB dlls ${PACKAGE}/bin/*.dll)
foreach(needed IN ITEMS ZarvoConcurrency ZarvoOrvaneLogging ZarvoOrvaneUtils ZarvoLogging libstdc++-6 libgcc_s_seh-1)
    if(NOT "${PACKAGE}/bin/${needed}.dll" IN_LIST dlls)
        message(FATAL_ERROR "The package has no ${needed}.dll")
    endif()
endforeach()
foreach(dll IN LISTS dlls)
    cmake_path(GET dll FILENAME name)
    set(debug ${SYMBOLS}/bin/${name}.debug)
    execute_process(COMMAND ${OBJDUMP} --section-headers --wide ${debug} OUTPUT_VARIABLE sections COMMAND_ERROR_IS_FATAL ANY)
    if(name MATCHES "^Zarvo" AND NOT sections MATCHES "\\.debug_info") # a compiler may come without that of its runtime
        message(FATAL_ERROR "${debug} has no debug data")
    endif()
    execute_process(COMMAND ${OBJDUMP} --private-headers ${dll} OUTPUT_VARIABLE headers COMMAND_ERROR_IS_FATAL ANY)
    if(NOT headers MATCHES "Time/Date[\t ]+[^\n]* 1970")
        message(FATAL_ERROR "${dll} has the time at which it was made")
    endif()
    # What the link to this very file is.
    execute_process(
        COMMAND ${OBJCOPY} --remove-section=.gnu_debuglink --add-gnu-debuglink=${debug} ${dll} ${SYMBOLS}/linked.dll
        COMMAND_ERROR_IS_FATAL ANY
    )
    read_link(${SYMBOLS}/linked.dll expected)
    file(REMOVE ${SYMBOLS}/linked.dll)
    read_link(${dll} link)
    if(NOT link STREQUAL expected)
        message(FATAL_ERROR "${dll} has the link ${link}, to another file than ${debug}: that one would be ${expected}")
    endif()
    message(STATUS "${name}: its debug data is found, and fits")
endforeach()
