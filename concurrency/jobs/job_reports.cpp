// What a job says of itself: its name, last words, and its line in the lists of runs. With it what its future says of the job;
// job_future.cpp knows no job, because the two would include each other.
#include <memory>
#include <string>
#include <vector>

#include "concurrency/base/last_words.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/run.h"
#include "concurrency/jobs/job_state.h"
#include "concurrency/jobs/run_snapshot.h"

namespace Orvane::Internal {

namespace {

// From the outermost name inwards. Not deep: see JobName::kLongestChain.
// NOLINTNEXTLINE(misc-no-recursion)
void AddNames(const JobName* name, LastWords& words) noexcept {
    if (name != nullptr) {
        AddNames(name->above.get(), words);
        words.AddTask(name->text.c_str());
    }
}

}  // namespace

void JobFuture::NameRun(LastWords& words) const noexcept {
    AddNames(m_job.Above().get(), words);
    words.AddTask(m_job.Name());
}

std::shared_ptr<const JobName> JobFuture::MakeName() const {
    return std::make_shared<const JobName>(m_job.Name(), m_job.Above());
}

JobSlot* JobFuture::Slot() const noexcept {
    return m_job.Slot();
}

void JobState::EndProcess(const char* reason) const noexcept {
    LastWords words(reason);
    m_future.NameRun(words);
    words.AddThread(::GetCurrentThreadId());
    words.AddException();
    words.EndProcess();
}

void JobState::NameWhatItHolds(const ModuleLedger& module, std::vector<std::wstring>& names) {
    if (m_module == &module && !IsEnded()) {
        names.push_back(L"job " + Path());
    }
}

void JobState::CopyRun(RunSnapshot& snapshot) noexcept {
    const auto object = m_future.GetCancellationObject();
    const Run* const run = Run::Of(object);
    if (run == nullptr) {
        return;
    }
    RunSnapshot::Entry entry;
    entry.above = Above();
    entry.thread = run->ThreadId();
    entry.startedAt = run->startedAt;
    entry.askedAt = run->askedAt;
    if (entry.askedAt != 0) {
        entry.reason = {m_cause == CancelCause::None ? CancelCause::Task : m_cause, m_askedBy};
    }
    entry.wait = run->ownNote.Read().value_or(WaitState());
    entry.record = run->companion.load().get();
    if (m_group) {
        entry.owner = m_group->OwnerOfGroup();
    } else if (m_owner) {
        entry.owner = static_cast<const RunCompanion*>(&m_owner->Whole());
    }
    snapshot.Add(Name(), entry);
}

void JobState::CollectRunning(std::vector<RunningJob>& running) const {
    if (const DWORD thread = m_thread) {
        running.push_back({thread, m_future.MakeName(), m_time});
    }
}

}  // namespace Orvane::Internal
