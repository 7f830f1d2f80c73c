#include "examples/file_digests/status_line.h"

#include <chrono>
#include <new>
#include <utility>

#include "concurrency/cancellation/current_task.h"
#include "concurrency/scheduler/schedule.h"

namespace FileDigests {

namespace {

// Often enough to look alive.
constexpr std::chrono::milliseconds kRedrawPeriod{100};

}  // namespace

StatusLine::StatusLine(Messages& messages, Text text) : m_messages(messages), m_text(std::move(text)) {
    if (m_messages.HasStatus()) {
        m_redraws = Orvane::Schedule(L"Status line", kRedrawPeriod, kRedrawPeriod, [this] { Draw(); });
    }
}

StatusLine::~StatusLine() {
    m_redraws.Cancel();
    // On purpose: here, and not in the tracker, a line is waited for that is being drawn. A person who marks text in a
    // console holds up whoever writes there, and a tracker would end the process after 30 s.
    const std::lock_guard lock(m_drawing);
    m_messages.ShowStatus("");
}

void StatusLine::Draw() {
    const std::lock_guard lock(m_drawing);
    Orvane::CancellationPoint();
    try {
        m_messages.ShowStatus(m_text(m_messages.Columns()));
    } catch (const std::bad_alloc&) {
        // On purpose: the next time there may be memory again, and the work matters more than this line.
    }
}

}  // namespace FileDigests
