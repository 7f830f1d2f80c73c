#include <objbase.h>

namespace {

// The calling thread's entries into its apartment, and whether that is the multithreaded one.
thread_local unsigned t_entries = 0;
thread_local bool t_multithreaded = false;

}  // namespace

HRESULT CoInitializeEx(LPVOID, DWORD kind) {
    const bool multithreaded = (kind & COINIT_APARTMENTTHREADED) == 0;
    if (t_entries != 0 && multithreaded != t_multithreaded) {
        return RPC_E_CHANGED_MODE;
    }
    t_multithreaded = multithreaded;
    return t_entries++ == 0 ? S_OK : S_FALSE;
}

void CoUninitialize() {
    if (t_entries != 0) {
        --t_entries;
    }
}

// On purpose without the implicit apartment that a thread is in while others are in the multithreaded one.
HRESULT CoGetApartmentType(APTTYPE* type, APTTYPEQUALIFIER* qualifier) {
    *qualifier = APTTYPEQUALIFIER_NONE;
    *type = APTTYPE_CURRENT;
    if (t_entries == 0) {
        return CO_E_NOTINITIALIZED;
    }
    *type = t_multithreaded ? APTTYPE_MTA : APTTYPE_STA;
    return S_OK;
}
