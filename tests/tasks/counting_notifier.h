// A notifier that counts the requests that reach a run.
#pragma once

#include <atomic>
#include <mutex>

#include "concurrency/cancellation/abstract_cancel_notifier.h"

namespace Zarvo::Test {

class CountingNotifier : public Orvane::Internal::AbstractCancelNotifier {
  public:
    void Notify(std::unique_lock<std::recursive_mutex>& lock, bool&) override {
        lock.unlock();
        ++m_calls;
    }
    int Calls() const { return m_calls; }

  private:
    std::atomic<int> m_calls = 0;
};

}  // namespace Zarvo::Test
