#include "concurrency/scheduler/tracker_impl.h"

#include <exception>

#include "concurrency/base/last_words.h"
#include "concurrency/base/report.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/tasks/task_access.h"

namespace Orvane::Internal {

namespace {

// Makes a recurrent task runnable again when its run ends.
class ScopedReset {
  public:
    explicit ScopedReset(const TrackerImpl& tracker) : m_tracker(tracker) {}

    ~ScopedReset() {
        if (!m_tracker.IsRecurrent()) {
            return;
        }
        // Our own handle: once the task is reset, a Tracker that is dropped has no run to wait for, and the tracker may
        // be gone while we still report.
        Task task = m_tracker.GetTask();
        try {
            task.Reset();
        } catch (const std::exception& failure) {
            const unsigned thread = ::GetCurrentThreadId();
            const unsigned process = ::GetCurrentProcessId();
            ReportNoThrow(4, 16, L"ScopedReset.dtor",
                          L"Task reschedule failed in thread [0x%x (%d)] of process [0x%x (%d)]. %s", thread, thread,
                          process, process, failure.what());
            ReportNoThrow(4, 16, L"ScopedReset.dtor", L"Failed Task name = (%s)", task.GetName());
        } catch (...) {
            EndProcessByException("a recurrent task cannot be made ready for its next run", task.GetName());
        }
    }

    ScopedReset(const ScopedReset&) = delete;
    ScopedReset& operator=(const ScopedReset&) = delete;

  private:
    const TrackerImpl& m_tracker;
};

}  // namespace

TrackerImpl::TrackerImpl() = default;
TrackerImpl::TrackerImpl(const TrackerImpl&) = default;
TrackerImpl& TrackerImpl::operator=(const TrackerImpl&) = default;

// On purpose more than the two: a run that has cancelled itself has emptied the task, and one at its end has reset it.
// Either goes on for a moment, with what its callable refers to.
TrackerImpl::~TrackerImpl() {
    try {
        Cancel();
        Wait();
        if (m_isTaskSet) {
            GetTask().EndRun();
        }
    } catch (...) {
        EndProcessByException("the end of the last Tracker cannot end its task", GetTask().GetName());
    }
}

void TrackerImpl::SetTask(const ScheduledTask& task) {
    TaskAccess::Track(task.GetTask());
    ScheduledTask::operator=(task);
    m_isTaskSet = true;
}

void TrackerImpl::Cancel() {
    if (m_isTaskSet) {
        ScheduledTask::Cancel();
    }
}

void TrackerImpl::Wait() {
    if (m_isTaskSet) {
        ScheduledTask::Wait();
    }
}

template <typename Work>
void TrackerImpl::UpdateWrapper(Work work) {
    const ScopedReset reset(*this);
    ++m_runsStarted;
    work();
    ++m_runsFinished;
}

template ORVANE_CONCURRENCY_API void TrackerImpl::UpdateWrapper(std::function<void()> work);

}  // namespace Orvane::Internal
