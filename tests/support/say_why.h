// For a child process that an exception ends: prints what nobody has caught.
//
//     std::set_terminate(&SayWhy);
#pragma once

#include <cstdio>
#include <cstdlib>
#include <exception>

namespace Zarvo::Test {

[[noreturn]] inline void SayWhy() {
    try {
        std::rethrow_exception(std::current_exception());
    } catch (const std::exception& error) {
        std::fputs(error.what(), stdout);
        std::fflush(stdout);
    } catch (...) {
    }
    std::abort();
}

}  // namespace Zarvo::Test
