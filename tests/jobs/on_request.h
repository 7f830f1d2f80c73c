// A request for a run, held or watched while it is on its way.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>

#include "concurrency/cancellation/abstract_cancel_notifier.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/cancellation/current_task.h"

namespace Zarvo::Test {

// The next request for the constructing thread's run makes the call, on the thread that asks. The run can see by then that it
// was asked; what it has started has not been asked. Until the object goes, or the run waits in the library.
class OnRequest {
  public:
    explicit OnRequest(std::function<void()> call) : m_notifier(std::make_shared<Notifier>(std::move(call))) {
        Orvane::Internal::GetCancellationObject()->RegisterNotifier(m_notifier);
    }

  private:
    class Notifier : public Orvane::Internal::AbstractCancelNotifier {
      public:
        explicit Notifier(std::function<void()> call) : m_call(std::move(call)) {}
        ~Notifier() override = default;
        void Notify(std::unique_lock<std::recursive_mutex>& lock, bool& requested) override {
            std::atomic_ref(requested).store(true);
            lock.unlock();
            m_call();
        }

      private:
        const std::function<void()> m_call;
    };

    const std::shared_ptr<Notifier> m_notifier;
};

}  // namespace Zarvo::Test
