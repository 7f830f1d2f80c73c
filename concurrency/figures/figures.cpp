#include "concurrency/figures/figures.h"

#include <algorithm>

#include "concurrency/base/clock.h"
#include "concurrency/base/tick_counter.h"
#include "concurrency/scheduler/schedule_counts.h"
#include "concurrency/tasks/failure_handler.h"
#include "concurrency/tasks/run_counts.h"
#include "concurrency/threadpool/global_pool_queue.h"
#include "concurrency/threadpool/pool_growth.h"

namespace Orvane {

namespace {

using namespace Internal;

// `toTime` makes a time of what the histogram counts.
template <typename ToTime>
TimeFigures Summary(const LogHistogram& histogram, ToTime toTime) {
    TimeFigures figures;
    figures.count = histogram.Count();
    if (figures.count != 0) {
        figures.mean = toTime(static_cast<double>(histogram.Sum()) / static_cast<double>(figures.count));
        figures.p50 = toTime(histogram.Percentile(50));
        figures.p99 = toTime(histogram.Percentile(99));
        figures.max = toTime(static_cast<double>(histogram.Greatest()));
    }
    return figures;
}

PoolFigures ReadPoolFigures() {
    PoolFigures figures;
    if (const auto load = ReadPool()) {
        figures.workers = load->workers;
        figures.idle = load->workers > load->running ? load->workers - load->running : 0;
        figures.queued = load->queued;
        const std::uint64_t now = CoarseClock::Ticks();
        if (load->oldestAt != 0 && now > load->oldestAt) {
            figures.oldestQueued = std::chrono::milliseconds(now - load->oldestAt);
        }
    }
    figures.growths = PoolGrowth::Growths();
    figures.failedGrowths = PoolGrowth::FailedGrowths();
    return figures;
}

ScheduleFigures ReadScheduleFigures() {
    ScheduleFigures figures;
    const ScheduleLoad load = ReadSchedule();
    figures.entries = load.entries;
    if (load.entries != 0) {
        figures.earliest = load.earliest;
    }
    const ScheduleCounts counts = CopyScheduleCounts();
    figures.skipped = counts.skips;
    figures.lateness =
        Summary(counts.lateness, [](double time) { return std::chrono::nanoseconds(static_cast<std::int64_t>(time)); });
    return figures;
}

void ReadNames(Figures& figures) {
    for (const auto& [name, counts] : CopyRunCounts()) {
        NameFigures& named = figures.names.emplace_back();
        named.name = name;
        named.done = counts.ends[static_cast<std::size_t>(RunEnd::Done)];
        named.failed = counts.ends[static_cast<std::size_t>(RunEnd::Failed)];
        named.cancelled = counts.ends[static_cast<std::size_t>(RunEnd::Cancelled)];
        named.waited = Summary(counts.waited, &TickCounter::ToTime);
        named.ran = Summary(counts.ran, &TickCounter::ToTime);
        named.left = Summary(counts.left, &TickCounter::ToTime);
        figures.done += named.done;
        figures.failed += named.failed;
        figures.cancelled += named.cancelled;
    }
    const auto total = [](const NameFigures& named) {
        return static_cast<double>(named.ran.mean.count()) * static_cast<double>(named.ran.count);
    };
    std::stable_sort(figures.names.begin(), figures.names.end(),
                     [total](const NameFigures& left, const NameFigures& right) { return total(left) > total(right); });
}

// ---- texts

std::wstring Number(std::uint64_t number) {
    return std::to_wstring(number);
}

// As in "12 us", "3.4 ms", "5.6 s": of two digits at least, but for what is less than a microsecond.
std::wstring Time(std::chrono::nanoseconds time) {
    struct Unit {
        std::int64_t tenth;  // in nanoseconds
        const wchar_t* name;
    };
    constexpr Unit kUnits[] = {{100'000'000, L" s"}, {100'000, L" ms"}, {100, L" us"}};
    for (const Unit& unit : kUnits) {
        const std::int64_t tenths = time.count() / unit.tenth;
        if (tenths >= 1000) {
            return std::to_wstring(tenths / 10) + unit.name;
        }
        if (tenths >= 10) {
            return std::to_wstring(tenths / 10) + L"." + std::to_wstring(tenths % 10) + unit.name;
        }
    }
    return std::to_wstring(time.count()) + L" ns";
}

std::wstring Times(const wchar_t* what, const TimeFigures& times) {
    if (times.count == 0) {
        return {};
    }
    return std::wstring(L"; ") + what + L" " + Number(times.count) + L" x mean " + Time(times.mean) + L", p50 " +
           Time(times.p50) + L", p99 " + Time(times.p99) + L", max " + Time(times.max);
}

std::wstring Ends(std::uint64_t done, std::uint64_t failed, std::uint64_t cancelled) {
    return Number(done) + L" done, " + Number(failed) + L" failed, " + Number(cancelled) + L" cancelled";
}

std::wstring PoolText(const PoolFigures& pool) {
    std::wstring text =
        Number(pool.workers) + L" workers, " + Number(pool.idle) + L" idle, " + Number(pool.queued) + L" queued";
    if (pool.queued != 0) {
        text += L", the oldest for " + Time(pool.oldestQueued);
    }
    return text + L"; growths " + Number(pool.growths) + L", failed " + Number(pool.failedGrowths);
}

std::wstring ScheduleText(const ScheduleFigures& schedule) {
    std::wstring text = Number(schedule.entries) + L" scheduled";
    if (schedule.earliest) {
        const TimePoint now = WallClock::now();
        text +=
            *schedule.earliest > now ? L", the first in " + Time(*schedule.earliest - now) : std::wstring(L", one due");
    }
    return text + L", " + Number(schedule.skipped) + L" skipped";
}

std::wstring EndsText(const Figures& figures) {
    return Ends(figures.done, figures.failed, figures.cancelled) + L", " + Number(figures.unreadFailures) + L" unread";
}

std::wstring RunText(const RunInfo& run) {
    return ToText(run) + L", thread " + std::to_wstring(run.thread);
}

}  // namespace

Figures GetFigures() {
    Figures figures;
    figures.pool = ReadPoolFigures();
    figures.schedule = ReadScheduleFigures();
    ReadNames(figures);
    figures.unreadFailures = UnreadFailureCount();
    figures.runs = ListRuns();
    return figures;
}

std::wstring ToText(const Figures& figures) {
    std::wstring text = L"pool: " + PoolText(figures.pool) + L"\n" + L"schedule: " + ScheduleText(figures.schedule) +
                        Times(L"late", figures.schedule.lateness) + L"\n" + L"ended: " + EndsText(figures) + L"\n";
    for (const NameFigures& named : figures.names) {
        text += L"  " + named.name + L": " + Ends(named.done, named.failed, named.cancelled) +
                Times(L"waited", named.waited) + Times(L"ran", named.ran) + Times(L"left", named.left) + L"\n";
    }
    text += L"running: " + Number(figures.runs.size()) + L"\n";
    for (const RunInfo& run : figures.runs) {
        text += L"  " + RunText(run) + L"\n";
    }
    return text;
}

std::wstring ToLine(const Figures& figures) {
    std::wstring text = PoolText(figures.pool) + L"; " + ScheduleText(figures.schedule) + L"; " + EndsText(figures) +
                        L"; " + Number(figures.runs.size()) + L" running";
    if (!figures.runs.empty()) {
        text += L", the oldest " + RunText(figures.runs.front());
    }
    return text;
}

}  // namespace Orvane
