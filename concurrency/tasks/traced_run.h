// A run, for the trace: a span on its thread. While the trace is on, it also knows who runs, so that a growth of the pool can
// say which runs held the workers.
//
// Threads: a TracedRun and a TracedWorker belong to the thread that makes them; TraceRunsOfWorkers() on any.
// Errors: std::system_error if a lock fails; only while the trace is on.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "concurrency/base/intrusive_list.h"
#include "concurrency/base/trace.h"
#include "concurrency/base/win32.h"
#include "concurrency/tasks/itask_state.h"

namespace Orvane::Internal {

struct TracedTag;

class TracedRun : public ListHook<TracedTag> {
  public:
    TracedRun() = default;

    // Of a task; nothing without a name.
    explicit TracedRun(const wchar_t* task) {
        if (task != nullptr && IsTracing()) {
            Begin("task", task, {});
        }
    }

    // If it is still under way, an exception has left it.
    ~TracedRun() {
        if (m_name != nullptr) {
            End({{.key = "outcome", .text = L"left by an exception"}});
        }
    }
    TracedRun(const TracedRun&) = delete;
    TracedRun& operator=(const TracedRun&) = delete;

    // Only while the trace is on. The name must live as long as this.
    void Begin(const char* category, const wchar_t* name, std::initializer_list<TraceArgument> arguments);

    // Nothing unless it has begun.
    void End(std::initializer_list<TraceArgument> arguments);

    // With the outcome of the task's future.
    void EndAs(ITaskState& state) {
        if (HasBegun()) {
            End({{.key = "outcome", .text = OutcomeOf(state)}});
        }
    }

    bool HasBegun() const noexcept { return m_name != nullptr; }

  private:
    friend void TraceRunsOfWorkers();

    static const wchar_t* OutcomeOf(ITaskState& state);

    const wchar_t* m_name = nullptr;
    const char* m_category = nullptr;
    DWORD m_thread = 0;
    std::uint64_t m_since = 0;  // a tick of CoarseClock
};

// The calling thread is a worker of the pool.
class TracedWorker : public ListHook<TracedTag> {
  public:
    TracedWorker() {
        if (IsTracing()) {
            Begin();
        }
    }
    ~TracedWorker() {
        if (IsLinked()) {
            End();
        }
    }
    TracedWorker(const TracedWorker&) = delete;
    TracedWorker& operator=(const TracedWorker&) = delete;

    DWORD Thread() const noexcept { return m_thread; }

  private:
    void Begin();
    void End();

    DWORD m_thread = 0;
};

// One moment for each run that is under way on a worker: its name, its thread, and for how long it has run.
void TraceRunsOfWorkers();

}  // namespace Orvane::Internal
