#include "concurrency/threadpool/traced_queue_time.h"

namespace Orvane::Internal {

void TracedQueueTime::Begin(const Task& task) {
    TraceSpanOf(this, TracePhase::AsyncBegin, "queue", task.GetName());
    m_isOpen = true;
}

void TracedQueueTime::End(const Task& task, const wchar_t* result) {
    m_isOpen = false;
    TraceSpanOf(this, TracePhase::AsyncEnd, "queue", task.GetName(), {{.key = "result", .text = result}});
}

}  // namespace Orvane::Internal
