enable_testing()
set(INSTALL_GTEST OFF)
add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
include(GoogleTest)

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
endfunction()
test_support(test_support ZarvoConcurrency)
test_support(test_support_whitebox concurrency_objects)

function(link_test target)
    # As a C program, which gets no operators new and delete from the sanitizer: the tests have their own, over the malloc
    # that it watches. (The checks for undefined behaviour bring none, and need their C++ part.)
    if(NOT SANITIZER STREQUAL "undefined")
        set_target_properties(${target} PROPERTIES LINKER_LANGUAGE C)
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
    # Half the time to build; how fast the tests are is decided by the library, which is optimised.
    target_compile_options(${name} PRIVATE -O0)
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

# The files of a room become programs as the ends of their names say, see tests/test_rooms.cmake.
function(test_room room)
    list(TRANSFORM left_out_files PREPEND ${root}/tests/ OUTPUT_VARIABLE out)
    file(GLOB helpers CONFIGURE_DEPENDS ${root}/tests/${room}/*_test_child.cpp ${root}/tests/${room}/*_test_dll.cpp)
    list(REMOVE_ITEM helpers ${out})
    foreach(helper IN LISTS helpers)
        test_helper(${helper})
    endforeach()

    file(GLOB files CONFIGURE_DEPENDS ${root}/tests/${room}/*_test.cpp)
    list(REMOVE_ITEM files ${out})
    # They call through an interface of their own: a wrong type, on purpose.
    set(slot_tests ${files})
    list(FILTER slot_tests INCLUDE REGEX "(_slots|abstract_cancel_notifier)_test\\.cpp$")
    set_source_files_properties(${slot_tests} PROPERTIES COMPILE_OPTIONS -fno-sanitize=vptr)

    foreach(suffix IN ITEMS _whitebox_slow _whitebox _slow _stress "")
        set(sources ${files})
        list(FILTER sources INCLUDE REGEX "${suffix}_test\\.cpp$")
        list(REMOVE_ITEM files ${sources})
        if(sources)
            test_program(${room}${suffix}_tests ${room} ${sources})
        endif()
    endforeach()
endfunction()

# The stand-in itself.
file(GLOB windows_tests CONFIGURE_DEPENDS windows_tests/*_test.cpp)
test_program(windows_tests windows ${windows_tests})
target_compile_options(windows_tests PRIVATE ${own_code_options})

# Proof that the sanitizers see: a program with one defect at a time switched on must be reported, and without one not.
add_executable(switched_on_defect switched_on/switched_on_defect.cpp)
target_compile_options(switched_on_defect PRIVATE ${own_code_options})
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
elseif(SANITIZER STREQUAL "undefined")
    expect_report(overflowing_start "runtime error: signed integer overflow")
endif()

foreach(room IN ITEMS base errors lifetime cancellation tasks threadpool scheduler sync faults journeys stress)
    test_room(${room})
endforeach()
