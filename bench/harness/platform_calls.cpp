#include "bench/harness/platform_calls.h"

#include <atomic>
#include <cstddef>
#include <stdexcept>
#include <string>

#include "concurrency/base/windows_api.h"

namespace Zarvo::Bench {

namespace {

std::atomic<std::int64_t> g_allocations;
std::atomic<std::int64_t> g_bytes;
std::atomic<std::int64_t> g_locks;
std::atomic<std::int64_t> g_wakeUps;
std::atomic<std::int64_t> g_sleeps;

using Allocate = void* __cdecl(std::size_t);
using Lock = void WINAPI(LPCRITICAL_SECTION);
using TryLock = BOOL WINAPI(LPCRITICAL_SECTION);
using Wake = void WINAPI(PCONDITION_VARIABLE);
using SleepOn = BOOL WINAPI(PCONDITION_VARIABLE, PCRITICAL_SECTION, DWORD);

Allocate* g_malloc;
Lock* g_enter;
TryLock* g_tryEnter;
Wake* g_wake;
Wake* g_wakeAll;
SleepOn* g_sleep;

void* __cdecl CountMalloc(std::size_t size) {
    ++g_allocations;
    g_bytes += static_cast<std::int64_t>(size);
    return g_malloc(size);
}

void WINAPI CountEnter(LPCRITICAL_SECTION lock) {
    ++g_locks;
    g_enter(lock);
}

BOOL WINAPI CountTryEnter(LPCRITICAL_SECTION lock) {
    const BOOL entered = g_tryEnter(lock);
    g_locks += entered != FALSE ? 1 : 0;
    return entered;
}

void WINAPI CountWake(PCONDITION_VARIABLE condition) {
    ++g_wakeUps;
    g_wake(condition);
}

void WINAPI CountWakeAll(PCONDITION_VARIABLE condition) {
    ++g_wakeUps;
    g_wakeAll(condition);
}

BOOL WINAPI CountSleep(PCONDITION_VARIABLE condition, PCRITICAL_SECTION lock, DWORD milliseconds) {
    ++g_sleeps;
    return g_sleep(condition, lock, milliseconds);
}

// The library and what it reaches the platform through.
constexpr const wchar_t* kModules[] = {nullptr, L"ZarvoConcurrency.dll", L"libstdc++-6.dll", L"libgcc_s_seh-1.dll"};

}  // namespace

CallCounts operator-(const CallCounts& after, const CallCounts& before) {
    return {after.allocations - before.allocations, after.bytes - before.bytes, after.locks - before.locks,
            after.wakeUps - before.wakeUps, after.sleeps - before.sleeps};
}

PlatformCalls::PlatformCalls() {
    Count("malloc", &CountMalloc, g_malloc);
    Count("EnterCriticalSection", &CountEnter, g_enter);
    Count("TryEnterCriticalSection", &CountTryEnter, g_tryEnter);
    Count("WakeConditionVariable", &CountWake, g_wake);
    Count("WakeAllConditionVariable", &CountWakeAll, g_wakeAll);
    Count("SleepConditionVariableCS", &CountSleep, g_sleep);
}

template <typename Function>
void PlatformCalls::Count(const char* name, Function* counting, Function*& original) {
    const std::size_t before = m_patches.size();
    for (const wchar_t* const module : kModules) {
        const HMODULE handle = GetModuleHandleW(module);
        if (handle == nullptr) {
            continue;
        }
        if (void* const imported = Test::ImportedFunction(handle, name)) {
            original = reinterpret_cast<Function*>(imported);
            m_patches.emplace_back(handle, name, counting);
        }
    }
    if (m_patches.size() == before) {
        throw std::runtime_error(std::string("no module imports ") + name);
    }
}

CallCounts PlatformCalls::Now() const {
    return {g_allocations, g_bytes, g_locks, g_wakeUps, g_sleeps};
}

}  // namespace Zarvo::Bench
