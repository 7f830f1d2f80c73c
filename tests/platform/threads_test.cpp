// Threads, their slots and locks.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include <process.h>

#include "concurrency/base/windows_api.h"
#include "tests/platform/own_name.h"
#include "tests/support/thread.h"

namespace {

using namespace Zarvo::Test;

// A thread that waits for `go` and then ends.
struct Started {
    HANDLE go = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::atomic<DWORD> idInside = 0;
    unsigned id = 0;
    HANDLE handle = nullptr;

    Started() { handle = reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, &Run, this, 0, &id)); }
    ~Started() {
        SetEvent(go);
        WaitForSingleObject(handle, INFINITE);
        CloseHandle(handle);
        CloseHandle(go);
    }

    static unsigned __stdcall Run(void* argument) {
        auto& self = *static_cast<Started*>(argument);
        self.idInside = GetCurrentThreadId();
        WaitForSingleObject(self.go, INFINITE);
        return 0;
    }
};

TEST(PlatformThread, HandleIsSignalledWhenItHasEnded) {
    Started thread;
    EXPECT_EQ(WaitForSingleObject(thread.handle, kNow), DWORD{WAIT_TIMEOUT});
    SetEvent(thread.go);

    EXPECT_EQ(WaitForSingleObject(thread.handle, INFINITE), WAIT_OBJECT_0);
}

TEST(PlatformThread, IdIsTheSameInsideAndOutside) {
    DWORD idInside = 0;
    DWORD id = 0;
    {
        Started thread;
        id = thread.id;
        EXPECT_EQ(GetThreadId(thread.handle), id);
        SetEvent(thread.go);
        WaitForSingleObject(thread.handle, INFINITE);
        idInside = thread.idInside;
    }
    EXPECT_EQ(id, idInside);
    EXPECT_NE(id, GetCurrentThreadId());
}

TEST(PlatformThread, DescriptionIsKept) {
    Started thread;
    ASSERT_TRUE(SUCCEEDED(SetThreadDescription(thread.handle, L"worker")));
    PWSTR text = nullptr;
    ASSERT_TRUE(SUCCEEDED(GetThreadDescription(thread.handle, &text)));

    EXPECT_EQ(std::wstring(text), L"worker");
    LocalFree(text);
}

TEST(PlatformThread, TerminatedOneIsSignalledAndAbandonsItsMutexes) {
    // On purpose kept for good: the thread stays where it is.
    static HANDLE mutex = CreateMutexW(nullptr, FALSE, nullptr);
    static HANDLE owned = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    unsigned id = 0;
    const auto entry = +[](void*) -> unsigned {
        WaitForSingleObject(mutex, INFINITE);
        SetEvent(owned);
        Sleep(60'000);
        return 0;
    };
    const auto started = reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, entry, nullptr, 0, &id));
    WaitForSingleObject(owned, INFINITE);
    const HANDLE thread = OpenThread(THREAD_TERMINATE, FALSE, id);
    ASSERT_TRUE(TerminateThread(thread, 0));

    EXPECT_EQ(WaitForSingleObject(started, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(mutex, kNow), WAIT_ABANDONED_0);
    CloseHandle(thread);
    CloseHandle(started);
}

TEST(PlatformThread, LastErrorBelongsToTheThread) {
    const HANDLE go = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    const HANDLE done = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    Thread other([=] {
        WaitForSingleObject(go, INFINITE);
        SetLastError(9);
        SetEvent(done);
    });
    SetLastError(7);
    SetEvent(go);
    WaitForSingleObject(done, INFINITE);

    EXPECT_EQ(GetLastError(), DWORD{7});
    other.join();
    CloseHandle(go);
    CloseHandle(done);
}

TEST(PlatformSlot, ValueBelongsToTheThread) {
    const DWORD slot = TlsAlloc();
    int value = 0;
    EXPECT_EQ(TlsGetValue(slot), nullptr);
    EXPECT_TRUE(TlsSetValue(slot, &value));
    Thread([=] { EXPECT_EQ(TlsGetValue(slot), nullptr); }).join();

    EXPECT_EQ(TlsGetValue(slot), &value);
    EXPECT_TRUE(TlsFree(slot));
}

TEST(PlatformSlot, FreedAndAllocatedAgainIsEmpty) {
    const DWORD slot = TlsAlloc();
    int value = 0;
    TlsSetValue(slot, &value);
    TlsFree(slot);
    ASSERT_EQ(TlsAlloc(), slot);

    EXPECT_EQ(TlsGetValue(slot), nullptr);
    TlsFree(slot);
}

TEST(PlatformSlot, ReadingClearsTheLastError) {
    const DWORD slot = TlsAlloc();
    SetLastError(7);
    TlsGetValue(slot);

    EXPECT_EQ(GetLastError(), DWORD{ERROR_SUCCESS});
    TlsFree(slot);
}

TEST(PlatformSlot, WhatIsNoneIsRefused) {
    EXPECT_FALSE(TlsSetValue(TLS_OUT_OF_INDEXES, nullptr));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
    SetLastError(ERROR_SUCCESS);
    EXPECT_EQ(TlsGetValue(TLS_OUT_OF_INDEXES), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
    const DWORD slot = TlsAlloc();
    TlsFree(slot);
    EXPECT_FALSE(TlsFree(slot));
}

TEST(PlatformSlot, ThereIsAnEndToThem) {
    std::vector<DWORD> slots;
    DWORD slot = TlsAlloc();
    while (slot != TLS_OUT_OF_INDEXES && slots.size() < 10'000) {
        slots.push_back(slot);
        slot = TlsAlloc();
    }
    EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_MORE_ITEMS});
    EXPECT_GT(slots.size(), 1000U);
    for (const DWORD one : slots) {
        TlsFree(one);
    }
}

TEST(PlatformCriticalSection, IsRecursiveAndKeepsOthersOut) {
    CRITICAL_SECTION section;
    InitializeCriticalSection(&section);
    EnterCriticalSection(&section);
    EXPECT_TRUE(TryEnterCriticalSection(&section));
    LeaveCriticalSection(&section);
    Thread([&] { EXPECT_FALSE(TryEnterCriticalSection(&section)); }).join();
    LeaveCriticalSection(&section);
    Thread([&] {
        EXPECT_TRUE(TryEnterCriticalSection(&section));
        LeaveCriticalSection(&section);
    }).join();
    DeleteCriticalSection(&section);
}

TEST(PlatformSlimLock, LetsOneThreadInAtATime) {
    SRWLOCK lock{};
    int plain = 0;
    const auto count = [&] {
        for (int i = 0; i < 1000; ++i) {
            AcquireSRWLockExclusive(&lock);
            ++plain;
            ReleaseSRWLockExclusive(&lock);
        }
    };
    Thread first(count);
    Thread second(count);
    first.join();
    second.join();

    EXPECT_EQ(plain, 2000);
}

}  // namespace
