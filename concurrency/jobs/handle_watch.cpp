#include "concurrency/jobs/handle_watch.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "concurrency/base/condition.h"
#include "concurrency/base/mutex.h"
#include "concurrency/base/native_thread.h"
#include "concurrency/base/never_destroyed.h"
#include "concurrency/base/ranked_mutex.h"
#include "concurrency/base/report.h"
#include "concurrency/base/windows_api.h"

namespace Orvane::Internal {

namespace {

// The platform waits for 64 handles, and one of them wakes the thread.
constexpr std::size_t kMostHandles = 62;

// In ms. How long a thread stays without a handle: starting one costs as much as many handles.
constexpr DWORD kStay = 1000;

// In ms. After a wait that has failed although each handle is good.
constexpr DWORD kPause = 1000;

[[noreturn]] void ThrowLastError(const char* what) {
    throw std::system_error(static_cast<int>(::GetLastError()), std::system_category(), what);
}

class OwnedHandle {
  public:
    OwnedHandle(HANDLE handle, const char* what) : m_handle(handle) {
        if (m_handle == nullptr) {
            ThrowLastError(what);
        }
    }
    ~OwnedHandle() { CloseHandle(m_handle); }
    OwnedHandle(const OwnedHandle&) = delete;
    OwnedHandle& operator=(const OwnedHandle&) = delete;

    HANDLE Get() const noexcept { return m_handle; }

  private:
    const HANDLE m_handle;
};

HANDLE Duplicate(HANDLE handle) noexcept {
    HANDLE copy = nullptr;
    const HANDLE process = ::GetCurrentProcess();
    return DuplicateHandle(process, handle, process, &copy, 0, FALSE, DUPLICATE_SAME_ACCESS) != FALSE ? copy : nullptr;
}

class WatchThread;

}  // namespace

class HandleWatch {
  public:
    HandleWatch(HANDLE handle, std::weak_ptr<Cancellable> target)
        : m_handle(Duplicate(handle), "DuplicateHandle"), m_target(std::move(target)) {}

    HANDLE Handle() const noexcept { return m_handle.Get(); }

    // Whether it is signalled now, which takes the signal of an auto-reset event.
    bool Look() const {
        const DWORD result = WaitForSingleObject(Handle(), 0);
        if (result == WAIT_FAILED) {
            ThrowLastError("WaitForSingleObject");
        }
        // The thread that watches a mutex would own it one day. If this wait has just taken one, it is given back here.
        if (ReleaseMutex(Handle()) != FALSE || ::GetLastError() == ERROR_NOT_OWNER) {
            throw std::invalid_argument("CancelWhen() watches no mutex");
        }
        return result == WAIT_OBJECT_0;
    }

    void AskTarget() const noexcept {
        if (const auto target = m_target.lock()) {
            AskToLeave(*target, {CancelCause::Signalled, nullptr});
        }
    }

    // That has it in its list; null if none has. Guarded by the mutex of the threads.
    WatchThread* thread = nullptr;

  private:
    const OwnedHandle m_handle;
    const std::weak_ptr<Cancellable> m_target;
};

namespace {

// What one thread shares with the others. All but the event is guarded by their mutex.
class WatchThread {
  public:
    void Wake() const noexcept { SetEvent(m_wake.Get()); }
    HANDLE WakeHandle() const noexcept { return m_wake.Get(); }

    HandleWatches watches;
    NativeThread thread;
    bool isRunning = false;

  private:
    const OwnedHandle m_wake{CreateEventW(nullptr, FALSE, FALSE, nullptr), "CreateEvent"};
};

// What a thread waits for. It keeps the handles open.
struct Watched {
    std::array<std::shared_ptr<HandleWatch>, kMostHandles> watches;
    std::size_t count = 0;
};

class WatchThreads {
  public:
    void Add(HandleWatches watch) {
        std::list<WatchThread> fresh(1);  // made before the lock
        const RankedLock lock(m_mutex);
        WatchThread& thread = ThreadWithRoom(fresh);
        if (!thread.isRunning) {
            Start(thread);
        }
        watch.front()->thread = &thread;
        thread.watches.splice(thread.watches.end(), watch);
        thread.Wake();
    }

    // Returns whether it was watched still.
    bool Remove(const std::shared_ptr<HandleWatch>& watch) noexcept {
        const RankedLock lock(m_mutex);
        WatchThread* const thread = std::exchange(watch->thread, nullptr);
        if (thread == nullptr) {
            return false;
        }
        thread->watches.remove(watch);  // the caller keeps it
        thread->Wake();
        return true;
    }

    void Stop() noexcept {
        std::list<WatchThread> ended;
        RankedLock lock(m_mutex);
        m_isStopping = true;
        for (const WatchThread& thread : m_threads) {
            thread.Wake();
        }
        while (std::ranges::any_of(m_threads, &WatchThread::isRunning)) {
            m_left.wait(lock);
        }
        m_isStopping = false;
        ended.swap(m_threads);
        for (WatchThread& thread : ended) {
            JoinEnded(thread);
            for (const auto& watch : thread.watches) {
                watch->thread = nullptr;
            }
        }
    }

