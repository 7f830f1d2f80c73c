// How late does a scheduled task start, and how many periods does a short one miss?
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <list>
#include <string>
#include <vector>

#include "bench/harness/finish_line.h"
#include "bench/harness/flood.h"
#include "bench/harness/question.h"
#include "bench/harness/samples.h"
#include "bench/harness/wall_time.h"
#include "bench/peers/empty_task.h"
#include "bench/peers/system_timers.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/scheduler/global_scheduler.h"
#include "concurrency/scheduler/schedule.h"
#include "concurrency/tasks/make_task.h"
#include "zarvo_orvane_logging/orvane_logging.h"
#include "zarvo_orvane_logging/report_recording.h"

namespace Zarvo::Bench {

namespace {

using Orvane::Duration;
using Orvane::TimePoint;
using Orvane::Internal::GlobalScheduler;
using std::chrono::milliseconds;

constexpr const char* kMedian = "p50 us";
constexpr const char* kTail = "p99 us";
constexpr const char* kWorst = "worst us";
constexpr const char* kEarly = "early";
constexpr const char* kEmpty = "without a run";
constexpr const char* kTooMany = "too many";
constexpr const char* kReported = "reported";

// From the making of the timers to the first one that is due.
constexpr milliseconds kLead{100};

// In microseconds. Without any, the columns stay empty.
void AddLateness(const std::vector<double>& late, Figures& figures) {
    if (late.empty()) {
        return;
    }
    Samples samples;
    for (const double one : late) {
        samples.Add(one);
    }
    figures[kMedian] = samples.Percentile(50);
    figures[kTail] = samples.Percentile(99);
    figures[kWorst] = samples.Highest();
}

// A timer that fires once.
struct Shot {
    TimePoint due;
    TimePoint started;
    FinishLine* finish = nullptr;
};

void Start(void* argument) {
    Shot& shot = *static_cast<Shot*>(argument);
    shot.started = WallNow();
    shot.finish->Arrive();
}

// `arm(shot)` makes a timer that calls Start(shot) at shot.due; it may move that a little.
template <typename Arm>
Figures OneShots(std::size_t count, Arm arm) {
    constexpr milliseconds kDistance{2};
    FinishLine finish(count);
    const TimePoint first = WallNow() + kLead;
    std::vector<Shot> shots;
    shots.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        shots.push_back({first + i * kDistance, {}, &finish});
    }
    for (Shot& shot : shots) {
        arm(shot);
    }
    finish.WaitForLast();
    std::vector<double> late;
    late.reserve(count);
    std::size_t early = 0;
    for (const Shot& shot : shots) {
        late.push_back(Microseconds(shot.started - shot.due));
        early += shot.started < shot.due ? 1 : 0;
    }
    Figures figures{{kEarly, static_cast<double>(early)}};
    AddLateness(late, figures);
    return figures;
}

void InsertEmptyTask(FinishLine& finish) {
    GlobalScheduler::Insert({EmptyTask(finish), TimePoint(), Duration::zero()});
}

// From now to `due`, which moves to what can be said in whole milliseconds.
DWORD WholeMilliseconds(TimePoint& due) {
    const TimePoint now = WallNow();
    const auto delay = std::chrono::ceil<milliseconds>(due - now);
    due = now + delay;
    return static_cast<DWORD>(delay.count());
}

Figures OneShotsOnScheduler(std::size_t count) {
    const Orvane::ConcurrencyLifetime lifetime;
    WarmUp(InsertEmptyTask);
    return OneShots(count, [](Shot& shot) {
        GlobalScheduler::Insert({Orvane::MakeTask(L"Shot", [&shot] { Start(&shot); }), shot.due, Duration::zero()});
    });
}

Figures OneShotsOnPoolTimers(std::size_t count) {
    std::list<PoolTimer<Start>> timers;
    return OneShots(count, [&timers](Shot& shot) { timers.emplace_back(&shot, shot.due, 0); });
}

Figures OneShotsOnQueueTimers(std::size_t count) {
    std::list<QueueTimer<Start>> timers;
    return OneShots(count, [&timers](Shot& shot) {
        const DWORD delay = WholeMilliseconds(shot.due);
        timers.emplace_back(&shot, delay, 0);
    });
}

// The starts of what fires again and again.
class Beats {
  public:
    explicit Beats(std::size_t most) : m_starts(most) {}

    void Note() noexcept {
        const TimePoint now = WallNow();
        if (const std::size_t place = m_next.fetch_add(1); place < m_starts.size()) {
            m_starts[place] = now;
        }
    }

