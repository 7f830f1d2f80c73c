// Holds jobs, and lets them go one by one.
//
// Threads: every member may be called from any thread.
// Errors: a job that is held for more than a minute gets std::runtime_error: the test fails instead of hanging.
// Lifetime: must outlive the jobs, so declare it before their group.
#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>

namespace Zarvo::Test {

class Turnstile {
  public:
    Turnstile() = default;
    Turnstile(const Turnstile&) = delete;
    Turnstile& operator=(const Turnstile&) = delete;

    // What the job calls: stays inside until it is let go.
    void Pass() {
        std::unique_lock lock(m_mutex);
        ++m_entered;
        m_most = std::max(m_most, ++m_inside);
        const bool hasTicket =
            m_condition.wait_for(lock, std::chrono::minutes(1), [this] { return m_isOpen || m_tickets > 0; });
        --m_tickets;
        --m_inside;
        if (!hasTicket) {
            throw std::runtime_error("nobody has let the job go");
        }
    }

    void LetOneGo() {
        const std::lock_guard lock(m_mutex);
        ++m_tickets;
        m_condition.notify_one();
    }

    // Also all that come later.
    void LetAllGo() {
        const std::lock_guard lock(m_mutex);
        m_isOpen = true;
        m_condition.notify_all();
    }

    int Entered() const { return Read(m_entered); }
    int Inside() const { return Read(m_inside); }

    // The most that were inside at the same time.
    int Most() const { return Read(m_most); }

  private:
    int Read(const int& number) const {
        const std::lock_guard lock(m_mutex);
        return number;
    }

    mutable std::mutex m_mutex;
    std::condition_variable m_condition;
    bool m_isOpen = false;
    int m_tickets = 0;
    int m_entered = 0;
    int m_inside = 0;
    int m_most = 0;
};

// Declare it after the group: it lets all go, so that a failed assertion does not leave the group's end waiting for them.
class OpensAtEnd {
  public:
    explicit OpensAtEnd(Turnstile& turnstile) : m_turnstile(turnstile) {}
    ~OpensAtEnd() { m_turnstile.LetAllGo(); }
    OpensAtEnd(const OpensAtEnd&) = delete;
    OpensAtEnd& operator=(const OpensAtEnd&) = delete;

  private:
    Turnstile& m_turnstile;
};

}  // namespace Zarvo::Test
