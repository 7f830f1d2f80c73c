// A group runs its jobs in their order, as many at a time as it may, until one fails or it is asked.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <stdexcept>
#include <vector>

#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/jobs/own_event.h"
#include "tests/models/acting_thread.h"
#include "tests/models/sequences.h"

namespace Zarvo::Test {
namespace {

using namespace Orvane;
using namespace std::chrono_literals;

// The number says which of the running jobs.
enum class GroupOp { Run, TryRun, RunInNewThread, Return, Fail, CancelJob, CancelGroup, WaitForNothing, Count };

const char* NameOf(GroupOp op) {
    constexpr const char* kNames[] = {"Run",  "TryRun",    "RunInNewThread", "Return",
                                      "Fail", "CancelJob", "CancelGroup",    "WaitForNothing"};
    return kNames[static_cast<int>(op)];
}

// A job that runs until it is told how to end, or asked to leave.
struct HeldJob {
    OwnEvent mayEnd;
    std::atomic<bool> hasBegun = false;
    std::atomic<bool> fails = false;
    bool isBesideTheBound = false;
    std::optional<JobOutcome> outcome;  // of the model
    GroupJob<void> handle;

    void Body() {
        hasBegun = true;
        CancellableWaitForSingleObject(mayEnd.Get(), INFINITE);
        if (fails) {
            throw std::runtime_error("as it should");
        }
    }
};

class JobGroupScene {
  public:
    explicit JobGroupScene(std::size_t bound) : m_bound(bound), m_group(L"group", bound) {}

    void Do(GroupOp op, int number) {
        switch (op) {
            case GroupOp::Run:
            case GroupOp::TryRun:
            case GroupOp::RunInNewThread: Add(op); break;
            case GroupOp::Return: End(number, JobOutcome::Done); break;
            case GroupOp::Fail: End(number, JobOutcome::Failed); break;
            case GroupOp::CancelJob: CancelJob(number); break;
            case GroupOp::CancelGroup:
                m_group.Cancel();
                AskAll();
                break;
            default: WaitForNothing(); break;
        }
        Compare();
    }

    // Each end is told once.
    void CompareRecords() {
        m_group.Cancel();
        AskAll();
        Compare();
        std::vector<bool> isTold(m_jobs.size());
        for (const EndedJob& ended : m_group) {
            RC_ASSERT(ended.index < m_jobs.size());
            RC_ASSERT(!isTold[ended.index]);
            isTold[ended.index] = true;
            RC_ASSERT(ended.outcome == *m_jobs[ended.index]->outcome);
            RC_ASSERT((ended.error != nullptr) == (ended.outcome == JobOutcome::Failed));
        }
        RC_ASSERT(std::count(isTold.begin(), isTold.end(), true) == static_cast<std::ptrdiff_t>(m_jobs.size()));
    }

  private:
    void Add(GroupOp op) {
        auto job = std::make_shared<HeldJob>();
        const auto body = [job = job.get()] { job->Body(); };
        if (op == GroupOp::TryRun) {
            if (m_isAsked) {
                return;
            }
            auto handle = m_group.TryRun(L"job", body);
            RC_ASSERT(handle.has_value() == (RunningInBound() < m_bound));
            if (!handle) {
                return;
            }
            job->handle = std::move(*handle);
        } else if (op == GroupOp::Run) {
            job->handle = m_group.Run(L"job", body);
        } else {
            job->handle = m_group.RunInNewThread(L"job", body);
            job->isBesideTheBound = true;
        }
        m_jobs.push_back(job);
        if (m_isAsked) {
            job->outcome = JobOutcome::Cancelled;
            m_hasCancelled = true;
        } else if (job->isBesideTheBound) {
            m_running.push_back(job);
        } else {
            m_waiting.push_back(job);
        }
        StartNext();
    }

    std::size_t RunningInBound() const {
        return static_cast<std::size_t>(
            std::count_if(m_running.begin(), m_running.end(), [](const auto& job) { return !job->isBesideTheBound; }));
    }

