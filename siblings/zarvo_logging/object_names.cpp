#include "zarvo_logging/object_names.h"

#include <stdexcept>
#include <string_view>

#include <windows.h>

namespace Zarvo::Logging {

namespace {

constexpr std::wstring_view kDefaultNamespace = L"Global\\ZARVO_";

// What the environment puts in place of the default. Empty when the variable is not set.
std::wstring InjectedNamespace() {
    constexpr const wchar_t* kVariable = L"ZARVO_OBJECTS_NAMESPACE";
    std::wstring value;
    DWORD length = GetEnvironmentVariableW(kVariable, nullptr, 0);
    while (length > value.size()) {
        value.resize(length);
        length = GetEnvironmentVariableW(kVariable, value.data(), static_cast<DWORD>(value.size()));
    }
    value.resize(length);
    return value;
}

bool IsNamespace(std::wstring_view text) noexcept {
    for (const std::wstring_view root : {std::wstring_view(L"Global\\"), std::wstring_view(L"Local\\")}) {
        if (text.starts_with(root)) {
            text.remove_prefix(root.size());
            break;
        }
    }
    return text.find(L'\\') == std::wstring_view::npos;
}

}  // namespace

std::wstring PrependZarvoObjectsNamespace(const wchar_t* name) {
    if (name == nullptr) {
        throw std::invalid_argument("PrependZarvoObjectsNamespace: the name is null");
    }
    std::wstring result = InjectedNamespace();
    if (result.empty()) {
        result = kDefaultNamespace;
    } else if (!IsNamespace(result)) {
        throw std::runtime_error(
            "ZARVO_OBJECTS_NAMESPACE must be Global\\ or Local\\ and a prefix without a backslash, or such a prefix");
    }
    return result.append(name);
}

}  // namespace Zarvo::Logging
