# What the project's own code is compiled with; never a requirement of its users.
option(ZARVO_WARNINGS_AS_ERRORS "Treat warnings in the project's own code as errors" OFF)

add_library(zarvo_own_code INTERFACE)
target_compile_features(zarvo_own_code INTERFACE cxx_std_20)

if(MSVC)
    # Never tried. 4251 and 4275 warn of standard members and bases of exported classes: all modules share one runtime. 4250
    # warns of what is meant: a class inherits Clone() and Rethrow() from one of its bases. 4996 names the C runtime's own
    # functions insecure.
    target_compile_options(zarvo_own_code INTERFACE
        /W4 /wd4250 /wd4251 /wd4275 /wd4996 /permissive- /utf-8 $<$<BOOL:${ZARVO_WARNINGS_AS_ERRORS}>:/WX>
    )
else()
    target_compile_options(zarvo_own_code INTERFACE
        -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
        $<$<BOOL:${ZARVO_WARNINGS_AS_ERRORS}>:-Werror>
    )
endif()
# What the compiler can check while the program runs. Traps: the runtime that would explain them is not there for Windows.
option(ZARVO_CHECKED "Stop at locks out of order, undefined behaviour and broken preconditions of the standard library" OFF)
if(ZARVO_CHECKED)
    target_compile_definitions(zarvo_own_code INTERFACE ORVANE_CHECK_LOCK_ORDER)
    if(NOT MSVC)
        target_compile_options(zarvo_own_code INTERFACE -fsanitize=undefined -fsanitize-trap=all)
        target_compile_definitions(zarvo_own_code INTERFACE _GLIBCXX_ASSERTIONS)
    endif()
endif()

option(ZARVO_COVERAGE "Count which lines and branches run (GCC)" OFF)
if(ZARVO_COVERAGE)
    target_compile_options(zarvo_own_code INTERFACE --coverage -fprofile-update=atomic -fprofile-abs-path)
    target_link_options(zarvo_own_code INTERFACE --coverage)
endif()

target_compile_definitions(zarvo_own_code INTERFACE
    UNICODE _UNICODE _WIN32_WINNT=0x0A00
)
