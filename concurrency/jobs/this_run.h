// The run that the calling thread is in, as this room sees it.
#pragma once

#include <memory>

namespace Orvane::Internal {

class JobState;
class RunRecord;

// Of the innermost scope (within.h), else of the run; made if there is none yet. Empty outside a run.
// Errors: std::bad_alloc, std::system_error.
std::shared_ptr<RunRecord> RecordOfThisRun();

// The job, also inside a scope; empty if the run is not a job's.
std::shared_ptr<JobState> JobOfThisThread();

}  // namespace Orvane::Internal
