// The system's own thread pool, the default one of the process. It keeps the threads that it has added for some seconds,
// so each round but the first finds those of the round before.
#pragma once

#include <system_error>

#include "concurrency/base/windows_api.h"

namespace Zarvo::Bench {

using PlainFunction = void (*)(void* argument);

// Runs `kFunction` with `argument` on the pool, or on the one of `environment`. Errors: std::system_error.
template <PlainFunction kFunction>
void TrySubmit(void* argument, PTP_CALLBACK_ENVIRON environment = nullptr) {
    const PTP_SIMPLE_CALLBACK callback = [](PTP_CALLBACK_INSTANCE, void* context) { kFunction(context); };
    if (TrySubmitThreadpoolCallback(callback, argument, environment) == FALSE) {
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category(),
                                "TrySubmitThreadpoolCallback");
    }
}

// The same with a work object: made, submitted and left to the system, which frees it when it has run.
template <PlainFunction kFunction>
void SubmitWorkObject(void* argument) {
    const PTP_WORK_CALLBACK callback = [](PTP_CALLBACK_INSTANCE, void* context, PTP_WORK) { kFunction(context); };
    PTP_WORK const work = CreateThreadpoolWork(callback, argument, nullptr);
    if (work == nullptr) {
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), "CreateThreadpoolWork");
    }
    SubmitThreadpoolWork(work);
    CloseThreadpoolWork(work);
}

}  // namespace Zarvo::Bench
