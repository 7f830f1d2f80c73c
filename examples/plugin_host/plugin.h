// What the host asks of a plug-in.
#pragma once

#include <cstddef>

struct PluginReport {
    std::size_t done;
    std::size_t failed;
    std::size_t cancelled;
    wchar_t stillHeld[256];  // what keeps the plug-in from being unloaded; empty if nothing does
};

extern "C" {

// Begins to work, and returns.
__declspec(dllexport) void PluginStart();

// Returns when so many jobs have ended, or all.
__declspec(dllexport) void PluginAwait(int jobs);

// Ends the work. After that the plug-in can be unloaded, if nothing is still held.
__declspec(dllexport) void PluginStop(PluginReport* report);
}
