// The four entry points of an in-process COM server.
//
// No exception may leave them: a failure is an HRESULT.
#include <objbase.h>
#include <olectl.h>

#include <algorithm>
#include <iterator>
#include <new>
#include <system_error>

#include "concurrency/base/windows_api.h"
#include "concurrency/com/module.h"
#include "concurrency/com/registrar.h"
#include "concurrency/com/registration_scope.h"
#include "concurrency/com/type_library.h"
#include "zarvo_orvane_logging/log.h"

namespace {

using namespace Orvane::Internal;

// Also the name of the event source.
constexpr wchar_t kDescription[] = L"ZARVO Concurrency";

template <typename Step>
HRESULT Guarded(Step step) noexcept {
    try {
        return step();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (const std::system_error& error) {
        return HRESULT_FROM_WIN32(static_cast<unsigned long>(error.code().value()));
    } catch (...) {
        return E_UNEXPECTED;
    }
}

}  // namespace

// Stops at the first step that fails.
STDAPI DllRegisterServer() {
    return Guarded([] {
        const Module& module = Module::Instance();
        const RegistrationScope scope = RequestedRegistrationScope();
        HRESULT result = Log::RegisterEventSourceW(kDescription, module.Handle());
        // The script after the type library: its FLAGS and HELPDIR are to stand, not those that the system writes.
        if (SUCCEEDED(result)) {
            result = RegisterTypeLibrary(module.Handle(), scope);
        }
        if (SUCCEEDED(result)) {
            result = ApplyRegistryScript(module.Handle(), scope, RegistryAction::kWrite);
        }
        return SUCCEEDED(result) ? module.UpdateClassRegistrations(true) : result;
    });
}

// Takes every step, whatever failed before, so that as little as possible is left behind.
STDAPI DllUnregisterServer() {
    const Module& module = Module::Instance();
    const RegistrationScope scope = RequestedRegistrationScope();
    const HRESULT results[] = {
        Log::UnregisterEventSource(kDescription),
        Guarded([&] { return UnregisterTypeLibrary(scope); }),
        Guarded([&] { return ApplyRegistryScript(module.Handle(), scope, RegistryAction::kRemove); }),
        Guarded([&] { return module.UpdateClassRegistrations(false); }),
    };
    const auto* const failure =
        std::find_if(std::begin(results), std::end(results), [](HRESULT r) { return FAILED(r); });
    return failure != std::end(results) ? *failure : S_OK;
}

STDAPI DllGetClassObject(REFCLSID classId, REFIID interfaceId, LPVOID* object) {
    return Module::Instance().GetClassObject(classId, interfaceId, object);
}

STDAPI DllCanUnloadNow() {
    return Module::Instance().CanUnloadNow();
}
