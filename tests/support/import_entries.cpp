#include "tests/support/import_entries.h"

#include <cstring>
#include <stdexcept>

#include "concurrency/base/windows_api.h"
#include "tests/support/import_patch.h"

namespace Zarvo::Test {

namespace {

template <typename T>
T* At(HMODULE module, DWORD offset) {
    return reinterpret_cast<T*>(reinterpret_cast<unsigned char*>(module) + offset);
}

const IMAGE_IMPORT_DESCRIPTOR* ImportsOf(HMODULE module) {
    const auto* dos = At<IMAGE_DOS_HEADER>(module, 0);
    const auto* headers = At<IMAGE_NT_HEADERS>(module, static_cast<DWORD>(dos->e_lfanew));
    const IMAGE_DATA_DIRECTORY& directory = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    return directory.VirtualAddress != 0 ? At<IMAGE_IMPORT_DESCRIPTOR>(module, directory.VirtualAddress) : nullptr;
}

bool IsNamed(HMODULE module, const IMAGE_THUNK_DATA& import, const char* function) {
    if (IMAGE_SNAP_BY_ORDINAL(import.u1.Ordinal)) {
        return false;
    }
    const auto* byName = At<IMAGE_IMPORT_BY_NAME>(module, static_cast<DWORD>(import.u1.AddressOfData));
    return std::strcmp(reinterpret_cast<const char*>(byName->Name), function) == 0;
}

}  // namespace

std::vector<void**> ImportEntries(HMODULE module, const char* function) {
    std::vector<void**> entries;
    const IMAGE_IMPORT_DESCRIPTOR* descriptor = ImportsOf(module);
    for (; descriptor != nullptr && descriptor->Name != 0; ++descriptor) {
        const auto* import = At<IMAGE_THUNK_DATA>(module, descriptor->OriginalFirstThunk);
        auto* entry = At<IMAGE_THUNK_DATA>(module, descriptor->FirstThunk);
        for (; import->u1.AddressOfData != 0; ++import, ++entry) {
            if (IsNamed(module, *import, function)) {
                entries.push_back(reinterpret_cast<void**>(&entry->u1.Function));
            }
        }
    }
    return entries;
}

void StoreImport(void** entry, void* function) {
    DWORD protection = 0;
    if (VirtualProtect(entry, sizeof(*entry), PAGE_READWRITE, &protection) == FALSE) {
        throw std::runtime_error("ImportPatch: the import table cannot be written");
    }
    InterlockedExchangePointer(entry, function);
    VirtualProtect(entry, sizeof(*entry), protection, &protection);
}

void* ImportedFunction(HINSTANCE__* module, const char* function) {
    const std::vector<void**> entries = ImportEntries(module, function);
    return entries.empty() ? nullptr : *entries.front();
}

}  // namespace Zarvo::Test
