// Lets an exception leave a thread, and says when the process is ended for it.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>

#include "concurrency/base/native_thread.h"

int main() {
    std::set_terminate([] {
        std::fputs("terminate handler", stdout);
        std::fflush(stdout);
        std::abort();
    });
    Orvane::Internal::NativeThread::Start([] { throw std::runtime_error("nobody catches this"); }).Join();
    return 0;
}
