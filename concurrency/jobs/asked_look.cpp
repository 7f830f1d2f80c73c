#include "concurrency/jobs/asked_look.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <limits>

#include "concurrency/base/report.h"
#include "concurrency/jobs/run_snapshot.h"

namespace Orvane::Internal {

namespace {

constinit std::atomic<bool> g_isLossReported = false;

}  // namespace

std::uint64_t AskedLook::ReportDue(std::uint64_t now) noexcept {
    try {
        const std::uint64_t next = Look(now);
        m_last = now;
        return next;
    } catch (const std::exception& failure) {
        ReportLoss(failure.what());
        return now + kFirst;
    }
}

std::uint64_t AskedLook::Look(std::uint64_t now) {
    RunSnapshot snapshot;
    snapshot.CopyJobs();
    std::uint64_t next = (std::numeric_limits<std::uint64_t>::max)();
    for (const RunSnapshot::Entry& entry : snapshot.Entries()) {
        if (entry.askedAt == 0) {
            continue;
        }
        bool isDue = false;
        for (const std::uint64_t due : {entry.askedAt + kFirst, entry.askedAt + kSecond}) {
            if (due > now) {
                next = (std::min)(next, due);
            } else {
                isDue = isDue || due > m_last;
            }
        }
        if (isDue) {
            ReportNoThrow(4, 16, L"Concurrency.Job", L"%s", ToText(snapshot.Info(entry, now)).c_str());
        }
    }
    return next;
}

void AskedLook::ReportLoss(const char* why) noexcept {
    if (!g_isLossReported.exchange(true)) {
        ReportNoThrow(4, 16, L"Concurrency.Job", L"Jobs that do not leave when they are asked are not reported: %hs",
                      why);
    }
}

}  // namespace Orvane::Internal
