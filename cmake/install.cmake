# Installs the package ZarvoConcurrency: find_package(ZarvoConcurrency) gives Zarvo::Concurrency and its siblings.
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/ZarvoConcurrency)

install(TARGETS ZarvoConcurrency ZarvoOrvaneLogging ZarvoOrvaneUtils ZarvoLogging
    EXPORT ZarvoConcurrencyTargets
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
)
if(MSVC) # never tried
    foreach(dll IN ITEMS ZarvoConcurrency ZarvoOrvaneLogging ZarvoOrvaneUtils ZarvoLogging)
        install(FILES $<TARGET_PDB_FILE:${dll}> DESTINATION ${CMAKE_INSTALL_BINDIR} OPTIONAL)
    endforeach()
endif()
# The compiler's own runtime, in the very version the library was built with.
install(FILES ${ZARVO_RUNTIME_DLLS} DESTINATION ${CMAKE_INSTALL_BINDIR})

# Their debug data, beside the package: the component "symbols", after the installation of the rest.
if(MINGW AND CMAKE_OBJCOPY)
    set(dlls ${ZARVO_RUNTIME_ORIGINALS})
    foreach(target IN ITEMS ZarvoConcurrency ZarvoOrvaneLogging ZarvoOrvaneUtils ZarvoLogging)
        list(APPEND dlls $<TARGET_FILE:${target}>)
    endforeach()
    foreach(target IN ITEMS concurrency_objects ZarvoConcurrency ZarvoOrvaneLogging ZarvoOrvaneUtils ZarvoLogging)
        target_compile_options(${target} PRIVATE $<$<NOT:$<CONFIG:Debug>>:-g>) # which has it already
    endforeach()
    install(CODE "
        set(OBJCOPY \"${CMAKE_OBJCOPY}\")
        set(DLLS \"${dlls}\")
        set(FOLDER \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}\")
        set(SYMBOLS \"${CMAKE_CURRENT_BINARY_DIR}/symbols\")
        include(\"${CMAKE_CURRENT_SOURCE_DIR}/cmake/split_symbols.cmake\")
    ")
    install(DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/symbols/
        DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT symbols EXCLUDE_FROM_ALL
    )
endif()

# What the headers ask the compiler, without CMake too.
file(READ cmake/built_for.h.in built_for)
string(CONFIGURE "${built_for}" built_for @ONLY)
file(GENERATE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/$<CONFIG>/built_for.h CONTENT "${built_for}")
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/$<CONFIG>/built_for.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/concurrency/base)

install(EXPORT ZarvoConcurrencyTargets NAMESPACE Zarvo:: DESTINATION ${package_dir})
configure_package_config_file(cmake/ZarvoConcurrencyConfig.cmake.in
    ${CMAKE_CURRENT_BINARY_DIR}/ZarvoConcurrencyConfig.cmake
    INSTALL_DESTINATION ${package_dir}
)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/ZarvoConcurrencyConfigVersion.cmake
    COMPATIBILITY SameMajorVersion
)
install(
    FILES
        ${CMAKE_CURRENT_BINARY_DIR}/ZarvoConcurrencyConfig.cmake
        ${CMAKE_CURRENT_BINARY_DIR}/ZarvoConcurrencyConfigVersion.cmake
        cmake/copy_dlls.cmake
    DESTINATION ${package_dir}
)
# For who starts with nothing but the package: its compiler, and where it is.
if(CMAKE_TOOLCHAIN_FILE)
    cmake_path(GET CMAKE_TOOLCHAIN_FILE FILENAME toolchain_name)
    configure_file(cmake/package_toolchain.cmake.in ${CMAKE_CURRENT_BINARY_DIR}/toolchain.cmake @ONLY)
    install(FILES ${CMAKE_TOOLCHAIN_FILE} cmake/toolchain-mingw-w64-common.cmake DESTINATION ${package_dir})
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/toolchain.cmake DESTINATION .)
endif()
configure_file(cmake/zarvo-concurrency.pc.in ${CMAKE_CURRENT_BINARY_DIR}/zarvo-concurrency.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zarvo-concurrency.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
# To be read; the examples too, which the guides refer to, and what debuggers load.
install(FILES LICENSE README.md CHANGELOG.md CONTRIBUTING.md SECURITY.md DESTINATION ${CMAKE_INSTALL_DATADIR}/ZarvoConcurrency)
install(DIRECTORY debugger docs examples licences DESTINATION ${CMAKE_INSTALL_DATADIR}/ZarvoConcurrency)
install(PROGRAMS tools/trace_from_log.py DESTINATION ${CMAKE_INSTALL_DATADIR}/ZarvoConcurrency/tools)
