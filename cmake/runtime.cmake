# Where programs and DLLs go: one folder, so that every program finds its DLLs beside itself, those too (modules, to
# CMake) that are only loaded at run time. A generator of several configurations makes bin/Debug, bin/Release of it.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
set(CMAKE_SHARED_LIBRARY_PREFIX "")
set(CMAKE_SHARED_MODULE_PREFIX "")

# One compiler comes in several flavours: its thread model decides the layouts of mutexes and conditions, its C runtime
# owns the heap.
include(CheckCXXSymbolExists)
check_cxx_symbol_exists(GCC_GTHR_WIN32_H mutex ZARVO_WIN32_THREADS)
check_cxx_symbol_exists(_UCRT mutex ZARVO_UCRT)
check_cxx_symbol_exists(__GLIBCXX__ mutex ZARVO_GLIBCXX)

# The C++ runtime stays shared between all modules: one heap, one set of standard globals, exceptions that cross.
set(ZARVO_RUNTIME_DLLS "")
set(ZARVO_RUNTIME_ORIGINALS "") # with their debug data
if(MINGW)
    set(names libstdc++-6.dll libgcc_s_seh-1.dll)
    if(NOT ZARVO_WIN32_THREADS)
        list(APPEND names libwinpthread-1.dll)
    endif()
    set(target_option "")
    if(CMAKE_CXX_COMPILER_TARGET) # clang's
        set(target_option --target=${CMAKE_CXX_COMPILER_TARGET})
    endif()
    foreach(name IN LISTS names)
        execute_process(
            COMMAND ${CMAKE_CXX_COMPILER} ${target_option} -print-file-name=${name}
            OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY
        )
        # A compiler that does not ship the file answers with the bare name: then it must be on the user's PATH.
        if(IS_ABSOLUTE "${path}")
            set(copy ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${name})
            if(NOT EXISTS ${copy} OR ${path} IS_NEWER_THAN ${copy})
                # Distributions ship it with its debug data, ten times the size.
                file(MAKE_DIRECTORY ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
                execute_process(COMMAND ${CMAKE_STRIP} --strip-debug -o ${copy} ${path} COMMAND_ERROR_IS_FATAL ANY)
            endif()
            foreach(configuration IN LISTS CMAKE_CONFIGURATION_TYPES)
                file(COPY ${copy} DESTINATION ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${configuration})
            endforeach()
            list(APPEND ZARVO_RUNTIME_DLLS ${copy})
            list(APPEND ZARVO_RUNTIME_ORIGINALS ${path})
        endif()
    endforeach()
endif()

set_property(GLOBAL PROPERTY ZARVO_RUNTIME_DLLS ${ZARVO_RUNTIME_DLLS})

if(MINGW)
    # The same sources give the same file: no time stamp, no folder of this machine.
    add_link_options(-Wl,--no-insert-timestamp)
endif()
if(MINGW AND NOT ZARVO_COVERAGE) # whose counts are found by the folder
    add_compile_options(
        "-ffile-prefix-map=${PROJECT_SOURCE_DIR}=."
        "-ffile-prefix-map=${PROJECT_BINARY_DIR}=./build"
    )
endif()
