enable_testing()
set(INSTALL_GTEST OFF)
add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
include(GoogleTest)
include(${root}/tests/test_files.cmake)

# For the tests and what they share. Half the time to build; how fast tests are is decided by the library, which is optimised.
add_library(quickly_built INTERFACE)
target_compile_options(quickly_built INTERFACE -O0)
if(SANITIZER STREQUAL "address")
    # On the target it traps in the tests too. Here it is looked for in the library.
    target_compile_options(quickly_built INTERFACE -fno-sanitize=undefined)
endif()
function(test_code target)
    target_link_libraries(${target} PRIVATE quickly_built)
    use_precompiled_headers(${target} LIBRARIES quickly_built)
endfunction()

# What the tests share: as on the platform where that is all the same, with this system's own means where it is not.
add_library(host_memory SHARED support/allocations.cpp)
function(test_support target library)
    add_library(${target} OBJECT
        ${root}/tests/support/child_process.cpp
        ${root}/tests/support/eventually.cpp
        ${root}/tests/support/gate.cpp
        ${root}/tests/support/import_patch.cpp
        ${root}/tests/support/plain_thread.cpp
        ${root}/tests/support/recorded_reports.cpp
        ${root}/tests/support/resources.cpp
        ${root}/tests/support/stopwatch.cpp
        ${root}/tests/support/task_thread.cpp
        support/import_entries.cpp
        support/resource_probe.cpp
        support/running_child.cpp
    )
    target_link_libraries(${target} PUBLIC host_memory ${library} ${CMAKE_DL_LIBS})
    test_code(${target})
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 0)
endfunction()
test_support(test_support ZarvoConcurrency)
test_support(test_support_whitebox concurrency_objects)

