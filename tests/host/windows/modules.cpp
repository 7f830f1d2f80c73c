#include "tests/host/windows/modules.h"

#include <dlfcn.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "tests/host/windows/errors.h"

namespace {

constexpr const wchar_t* kPlatformModules[] = {L"kernel32", L"ntdll", L"ole32", L"advapi32"};

// The modules' names are plain ASCII.
std::string FileOf(std::wstring name) {
    if (const auto extension = name.rfind(L".dll"); extension != std::wstring::npos) {
        name.resize(extension);
    }
    if (std::ranges::find(kPlatformModules, name) != std::end(kPlatformModules)) {
        name = L"host_windows";
    }
    std::string file;
    for (const wchar_t character : name) {
        file += static_cast<char>(character);
    }
    return file + ".so";
}

HMODULE Loaded(const char* file) {
    void* const module = dlopen(file, RTLD_LAZY | RTLD_NOLOAD);
    if (module == nullptr) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    dlclose(module);  // a look-up, not one more user of the module
    return static_cast<HMODULE>(module);
}

}  // namespace

HMODULE GetModuleHandleW(LPCWSTR name) {
    return Loaded(name != nullptr ? FileOf(name).c_str() : nullptr);
}

HMODULE LoadLibraryW(LPCWSTR name) {
    const auto program = std::filesystem::read_symlink("/proc/self/exe");
    void* const module = dlopen((program.parent_path() / FileOf(name)).c_str(), RTLD_LAZY);
    if (module == nullptr) {
        SetLastError(ERROR_MOD_NOT_FOUND);
    }
    return static_cast<HMODULE>(module);
}

BOOL FreeLibrary(HMODULE module) {
    return module != nullptr && dlclose(module) == 0 ? TRUE : FALSE;
}

FARPROC GetProcAddress(HMODULE module, LPCSTR name) {
    void* const function = dlsym(module, name);
    if (function == nullptr) {
        SetLastError(ERROR_PROC_NOT_FOUND);
    }
    return reinterpret_cast<FARPROC>(function);
}
