#include "bench/harness/machine.h"

#include <algorithm>
#include <fstream>
#include <system_error>

#include "concurrency/base/windows_api.h"

#include <tlhelp32.h>

namespace Zarvo::Bench {

namespace {

// "10.0" under Wine, empty elsewhere.
std::string WineVersion() {
    using GetVersion = const char*(__cdecl*)();
    const HMODULE ntdll = GetModuleHandleW(L"ntdll");
    void* const address =
        ntdll == nullptr ? nullptr : reinterpret_cast<void*>(GetProcAddress(ntdll, "wine_get_version"));
    return address == nullptr ? std::string() : reinterpret_cast<GetVersion>(address)();
}

std::string System() {
    const std::string wine = WineVersion();
    return wine.empty() ? "Windows" : "Wine " + wine;
}

std::string Processor() {
    char name[128] = {};
    DWORD size = sizeof(name) - 1;
    const LSTATUS status = RegGetValueA(HKEY_LOCAL_MACHINE, "HARDWARE\\DESCRIPTION\\System\\CentralProcessor\\0",
                                        "ProcessorNameString", RRF_RT_REG_SZ, nullptr, name, &size);
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    return std::to_string(info.dwNumberOfProcessors) + " x " + (status == ERROR_SUCCESS ? name : "unknown processor");
}

std::string Compiler() {
#if defined(__clang__)
    return "clang " __clang_version__;
#elif defined(__GNUC__)
    return "GCC " __VERSION__;
#else
    return "MSVC " + std::to_string(_MSC_FULL_VER);
#endif
}

std::string Build() {
#if defined(NDEBUG)
    return "optimised";
#else
    return "NOT OPTIMISED: the figures mean nothing";
#endif
}

}  // namespace

std::vector<std::pair<std::string, std::string>> DescribeMachine() {
    return {{"processor", Processor()}, {"system", System()}, {"compiler", Compiler()}, {"build", Build()}};
}

std::string MachineLoad() {
    std::ifstream host("Z:\\proc\\loadavg");  // under Wine, the machine below
    std::string average;
    return host >> average ? average + " threads wanted to run in the last minute" : std::string();
}

std::string MachineCaveat() {
    if (WineVersion().empty()) {
        return {};
    }
    return "Wine's thread pool, locks and waits are not those of Windows: ratios to the system's pool hold here only.";
}

ThreadIds ThreadsOfThisProcess() {
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    if (snapshot == INVALID_HANDLE_VALUE) {
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), "CreateToolhelp32Snapshot");
    }
    ThreadIds ids;
    THREADENTRY32 entry{};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Thread32First(snapshot, &entry); more != FALSE; more = Thread32Next(snapshot, &entry)) {
        if (entry.th32OwnerProcessID == GetCurrentProcessId()) {
            ids.insert(entry.th32ThreadID);
        }
    }
    CloseHandle(snapshot);
    return ids;
}

std::size_t ThreadsSince(const ThreadIds& before) {
    const ThreadIds now = ThreadsOfThisProcess();
    return static_cast<std::size_t>(
        std::count_if(now.begin(), now.end(), [&before](unsigned long id) { return before.count(id) == 0; }));
}

}  // namespace Zarvo::Bench
