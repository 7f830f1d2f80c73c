#include "tests/support/gate.h"

#include <chrono>
#include <stdexcept>

namespace Zarvo::Test {

namespace {

// Longer than Eventually() waits, so that a test's own expectation reports first.
constexpr std::chrono::seconds kLimit{60};

}  // namespace

// GCC's posix model makes a mutex and a condition when they are first used, which needs memory: not in a test without any.
Gate::Gate() {
    std::unique_lock lock(m_mutex);
    m_condition.wait_for(lock, std::chrono::seconds(0));
}

void Gate::Open() {
    const std::lock_guard lock(m_mutex);
    m_open = true;
    m_condition.notify_all();
}

void Gate::Wait() {
    std::unique_lock lock(m_mutex);
    if (!m_condition.wait_for(lock, kLimit, [this] { return m_open; })) {
        throw std::runtime_error("Gate: nobody opened it within a minute");
    }
}

bool Gate::IsOpen() const {
    const std::lock_guard lock(m_mutex);
    return m_open;
}

Countdown::Countdown(std::size_t count) : m_missing(count) {
    if (count == 0) {
        m_all.Open();
    }
}

void Countdown::Arrive() {
    const std::lock_guard lock(m_mutex);
    if (m_missing == 0) {
        throw std::logic_error("Countdown: more arrivals than were counted on");
    }
    if (--m_missing == 0) {
        m_all.Open();
    }
}

void Countdown::Wait() {
    m_all.Wait();
}

void Countdown::Meet() {
    Arrive();
    Wait();
}

std::size_t Countdown::Missing() const {
    const std::lock_guard lock(m_mutex);
    return m_missing;
}

}  // namespace Zarvo::Test
