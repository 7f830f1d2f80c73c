// Requests that come with a handle: its signal against the end of what is asked.

#include <exception>

#include "concurrency/base/windows_api.h"
#include "concurrency/jobs/job.h"
#include "concurrency/jobs/job_group.h"
#include "tests/schedules/scenarios/tasks_support.h"

namespace {

using Schedules::Check;
using Schedules::Party;

// Manual reset, not signalled, closed at the end.
class Signal {
  public:
    Signal() = default;
    ~Signal() { CloseHandle(m_handle); }
    Signal(const Signal&) = delete;
    Signal& operator=(const Signal&) = delete;

    HANDLE Handle() const { return m_handle; }
    void Set() const { SetEvent(m_handle); }

  private:
    const HANDLE m_handle = CreateEventW(nullptr, TRUE, FALSE, nullptr);
};

// Whether the job ended by a request.
bool WasCancelled(Orvane::Job<void>& job) {
    try {
        job.Get();
    } catch (const Orvane::CancelledException&) {
        return true;
    }
    return false;
}

void SleepUntilAsked() {
    Orvane::CancellableSleep(INFINITE);
}

}  // namespace

SCENARIO(SignalAsksAJobThatSleeps, {.delays = true}) {
    const Orvane::ConcurrencyLifetime lifetime;
    const Signal signal;
    auto job = Orvane::Run(L"Job", &SleepUntilAsked);
    Party setter([&signal] { signal.Set(); });
    job.CancelWhen(signal.Handle());
    Check(WasCancelled(job), "the signal ends the job");
}

SCENARIO(SignalComesAgainstTheEndOfAJob, {.delays = true}) {
    const Orvane::ConcurrencyLifetime lifetime;
    const Signal signal;
    bool hasRun = false;
    auto job = Orvane::Run(L"Job", [&hasRun] { hasRun = true; });
    job.CancelWhen(signal.Handle());
    Party setter([&signal] { signal.Set(); });
    Check(WasCancelled(job) || hasRun, "the job has run, or was asked first");
}

// The thread that watches is at its wait for the first handle when the second one comes.
SCENARIO(SecondSignalAsksASecondJob, {.delays = true}) {
    const Orvane::ConcurrencyLifetime lifetime;
    const Signal first;
    const Signal second;
    auto one = Orvane::Run(L"One", &SleepUntilAsked);
    auto other = Orvane::Run(L"Other", &SleepUntilAsked);
    one.CancelWhen(first.Handle());
    other.CancelWhen(second.Handle());
    second.Set();
    Check(WasCancelled(other), "the second signal ends the second job");
    first.Set();
    Check(WasCancelled(one), "the first signal ends the first job");
}

SCENARIO(SignalAsksAGroupThatIsDropped, {.delays = true}) {
    const Orvane::ConcurrencyLifetime lifetime;
    const Signal signal;
    Party setter([&signal] { signal.Set(); });
    Orvane::JobGroup group(L"Group", 1);
    group.CancelWhen(signal.Handle());
    group.Run(L"Job", &SleepUntilAsked);
}
