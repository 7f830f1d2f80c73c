// Starts jobs, and is unloaded.
#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <utility>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/jobs/parallel.h"
#include "concurrency/jobs/this_job.h"
#include "tests/support/gate.h"

namespace {

using namespace std::chrono_literals;

// Everything of it is this module's.
class Failure : public std::exception {
  public:
    explicit Failure(std::string text) : m_text(std::move(text)) {}

    const char* what() const noexcept override { return m_text.c_str(); }

  private:
    std::string m_text;
};

// As one that the library destroys must be: its destructor is code of this module.
struct Result {
    std::vector<int> values;
};

std::unique_ptr<Orvane::JobGroup> g_group;
Orvane::Job<void> g_alone;

void WaitFor(HANDLE event) {
    Orvane::CancellableWaitForSingleObject(event, INFINITE);
}

void FailInAChild(int number) {
    auto child = Orvane::Run(L"child", [number] {
        if (number % 2 == 0) {
            throw Failure("even");
        }
        return Result{{number}};
    });
    try {
        child.Get();
    } catch (const Failure&) {
        // As it should be for an even one.
    }
}

void SleepUntilAsked() {
    for (;;) {
        Orvane::CancellableSleep(INFINITE);
    }
}

struct WithDestructor {
    ~WithDestructor() { value = 0; }
    int value = 1;
};

// Of the process's end, or of FreeLibrary().
struct KeptGroup {
    std::optional<Orvane::JobGroup> group;
    bool leaves = false;

    ~KeptGroup() {
        if (!group || !leaves) {
            return;
        }
        try {
            static_cast<void>(group->Leave());
        } catch (const std::logic_error& error) {
            std::fputs(error.what(), stderr);
            std::fflush(stderr);
        }
    }
};
KeptGroup g_kept;

}  // namespace

extern "C" {

__declspec(dllexport) int StartDetached(HANDLE mayEnd) {
    Orvane::Run(L"detached", WaitFor, mayEnd).Detach();
    return 1;
}

// With a handle, which DropAlone() drops.
__declspec(dllexport) int StartAlone(void (*call)()) {
    g_alone = Orvane::Run(L"alone", [call] { call(); });
    return 1;
}

__declspec(dllexport) int LimitAlone() {
    g_alone.CancelAfter(1ms);
    return 1;
}

__declspec(dllexport) int DropAlone() {
    g_alone.Wait();
    g_alone = {};
    return 1;
}

// In a run of the program. The callback still runs when it is destroyed.
__declspec(dllexport) int DestroyCallbackThatRuns(HANDLE begun, HANDLE isAsked, HANDLE mayReturn) {
    const std::stop_callback callback(Orvane::StopTokenOfThisJob(), [&] {
        SetEvent(isAsked);
        WaitForSingleObject(mayReturn, INFINITE);
    });
    SetEvent(begun);
    WaitForSingleObject(isAsked, INFINITE);
    return 1;
}

__declspec(dllexport) int TakeToken(int) {
    return Orvane::StopTokenOfThisJob().stop_possible() ? 1 : 0;
}

__declspec(dllexport) int StartPosted(HANDLE mayEnd) {
    Orvane::Post(L"posted", WaitFor, mayEnd);
    return 1;
}

// Of each kind: those that fail, return, wait, have children, run on a thread of their own or after a time, with handles and
// without.
__declspec(dllexport) int StartGroup(int jobs) {
    g_group = std::make_unique<Orvane::JobGroup>(L"module", 4);
    g_group->Schedule(L"beat", 0s, 1ms, [beats = std::vector<int>(10)]() mutable { ++beats.front(); });
    g_group->Schedule(L"fails", 0s, 1ms, [] { throw Failure("scheduled"); });
    g_group->Schedule(L"once", 1ms, 0s, [text = std::string(100, 'x')] {});
    for (int i = 0; i < jobs; ++i) {
        g_group->Run(L"parent", FailInAChild, i);
        g_group->Run(L"result", [i] { return Result{{i}}; });
    }
    g_group->RunInNewThread(L"in a thread", SleepUntilAsked);
    g_group->Run(L"items", [] {
        std::vector<int> items(50);
        try {
            Orvane::ForEach(L"each", items, [](int& item) {
                if (++item == 1) {
                    throw Failure("item");
                }
            });
        } catch (const Failure&) {
            // The first of them, in time.
        }
    });
    auto failed = g_group->Run(L"fails", [jobs] {
        for (int i = 0; i < jobs; ++i) {
            FailInAChild(i);
        }
        throw Failure("of the group");
    });
    if (jobs % 2 == 0) {
        try {
            failed.Get();
            return 0;
        } catch (const Failure&) {
            return 1;
        } catch (const Orvane::CancelledException&) {
            return 0;
        }
    }
    return 1;
}

// Whether nothing is held after it.
__declspec(dllexport) int LeaveGroup() {
    const Orvane::ModuleUse use = g_group->Leave();
    if (!use.IsNone()) {
        std::fprintf(stderr, "%ls\n", ToText(use).c_str());
        std::fflush(stderr);
    }
    g_group = nullptr;
    return use.IsNone() ? 1 : 0;
}

// Writes what is still held when a group has left; each is held in a way of its own.
__declspec(dllexport) int DescribeHeld(int what, wchar_t* text, int capacity) {
    Orvane::JobGroup group(L"Import");
    auto fetch = group.Run(L"Fetch 17", [what] { return Result{{what}}; });
    group.Run(L"nothing to hold", [] {});
    group.Wait();
    Orvane::JobGroup other(L"other");
    Orvane::Job<void> alone;
    Orvane::Job<Result> ended;
    Orvane::GroupJob<void> failed;
    switch (what) {
        case 0: break;
        case 1: fetch = {}; break;
        case 2: other.Schedule(L"daily", 24h, 24h, [] {}); break;
        case 3:
            failed = other.Run(L"fails", [] { throw Failure("kept"); });
            try {
                other.Wait();
            } catch (const Failure&) {
                // The group has it still.
            }
            break;
        case 4: alone = Orvane::Run(L"alone", SleepUntilAsked); break;
        case 5:
            ended = Orvane::Run(L"ended", [] { return Result{{5}}; });
            ended.Wait();
            break;
        case 6: other.Run(L"stays", SleepUntilAsked); break;
        default: return 0;
    }
    if (what != 0) {
        fetch = {};
    }
    const std::wstring use = ToText(group.Leave());
    text[use.copy(text, static_cast<std::size_t>(capacity) - 1)] = L'\0';
    return 1;
}

// An exception of this module, for a group of the program.
__declspec(dllexport) int ThrowFailure(int) {
    throw Failure("for the program");
}

__declspec(dllexport) int TouchThreadLocal() {
    Orvane::JobGroup group(L"thread-local");
    auto job = group.Run(L"touches", [] {
        static thread_local WithDestructor ofTheWorker;
        return ++ofTheWorker.value;
    });
    return job.Get() == 2 ? 1 : 0;
}

__declspec(dllexport) int KeepGroup(int leaves) {
    g_kept.group.emplace(L"kept");
    g_kept.leaves = leaves != 0;
    const auto begun = std::make_shared<Zarvo::Test::Gate>();
    g_kept.group->Run(L"stays", [begun] {
        begun->Open();
        SleepUntilAsked();
    });
    begun->Wait();
    return 1;
}
}
