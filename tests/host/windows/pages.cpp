#include "tests/host/windows/pages.h"

#include <sys/mman.h>
#include <unistd.h>

namespace {

// Of all the pages that the range touches.
bool Protect(LPVOID address, SIZE_T size, int protection) {
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto begin = reinterpret_cast<std::uintptr_t>(address) / page * page;
    const auto end = reinterpret_cast<std::uintptr_t>(address) + size;
    return mprotect(reinterpret_cast<void*>(begin), end - begin, protection) == 0;
}

int ProtectionOf(DWORD protection) {
    switch (protection) {
        case PAGE_READONLY: return PROT_READ;
        case PAGE_READWRITE: return PROT_READ | PROT_WRITE;
        default: return PROT_NONE;
    }
}

}  // namespace

LPVOID VirtualAlloc(LPVOID, SIZE_T size, DWORD, DWORD protection) {
    void* const pages = mmap(nullptr, size, ProtectionOf(protection), MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return pages != MAP_FAILED ? pages : nullptr;
}

BOOL VirtualFree(LPVOID, SIZE_T, DWORD) {
    return TRUE;
}

BOOL VirtualProtect(LPVOID address, SIZE_T size, DWORD protection, DWORD* before) {
    *before = PAGE_READWRITE;
    return Protect(address, size, ProtectionOf(protection)) ? TRUE : FALSE;
}

HANDLE CreateFileMappingW(HANDLE, LPSECURITY_ATTRIBUTES, DWORD, DWORD, DWORD, LPCWSTR) {
    return nullptr;
}

LPVOID MapViewOfFile(HANDLE, DWORD, DWORD, DWORD, SIZE_T) {
    return nullptr;
}

BOOL UnmapViewOfFile(const void*) {
    return FALSE;
}
