#include "concurrency/jobs/testing.h"

#include <stdexcept>

#include "concurrency/cancellation/current_task_slot.h"
#include "concurrency/jobs/virtual_run.h"

namespace Orvane::Testing {

namespace {

void RefuseSecond() {
    if (Internal::VirtualRun::OfThisThread() != nullptr || Internal::CurrentFuture()) {
        throw std::logic_error("virtual time is for a thread that is in no run, once");
    }
}

}  // namespace

VirtualTime::VirtualTime() : m_run((RefuseSecond(), std::make_unique<Internal::VirtualRun>())) {}

VirtualTime::~VirtualTime() = default;

std::chrono::nanoseconds VirtualTime::Elapsed() const {
    return m_run->Elapsed();
}

void VirtualTime::AdvanceTicks(std::chrono::nanoseconds duration) {
    const auto now = m_run->Now();
    const auto left = Internal::VirtualRun::kNever - now;
    m_run->Block([] { return false; }, duration >= left ? Internal::VirtualRun::kNever : now + duration);
}

void VirtualTime::RunUntilIdle() {
    m_run->RunUntilIdle();
}

}  // namespace Orvane::Testing
