// Loads a plug-in, lets it work, and takes it out again while it works, as often as is asked.
//
//     plugin_host [TIMES]
//
// Exit code: 0 if the plug-in was gone each time; 1 if something held it, or its memory was there still.
#include <windows.h>

#include <cstdlib>
#include <iostream>

#include "concurrency/lifetime/concurrency_lifetime.h"
#include "plugin.h"

namespace {

bool IsMemoryGone(const void* address) {
    MEMORY_BASIC_INFORMATION page{};
    return VirtualQuery(address, &page, sizeof(page)) != 0 && page.State == MEM_FREE;
}

template <typename Function>
Function Find(HMODULE module, const char* name) {
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

// Takes it out when so many of its jobs have ended. Returns whether it is gone.
bool LoadAndTakeOut(int jobs, PluginReport& total) {
    const HMODULE module = LoadLibraryW(L"example_plugin.dll");
    if (module == nullptr) {
        std::wcout << L"The plug-in cannot be loaded: error " << GetLastError() << L"\n";
        return false;
    }
    const auto start = Find<decltype(&PluginStart)>(module, "PluginStart");
    const auto stop = Find<decltype(&PluginStop)>(module, "PluginStop");
    const auto await = Find<decltype(&PluginAwait)>(module, "PluginAwait");
    start();
    await(jobs);
    PluginReport report{};
    stop(&report);
    total.done += report.done;
    total.failed += report.failed;
    total.cancelled += report.cancelled;
    if (report.stillHeld[0] != L'\0') {
        std::wcout << L"The plug-in stays: " << report.stillHeld << L"\n";
        return false;  // to unload it now would let threads run into memory that is gone
    }
    const void* const code = reinterpret_cast<const void*>(start);
    FreeLibrary(module);
    if (!IsMemoryGone(code)) {
        std::wcout << L"The plug-in's memory is still there.\n";
        return false;
    }
    return true;
}

}  // namespace

int main(int count, char** arguments) {
    const int times = count > 1 ? std::atoi(arguments[1]) : 20;
    const Orvane::ConcurrencyLifetime lifetime;  // the host's: the library stays when the plug-in goes
    PluginReport total{};
    for (int i = 0; i < times; ++i) {
        if (!LoadAndTakeOut(i % 12, total)) {
            return 1;
        }
    }
    std::wcout << L"Loaded and taken out " << times << L" times: " << total.done << L" jobs done, " << total.failed
               << L" failed, " << total.cancelled << L" cancelled. Nothing was held.\n";
    return 0;
}
