#include "concurrency/com/registrar.h"

#include <objbase.h>

#include <string>

#include "concurrency/com/com_pointer.h"
#include "concurrency/com/module_path.h"
#include "concurrency/com/registry_keys.h"
#include "concurrency/com/resource_ids.h"

namespace Orvane::Internal {

namespace {

constexpr CLSID kRegistrarClass{0x44EC053A, 0x400F, 0x11D0, {0x9D, 0xCD, 0x00, 0xA0, 0xC9, 0x03, 0x91, 0xD3}};
constexpr IID kRegistrarInterface{0x44EC053B, 0x400F, 0x11D0, {0x9D, 0xCD, 0x00, 0xA0, 0xC9, 0x03, 0x91, 0xD3}};

// The platform's registrar. Declared here: not every toolchain ships its header.
// On purpose not derived from IUnknown: the same slots, without its public destructor.
struct IRegistrar {
    virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) = 0;
    virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
    virtual ULONG STDMETHODCALLTYPE Release() = 0;
    virtual HRESULT STDMETHODCALLTYPE AddReplacement(LPCOLESTR key, LPCOLESTR item) = 0;
    virtual HRESULT STDMETHODCALLTYPE ClearReplacements() = 0;
    virtual HRESULT STDMETHODCALLTYPE ResourceRegisterSz(LPCOLESTR file, LPCOLESTR id, LPCOLESTR type) = 0;
    virtual HRESULT STDMETHODCALLTYPE ResourceUnregisterSz(LPCOLESTR file, LPCOLESTR id, LPCOLESTR type) = 0;
    virtual HRESULT STDMETHODCALLTYPE FileRegister(LPCOLESTR file) = 0;
    virtual HRESULT STDMETHODCALLTYPE FileUnregister(LPCOLESTR file) = 0;
    virtual HRESULT STDMETHODCALLTYPE StringRegister(LPCOLESTR data) = 0;
    virtual HRESULT STDMETHODCALLTYPE StringUnregister(LPCOLESTR data) = 0;
    virtual HRESULT STDMETHODCALLTYPE ResourceRegister(LPCOLESTR file, UINT id, LPCOLESTR type) = 0;
    virtual HRESULT STDMETHODCALLTYPE ResourceUnregister(LPCOLESTR file, UINT id, LPCOLESTR type) = 0;

  protected:
    ~IRegistrar() = default;
};

// A COM apartment for a scope. A thread that is in one already keeps it.
class ComScope {
  public:
    ComScope() noexcept : m_entered(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {}
    ~ComScope() {
        if (m_entered) {
            CoUninitialize();
        }
    }
    ComScope(const ComScope&) = delete;
    ComScope& operator=(const ComScope&) = delete;

  private:
    const bool m_entered;
};

// Null if the platform has none.
ComPointer<IRegistrar> PlatformRegistrar() {
    void* registrar = nullptr;
    if (FAILED(CoCreateInstance(kRegistrarClass, nullptr, CLSCTX_INPROC_SERVER, kRegistrarInterface, &registrar))) {
        return nullptr;
    }
    return ComPointer<IRegistrar>(static_cast<IRegistrar*>(registrar));
}

// A quotation mark ends a text in the script, two of them are one.
std::wstring WithQuotesDoubled(std::wstring text) {
    for (std::size_t at = text.find(L'\''); at != std::wstring::npos; at = text.find(L'\'', at + 2)) {
        text.insert(at, 1, L'\'');
    }
    return text;
}

HRESULT ApplyWith(IRegistrar& registrar, HINSTANCE module, RegistryAction action) {
    const std::wstring path = ModulePath(module);
    if (const HRESULT result = registrar.AddReplacement(L"Module", WithQuotesDoubled(path).c_str()); FAILED(result)) {
        return result;
    }
    return action == RegistryAction::kWrite
               ? registrar.ResourceRegister(path.c_str(), ZARVO_REGISTRY_SCRIPT, L"REGISTRY")
               : registrar.ResourceUnregister(path.c_str(), ZARVO_REGISTRY_SCRIPT, L"REGISTRY");
}

HRESULT Apply(HINSTANCE module, RegistrationScope scope, RegistryAction action) {
    if (scope == RegistrationScope::kMachine) {
        const ComScope com;
        if (const auto registrar = PlatformRegistrar()) {
            return ApplyWith(*registrar, module, action);
        }
    }
    return action == RegistryAction::kWrite ? WriteRegistryKeys(module, scope) : RemoveRegistryKeys(scope);
}

}  // namespace

HRESULT ApplyRegistryScript(HINSTANCE module, RegistrationScope scope, RegistryAction action) {
    const HRESULT result = Apply(module, scope, action);
    if (action == RegistryAction::kRemove) {
        RemoveLibraryKeyIfEmpty(scope);
    }
    return result;
}

}  // namespace Orvane::Internal