    // When nothing notes any more. A run is late by the time since the last moment that was due, whichever it was due
    // for: what is later than a whole period shows as a period without a run.
    Figures Judge(TimePoint first, milliseconds period, std::size_t periods) const {
        std::vector<double> late;
        std::vector<std::size_t> runs(periods);
        std::size_t early = 0;
        for (std::size_t i = 0; i < std::min<std::size_t>(m_next, m_starts.size()); ++i) {
            const Duration since = m_starts[i] - first;
            const auto number = static_cast<std::size_t>(since / period);
            if (since < Duration::zero()) {
                ++early;
            } else if (number < periods) {
                late.push_back(Microseconds(since % Duration(period)));
                ++runs[number];
            }
        }
        Figures figures{{kEarly, static_cast<double>(early)}, {kEmpty, 0}, {kTooMany, 0}};
        for (const std::size_t inPeriod : runs) {
            figures[kEmpty] += inPeriod == 0 ? 1 : 0;
            figures[kTooMany] += inPeriod > 1 ? static_cast<double>(inPeriod - 1) : 0;
        }
        AddLateness(late, figures);
        return figures;
    }

  private:
    std::vector<TimePoint> m_starts;
    std::atomic<std::size_t> m_next = 0;
};

void Beat(void* beats) {
    static_cast<Beats*>(beats)->Note();
}

// `make(beats, first)` makes a timer that calls Beat(beats) from `first` on, which it may move a little.
template <typename Make>
Figures Periodic(milliseconds period, std::size_t periods, Make make) {
    Beats beats(2 * periods);
    TimePoint first = WallNow() + kLead;
    {
        const auto timer = make(&beats, first);
        Sleep(static_cast<DWORD>((kLead + period * periods).count()));
    }
    return beats.Judge(first, period, periods);
}

Figures PeriodicOnScheduler(milliseconds period, std::size_t periods) {
    g_OrvaneLogging.SetMinimumLevel(4);
    g_OrvaneLogging.SetSink(OrvaneLogging::Sink::Recording);
    Orvane::Reports::ClearRecorded();
    Figures figures;
    {
        const Orvane::ConcurrencyLifetime lifetime;
        WarmUp(InsertEmptyTask);
        figures = Periodic(period, periods, [period](Beats* beats, TimePoint first) {
            return Orvane::Schedule(L"Beat", first, period, [beats] { beats->Note(); });
        });
    }
    figures[kReported] = static_cast<double>(Orvane::Reports::CountRecorded(L"Scheduler"));
    g_OrvaneLogging.SetSink(OrvaneLogging::Sink::None);
    return figures;
}

Figures PeriodicOnPoolTimer(milliseconds period, std::size_t periods) {
    return Periodic(period, periods, [period](Beats* beats, TimePoint first) {
        return PoolTimer<Beat>(beats, first, static_cast<DWORD>(period.count()));
    });
}

Figures PeriodicOnQueueTimer(milliseconds period, std::size_t periods) {
    return Periodic(period, periods, [period](Beats* beats, TimePoint& first) {
        const DWORD delay = WholeMilliseconds(first);
        return QueueTimer<Beat>(beats, delay, static_cast<DWORD>(period.count()));
    });
}

Table PeriodicTable(milliseconds period, std::size_t periods) {
    const std::string each = std::to_string(period.count()) + " ms";
    return {
        "recurrent_" + std::to_string(period.count()) + "_ms_x_" + std::to_string(periods),
        "one task each " + each + ", " + std::to_string(periods) + " periods a round",
        {{kMedian, 1, true}, {kTail, 1, true}, {kWorst, 0}, {kEarly}, {kEmpty}, {kTooMany}, {kReported}},
        {
            {"scheduler", [=] { return PeriodicOnScheduler(period, periods); }},
            {"pool timer", [=] { return PeriodicOnPoolTimer(period, periods); }, true},
            {"queue timer", [=] { return PeriodicOnQueueTimer(period, periods); }, true},
        },
    };
}

std::vector<Table> Tables(Effort effort) {
    const std::size_t count = Scaled(effort, 1'000);
    return {
        {
            "one_shot",
            std::to_string(count) + " tasks, one due each 2 ms",
            {{kMedian, 1, true}, {kTail, 1, true}, {kWorst, 0}, {kEarly}},
            {
                {"scheduler", [=] { return OneShotsOnScheduler(count); }},
                {"pool timer", [=] { return OneShotsOnPoolTimers(count); }, true},
                {"queue timer", [=] { return OneShotsOnQueueTimers(count); }, true},
            },
        },
        PeriodicTable(milliseconds(10), Scaled(effort, 100)),
        PeriodicTable(milliseconds(1), Scaled(effort, effort == Effort::kAll ? 2'000 : 1'000)),
    };
}

}  // namespace

}  // namespace Zarvo::Bench

int main(int argc, char** argv) {
    using namespace Zarvo::Bench;
    const Question question{
        "timer_lateness",
        "How late does a scheduled task start, and how many periods does a short one miss?",
        {
            "pool timer: CreateThreadpoolTimer. queue timer: CreateTimerQueueTimer, which takes whole milliseconds.",
            "Late: from the moment that is due, on the wall clock, to the first instruction of the task.",
            "without a run: periods in which none began. reported: overruns that the scheduler wrote to the log.",
        },
    };
    return Answer(argc, argv, question, Tables);
}
