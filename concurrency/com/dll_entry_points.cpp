// The four entry points of an in-process COM server.
//
// No exception may leave them: a failure is an HRESULT.
#include <objbase.h>
#include <olectl.h>

#include <algorithm>
#include <initializer_list>
#include <new>
#include <system_error>

#include "concurrency/base/windows_api.h"
#include "concurrency/com/module.h"
#include "concurrency/com/registration_scope.h"
#include "concurrency/com/script_keys.h"
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

HRESULT FirstFailure(std::initializer_list<HRESULT> results) noexcept {
    const auto* const failure = std::find_if(results.begin(), results.end(), [](HRESULT r) { return FAILED(r); });
    return failure != results.end() ? *failure : S_OK;
}

}  // namespace

// Both take every step, whatever failed before: registering so that as much as possible is there, unregistering so that
// as little as possible is left.
STDAPI DllRegisterServer() {
    const Module& module = Module::Instance();
    const RegistrationScope scope = RequestedRegistrationScope();
    return FirstFailure({
        Log::RegisterEventSourceW(kDescription, module.Handle()),
        Guarded([&] { return RegisterTypeLibrary(module.Handle(), scope); }),
        // After the type library: the script's FLAGS and HELPDIR are to stand, not those that the system writes.
        Guarded([&] { return WriteScriptKeys(module.Handle(), scope); }),
        Guarded([&] { return module.UpdateClassRegistrations(true); }),
    });
}

STDAPI DllUnregisterServer() {
    const Module& module = Module::Instance();
    const RegistrationScope scope = RequestedRegistrationScope();
    return FirstFailure({
        Log::UnregisterEventSource(kDescription),
        Guarded([&] { return UnregisterTypeLibrary(scope); }),
        Guarded([&] { return RemoveScriptKeys(scope); }),
        Guarded([&] { return module.UpdateClassRegistrations(false); }),
    });
}

STDAPI DllGetClassObject(REFCLSID classId, REFIID interfaceId, LPVOID* object) {
    return Module::Instance().GetClassObject(classId, interfaceId, object);
}

STDAPI DllCanUnloadNow() {
    return Module::Instance().CanUnloadNow();
}
