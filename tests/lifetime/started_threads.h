// Watches the threads that the library's DLL starts while an object of this class lives.
//
// Threads: every member may be called from any thread.
// Lifetime: one at a time.
#pragma once

#include <process.h>

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "tests/support/import_patch.h"

namespace Zarvo::Test {

class StartedThreads {
  public:
    StartedThreads() = default;
    ~StartedThreads() {
        for (const HANDLE thread : m_list.handles) {
            CloseHandle(thread);
        }
    }
    StartedThreads(const StartedThreads&) = delete;
    StartedThreads& operator=(const StartedThreads&) = delete;

    // How many have been started.
    std::size_t Count() const {
        const std::lock_guard lock(m_list.mutex);
        return m_list.handles.size();
    }

    // Whether the thread with this number, counted from 0 in the order of their start, is still there.
    bool IsAlive(std::size_t number) const {
        const std::lock_guard lock(m_list.mutex);
        return WaitForSingleObject(m_list.handles.at(number), 0) == WAIT_TIMEOUT;
    }

    std::size_t AliveCount() const {
        const std::lock_guard lock(m_list.mutex);
        std::size_t count = 0;
        for (const HANDLE thread : m_list.handles) {
            count += WaitForSingleObject(thread, 0) == WAIT_TIMEOUT ? 1 : 0;
        }
        return count;
    }

  private:
    using Entry = unsigned(__stdcall*)(void*);

    struct List {
        mutable std::mutex mutex;
        std::vector<HANDLE> handles;

        List() { current = this; }
        static inline List* current = nullptr;
    };

    static std::uintptr_t Start(void* security, unsigned stack, Entry entry, void* argument, unsigned flags,
                                unsigned* id) {
        const std::uintptr_t thread = _beginthreadex(security, stack, entry, argument, flags, id);
        HANDLE copy = nullptr;
        DuplicateHandle(GetCurrentProcess(), reinterpret_cast<HANDLE>(thread), GetCurrentProcess(), &copy, 0, FALSE,
                        DUPLICATE_SAME_ACCESS);
        const std::lock_guard lock(List::current->mutex);
        List::current->handles.push_back(copy);
        return thread;
    }

    List m_list;  // first: the patch uses it from its construction on
    ImportPatch m_patch{LibraryUnderTest(), "_beginthreadex", &Start};
};

}  // namespace Zarvo::Test
