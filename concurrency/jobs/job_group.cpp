#include "concurrency/jobs/job_group.h"

#include <new>
#include <stdexcept>
#include <system_error>

#include "concurrency/base/last_words.h"
#include "concurrency/base/loader_lock.h"
#include "concurrency/jobs/group_core.h"

namespace Orvane {

using Internal::AskToLeave;
using Internal::GroupCore;

namespace {

[[noreturn]] void ThrowWouldWaitForItself(const char* what) {
    throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur), what);
}

}  // namespace

JobGroup::JobGroup(const wchar_t* name, std::size_t bound) {
    if (bound == 0) {
        throw std::invalid_argument("a group with a bound of 0 would never run a job");
    }
    m_core = std::make_shared<GroupCore>(name, bound);
    m_core->Open();
}

JobGroup::~JobGroup() {
    if (Internal::IsProcessEnding()) {
        // On purpose neither asked nor released: its locks may be held by threads that are gone.
        new (std::nothrow) std::shared_ptr<GroupCore>(std::move(m_core));
        return;
    }
    if (Internal::HoldsLoaderLock() && !m_core->IsGone()) {
        // Threads of its jobs are in code that is about to go, and none can end while this one holds the loader's lock.
        Internal::LastWords words(
            "a static JobGroup is destroyed before its jobs have ended, and its module is being unloaded: call Leave() "
            "before");
        words.AddTask(m_core->Name()->text.c_str());
        words.AddThread(::GetCurrentThreadId());
        words.EndProcess();
    }
    AskToLeave(*m_core, m_core->DropReason());
    const bool isGone = !m_core->IsOnThisThread() && m_core->WaitUntilGone() == Internal::JobWaitResult::Over;
    m_core->ReportUnread();
    m_core->Close(isGone);
}

ModuleUse JobGroup::Leave() {
    if (Internal::HoldsLoaderLock()) {
        throw std::logic_error("a group cannot leave in a DllMain, or where a DLL's static objects are destroyed");
    }
    if (m_core->IsOnThisThread() || m_core->IsInDepartureOfModules()) {
        ThrowWouldWaitForItself("the group cannot leave before this job has ended");
    }
    const auto core = m_core;  // the failure handler may destroy the group
    AskToLeave(*core, {CancelCause::Group, core->Name()});
    if (core->WaitUntilGone() != Internal::JobWaitResult::Over) {
        ThrowWouldWaitForItself("a job of the group waits for the job that lets the group leave");
    }
    core->ReportUnread();
    core->Close(true);
    if (core->AwaitDeparturesOfModules() != Internal::JobWaitResult::Over) {
        ThrowWouldWaitForItself("a thread that leaves a job of the module waits for the job that lets the group leave");
    }
    return core->UseOfModules();
}

Internal::JobRef JobGroup::MakeJob(const wchar_t* name, const Internal::JobBodyType& type) {
    return Internal::JobRef(m_core->Make(name, type, type.module()));
}

void JobGroup::Add(const Internal::JobRef& job) {
    m_core->Add(job.State());
}

void JobGroup::AddInNewThread(const Internal::JobRef& job) {
    m_core->AddInNewThread(job.State());
}

void JobGroup::AddSchedule(const wchar_t* name, const TimePoint& start, const Duration& delay, const Duration& interval,
                           std::function<void()> work, OnFailure onFailure, Internal::ModuleLedger& module) {
    const auto schedule = std::make_shared<Internal::GroupSchedule>(std::move(work), module);
    schedule->name = std::make_shared<const Internal::JobName>(name, m_core->Name());
    schedule->onFailure = onFailure;
    schedule->isRecurrent = interval != Duration::zero();
    m_core->AddSchedule(schedule, start, delay, interval);
}

void JobGroup::Wait() {
    WaitForTicks((std::chrono::nanoseconds::max)());
}

bool JobGroup::WaitForTicks(std::chrono::nanoseconds timeout) {
    if (!m_core->WaitUntilIdle(Internal::DeadlineAfter(timeout))) {
        return false;
    }
    m_core->RethrowFirst();
    return true;
}

void JobGroup::Cancel() {
    AskToLeave(*m_core, {CancelCause::Group, m_core->Name()});
}

void JobGroup::CancelAfterTicks(std::chrono::nanoseconds limit) {
    m_core->CancelAfter(limit);
}

void JobGroup::CancelWhen(HANDLE handle) {
    m_core->CancelWhen(handle);
}

std::wstring JobGroup::GetName() const {
    return m_core->Name()->text;
}

JobCounts JobGroup::Counts() const {
    return m_core->Counts();
}

CancelReason JobGroup::GetCancelReason() const {
    return m_core->Reason();
}

std::vector<JobFailure> JobGroup::Failures() const {
    return m_core->Failures();
}

bool JobGroup::NextEnded(EndedJob& ended) {
    return m_core->NextEnded(ended);
}

void JobGroup::ForgetEnded() noexcept {
    m_core->ForgetEnded();
}

JobGroup::Reservation::Reservation(JobGroup& group) : m_group(group), m_isThere(group.m_core->Reserve()) {}

JobGroup::Reservation::~Reservation() {
    if (m_isThere) {
        m_group.m_core->CancelReservation();
    }
}

void JobGroup::Reservation::Use(const Internal::JobRef& job) {
    m_group.m_core->AddReserved(job.State());
    m_isThere = false;  // the job has it
}

}  // namespace Orvane
