# What gdb shows of a program that stops in a known state, compared with a transcript. A member that a printer reads and the
# library has no longer makes a difference there.
enable_testing()
find_program(GDB gdb REQUIRED)
set(folder ${root}/tests/debugger)

add_executable(known_state ${folder}/known_state.cpp ${root}/tests/support/eventually.cpp ${root}/tests/support/stopwatch.cpp)
target_link_libraries(known_state PRIVATE concurrency_objects)
target_compile_options(known_state PRIVATE ${own_code_options})

# gdb_test(NAME SCRIPT): SCRIPT runs in gdb, which knows the program and has not started it.
function(gdb_test name script)
    add_test(NAME ${name}
        COMMAND ${GDB} --nx --batch -iex "set debuginfod enabled off" -x ${folder}/${script} $<TARGET_FILE:known_state>
    )
    set_tests_properties(${name} PROPERTIES
        ENVIRONMENT "ZARVO_TRANSCRIPT=${folder}/known_state.txt;ZARVO_PAGE=${root}/docs/debugging.md;ZARVO_REACH=break Here|run"
        LABELS debugger
        TIMEOUT 300
    )
endfunction()
gdb_test(Debugger.ShowsAKnownState check_transcript.py)
gdb_test(Debugger.NatvisNamesWhatIsThere check_natvis.py)
