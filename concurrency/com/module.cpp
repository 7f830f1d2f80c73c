#include "concurrency/com/module.h"

namespace Orvane::Internal {

namespace {

// On purpose no classes: the type library is a contract for other modules. Set up by the compiler, so that the entry
// point finds it ready.
constinit Module g_module{std::span<const ObjectMapEntry>()};

}  // namespace

Module& Module::Instance() {
    return g_module;
}

void Module::Attach(HINSTANCE handle) {
    m_handle = handle;
    for (const ObjectMapEntry& entry : m_classes) {
        entry.onAttach(true);
    }
}

void Module::Detach() {
    for (const ObjectMapEntry& entry : m_classes) {
        entry.onAttach(false);
    }
}

HRESULT Module::GetClassObject(REFCLSID classId, REFIID interfaceId, void** object) const {
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    for (const ObjectMapEntry& entry : m_classes) {
        if (IsEqualCLSID(*entry.classId, classId)) {
            return entry.getClassObject(interfaceId, object);
        }
    }
    return CLASS_E_CLASSNOTAVAILABLE;
}

HRESULT Module::UpdateClassRegistrations(bool registering) const {
    HRESULT result = S_OK;
    for (const ObjectMapEntry& entry : m_classes) {
        const HRESULT one = entry.updateRegistry(registering);
        if (SUCCEEDED(result)) {
            result = one;
        }
    }
    return result;
}

}  // namespace Orvane::Internal
