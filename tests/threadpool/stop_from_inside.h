// A task that stops the pool that runs it, which is refused.
//
// Lifetime: must outlive the task's run.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/thread_pool.h"
#include "tests/support/eventually.h"

namespace Zarvo::Test {

class StopFromInside {
  public:
    explicit StopFromInside(std::shared_ptr<Orvane::Internal::ThreadPoolCore> pool) : m_pool(std::move(pool)) {}
    StopFromInside(const StopFromInside&) = delete;
    StopFromInside& operator=(const StopFromInside&) = delete;

    Orvane::Internal::Task MakeTask() {
        return Orvane::MakeTask(L"stops its own pool", [this] { Stop(); });
    }

    // Waits until the task has begun, and gives it the time to come through where it must not.
    void GiveItAChance() const {
        static_cast<void>(Eventually([this] { return m_begun.load(); }));
        static_cast<void>(Eventually([this] { return m_over.load(); }, std::chrono::milliseconds(100)));
    }

    // What the refusal says. When the task has run.
    const std::string& Refusal() const { return m_refusal; }

  private:
    void Stop() {
        m_begun = true;
        try {
            m_pool->Stop();
        } catch (const std::runtime_error& error) {
            m_refusal = error.what();
        }
        m_over = true;
    }

    const std::shared_ptr<Orvane::Internal::ThreadPoolCore> m_pool;
    std::string m_refusal;
    std::atomic<bool> m_begun = false;
    std::atomic<bool> m_over = false;
};

inline constexpr const char* kStopRefused = "Trying to call destructor in thread from thread pool causes deadlock!";

}  // namespace Zarvo::Test
