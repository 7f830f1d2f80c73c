// The system's own thread pools: a private one with at most so many threads, and the default one of the process.
#pragma once

#include <system_error>

#include "concurrency/base/windows_api.h"

namespace Zarvo::Bench {

using PlainFunction = void (*)(void* argument);

[[noreturn]] inline void ThrowLastError(const char* call) {
    throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), call);
}

// Runs `kFunction` with `argument` on the default pool of the process, or on the one of `environment`. The default pool
// adds threads without a bound that matters, and keeps them for some seconds: each round finds those of the round before.
// Errors: std::system_error.
template <PlainFunction kFunction>
void TrySubmit(void* argument, PTP_CALLBACK_ENVIRON environment = nullptr) {
    const PTP_SIMPLE_CALLBACK callback = [](PTP_CALLBACK_INSTANCE, void* context) { kFunction(context); };
    if (TrySubmitThreadpoolCallback(callback, argument, environment) == FALSE) {
        ThrowLastError("TrySubmitThreadpoolCallback");
    }
}

// The same with a work object: made, submitted and left to the system, which frees it when it has run.
template <PlainFunction kFunction>
void SubmitWorkObject(void* argument, PTP_CALLBACK_ENVIRON environment = nullptr) {
    const PTP_WORK_CALLBACK callback = [](PTP_CALLBACK_INSTANCE, void* context, PTP_WORK) { kFunction(context); };
    PTP_WORK const work = CreateThreadpoolWork(callback, argument, environment);
    if (work == nullptr) {
        ThrowLastError("CreateThreadpoolWork");
    }
    SubmitThreadpoolWork(work);
    CloseThreadpoolWork(work);
}

// A pool of its own, with as many threads at most and at least: the system's pool at its best. Without the minimum its
// threads come one by one, and leave when they have been idle for a while.
//
// Errors: std::system_error.
// Lifetime: destroy it when all that was submitted has run.
class SystemPool {
  public:
    explicit SystemPool(DWORD threads) : m_pool(CreateThreadpool(nullptr)) {
        if (m_pool == nullptr) {
            ThrowLastError("CreateThreadpool");
        }
        SetThreadpoolThreadMaximum(m_pool, threads);
        if (SetThreadpoolThreadMinimum(m_pool, threads) == FALSE) {
            CloseThreadpool(m_pool);
            ThrowLastError("SetThreadpoolThreadMinimum");
        }
        InitializeThreadpoolEnvironment(&m_environment);
        SetThreadpoolCallbackPool(&m_environment, m_pool);
    }
    ~SystemPool() {
        DestroyThreadpoolEnvironment(&m_environment);
        CloseThreadpool(m_pool);
    }
    SystemPool(const SystemPool&) = delete;
    SystemPool& operator=(const SystemPool&) = delete;

    PTP_CALLBACK_ENVIRON Environment() { return &m_environment; }

    template <PlainFunction kFunction>
    void Submit(void* argument) {
        TrySubmit<kFunction>(argument, &m_environment);
    }

  private:
    const PTP_POOL m_pool;
    TP_CALLBACK_ENVIRON m_environment;
};

}  // namespace Zarvo::Bench
