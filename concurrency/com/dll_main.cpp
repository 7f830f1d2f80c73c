// The module as the loader sees it. Nothing here may wait for a thread: the loader's lock is held.
#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/current_task_slot.h"
#include "concurrency/com/module.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved) {
    using namespace Orvane::Internal;
    switch (reason) {
        case DLL_PROCESS_ATTACH:
            Module::Instance().Attach(instance);
            // Not every toolchain's module allows it; then the thread notifications arrive and mean nothing.
            DisableThreadLibraryCalls(instance);
            break;
        case DLL_PROCESS_DETACH:
            Module::Instance().Detach();
            if (reserved == nullptr) {  // unloaded, rather than the process ending
                FreeReserveSlot();
            }
            break;
        default: break;
    }
    return TRUE;
}
