// One Schedule() of a group. Its task, when it is due, adds a job to the group.
//
// Threads: as each field says.
// Lifetime: shared by the group, its task and its runs.
#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "concurrency/jobs/job_name.h"
#include "concurrency/jobs/job_outcome.h"
#include "concurrency/jobs/module_ledger.h"
#include "concurrency/tasks/task.h"

namespace Orvane::Internal {

// A callable that is kept, and counted for the module that it is of.
class ScheduledWork {
  public:
    ScheduledWork(std::function<void()> work, ModuleLedger& module) : m_work(std::move(work)), m_module(module) {
        if (m_work) {
            m_module.Add(ModuleLedger::Schedules);
        }
    }
    ~ScheduledWork() { Drop(); }
    ScheduledWork(const ScheduledWork&) = delete;
    ScheduledWork& operator=(const ScheduledWork&) = delete;

    void operator()() const { m_work(); }
    ModuleLedger& Module() const noexcept { return m_module; }

    // When no run will call it any more. Repeatable, on one thread at a time.
    void Drop() noexcept {
        if (m_work) {
            m_work = nullptr;
            m_module.Subtract(ModuleLedger::Schedules);
        }
    }

  private:
    std::function<void()> m_work;
    ModuleLedger& m_module;
};

struct GroupSchedule {
    GroupSchedule(std::function<void()> callable, ModuleLedger& module) : work(std::move(callable), module) {}

    ScheduledWork work;
    std::shared_ptr<const JobName> name;
    OnFailure onFailure = OnFailure::GoOn;
    bool isRecurrent = false;

    // Guarded by the group.
    bool isActive = false;
    bool isUnderWay = false;
    bool isTakenForCancel = false;
    Task task;  // that adds the runs; empty in virtual time
};

}  // namespace Orvane::Internal
