#include "concurrency/scheduler/tracker.h"

#include "concurrency/scheduler/tracker_impl.h"

namespace Orvane {

Tracker::Tracker() : m_impl(new Internal::TrackerImpl()) {}

Tracker::Tracker(const Tracker&) = default;
Tracker::Tracker(Tracker&&) noexcept = default;
Tracker& Tracker::operator=(const Tracker&) = default;
Tracker& Tracker::operator=(Tracker&&) noexcept = default;
Tracker::~Tracker() = default;

void Tracker::SetTask(const Internal::ScheduledTask& task) {
    m_impl->SetTask(task);
}

void Tracker::Cancel() {
    m_impl->Cancel();
}

void Tracker::Wait() {
    m_impl->Wait();
}

}  // namespace Orvane
