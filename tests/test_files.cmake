# What a file of tests/<room>/ becomes, as the end of its name says:
#
#   *_test.cpp             <room>_tests             sees the library through its DLL
#   *_whitebox_test.cpp    <room>_whitebox_tests    linked to the library's objects, private classes included
#   *_slow_test.cpp        <room>_slow_tests        waits in real time; label "slow" besides the room's
#   *_stress_test.cpp      <room>_stress_tests      repeats a race; label "stress" besides the room's
#   *_test_child.cpp       a program of its own     started by the test it is named for
#   *_test_dll.cpp         a DLL of its own         loaded by the test it is named for
#
# "whitebox" goes with the others: *_whitebox_slow_test.cpp, *_whitebox_test_child.cpp. Both builds read names here: that
# for the platform and that for the sanitizers.

# test_file_target(FILE ROOM TARGET KIND): the target that compiles the file, and its kind: helper, slow, stress, or
# nothing.
function(test_file_target file room target kind)
    cmake_path(GET file STEM name)
    if(name MATCHES "_test_(child|dll)$")
        set(${target} ${name} PARENT_SCOPE)
        set(${kind} helper PARENT_SCOPE)
    elseif(name MATCHES "^[a-z0-9_]+_test$")
        string(REGEX MATCH "(_whitebox)?(_slow|_stress)?_test$" end ${name})
        set(${target} ${room}${CMAKE_MATCH_1}${CMAKE_MATCH_2}_tests PARENT_SCOPE)
        string(REPLACE "_" "" word "${CMAKE_MATCH_2}")
        set(${kind} "${word}" PARENT_SCOPE)
    else()
        message(FATAL_ERROR "tests/${room}: the name of ${file} does not say what it is")
    endif()
endfunction()

# Compiles a program's files in groups of at most six, as equal as can be: what they share is compiled once for a group.
# So helpers of a program's files need names of their own. A file with SKIP_UNITY_BUILD_INCLUSION is compiled alone.
function(compile_in_groups program)
    get_target_property(files ${program} SOURCES)
    list(LENGTH files count)
    math(EXPR groups "(${count} + 5) / 6")
    math(EXPR size "(${count} + ${groups} - 1) / ${groups}")
    set_target_properties(${program} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE ${size})
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU") # which takes the files of a group for headers
        target_compile_options(${program} PRIVATE -Wno-subobject-linkage)
    endif()
endfunction()

# Gives a target the headers that nearly every test includes, compiled once for all that link the same LIBRARIES for it.
function(use_precompiled_headers target)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "LIBRARIES")
    if(NOT TARGET test_precompiled)
        set(source ${CMAKE_BINARY_DIR}/test_precompiled.cpp)
        file(CONFIGURE OUTPUT ${source} CONTENT "")
        add_library(test_precompiled OBJECT ${source})
        target_include_directories(test_precompiled PRIVATE ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/..)
        target_precompile_headers(test_precompiled PRIVATE ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/support/precompiled.h)
        target_link_libraries(test_precompiled PRIVATE GTest::gtest ${arg_LIBRARIES})
    endif()
    target_link_libraries(${target} PRIVATE GTest::gtest)
    target_precompile_headers(${target} REUSE_FROM test_precompiled)
endfunction()
