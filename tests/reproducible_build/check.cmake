# The same sources in another folder give the same DLLs, byte by byte:
#   cmake -D SOURCE=folder -D BUILD=folder -D WORK=folder -D DLLS=name;... -D OPTIONS=option;... -P check.cmake
#
# The copy is built as deep below its sources as the original: how the two lie to each other is part of the debug data.
file(RELATIVE_PATH build_folder ${SOURCE} ${BUILD})
if(build_folder MATCHES "^\\.\\.")
    set(build_folder build)
endif()
file(REMOVE_RECURSE ${WORK})
file(COPY
    ${SOURCE}/CMakeLists.txt ${SOURCE}/LICENSE ${SOURCE}/README.md ${SOURCE}/cmake ${SOURCE}/concurrency ${SOURCE}/programs
    ${SOURCE}/siblings
    DESTINATION ${WORK}
)
set(copy ${WORK}/${build_folder})
# A compiler cache must not hand over the very objects of the other build.
set(ENV{CCACHE_NAMESPACE} another_place)
execute_process(
    COMMAND ${CMAKE_COMMAND} -S ${WORK} -B ${copy} ${OPTIONS}
        -D ZARVO_BUILD_TESTS=OFF -D ZARVO_BUILD_EXAMPLES=OFF -D ZARVO_BUILD_BENCH=OFF
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY
)
execute_process(COMMAND ${CMAKE_COMMAND} --build ${copy} OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
foreach(dll IN LISTS DLLS)
    execute_process(
        COMMAND ${CMAKE_COMMAND} -E compare_files ${BUILD}/bin/${dll} ${copy}/bin/${dll} RESULT_VARIABLE different
    )
    if(different)
        message(SEND_ERROR "${dll} is not the same as ${copy}/bin/${dll}")
    else()
        message(STATUS "${dll}: the same")
    endif()
endforeach()
