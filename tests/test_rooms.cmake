# test_room(ROOM [LIBRARIES library...] [WHITEBOX_LIBRARIES library...] FILES file...)
#
# Turns the files of tests/<room>/ into test programs. What a file becomes is said by the end of its name:
#
#   *_test.cpp             <room>_tests             sees the library through its DLL
#   *_whitebox_test.cpp    <room>_whitebox_tests    linked to the library's objects, private classes included
#   *_slow_test.cpp        <room>_slow_tests        waits in real time; label "slow" besides the room's
#   *_stress_test.cpp      <room>_stress_tests      repeats a race; label "stress" besides the room's
#   *_test_child.cpp       a program of its own     started by the test it is named for
#   *_test_dll.cpp         a DLL of its own         loaded by the test it is named for
#
# "whitebox" goes with the others: *_whitebox_slow_test.cpp, *_whitebox_test_child.cpp. Every TEST runs in a process of
# its own under the label <room>. LIBRARIES replaces what the tests link (the DLL and test_support), WHITEBOX_LIBRARIES
# what the white-box tests link (the library's objects and test_support_whitebox, the same support built for them).
function(test_room room)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "LIBRARIES;WHITEBOX_LIBRARIES;FILES")
    if(NOT arg_LIBRARIES)
        set(arg_LIBRARIES Zarvo::Concurrency $<TARGET_NAME_IF_EXISTS:test_support>)
    endif()
    if(NOT arg_WHITEBOX_LIBRARIES)
        set(arg_WHITEBOX_LIBRARIES concurrency_objects $<TARGET_NAME_IF_EXISTS:test_support_whitebox>)
    endif()
    set(programs "")
    set(helpers "")
    foreach(file IN LISTS arg_FILES)
        if(file MATCHES "_test_(child|dll)\\.cpp$")
            cmake_path(GET file STEM helper)
            zarvo_test_helper(${helper} ${file})
            list(APPEND helpers ${helper})
        elseif(file MATCHES "(_whitebox)?(_slow|_stress)?_test\\.cpp$")
            set(program ${room}${CMAKE_MATCH_1}${CMAKE_MATCH_2}_tests)
            if(NOT TARGET ${program})
                zarvo_test_program(${program} ${room} "${CMAKE_MATCH_2}")
            endif()
            target_sources(${program} PRIVATE ${file})
            list(APPEND programs ${program})
        else()
            message(FATAL_ERROR "test_room(${room}): the name of ${file} does not say what it is")
        endif()
    endforeach()
    list(REMOVE_DUPLICATES programs)
    # Whoever builds one test program gets what it starts and loads; room_<room> is all of them.
    foreach(program IN LISTS programs)
        if(helpers)
            add_dependencies(${program} ${helpers})
        endif()
    endforeach()
    if(NOT TARGET room_${room})
        add_custom_target(room_${room})
    endif()
    if(programs OR helpers)
        add_dependencies(room_${room} ${programs} ${helpers})
    endif()
endfunction()

# How long a test may take, and how many of ctest's jobs it counts for. `./dev test` gives ctest sixteen jobs per
# processor: a test that mostly sleeps passes beside the others instead of holding one of them up.
set(normal_test_properties TIMEOUT 120 PROCESSORS 16)
set(slow_test_properties TIMEOUT 300 PROCESSORS 1 COST 1000)
set(stress_test_properties TIMEOUT 600 PROCESSORS 16)

function(zarvo_test_program program room kind)
    add_executable(${program})
    zarvo_link_test(${program})
    target_link_libraries(${program} PRIVATE GTest::gmock_main)

    set(labels ${room})
    set(properties ${normal_test_properties})
    if(kind STREQUAL "_slow")
        list(APPEND labels slow)
        set(properties ${slow_test_properties})
    elseif(kind STREQUAL "_stress")
        list(APPEND labels stress)
        set(properties ${stress_test_properties})
    endif()
    gtest_discover_tests(${program}
        DISCOVERY_MODE PRE_TEST
        DISCOVERY_TIMEOUT 120
        PROPERTIES ${properties}
    )
    # gtest_discover_tests cannot pass a list as a property's value: the labels are set where ctest reads the tests.
    set(labels_file ${CMAKE_CURRENT_BINARY_DIR}/${program}_labels.cmake)
    file(CONFIGURE OUTPUT ${labels_file} @ONLY CONTENT [[
if(@program@_TESTS)
    set_tests_properties(${@program@_TESTS} PROPERTIES LABELS "@labels@")
endif()
]])
    set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${labels_file})
endfunction()

function(zarvo_test_helper name file)
    if(name MATCHES "_dll$")
        add_library(${name} MODULE ${file})
    else()
        add_executable(${name} ${file})
    endif()
    zarvo_link_test(${name})
endfunction()

function(zarvo_link_test target)
    target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR})
    if(target MATCHES "_whitebox_")
        target_link_libraries(${target} PRIVATE ${arg_WHITEBOX_LIBRARIES})
    else()
        target_link_libraries(${target} PRIVATE ${arg_LIBRARIES})
    endif()
    target_link_libraries(${target} PRIVATE zarvo_own_code)
endfunction()
