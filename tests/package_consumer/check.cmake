# Installs a build, then configures, builds and runs the consumer against it:
#   cmake -D BUILD=folder -D INSTALL=folder [-D RUN_WITH=wine] [-D INSTALL_OPTIONS=...] [-D CONSUMER_OPTIONS=...] -P check.cmake
function(run)
    execute_process(COMMAND ${ARGV} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

set(consumer ${BUILD}/package_consumer)
file(REMOVE_RECURSE ${INSTALL})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${INSTALL} ${INSTALL_OPTIONS})
run(${CMAKE_COMMAND} -S ${CMAKE_CURRENT_LIST_DIR} -B ${consumer} --fresh ${CONSUMER_OPTIONS}
    -DZarvoConcurrency_DIR=${INSTALL}/lib/cmake/ZarvoConcurrency
)
run(${CMAKE_COMMAND} --build ${consumer})

# The program finds its DLLs in the package alone: nothing but a program is in its own folder.
if(RUN_WITH)
    set(ENV{WINEPATH} ${INSTALL}/bin)
else()
    cmake_path(NATIVE_PATH INSTALL bin)
    set(ENV{PATH} "${bin}\\bin;$ENV{PATH}")
endif()
run(${RUN_WITH} ${consumer}/package_consumer.exe)
