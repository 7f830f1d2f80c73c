include(${CMAKE_CURRENT_LIST_DIR}/test_files.cmake)

# test_room(ROOM [LIBRARIES library...] [WHITEBOX_LIBRARIES library...] FILES file...)
#
# Turns the files of tests/<room>/ into test programs, as the ends of their names say: see test_files.cmake. Every TEST runs
# in a process of its own under the label <room>. LIBRARIES replaces what the tests link (the DLL and test_support),
# WHITEBOX_LIBRARIES what the white-box tests link (the library's objects and test_support_whitebox, the same support built
# for them).
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
        test_file_target(${file} ${room} target kind)
        if(kind STREQUAL "helper")
            zarvo_test_helper(${target} ${file})
            list(APPEND helpers ${target})
        else()
            if(NOT TARGET ${target})
                zarvo_test_program(${target} ${room} "${kind}")
            endif()
            target_sources(${target} PRIVATE ${file})
            list(APPEND programs ${target})
        endif()
    endforeach()
    list(REMOVE_DUPLICATES programs)
    foreach(program IN LISTS programs)
        compile_in_groups(${program})
    endforeach()
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
    if(kind STREQUAL "slow")
        list(APPEND labels slow)
        set(properties ${slow_test_properties})
    elseif(kind STREQUAL "stress")
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
    use_precompiled_headers(${target} LIBRARIES zarvo_own_code)
    if(target MATCHES "_whitebox_")
        target_link_libraries(${target} PRIVATE ${arg_WHITEBOX_LIBRARIES})
    else()
        target_link_libraries(${target} PRIVATE ${arg_LIBRARIES})
    endif()
    target_link_libraries(${target} PRIVATE zarvo_own_code)
endfunction()
