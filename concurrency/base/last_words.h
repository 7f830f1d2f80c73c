// The last words of a process that this library ends: one line on standard error, and in the debugger. In UTF-8:
//
//     ZarvoConcurrency ends the process: an exception has left a worker of the pool; task [Fetch 17]; thread [0x1c4 (452)];
//     std::runtime_error: no such file
//
// It stands beside the log, not in it: a program without a log gets it, too. It needs no memory but the stack and takes no
// lock of the process: it is said also when memory has run out, or a thread that is gone holds a lock. Control characters are
// shown as in the log. What is too long is cut, and ends with "...".
//
// Threads: any. Each line is written with one write.
// Errors: none. If there is no standard error, or it refuses the line, the line is lost. One that blocks holds up the end.
#pragma once

#include <cstddef>
#include <string_view>

#include "concurrency/base/win32.h"

namespace Orvane::Internal {

class LastWords {
  public:
    // `reason` says what has happened, in words of this library.
    explicit LastWords(const char* reason) noexcept;
    LastWords(const LastWords&) = delete;
    LastWords& operator=(const LastWords&) = delete;

    // Of the task that it happened in. Called once more, it adds a name that belongs to the one before, as in
    // "Import > Fetch 17". Null and empty names are left out.
    void AddTask(const wchar_t* name) noexcept;

    // With the thread's description, if it has one.
    void AddThread(DWORD id) noexcept;

    // The type and the text of the exception that is being handled. Only inside a catch block.
    void AddException() noexcept;

    // Writes the line and calls std::terminate(). The handler is the program's own.
    [[noreturn]] void EndProcess() noexcept;

  private:
    static constexpr std::size_t kCapacity = 4096;

    void BeginPart(const char* heading, std::size_t room) noexcept;
    void CloseTask() noexcept;
    void Add(std::string_view characters) noexcept;
    void AddText(const char* text) noexcept;
    void AddText(const wchar_t* text) noexcept;
    void AddCodePoint(char32_t code) noexcept;
    bool AddEscaped(char32_t code) noexcept;
    void AddNumber(DWORD number, int base) noexcept;
    void AddDescription(DWORD thread) noexcept;
    void AddType(const char* name) noexcept;

    char m_text[kCapacity];
    std::size_t m_size = 0;
    std::size_t m_end = 0;  // of the part that is being added to
    bool m_isCut = false;  // that part
    bool m_isInTask = false;
};

// In a catch block: says the reason, the task if it has a name, the calling thread and the exception.
[[noreturn]] void EndProcessByException(const char* reason, const wchar_t* task = nullptr) noexcept;

// Keeps a task's name for the last words of a thread: the task may be gone when the thread has been unwound.
class TaskNote {
  public:
    void Take(const wchar_t* name) noexcept;
    const wchar_t* Name() const noexcept { return m_name; }

  private:
    static constexpr std::size_t kCapacity = 32;  // a task keeps less of its name

    wchar_t m_name[kCapacity]{};
};

}  // namespace Orvane::Internal
