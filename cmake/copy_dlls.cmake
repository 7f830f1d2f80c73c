# zarvo_copy_dlls(PROGRAM): puts all DLLs that a program of this library needs beside it, whenever it is linked. A program
# that misses one does not start, and the loader need not say why.
function(zarvo_copy_dlls program)
    get_property(runtime GLOBAL PROPERTY ZARVO_RUNTIME_DLLS)
    set(dlls ${runtime})
    foreach(library IN ITEMS Concurrency OrvaneLogging OrvaneUtils Logging)
        list(APPEND dlls $<TARGET_FILE:Zarvo::${library}>)
    endforeach()
    get_target_property(folder ${program} RUNTIME_OUTPUT_DIRECTORY)
    get_target_property(own_folder Zarvo::Concurrency RUNTIME_OUTPUT_DIRECTORY)
    if(folder AND folder STREQUAL own_folder)
        return() # they are there
    endif()
    add_custom_command(TARGET ${program} POST_BUILD
        COMMAND ${CMAKE_COMMAND} -E copy_if_different ${dlls} $<TARGET_FILE_DIR:${program}> VERBATIM
    )
endfunction()
