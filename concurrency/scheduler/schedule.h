// The short way to a scheduled task.
//
//     Tracker heartbeat = Orvane::Schedule(L"Heartbeat", 0s, 10s, [&monitor] { monitor.Beat(); });
//     ...
//     heartbeat.Cancel();   // or Wait(), or drop it: the destructor cancels and waits
//
// Threads: any. The callable runs on the pool's workers, one run at a time.
// Memory: each run sees everything before Schedule() and everything in the runs before it. What is visible after the waits,
//     tracker.h says.
// Cancellation: inside the callable, CancellationPoint() and the cancellable waits leave when the tracker cancels.
// Errors: std::bad_alloc, std::system_error, what copying the callable throws; nothing is scheduled then. A run that fails ends
//     neither the process nor the schedule: its exception goes to the failure handler (concurrency/tasks/failure_handler.h).
//     So does that of an empty function.
// Lifetime: the callable is copied for every run. What it refers to must live until the last copy of the returned
//     Tracker is gone. The callable must not hold that Tracker, nor drop its last copy.
// Units: any durations and system-clock time points. They are cut to whole 100 ns, so a shorter interval is 0: once. They
//     saturate at the ends of time: a second start beyond the end of time never comes.
#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>

#include "concurrency/base/time.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/errors/error_storage.h"
#include "concurrency/scheduler/global_scheduler.h"
#include "concurrency/scheduler/scheduled_task.h"
#include "concurrency/scheduler/tracker.h"
#include "concurrency/scheduler/tracker_impl.h"
#include "concurrency/tasks/failure_handler.h"
#include "concurrency/tasks/make_task.h"

namespace Orvane {

// What Schedule() needs of a Tracker. Not for callers.
class ScheduleAccess {
  public:
    template <typename Rep, typename Period>
    static Duration ToTicks(const std::chrono::duration<Rep, Period>& duration) {
        using Seconds = std::chrono::duration<long double>;
        if (Seconds(duration) >= Seconds((Duration::max)())) {
            return (Duration::max)();
        }
        if (Seconds(duration) <= Seconds((Duration::min)())) {
            return (Duration::min)();
        }
        return std::chrono::duration_cast<Duration>(duration);
    }

    static TimePoint After(const Duration& delay) {
        const auto now = std::chrono::time_point_cast<Duration>(std::chrono::system_clock::now());
        return delay > (TimePoint::max)() - now ? (TimePoint::max)() : now + delay;
    }

    // Of a start, or of a delay from now.
    template <typename ClockDuration>
    static TimePoint StartOf(const std::chrono::time_point<std::chrono::system_clock, ClockDuration>& start) {
        return TimePoint(ToTicks(start.time_since_epoch()));
    }
    template <typename Rep, typename Period>
    static TimePoint StartOf(const std::chrono::duration<Rep, Period>& delay) {
        return After(ToTicks(delay));
    }

    // An interval that leads beyond the end of time would wrap around into the past, due at once and again and again.
    static Duration WithinTime(const TimePoint& start, const Duration& interval) {
        return start < TimePoint() ? interval : (std::min)(interval, (TimePoint::max)() - start);
    }

  private:
    // Calls the work, and reports what leaves it. What a future can keep goes on to it.
    class Guarded {
      public:
        Guarded(const wchar_t* name, std::function<void()> work)
            : m_name(name != nullptr ? name : L""), m_work(std::move(work)) {}

        void operator()() const {
            try {
                m_work();
            } catch (const CancelRequestedException&) {
                const auto run = Internal::GetFutureObject();
                if (run && run->IsCancelling()) {
                    throw;
                }
                Report();
            } catch (const ExceptionBase&) {
                Report();
                throw;
            } catch (const CloneableException&) {
                Report();
                throw;
            } catch (...) {
                Report();
            }
        }

      private:
        void Report() const { Internal::ReportUnreadFailure(m_name.c_str(), std::current_exception()); }

        std::wstring m_name;
        std::function<void()> m_work;
    };

    template <typename Callable>
    static Tracker Start(const wchar_t* name, const TimePoint& start, const Duration& interval, Callable&& callable) {
        Tracker tracker;
        // By plain pointer: a shared one would keep the tracker for ever. The tracker's end awaits that of a run.
        Internal::TrackerImpl* const impl = tracker.m_impl.get();
        auto run = [impl, work = std::function<void()>(Guarded(name, std::forward<Callable>(callable)))] {
            impl->UpdateWrapper(work);
        };
        const Internal::ScheduledTask task(MakeTask(name, std::move(run)), start, WithinTime(start, interval));
        tracker.SetTask(task);
        Internal::GlobalScheduler::Insert(task);
        return tracker;
    }

    template <typename ClockDuration, typename Rep, typename Period, typename Callable>
    friend Tracker Schedule(const wchar_t* name,
                            const std::chrono::time_point<std::chrono::system_clock, ClockDuration>& start,
                            const std::chrono::duration<Rep, Period>& interval, Callable&& callable);

    template <typename DelayRep, typename DelayPeriod, typename Rep, typename Period, typename Callable>
    friend Tracker Schedule(const wchar_t* name, const std::chrono::duration<DelayRep, DelayPeriod>& delay,
                            const std::chrono::duration<Rep, Period>& interval, Callable&& callable);
};

// Runs the callable at `start` and then after every `interval`; once for interval 0.
template <typename ClockDuration, typename Rep, typename Period, typename Callable>
[[nodiscard]] Tracker Schedule(const wchar_t* name,
                               const std::chrono::time_point<std::chrono::system_clock, ClockDuration>& start,
                               const std::chrono::duration<Rep, Period>& interval, Callable&& callable) {
    return ScheduleAccess::Start(name, ScheduleAccess::StartOf(start), ScheduleAccess::ToTicks(interval),
                                 std::forward<Callable>(callable));
}

// Runs the callable after `delay` and then after every `interval`; once for interval 0.
template <typename DelayRep, typename DelayPeriod, typename Rep, typename Period, typename Callable>
[[nodiscard]] Tracker Schedule(const wchar_t* name, const std::chrono::duration<DelayRep, DelayPeriod>& delay,
                               const std::chrono::duration<Rep, Period>& interval, Callable&& callable) {
    return ScheduleAccess::Start(name, ScheduleAccess::StartOf(delay), ScheduleAccess::ToTicks(interval),
                                 std::forward<Callable>(callable));
}

}  // namespace Orvane
