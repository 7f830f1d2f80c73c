#include "tests/support/resource_probe.h"

#include <new>
#include <stdexcept>
#include <string>

#include "concurrency/base/windows_api.h"
#include "tests/support/allocations.h"

// After windows.h, which they need.
#include <tlhelp32.h>
#include <winternl.h>

namespace Zarvo::Test {

namespace {

[[noreturn]] void Fail(const char* what) {
    throw std::runtime_error(std::string("ResourceProbe: cannot count ") + what);
}

// Page memory rather than heap memory: the measurement must not disturb what it measures.
class Pages {
  public:
    explicit Pages(std::size_t size)
        : m_size(size), m_memory(VirtualAlloc(nullptr, size, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE)) {
        if (m_memory == nullptr) {
            throw std::bad_alloc();
        }
    }
    ~Pages() { VirtualFree(m_memory, 0, MEM_RELEASE); }
    Pages(const Pages&) = delete;
    Pages& operator=(const Pages&) = delete;

    void* Data() const { return m_memory; }
    ULONG Size() const { return static_cast<ULONG>(m_size); }

  private:
    std::size_t m_size;
    void* m_memory;
};

// As the system lays them out.
struct HandleEntry {
    void* object;
    ULONG_PTR processId;
    ULONG_PTR value;
    ULONG grantedAccess;
    USHORT creatorBackTraceIndex;
    USHORT objectTypeIndex;
    ULONG attributes;
    ULONG reserved;
};

struct HandleTable {
    ULONG_PTR count;
    ULONG_PTR reserved;
    HandleEntry entries[1];
};

using QuerySystemInformation = LONG(WINAPI*)(ULONG, void*, ULONG, ULONG*);

QuerySystemInformation FindQuery() {
    const HMODULE module = GetModuleHandleW(L"ntdll.dll");
    void* const function = reinterpret_cast<void*>(GetProcAddress(module, "NtQuerySystemInformation"));
    return reinterpret_cast<QuerySystemInformation>(function);
}

std::int64_t CountOwnEntries(const HandleTable& table) {
    const ULONG_PTR self = GetCurrentProcessId();
    std::int64_t count = 0;
    for (ULONG_PTR index = 0; index < table.count; ++index) {
        count += table.entries[index].processId == self ? 1 : 0;
    }
    return count;
}

// GetProcessHandleCount would be simpler, but some platforms always answer 0.
std::int64_t CountHandles() {
    constexpr ULONG kExtendedHandleInformation = 64;
    constexpr LONG kTooSmall = static_cast<LONG>(0xC0000004);
    static const QuerySystemInformation query = FindQuery();
    for (std::size_t size = std::size_t{1} << 20; size <= std::size_t{1} << 28; size *= 4) {
        const Pages pages(size);
        const LONG status = query(kExtendedHandleInformation, pages.Data(), pages.Size(), nullptr);
        if (status >= 0) {
            return CountOwnEntries(*static_cast<const HandleTable*>(pages.Data()));
        }
        if (status != kTooSmall) {
            break;
        }
    }
    Fail("handles");
}

std::int64_t CountThreads() {
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    if (snapshot == INVALID_HANDLE_VALUE) {
        Fail("threads");
    }
    const DWORD self = GetCurrentProcessId();
    std::int64_t count = 0;
    THREADENTRY32 entry{};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Thread32First(snapshot, &entry); more != FALSE; more = Thread32Next(snapshot, &entry)) {
        count += entry.th32OwnerProcessID == self ? 1 : 0;
    }
    CloseHandle(snapshot);
    return count;
}

}  // namespace

Resources Resources::Now() {
    Resources now;
    now.handles = CountHandles();
    now.threads = CountThreads();
    now.blocks = LiveBlocks();
    now.bytes = LiveBytes();
    return now;
}

}  // namespace Zarvo::Test
