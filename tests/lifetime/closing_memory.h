// Memory that can be closed: a thread that touches it afterwards stays where it is.
//
//     static ClosingMemory memory;
//     Make();                     // what this thread allocates here lies in the memory
//     memory.Close();
//     memory.KeepIn([] { Use(); });
//
// So a process can end with a thread at a place that is hardly ever hit by chance: an atomic shared_ptr holds its lock while
// it counts a reference, which it does in the memory of its object.
//
// Threads: it takes the allocations of the thread that constructs it, which makes the other calls too.
// Lifetime: one in a process, up to its end. What lies in it is never freed.
#pragma once

#include <atomic>
#include <cstddef>

#include "concurrency/base/windows_api.h"
#include "tests/support/import_patch.h"
#include "tests/support/thread.h"

namespace Zarvo::Test {

class ClosingMemory {
  public:
    ClosingMemory() {
        s_begin = static_cast<std::byte*>(VirtualAlloc(nullptr, kSize, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
        s_owner = GetCurrentThreadId();
    }
    ClosingMemory(const ClosingMemory&) = delete;
    ClosingMemory& operator=(const ClosingMemory&) = delete;

    void Close() {
        s_owner = 0;
        s_visited = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        AddVectoredExceptionHandler(1, &Keep);
        DWORD before = 0;
        VirtualProtect(s_begin, kSize, PAGE_NOACCESS, &before);
    }

    // Runs `visit` on another thread and returns when that has touched the memory.
    template <typename Visit>
    void KeepIn(Visit visit) {
        Thread([visit] {
            s_visitor = GetCurrentThreadId();
            visit();
        }).detach();
        WaitForSingleObject(s_visited, INFINITE);
    }

  private:
    static constexpr std::size_t kSize = std::size_t{1} << 20;

    static HMODULE Runtime() { return GetModuleHandleW(L"libstdc++-6.dll"); }

    static bool Holds(const void* address) { return address >= s_begin && address < s_begin + kSize; }

    static void* Allocate(std::size_t size) {
        if (GetCurrentThreadId() != s_owner) {
            return s_malloc(size);
        }
        void* const block = s_begin + s_used;
        s_used += (size + 15) / 16 * 16;
        return s_used <= kSize ? block : nullptr;
    }
    static void Free(void* block) {
        if (!Holds(block)) {
            s_free(block);
        }
    }

    static LONG CALLBACK Keep(EXCEPTION_POINTERS* exception) {
        const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
        if (record.ExceptionCode == EXCEPTION_ACCESS_VIOLATION &&
            Holds(reinterpret_cast<const void*>(record.ExceptionInformation[1]))) {
            if (GetCurrentThreadId() == s_visitor) {
                SetEvent(s_visited);
            }
            Sleep(INFINITE);
        }
        return EXCEPTION_CONTINUE_SEARCH;
    }

    static inline std::byte* s_begin = nullptr;
    static inline std::size_t s_used = 0;
    // Known before the patches begin, which allocate themselves.
    static inline const auto s_malloc = reinterpret_cast<void* (*)(std::size_t)>(ImportedFunction(Runtime(), "malloc"));
    static inline const auto s_free = reinterpret_cast<void (*)(void*)>(ImportedFunction(Runtime(), "free"));
    static inline std::atomic<DWORD> s_owner = 0;
    static inline std::atomic<DWORD> s_visitor = 0;
    static inline HANDLE s_visited = nullptr;

    // What operator new and operator delete of all modules call.
    const ImportPatch m_malloc{Runtime(), "malloc", &Allocate};
    const ImportPatch m_free{Runtime(), "free", &Free};
};

}  // namespace Zarvo::Test