    void StartNext() {
        while (!m_waiting.empty() && RunningInBound() < m_bound) {
            m_running.push_back(m_waiting.front());
            m_waiting.pop_front();
        }
    }

    void End(int number, JobOutcome outcome) {
        if (m_running.empty()) {
            return;
        }
        const auto job = m_running[static_cast<std::size_t>(number) % m_running.size()];
        job->fails = outcome == JobOutcome::Failed;
        job->mayEnd.Set();
        job->outcome = outcome;
        std::erase(m_running, job);
        if (outcome == JobOutcome::Failed && !m_hasFailed) {
            m_hasFailed = true;
            AskAll();
        }
        StartNext();
    }

    void CancelJob(int number) {
        if (m_jobs.empty()) {
            return;
        }
        const auto& job = m_jobs[static_cast<std::size_t>(number) % m_jobs.size()];
        job->handle.Cancel();
        if (!job->outcome) {
            job->outcome = JobOutcome::Cancelled;
            std::erase(m_running, job);
            std::erase(m_waiting, job);
            StartNext();
        }
    }

    void AskAll() {
        m_isAsked = true;
        for (const auto& job : m_jobs) {
            if (!job->outcome) {
                job->outcome = JobOutcome::Cancelled;
                m_hasCancelled = true;
            }
        }
        m_running.clear();
        m_waiting.clear();
    }

    void WaitForNothing() {
        enum class Result { NotYet, Ended, Failed, Cancelled };
        Result result{};
        try {
            result = m_group.WaitFor(0s) ? Result::Ended : Result::NotYet;
        } catch (const std::runtime_error&) {
            result = Result::Failed;
        } catch (const CancelledException&) {
            result = Result::Cancelled;
        }
        Result expected = Result::Ended;
        if (!m_running.empty() || !m_waiting.empty()) {
            expected = Result::NotYet;
        } else if (m_hasFailed) {
            expected = Result::Failed;
        } else if (m_hasCancelled) {
            expected = Result::Cancelled;
        }
        RC_ASSERT(static_cast<int>(result) == static_cast<int>(expected));
    }

    std::size_t CountOf(JobOutcome outcome) const {
        return static_cast<std::size_t>(
            std::count_if(m_jobs.begin(), m_jobs.end(), [&](const auto& job) { return job->outcome == outcome; }));
    }

    bool IsAsModelled() const {
        const JobCounts counts = m_group.Counts();
        return counts.waiting == m_waiting.size() && counts.running == m_running.size() &&
               counts.done == CountOf(JobOutcome::Done) && counts.failed == CountOf(JobOutcome::Failed) &&
               counts.cancelled == CountOf(JobOutcome::Cancelled) &&
               std::all_of(m_running.begin(), m_running.end(), [](const auto& job) { return job->hasBegun.load(); });
    }

    void Compare() const {
        RC_ASSERT(SoonHolds([this] { return IsAsModelled(); }));
        for (const auto& job : m_waiting) {
            RC_ASSERT(!job->hasBegun);
        }
    }

    const std::size_t m_bound;
    std::vector<std::shared_ptr<HeldJob>> m_jobs;  // before the group, whose end awaits them
    JobGroup m_group;

    std::deque<std::shared_ptr<HeldJob>> m_waiting;
    std::vector<std::shared_ptr<HeldJob>> m_running;
    bool m_isAsked = false;
    bool m_hasFailed = false;
    bool m_hasCancelled = false;  // the group, a job: not one that was asked by itself
};

TEST(JobGroupModel, RunsItsJobsInTheirOrderUntilOneFailsOrItIsAsked) {
    const ConcurrencyLifetime lifetime;
    CheckSequences<GroupOp>(6, [](const Steps<GroupOp>& steps) {
        JobGroupScene scene(steps.empty() ? 1 : 1 + static_cast<std::size_t>(steps[0].number) % 3);
        for (const auto& [op, number] : steps) {
            scene.Do(op, number);
        }
        scene.CompareRecords();
    });
}

}  // namespace
}  // namespace Zarvo::Test
