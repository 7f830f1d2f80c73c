// What the cancellable waits meet at the border to the platform, arranged by a test for a scope.
//
// Lifetime: one object of a class at a time.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "tests/cancellation/run_scope.h"
#include "tests/support/import_patch.h"
#include "tests/support/imported_names.h"
#include "tests/support/standard_sleeps.h"

namespace Zarvo::Test {

// Every wait times out at once and is recorded.
class RecordedWaits {
  public:
    struct Wait {
        std::vector<HANDLE> handles;
        BOOL all;
        DWORD milliseconds;
    };

    RecordedWaits() { g_waits.clear(); }

    const std::vector<Wait>& List() const { return g_waits; }

  private:
    static DWORD WINAPI Record(DWORD count, const HANDLE* handles, BOOL all, DWORD milliseconds) {
        g_waits.push_back({{handles, handles + count}, all, milliseconds});
        return WAIT_TIMEOUT;
    }

    static inline std::vector<Wait> g_waits;
    ImportPatch m_patch{LibraryUnderTest(), "WaitForMultipleObjects", &Record};
};

// Every sleep on a condition times out at once and is recorded: its milliseconds.
class RecordedSleeps {
  public:
    RecordedSleeps() { g_sleeps.clear(); }

    const std::vector<DWORD>& List() const { return g_sleeps; }

  private:
    static bool Record(DWORD milliseconds) {
        g_sleeps.push_back(milliseconds);
        return false;
    }

    static inline std::vector<DWORD> g_sleeps;
    const StandardSleeps m_sleeps{&Record};
};

// Every wait on a standard condition without a limit returns at once and is counted.
class CountedEndlessSleeps {
  public:
    CountedEndlessSleeps() { g_count = 0; }

    int Count() const { return g_count; }

  private:
    static int Return(std::condition_variable*, std::unique_lock<std::mutex>*) {
        ++g_count;
        return 0;
    }

    static inline int g_count = 0;
    ImportPatch m_patch{LibraryUnderTest(), kConditionWaitName, &Return};
};

// A request comes after the wait has tested the flag and before the platform looks at the handles; at the same moment
// `signalled`, if any, is signalled.
class RequestAtTheWait {
  public:
    explicit RequestAtTheWait(const RunScope& run, HANDLE signalled = nullptr) {
        g_run = &run;
        g_signalled = signalled;
    }

  private:
    static DWORD WINAPI RequestThenWait(DWORD count, const HANDLE* handles, BOOL all, DWORD milliseconds) {
        g_run->Cancellation().RequestCancel();
        if (g_signalled != nullptr) {
            SetEvent(g_signalled);
        }
        return WaitForMultipleObjects(count, handles, all, milliseconds);
    }

    static inline const RunScope* g_run = nullptr;
    static inline HANDLE g_signalled = nullptr;
    ImportPatch m_patch{LibraryUnderTest(), "WaitForMultipleObjects", &RequestThenWait};
};

// One request comes right before the platform looks at the handles, another one right after.
class RequestsAroundTheWait {
  public:
    explicit RequestsAroundTheWait(const RunScope& run) { g_run = &run; }

  private:
    static DWORD WINAPI RequestAndWait(DWORD count, const HANDLE* handles, BOOL all, DWORD milliseconds) {
        g_run->Cancellation().RequestCancel();
        const DWORD result = WaitForMultipleObjects(count, handles, all, milliseconds);
        g_run->Cancellation().RequestCancel();
        return result;
    }

    static inline const RunScope* g_run = nullptr;
    ImportPatch m_patch{LibraryUnderTest(), "WaitForMultipleObjects", &RequestAndWait};
};

// Every event is created signalled: as if somebody else had signalled it.
class SignalledEvents {
    static HANDLE WINAPI Create(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL, LPCWSTR name) {
        return CreateEventW(security, manualReset, TRUE, name);
    }

    ImportPatch m_patch{LibraryUnderTest(), "CreateEventW", &Create};
};

// Counts the events that are created.
class CreatedEvents {
  public:
    CreatedEvents() { g_created = 0; }

    int Count() const { return g_created; }

  private:
    static HANDLE WINAPI Create(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL state, LPCWSTR name) {
        ++g_created;
        return CreateEventW(security, manualReset, state, name);
    }

    static inline std::atomic<int> g_created = 0;
    ImportPatch m_patch{LibraryUnderTest(), "CreateEventW", &Create};
};

// No event can be created.
class NoEvents {
    static HANDLE WINAPI Fail(LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR) { return nullptr; }

    ImportPatch m_patch{LibraryUnderTest(), "CreateEventW", &Fail};
};

// Closing a handle leaves an error of its own behind, and is counted.
class NoisyClose {
  public:
    NoisyClose() { g_closed = 0; }

    int Count() const { return g_closed; }

  private:
    static BOOL WINAPI Close(HANDLE handle) {
        const BOOL closed = CloseHandle(handle);
        SetLastError(12345);
        ++g_closed;
        return closed;
    }

    static inline std::atomic<int> g_closed = 0;
    ImportPatch m_patch{LibraryUnderTest(), "CloseHandle", &Close};
};

}  // namespace Zarvo::Test
