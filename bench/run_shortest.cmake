# Runs every program of PROGRAMS in its shortest mode and judges that it ended well and printed a figure: the programs
# are run seldom, and must not have stopped working when they are.
foreach(program IN LISTS PROGRAMS)
    execute_process(COMMAND ${RUN_WITH} ${program} --shortest OUTPUT_VARIABLE output RESULT_VARIABLE result)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${program} ended with ${result}:\n${output}")
    endif()
    if(NOT output MATCHES "[0-9]")
        message(FATAL_ERROR "${program} printed no figure:\n${output}")
    endif()
endforeach()
