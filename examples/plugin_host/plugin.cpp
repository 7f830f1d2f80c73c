// A plug-in that works in the background, and that can be taken out at any time.
#include "plugin.h"

#include <windows.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/jobs/job_group.h"

using namespace std::chrono_literals;

namespace {

// Its type, its destructor and its text are this module's: nobody may have one when the module goes.
class TooOdd : public std::runtime_error {
  public:
    explicit TooOdd(int number) : std::runtime_error("too odd: " + std::to_string(number)) {}
};

int Half(int number) {
    if (number % 2 != 0) {
        throw TooOdd(number);
    }
    return number / 2;
}

// Asks a job of its own, which fails for every odd number.
void HalveInTheBackground(int number) {
    auto half = Orvane::Run(L"Half", Half, number);
    try {
        half.Get();
    } catch (const TooOdd&) {
        // An odd number is no reason to stop.
    }
}

std::unique_ptr<Orvane::JobGroup> g_work;

}  // namespace

void PluginStart() {
    g_work = std::make_unique<Orvane::JobGroup>(L"Plug-in");
    g_work->Schedule(L"Beat", 1ms, 1ms, [beats = std::vector<int>(100)]() mutable { ++beats.front(); });
    for (int number = 0; number < 8; ++number) {
        g_work->Run(L"Halve", HalveInTheBackground, number);
    }
    g_work->Run(L"Listen",
                [text = std::wstring(L"until it is asked to leave")] { Orvane::CancellableSleep(INFINITE); });
    g_work->Run(L"Fail", [] {
        HalveInTheBackground(1);
        throw TooOdd(3);  // ends the others, and stays in the group
    });
}

void PluginAwait(int jobs) {
    if (jobs == 0) {
        return;
    }
    for ([[maybe_unused]] const Orvane::EndedJob& ended : *g_work) {
        if (--jobs == 0) {
            return;
        }
    }
}

void PluginStop(PluginReport* report) {
    const Orvane::ModuleUse left = g_work->Leave();
    const Orvane::JobCounts counts = g_work->Counts();
    const std::wstring text = left.IsNone() ? std::wstring() : ToText(left);
    *report = {counts.done, counts.failed, counts.cancelled, {}};
    report->stillHeld[text.copy(report->stillHeld, std::size(report->stillHeld) - 1)] = L'\0';
    g_work = nullptr;
}
