// Counts the threads that the library starts, and makes chosen starts fail.
//
// Threads: Count() from any. Before() and After() belong before the first start; FailAt() may be called at any time.
// Lifetime: one at a time; must outlive the starts.
#pragma once

#include <process.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <functional>
#include <utility>

#include "tests/support/import_patch.h"

namespace Zarvo::Test {

class ThreadStarts {
  public:
    ThreadStarts() : m_patch(LibraryUnderTest(), "_beginthreadex", &Start) {
        s_original = m_patch.Original<BeginThread>();
        s_count = 0;
        s_failAt = 0;
    }
    ~ThreadStarts() {
        s_before = nullptr;
        s_after = nullptr;
    }
    ThreadStarts(const ThreadStarts&) = delete;
    ThreadStarts& operator=(const ThreadStarts&) = delete;

    // Starts asked for so far, failed ones included.
    int Count() const { return s_count; }

    // The start with this number, counted from 1, fails.
    void FailAt(int number) { s_failAt = number; }

    // Called on the starting thread before every start, with the start's number.
    void Before(std::function<void(int)> action) { s_before = std::move(action); }

    // The same when the thread has been started, and perhaps run.
    void After(std::function<void(int)> action) { s_after = std::move(action); }

  private:
    using Entry = unsigned(__stdcall*)(void*);
    using BeginThread = std::uintptr_t(void*, unsigned, Entry, void*, unsigned, unsigned*);

    static std::uintptr_t Start(void* security, unsigned stackSize, Entry entry, void* argument, unsigned flags,
                                unsigned* id) {
        const int number = ++s_count;
        if (s_before) {
            s_before(number);
        }
        if (number == s_failAt) {
            errno = EAGAIN;
            return 0;
        }
        const std::uintptr_t thread = s_original.load()(security, stackSize, entry, argument, flags, id);
        if (s_after) {
            s_after(number);
        }
        return thread;
    }

    static inline std::atomic<BeginThread*> s_original = nullptr;
    static inline std::atomic<int> s_count = 0;
    static inline std::atomic<int> s_failAt = 0;
    static inline std::function<void(int)> s_before;
    static inline std::function<void(int)> s_after;

    const ImportPatch m_patch;
};

}  // namespace Zarvo::Test
