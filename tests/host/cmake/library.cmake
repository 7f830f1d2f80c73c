# The stand-in, the siblings and the library, in the modules that they are on the platform.
file(GLOB windows_sources CONFIGURE_DEPENDS ${root}/tests/host/windows/*.cpp)
add_library(host_windows SHARED ${windows_sources})
target_compile_options(host_windows PRIVATE ${own_code_options})

# The logging library writes its lines and its trace with this system's own calls. Without the event source, which the library's
# self-registration alone uses.
file(GLOB logging_sources CONFIGURE_DEPENDS ${root}/siblings/zarvo_orvane_logging/*.cpp)
list(FILTER logging_sources EXCLUDE REGEX "/(line_output|log|trace_file)\\.cpp$")
add_library(ZarvoOrvaneLogging SHARED ${logging_sources} ${root}/tests/host/siblings/line_output.cpp
    ${root}/tests/host/siblings/trace_file.cpp)
add_library(ZarvoOrvaneUtils SHARED ${root}/siblings/zarvo_orvane_utils/exception_factory.cpp)
add_library(ZarvoLogging SHARED ${root}/siblings/zarvo_logging/object_names.cpp)
foreach(sibling IN ITEMS ZarvoOrvaneLogging ZarvoOrvaneUtils ZarvoLogging)
    target_link_libraries(${sibling} PRIVATE host_windows)
endforeach()

# All rooms but com/, which is the module as the platform's loader sees it.
set(library_sources "")
foreach(room IN ITEMS base errors lifetime cancellation tasks threadpool scheduler sync jobs figures)
    file(GLOB sources CONFIGURE_DEPENDS ${root}/concurrency/${room}/*.cpp)
    list(APPEND library_sources ${sources})
endforeach()
add_library(concurrency_objects OBJECT ${library_sources})
target_precompile_headers(concurrency_objects PRIVATE
    <atomic> <chrono> <condition_variable> <exception> <functional> <memory> <mutex> <string> <thread> <vector>
    ${root}/concurrency/base/windows_api.h
)
target_compile_definitions(concurrency_objects
    PRIVATE ORVANE_CONCURRENCY_EXPORTS
    INTERFACE ORVANE_CONCURRENCY_STATIC
)
target_link_libraries(concurrency_objects PUBLIC ZarvoOrvaneLogging ZarvoOrvaneUtils ZarvoLogging host_windows)

add_library(ZarvoConcurrency SHARED $<TARGET_OBJECTS:concurrency_objects>)
target_link_libraries(ZarvoConcurrency PUBLIC ZarvoOrvaneLogging ZarvoOrvaneUtils ZarvoLogging host_windows)
