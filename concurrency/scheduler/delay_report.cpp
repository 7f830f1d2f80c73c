#include "concurrency/scheduler/delay_report.h"

#include <wchar.h>

#include <algorithm>
#include <array>
#include <functional>

#include "concurrency/tasks/make_task.h"
#include "zarvo_orvane_logging/orvane_logging.h"

namespace Orvane::Internal {

constinit std::atomic<unsigned char> g_IntervalExceeded = 0;

namespace {

// The name by value: the task it names may be gone when the report runs, and the report must not keep it.
class TaskName {
  public:
    explicit TaskName(const wchar_t* name) { std::copy_n(name, ::wcsnlen(name, m_text.size() - 1), m_text.begin()); }
    operator const wchar_t*() const { return m_text.data(); }

  private:
    std::array<wchar_t, 30> m_text{};
};

}  // namespace

void DelayReport::ReadConfiguration() {
    const RankedLock lock(m_lock);
    m_configuration.Read();
}

Task DelayReport::MakeReportTask(const wchar_t* overrunningTask) {
    return MakeTask<ComPolicyMTA>(L"Report delay",
                                  std::bind(&DelayReport::Report, shared_from_this(), TaskName(overrunningTask)));
}

void DelayReport::Report(const wchar_t* overrunningTask) {
    g_OrvaneLogging.Report(4, 4, L"Scheduler", L"TaskImpl %s taking longer to execute than scheduled interval",
                           overrunningTask);
    const RankedLock lock(m_lock);
    if (m_configuration.IntervalExceededAssertMode == 1) {
        g_IntervalExceeded = 1;
    }
}

}  // namespace Orvane::Internal
