// Makes one allocation of the library fail: the one with the given number, counted from 1, that this thread asks for.
//
// Threads: other threads' allocations neither count nor fail.
// Lifetime: one at a time.
#pragma once

#include <atomic>
#include <cstddef>
#include <exception>

#include "concurrency/base/windows_api.h"
#include "tests/support/import_patch.h"
#include "tests/support/imported_names.h"

namespace Zarvo::Test {

class FailingAllocation {
  public:
    explicit FailingAllocation(int number) : m_patch(LibraryUnderTest(), kAllocateName, &Allocate) {
        s_left = number;
        s_thread = GetCurrentThreadId();
    }
    ~FailingAllocation() { s_thread = 0; }
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    // Whether there were so many.
    bool HasFailed() const { return s_left <= 0; }

  private:
    static void* Allocate(std::size_t size) {
        if (s_thread == GetCurrentThreadId() && --s_left == 0) {
            return RefuseMemory();
        }
        return s_before(size);
    }

    // On purpose not by its name, which stands for this function here.
    static inline void* (*const s_before)(std::size_t) =
        reinterpret_cast<void* (*)(std::size_t)>(ImportedFunction(LibraryUnderTest(), kAllocateName));
    static inline std::atomic<DWORD> s_thread = 0;
    static inline std::atomic<int> s_left = 0;

    const ImportPatch m_patch;
};

// Calls `call` until it gets through without a failure, with one more allocation allowed each time. `afterFailure` is
// called after each attempt that failed; returns how many did.
template <typename Call, typename AfterFailure>
int FailEachAllocation(Call call, AfterFailure afterFailure) {
    for (int number = 1;; ++number) {
        bool failed = false;
        try {
            const FailingAllocation failing(number);
            call();
            failed = failing.HasFailed();
        } catch (const std::exception& error) {
            afterFailure(error);
            continue;
        }
        if (!failed) {
            return number - 1;
        }
    }
}

}  // namespace Zarvo::Test
