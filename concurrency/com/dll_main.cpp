// The module as the loader sees it. Nothing here may wait for a thread: the loader's lock is held.
#include "concurrency/base/windows_api.h"
#include "concurrency/lifetime/initialization_state.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved) {
    switch (reason) {
        case DLL_PROCESS_ATTACH:
            // Not every toolchain's module allows it; then the thread notifications arrive and mean nothing.
            DisableThreadLibraryCalls(instance);
            break;
        case DLL_PROCESS_DETACH:
            if (reserved == nullptr) {  // unloaded, rather than the process ending
                Orvane::Internal::FreeReserveSlot();
            }
            break;
        default: break;
    }
    return TRUE;
}
