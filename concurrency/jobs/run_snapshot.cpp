#include "concurrency/jobs/run_snapshot.h"

#include <algorithm>
#include <cwchar>

#include "concurrency/jobs/job_registry.h"
#include "concurrency/jobs/job_wait.h"
#include "concurrency/tasks/future_state.h"
#include "concurrency/tasks/running_tasks.h"

namespace Orvane::Internal {

namespace {

// More than was missing: runs begin all the time.
constexpr std::size_t kSpareRoom = 256;

std::wstring Hexadecimal(const void* object) {
    auto value = reinterpret_cast<std::uintptr_t>(object);
    std::wstring digits;
    do {
        digits.insert(digits.begin(), L"0123456789abcdef"[value % 16]);
        value /= 16;
    } while (value != 0);
    return L"0x" + digits;
}

std::chrono::milliseconds Since(std::uint64_t tick, std::uint64_t now) {
    return std::chrono::milliseconds(now > tick ? now - tick : 0);
}

std::wstring Seconds(std::chrono::milliseconds time) {
    const auto tenths = time.count() / 100;
    return std::to_wstring(tenths / 10) + L"." + std::to_wstring(tenths % 10) + L" s";
}

void CopyTask(RunSnapshot& snapshot, const RunningTask& task) noexcept {
    RunSnapshot::Entry entry;
    entry.thread = task.Thread();
    entry.startedAt = task.StartedAt();
    entry.future = task.Future().get();
    entry.isTracked = task.IsTracked();
    // On purpose not the virtual operation: a derived future's is code of others, and a lock is held.
    auto* const state = dynamic_cast<FutureState*>(task.Future().get());
    const auto object = state != nullptr ? state->FutureState::GetCancellationObject() : nullptr;
    if (const Run* const run = Run::Of(object)) {
        entry.askedAt = run->askedAt;
        entry.reason.cause = entry.askedAt != 0 ? CancelCause::Task : CancelCause::None;
        entry.wait = run->ownNote.Read().value_or(WaitState());
        entry.record = run->companion.load().get();
    }
    snapshot.Add(task.Name(), entry);
}

}  // namespace

void RunSnapshot::Add(const wchar_t* name, const Entry& entry) noexcept {
    const std::size_t length = std::wcslen(name) + 1;
    if (m_entries.size() == m_entries.capacity() || m_names.capacity() - m_names.size() < length) {
        m_missing += length;
        return;
    }
    m_entries.push_back(entry);
    m_entries.back().name = m_names.size();
    m_names.append(name, length);
}

// Calls `copy` under the shard's lock; again, with more room, until all of the shard is there.
template <typename Shard, typename Copy>
void RunSnapshot::CopyShard(Shard& shard, Copy copy) {
    const std::size_t entries = m_entries.size();
    const std::size_t names = m_names.size();
    for (;;) {
        m_missing = 0;
        {
            const RankedLock lock(shard.mutex);
            copy();
        }
        if (m_missing == 0) {
            return;
        }
        m_entries.reserve(m_entries.capacity() + m_missing + kSpareRoom);
        m_names.reserve(m_names.capacity() + m_missing + kSpareRoom);
        m_entries.resize(entries);
        m_names.resize(names);
    }
}

void RunSnapshot::CopyJobs() {
    for (JobShard& shard : JobShards()) {
        CopyShard(shard, [&]() ORVANE_NO_THREAD_SAFETY_ANALYSIS {
            for (const auto* const list : {&shard.live, &shard.beingAsked}) {
                for (Cancellable* next = list->Front(); next != nullptr; next = list->Next(*next)) {
                    next->CopyRun(*this);
                }
            }
        });
    }
}

void RunSnapshot::CopyTasks() {
    for (RunningTaskShard& shard : RunningTaskShards()) {
        CopyShard(shard, [&]() ORVANE_NO_THREAD_SAFETY_ANALYSIS {
            for (RunningTask* next = shard.running.Front(); next != nullptr; next = shard.running.Next(*next)) {
                if (next->IsTask()) {
                    CopyTask(*this, *next);
                }
            }
        });
    }
}

RunInfo RunSnapshot::Info(const Entry& entry, std::uint64_t now) const {
    RunInfo info;
    info.name = &m_names[entry.name];
    info.path = entry.above ? entry.above->Path() + L" > " + info.name : info.name;
    info.thread = entry.thread;
    info.runs = Since(entry.startedAt, now);
    info.reason = entry.reason.ForCallers();
    if (entry.askedAt != 0) {
        info.asked = Since(entry.askedAt, now);
    }
    if (entry.wait.kind != WaitKind::None) {
        info.wait = WaitText(entry);
        info.waits = Since(entry.wait.since, now);
    }
    return info;
}

std::vector<RunInfo> RunSnapshot::Infos() const {
    const std::uint64_t now = CoarseClock::Ticks();
    std::vector<RunInfo> infos;
    infos.reserve(m_entries.size());
    for (const Entry& entry : m_entries) {
        infos.push_back(Info(entry, now));
    }
    std::stable_sort(infos.begin(), infos.end(),
                     [](const RunInfo& left, const RunInfo& right) { return left.runs > right.runs; });
    return infos;
}

// Of the task that has the future, if it runs.
std::wstring RunSnapshot::NameOfTask(const void* future) const {
    for (const Entry& entry : m_entries) {
        if (entry.future == future) {
            return &m_names[entry.name];
        }
    }
    return {};
}

std::wstring RunSnapshot::WaitText(const Entry& entry) const {
    const std::wstring object = Hexadecimal(entry.wait.object);
    switch (entry.wait.kind) {
        case WaitKind::None: return {};
        case WaitKind::Sleep: return L"CancellableSleep";
        case WaitKind::Handle: return L"CancellableWaitForSingleObject(" + object + L")";
        case WaitKind::Handles: return L"CancellableWaitForMultipleObjects(" + object + L", ...)";
        case WaitKind::Condition: return L"CancellableConditionWait(" + object + L")";
        case WaitKind::FifoMutex: return L"fifo_mutex::lock(" + object + L")";
        case WaitKind::CheckedMutex: return L"checked_mutex::lock(" + object + L"), which cannot be cancelled";
        case WaitKind::InterprocessMutex: return L"interprocess_mutex::lock(" + object + L")";
        case WaitKind::Task: return L"Task::Wait(" + NameOfTask(entry.wait.object) + L"), which no request wakes";
        case WaitKind::Jobs: return L"a wait for " + AwaitedBy(entry.thread);
        case WaitKind::DroppedJobs:
            return L"a destructor that waits for " + AwaitedBy(entry.thread) + L", which cannot be cancelled";
        case WaitKind::Place: return L"a wait for its place in its group";
        case WaitKind::Growth: return L"GlobalThreadPool::Queue, while the pool grows";
    }
    return {};
}

}  // namespace Orvane::Internal

namespace Orvane {

std::vector<RunInfo> ListRuns() {
    Internal::RunSnapshot snapshot;
    snapshot.CopyJobs();
    snapshot.CopyTasks();
    return snapshot.Infos();
}

std::wstring ToText(const RunInfo& run) {
    const std::wstring state = run.reason.cause == CancelCause::None ? L": has run for " + Internal::Seconds(run.runs)
                                                                     : L": asked " + Internal::Seconds(run.asked) +
                                                                           L" ago " + Internal::HowAsked(run.reason);
    return run.path + state + L", in " + (run.wait.empty() ? L"no wait of the library" : run.wait);
}

}  // namespace Orvane
