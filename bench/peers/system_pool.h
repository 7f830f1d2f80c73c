// The system's own thread pool, the default one of the process. It keeps the threads that it has added for some seconds,
// so each round but the first finds those of the round before.
#pragma once

#include <system_error>

#include "concurrency/base/windows_api.h"

namespace Zarvo::Bench {

using PlainFunction = void (*)(void* argument);

// Runs `kFunction` with `argument` on the pool. Errors: std::system_error.
template <PlainFunction kFunction>
void TrySubmit(void* argument) {
    const PTP_SIMPLE_CALLBACK callback = [](PTP_CALLBACK_INSTANCE, void* context) { kFunction(context); };
    if (TrySubmitThreadpoolCallback(callback, argument, nullptr) == FALSE) {
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category(),
                                "TrySubmitThreadpoolCallback");
    }
}

}  // namespace Zarvo::Bench
