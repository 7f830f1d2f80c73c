#include "concurrency/com/module_path.h"

#include <system_error>

namespace Orvane::Internal {

std::wstring ModulePath(HINSTANCE module) {
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
        if (length == 0) {
            throw std::system_error(static_cast<int>(GetLastError()), std::system_category());
        }
        if (length < path.size()) {
            path.resize(length);
            return path;
        }
        path.resize(path.size() * 2);
    }
}

}  // namespace Orvane::Internal
