// One thread of the library: its handle and Win32 id.
//
// Not std::thread: its destructor ends the process if it was not joined, and its start cannot be told apart from the
// standard library's own.
//
// Threads: one thread at a time uses a record.
// Lifetime: the destructor closes the handle and never waits; the thread itself goes on.
#pragma once

#include <chrono>
#include <memory>
#include <type_traits>
#include <utility>

#include "concurrency/base/last_words.h"
#include "concurrency/base/win32.h"

namespace Orvane::Internal {

class NativeThread {
  public:
    // A record of no thread.
    NativeThread() = default;
    ~NativeThread();
    NativeThread(NativeThread&& other) noexcept;
    NativeThread& operator=(NativeThread&& other) noexcept;

    // Starts a thread that calls `body` once and destroys it. An exception that leaves `body` ends the process, with `reason`
    // as last words. They name the task in the note, if `body` takes one.
    //
    // Errors: std::system_error (resource_unavailable_try_again) if the thread cannot be started, std::bad_alloc; then
    //     `body` has not been called.
    template <typename Body>
    static NativeThread Start(Body body, const char* reason = "an exception has left a thread of the library") {
        std::unique_ptr<Block<Body>> block(new Block<Body>{std::move(body), reason});
        NativeThread thread = StartRaw(&Entry<Body>, block.get());
        static_cast<void>(block.release());  // the thread's now
        return thread;
    }

    bool IsJoinable() const noexcept { return m_handle != nullptr; }
    bool IsCurrentThread() const noexcept;

    // Waits until the thread has ended, at most for `limit`. Also true if the thread cannot be waited for: joining it
    // tells why.
    bool EndsWithin(std::chrono::milliseconds limit) const noexcept;

    DWORD GetId() const noexcept { return m_id; }
    HANDLE GetHandle() const noexcept { return m_handle; }

    // Waits until the thread has ended and closes the handle.
    //
    // Errors: std::system_error: resource_deadlock_would_occur on the thread itself, no_such_process if the wait fails.
    void Join();

  private:
    using RawEntry = unsigned(__stdcall*)(void*);

    template <typename Body>
    struct Block {
        Body body;
        const char* reason;
    };

    template <typename Body>
    static unsigned __stdcall Entry(void* argument) noexcept {
        const std::unique_ptr<Block<Body>> block(static_cast<Block<Body>*>(argument));
        TaskNote note;
        try {
            if constexpr (std::is_invocable_v<Body&, TaskNote&>) {
                block->body(note);
            } else {
                block->body();
            }
        } catch (...) {
            EndProcessByException(block->reason, note.Name());
        }
        return 0;
    }

    static NativeThread StartRaw(RawEntry entry, void* argument);
    void Close() noexcept;

    HANDLE m_handle = nullptr;
    DWORD m_id = 0;
};

}  // namespace Orvane::Internal
