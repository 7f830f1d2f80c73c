# At the installation: puts the debug data of each DLL into a file of its own, DLL.debug, and a link with its checksum into the
# installed DLL, by which gdb finds it. Given: OBJCOPY, DLLS with their debug data, FOLDER of the installed ones, SYMBOLS.
set(ENV{SOURCE_DATE_EPOCH} 0) # what is written has no time of its own: the same sources give the same files
file(REMOVE_RECURSE ${SYMBOLS})
file(MAKE_DIRECTORY ${SYMBOLS})
foreach(dll IN LISTS DLLS)
    cmake_path(GET dll FILENAME name)
    execute_process(COMMAND ${OBJCOPY} --only-keep-debug ${dll} ${SYMBOLS}/${name}.debug COMMAND_ERROR_IS_FATAL ANY)
    # Removed first: a file that was not installed again has one.
    execute_process(
        COMMAND ${OBJCOPY} --remove-section=.gnu_debuglink --add-gnu-debuglink=${SYMBOLS}/${name}.debug
            $ENV{DESTDIR}${FOLDER}/${name}
        COMMAND_ERROR_IS_FATAL ANY
    )
endforeach()
