// A thread that does what it is told, one thing after the other.
//
// Threads: the members belong to the test's thread.
// Lifetime: the destructor joins; what was begun must end.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <stdexcept>
#include <thread>
#include <utility>

#include "tests/support/eventually.h"
#include "tests/support/thread.h"

namespace Zarvo::Test {

// Asks again and again, without leaving the processor for long: a sequence has many steps. What has failed once is tried many
// times, until its sequence is short: with less patience.
template <typename Predicate>
[[nodiscard]] bool SoonHolds(Predicate predicate) {
    static std::atomic<bool> hasFailed = false;
    const std::chrono::seconds patience = hasFailed ? std::chrono::seconds(1) : kPatience;
    for (int turn = 0; turn < 10'000; ++turn) {
        if (predicate()) {
            return true;
        }
        std::this_thread::yield();
    }
    const bool holds = Eventually(predicate, patience);
    hasFailed = hasFailed || !holds;
    return holds;
}

class ActingThread {
  public:
    ActingThread() : m_thread([this] { Act(); }) {}
    ~ActingThread() {
        m_isOver = true;
        ++m_turn;
        m_turn.notify_one();
    }
    ActingThread(const ActingThread&) = delete;
    ActingThread& operator=(const ActingThread&) = delete;

    // Returns at once. The thread must be idle.
    void Begin(std::function<void()> call) {
        m_call = std::move(call);
        m_isIdle = false;
        ++m_turn;
        m_turn.notify_one();
    }

    bool IsIdle() const { return m_isIdle; }

    // Whether what was begun has ended in time.
    [[nodiscard]] bool Ends() const {
        return SoonHolds([this] { return IsIdle(); });
    }

    void Do(std::function<void()> call) {
        Begin(std::move(call));
        if (!Ends()) {
            throw std::logic_error("ActingThread: the call does not end");
        }
    }

  private:
    void Act() {
        for (int done = 0;; ++done) {
            m_turn.wait(done);
            if (m_isOver) {
                return;
            }
            m_call();
            m_isIdle = true;
        }
    }

    std::function<void()> m_call;
    std::atomic<bool> m_isIdle = true;
    std::atomic<bool> m_isOver = false;
    std::atomic<int> m_turn = 0;  // how many calls have been begun
    Thread m_thread;  // last: it uses the others
};

}  // namespace Zarvo::Test
