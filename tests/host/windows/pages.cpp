#include "tests/host/windows/pages.h"

#include <map>
#include <memory>
#include <mutex>

#include <sys/mman.h>
#include <unistd.h>

#include "tests/host/windows/kernel.h"

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

// Memory that has a name. All views of it are the same.
class Section : public Host::KernelObject {
  public:
    explicit Section(std::size_t size)
        : m_size(size), m_memory(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {}
    ~Section() override { munmap(m_memory, m_size); }
    Section(const Section&) = delete;
    Section& operator=(const Section&) = delete;

    void* Memory() const { return m_memory; }
    bool IsSignalledFor(const Host::ThreadRecord&) const override { return false; }
    DWORD Take(Host::ThreadRecord&) override { return 0; }

  private:
    const std::size_t m_size;
    void* const m_memory;
};

// Each view keeps its memory. Under the kernel's lock; never destroyed, as what is the kernel's.
std::multimap<const void*, std::shared_ptr<Section>>& Views() {
    static auto& views = *new std::multimap<const void*, std::shared_ptr<Section>>();
    return views;
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

HANDLE CreateFileMappingW(HANDLE, LPSECURITY_ATTRIBUTES, DWORD, DWORD, DWORD size, LPCWSTR name) {
    const std::lock_guard lock(Host::KernelLock());
    return Host::OpenOrMake<Section>(name, [=] { return std::make_shared<Section>(size); });
}

// From its beginning alone.
LPVOID MapViewOfFile(HANDLE mapping, DWORD, DWORD offsetHigh, DWORD offsetLow, SIZE_T) {
    const std::lock_guard lock(Host::KernelLock());
    const auto section = Host::ObjectOf<Section>(mapping);
    if (!section) {
        return nullptr;
    }
    if (offsetHigh != 0 || offsetLow != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    Views().emplace(section->Memory(), section);
    return section->Memory();
}

BOOL UnmapViewOfFile(const void* view) {
    const std::lock_guard lock(Host::KernelLock());
    const auto found = Views().find(view);
    if (found == Views().end()) {
        return FALSE;
    }
    Views().erase(found);
    return TRUE;
}
