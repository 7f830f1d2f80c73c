#include "concurrency/com/registration_scope.h"

namespace Orvane::Internal {

RegistrationScope RequestedRegistrationScope() noexcept {
    wchar_t value[2];
    const DWORD length = GetEnvironmentVariableW(L"ZARVO_REGISTER_PER_USER", value, 2);
    return length == 1 && value[0] == L'1' ? RegistrationScope::kUser : RegistrationScope::kMachine;
}

ClassesRoot ClassesRootOf(RegistrationScope scope) noexcept {
    return scope == RegistrationScope::kUser ? ClassesRoot{HKEY_CURRENT_USER, L"Software\\Classes\\"}
                                             : ClassesRoot{HKEY_CLASSES_ROOT, L""};
}

}  // namespace Orvane::Internal
