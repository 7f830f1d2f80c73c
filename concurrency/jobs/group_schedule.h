// One Schedule() of a group. Its task, when it is due, adds a job to the group.
//
// Threads: as each field says.
// Lifetime: shared by the group, its task and its runs.
#pragma once

#include <functional>
#include <memory>

#include "concurrency/jobs/job_name.h"
#include "concurrency/jobs/job_outcome.h"
#include "concurrency/tasks/task.h"

namespace Orvane::Internal {

struct GroupSchedule {
    std::function<void()> work;
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
