#include "tests/host/windows/threads.h"

#include <process.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include <sys/syscall.h>
#include <unistd.h>

#include "tests/host/windows/errors.h"
#include "tests/host/windows/kernel.h"

namespace {

// What a new thread gets from the one that starts it, and what it gives back.
struct Start {
    unsigned (*entry)(void*);
    void* argument;
    HANDLE handle = nullptr;  // written by the new thread before `started`
    DWORD id = 0;
    bool started = false;
    std::condition_variable changed{};
};

// Threads that are about to end, to be joined. Not from operator new: the tests count that memory.
struct Ending {
    pthread_t thread;
    Ending* next;
};
constinit Ending* g_ending = nullptr;  // under the kernel's lock

Ending* TakeEnding() {
    const std::lock_guard lock(Host::KernelLock());
    return std::exchange(g_ending, nullptr);
}

// A thread that has ended for the kernel may still be there for a moment, with its memory. Whoever starts another one
// waits for it, and so does the end of the process.
void JoinEnding() {
    for (Ending* ending = TakeEnding(); ending != nullptr;) {
        pthread_join(ending->thread, nullptr);
        std::free(std::exchange(ending, ending->next));
    }
}

struct JoinMe {
    ~JoinMe() {
        auto* const self = static_cast<Ending*>(std::malloc(sizeof(Ending)));
        const std::lock_guard lock(Host::KernelLock());
        *self = {pthread_self(), g_ending};
        g_ending = self;
    }
};

void* Run(void* argument) {
    auto* const start = static_cast<Start*>(argument);
    auto* const entry = start->entry;
    void* const entryArgument = start->argument;
    {
        const std::lock_guard lock(Host::KernelLock());
        start->id = GetCurrentThreadId();
        start->handle = Host::OpenHandle(Host::ThisThread().object);
        start->started = true;
        start->changed.notify_all();
    }
    static thread_local const JoinMe joinMe;  // destroyed after all that `entry` makes, before the kernel's record
    entry(entryArgument);  // `start` is gone
    return nullptr;
}

}  // namespace

std::uintptr_t _beginthreadex(void*, unsigned, unsigned (*entry)(void*), void* argument, unsigned, unsigned* id) {
    JoinEnding();
    [[maybe_unused]] static const bool joinedAtTheEnd = std::atexit(&JoinEnding) == 0;
    Start start{entry, argument};
    pthread_t thread;
    if (const int error = pthread_create(&thread, nullptr, &Run, &start); error != 0) {
        errno = error;
        return 0;
    }
    std::unique_lock lock(Host::KernelLock());
    start.changed.wait(lock, [&] { return start.started; });
    *id = static_cast<unsigned>(start.id);
    return reinterpret_cast<std::uintptr_t>(start.handle);
}

DWORD GetCurrentThreadId() {
    static thread_local const auto id = static_cast<DWORD>(syscall(SYS_gettid));
    return id;
}

DWORD GetCurrentProcessId() {
    return static_cast<DWORD>(getpid());
}

HANDLE GetCurrentProcess() {
    return reinterpret_cast<HANDLE>(std::intptr_t{-1});
}

HANDLE GetCurrentThread() {
    return reinterpret_cast<HANDLE>(std::intptr_t{-2});
}

HANDLE OpenThread(DWORD, BOOL, DWORD id) {
    const std::lock_guard lock(Host::KernelLock());
    const Host::ThreadRecord* const thread = Host::FindThread(id);
    if (thread == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return Host::OpenHandle(thread->object);
}

BOOL TerminateThread(HANDLE handle, DWORD) {
    const std::lock_guard lock(Host::KernelLock());
    const auto object = Host::ObjectOf<Host::ThreadObject>(handle);
    Host::ThreadRecord* const thread = object ? Host::FindThread(object->Id()) : nullptr;
    if (thread == nullptr) {
        return FALSE;
    }
    struct sigaction stop{};
    stop.sa_handler = +[](int) {
        for (;;) {
            pause();
        }
    };
    sigaction(SIGUSR1, &stop, nullptr);
    syscall(SYS_tgkill, getpid(), object->Id(), SIGUSR1);
    Host::EndThread(*thread);
    return TRUE;
}

DWORD GetThreadId(HANDLE handle) {
    const std::lock_guard lock(Host::KernelLock());
    const auto thread = Host::ObjectOf<Host::ThreadObject>(handle);
    return thread ? thread->Id() : 0;
}

DWORD GetProcessId(HANDLE process) {
    return process == GetCurrentProcess() ? GetCurrentProcessId() : 0;
}

HRESULT SetThreadDescription(HANDLE handle, PCWSTR description) {
    const std::lock_guard lock(Host::KernelLock());
    const auto thread = Host::ObjectOf<Host::ThreadObject>(handle);
    if (!thread) {
        return E_HANDLE;
    }
    thread->description = description;
    return S_OK;
}

HRESULT GetThreadDescription(HANDLE handle, PWSTR* description) {
    const std::lock_guard lock(Host::KernelLock());
    const auto thread = Host::ObjectOf<Host::ThreadObject>(handle);
    if (!thread) {
        return E_HANDLE;
    }
    const std::size_t size = (thread->description.size() + 1) * sizeof(wchar_t);
    *description = static_cast<PWSTR>(std::malloc(size));
    std::memcpy(*description, thread->description.c_str(), size);
    return S_OK;
}

LONG NtQueryInformationThread(HANDLE handle, int what, LPVOID answer, ULONG size, ULONG*) {
    struct Text {
        USHORT length;
        USHORT capacity;
        wchar_t* characters;
    };
    constexpr int kDescription = 38;
    const std::lock_guard lock(Host::KernelLock());
    const bool isOwn = handle == GetCurrentThread();
    const auto thread = isOwn ? Host::ThisThread().object : Host::ObjectOf<Host::ThreadObject>(handle);
    if (!thread || what != kDescription) {
        return -1;
    }
    const std::wstring& description = thread->description;
    const std::size_t length = description.size() * sizeof(wchar_t);
    if (sizeof(Text) + length > size) {
        return -1;
    }
    auto* const text = static_cast<Text*>(answer);
    auto* const characters = reinterpret_cast<wchar_t*>(text + 1);
    std::wmemcpy(characters, description.data(), description.size());
    *text = {static_cast<USHORT>(length), static_cast<USHORT>(length), characters};
    return 0;
}

HLOCAL LocalFree(HLOCAL memory) {
    std::free(memory);
    return nullptr;
}

void Sleep(DWORD milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

DWORD GetActiveProcessorCount(WORD) {
    return std::thread::hardware_concurrency();
}

BOOL SwitchToThread() {
    std::this_thread::yield();
    return TRUE;
}