  private:
    using Mutex = RankedMutex<RecursiveMutex, LockRank::Leaf>;

    WatchThread& ThreadWithRoom(std::list<WatchThread>& fresh) ORVANE_REQUIRES(m_mutex) {
        const auto found =
            std::ranges::find_if(m_threads, [](const auto& thread) { return thread.watches.size() < kMostHandles; });
        if (found != m_threads.end()) {
            return *found;
        }
        m_threads.splice(m_threads.end(), fresh);
        return m_threads.back();
    }

    void Start(WatchThread& thread) ORVANE_REQUIRES(m_mutex) {
        JoinEnded(thread);
        thread.thread = NativeThread::Start([this, &thread] { Run(thread); },
                                            "an exception has left a thread that watches handles");
        thread.isRunning = true;
    }

    // It has said that it leaves, under the mutex: it takes no lock any more.
    static void JoinEnded(WatchThread& thread) {
        if (thread.thread.IsJoinable()) {
            thread.thread.Join();
        }
    }

    void Run(WatchThread& self) {
        Watched watched;
        bool isIdle = false;
        while (TakeWatches(self, watched, isIdle)) {
            const DWORD result = Wait(self, watched);
            isIdle = result == WAIT_TIMEOUT;
            if (result == WAIT_FAILED) {
                HasFailed(self, watched, ::GetLastError());
            } else if (result < watched.count) {
                IsSignalled(watched.watches[result]);
            }
        }
    }

    void IsSignalled(const std::shared_ptr<HandleWatch>& watch) noexcept {
        if (Remove(watch)) {
            watch->AskTarget();
        }
    }

    // One bad handle fails the wait for all: looks at each.
    void HasFailed(const WatchThread& self, const Watched& watched, DWORD error) noexcept {
        bool isOneBad = false;
        for (std::size_t i = 0; i < watched.count; ++i) {
            const auto& watch = watched.watches[i];
            const DWORD result = WaitForSingleObject(watch->Handle(), 0);
            if (result == WAIT_FAILED && Remove(watch)) {
                isOneBad = true;
                ReportNoThrow(4, 16, L"Concurrency.Job", L"CancelWhen watches a handle no longer, error code %x",
                              static_cast<unsigned>(error));
            } else if (result == WAIT_OBJECT_0) {
                IsSignalled(watch);
            }
        }
        if (!isOneBad) {
            ReportNoThrow(4, 16, L"Concurrency.Job", L"CancelWhen: a wait for %d handles has failed, error code %x",
                          static_cast<int>(watched.count), static_cast<unsigned>(error));
            WaitForSingleObject(self.WakeHandle(), kPause);
        }
    }

    // Returns false if the thread is to leave.
    bool TakeWatches(WatchThread& self, Watched& watched, bool isIdle) {
        watched = {};  // without the lock
        const RankedLock lock(m_mutex);
        if (m_isStopping || (isIdle && self.watches.empty())) {
            self.isRunning = false;
            m_left.notify_all();
            return false;
        }
        for (const auto& watch : self.watches) {
            watched.watches[watched.count++] = watch;
        }
        return true;
    }

    // Returns the index of one that is signalled, WAIT_TIMEOUT if there has been none to wait for, or another number.
    static DWORD Wait(const WatchThread& self, const Watched& watched) noexcept {
        std::array<HANDLE, kMostHandles + 1> handles;
        for (std::size_t i = 0; i < watched.count; ++i) {
            handles[i] = watched.watches[i]->Handle();
        }
        handles[watched.count] = self.WakeHandle();
        const auto count = static_cast<DWORD>(watched.count);
        return WaitForMultipleObjects(count + 1, handles.data(), FALSE, count == 0 ? kStay : INFINITE);
    }

    Mutex m_mutex;
    Condition m_left;  // with m_mutex: a thread is not running any more
    std::list<WatchThread> m_threads ORVANE_GUARDED_BY(m_mutex);  // those that have left, too
    bool m_isStopping ORVANE_GUARDED_BY(m_mutex) = false;
};

// Whether there are any: to make them may need memory, and the last uninitialisation must not.
constinit std::atomic<bool> g_areMade = false;

WatchThreads& TheThreads() {
    static NeverDestroyed<WatchThreads> threads;
    g_areMade = true;
    return *threads;
}

}  // namespace

HandleWatches WatchHandle(HANDLE handle, std::weak_ptr<Cancellable> target) {
    const auto watch = std::make_shared<HandleWatch>(handle, std::move(target));
    HandleWatches kept(1, watch);
    if (watch->Look()) {
        watch->AskTarget();
    } else {
        TheThreads().Add(HandleWatches(1, watch));
    }
    return kept;
}

void RemoveHandleWatches(const HandleWatches& watches) noexcept {
    for (const auto& watch : watches) {
        TheThreads().Remove(watch);
    }
}

void StopHandleWatches() noexcept {
    if (g_areMade) {
        TheThreads().Stop();
    }
}

}  // namespace Orvane::Internal