if(SANITIZER STREQUAL "address")
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-resource-dir
        OUTPUT_VARIABLE resource_dir OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY
    )
    file(GLOB_RECURSE undefined_behaviour_runtime ${resource_dir}/lib/*clang_rt.ubsan_standalone_cxx*${CMAKE_SYSTEM_PROCESSOR}*.a)
endif()

function(link_test target)
    test_code(${target})
    # As a C program, which gets no operators new and delete from the sanitizer: the tests have their own, over the malloc
    # that it watches. The checks for undefined behaviour need their C++ part, which has none.
    set_target_properties(${target} PROPERTIES LINKER_LANGUAGE C)
    get_target_property(type ${target} TYPE)
    if(SANITIZER STREQUAL "address" AND type STREQUAL "EXECUTABLE") # what it loads finds it there
        target_link_options(${target} PRIVATE
            LINKER:--whole-archive,${undefined_behaviour_runtime},--no-whole-archive,--export-dynamic
        )
    endif()
    if(target MATCHES "_whitebox_")
        target_link_libraries(${target} PRIVATE concurrency_objects test_support_whitebox)
    else()
        target_link_libraries(${target} PRIVATE ZarvoConcurrency test_support)
    endif()
endfunction()

# What a test starts or loads.
function(test_helper file)
    cmake_path(GET file STEM name)
    if(name MATCHES "_dll$")
        add_library(${name} MODULE ${file})
    else()
        add_executable(${name} ${file})
    endif()
    link_test(${name})
endfunction()

# test_program(NAME ROOM SOURCE...)
function(test_program name room)
    add_executable(${name} ${ARGN})
    link_test(${name})
    target_link_libraries(${name} PRIVATE GTest::gmock_main)
    compile_in_groups(${name})
    # One label each: the kind says more than the room.
    set(label ${room})
    if(name MATCHES "_(slow|stress)_")
        set(label ${CMAKE_MATCH_1})
    endif()
    gtest_discover_tests(${name}
        TEST_FILTER "-${left_out_filter}"
        DISCOVERY_MODE PRE_TEST
        DISCOVERY_TIMEOUT 120
        PROPERTIES TIMEOUT 600 LABELS ${label}
    )
endfunction()

include(cmake/left_out.cmake)
list(JOIN left_out_tests ":" left_out_filter)

# The files of a room become programs as the ends of their names say, see tests/test_files.cmake.
function(test_room room)
    list(TRANSFORM left_out_files PREPEND ${root}/tests/ OUTPUT_VARIABLE out)
    file(GLOB helpers CONFIGURE_DEPENDS ${root}/tests/${room}/*_test_child.cpp ${root}/tests/${room}/*_test_dll.cpp)
    list(REMOVE_ITEM helpers ${out})
    foreach(helper IN LISTS helpers)
        test_helper(${helper})
    endforeach()

    file(GLOB files CONFIGURE_DEPENDS ${root}/tests/${room}/*_test.cpp)
    list(REMOVE_ITEM files ${out})

    set(programs "")
    foreach(file IN LISTS files)
        test_file_target(${file} ${room} program kind)
        list(APPEND programs ${program})
        list(APPEND files_of_${program} ${file})
    endforeach()
    list(REMOVE_DUPLICATES programs)
    foreach(program IN LISTS programs)
        test_program(${program} ${room} ${files_of_${program}})
    endforeach()
endfunction()

# The stand-in, where it is meant to differ; tests/platform shows the rest, there and here.
file(GLOB windows_tests CONFIGURE_DEPENDS windows_tests/*_test.cpp)
test_program(windows_tests windows ${windows_tests})
target_compile_options(windows_tests PRIVATE ${own_code_options})

# Proof that the sanitizers see: a program with one defect at a time switched on must be reported, and without one not.
add_executable(switched_on_defect switched_on/switched_on_defect.cpp)
target_compile_options(switched_on_defect PRIVATE ${own_code_options})
if(SANITIZER STREQUAL "address")
    set_source_files_properties(switched_on/switched_on_defect.cpp PROPERTIES
        COMPILE_OPTIONS -fsanitize=undefined SKIP_PRECOMPILE_HEADERS ON
    )
endif()
link_test(switched_on_defect)
function(expect_report defect report)
    add_test(NAME SwitchedOnDefect.${defect} COMMAND switched_on_defect ${defect})
    set_tests_properties(SwitchedOnDefect.${defect} PROPERTIES
        PASS_REGULAR_EXPRESSION "${report}"
        # In sight here, and not among the reports that are counted.
        ENVIRONMENT "TSAN_OPTIONS=;ASAN_OPTIONS=;UBSAN_OPTIONS="
        LABELS seen
        TIMEOUT 60
    )
endfunction()
add_test(NAME SwitchedOnDefect.none COMMAND switched_on_defect none)
set_tests_properties(SwitchedOnDefect.none PROPERTIES LABELS seen TIMEOUT 60)
if(SANITIZER STREQUAL "thread")
    expect_report(plain_shared_ptr "ThreadSanitizer: data race")
    expect_report(wrong_lock "ThreadSanitizer: data race")
elseif(SANITIZER STREQUAL "address")
    expect_report(leaked_cell "LeakSanitizer: detected memory leaks")
    expect_report(overflowing_start "runtime error: signed integer overflow")
endif()

# The means of ./dev mutate, judged where its compiler is.
add_test(NAME mutants_are_judged COMMAND python3 -B ${root}/tools/mutation/mutation_test.py)
set_tests_properties(mutants_are_judged PROPERTIES LABELS seen TIMEOUT 300)

foreach(room IN ITEMS platform base errors lifetime cancellation tasks threadpool scheduler sync jobs figures faults journeys stress models)
    test_room(${room})
endforeach()
# Links nothing of the library: it is not here yet when the program begins.
add_executable(exception_registration_test_child ${root}/tests/errors/exception_registration_test_child.cpp
    support/import_entries.cpp ${root}/tests/support/import_patch.cpp
)
target_link_libraries(exception_registration_test_child PRIVATE host_windows ${CMAKE_DL_LIBS})

# Makes the random sequences, and shortens those that fail.
foreach(program IN ITEMS models_tests models_whitebox_tests)
    target_link_libraries(${program} PRIVATE rapidcheck)
endforeach()
target_compile_definitions(journeys_tests PRIVATE ZARVO_DOCS="${root}/docs")
# This build has no JSON parser: a reader of its own, which the parser's test judges, too.
target_sources(journeys_tests PRIVATE
    support/trace_event_line.cpp
    ${root}/tests/support/trace_events.cpp
    ${root}/tests/support/trace_events_test.cpp
)
