#include "tests/host/windows/modules.h"

#include <dlfcn.h>
#include <link.h>

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

BOOL GetModuleHandleExW(DWORD flags, LPCWSTR name, HMODULE* module) {
    Dl_info info{};
    link_map* map = nullptr;
    if ((flags & GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS) == 0 ||
        dladdr1(name, &info, reinterpret_cast<void**>(&map), RTLD_DL_LINKMAP) == 0) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return FALSE;
    }
    const bool isProgram = map->l_name[0] == '\0';
    void* const found = dlopen(isProgram ? nullptr : map->l_name, RTLD_LAZY | RTLD_NOLOAD);
    if (found == nullptr) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return FALSE;
    }
    if ((flags & GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT) != 0) {
        dlclose(found);
    }
    *module = static_cast<HMODULE>(found);
    return TRUE;
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
