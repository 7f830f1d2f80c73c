// Takes the notifier slot of a run for a scope, and puts back what was there. A request that comes meanwhile is passed on then.
//
// Threads: the run's own. Do not hold a mutex that the former notifier takes.
// Errors: std::system_error from the constructor.
#pragma once

#include <memory>
#include <utility>

#include "concurrency/cancellation/cancellation_object.h"

namespace Orvane::Internal {

class NotifierScope {
  public:
    // Nothing without a run. Without a notifier the slot is free for waits that do not put back what they find.
    explicit NotifierScope(std::shared_ptr<CancellationObject> run, std::weak_ptr<AbstractCancelNotifier> notifier = {})
        : m_run(std::move(run)) {
        if (m_run) {
            m_before = m_run->ExchangeNotifier(std::move(notifier));
        }
    }
    ~NotifierScope() {
        if (!m_run) {
            return;
        }
        try {
            m_run->RestoreNotifier(std::move(m_before));
        } catch (...) {
            // On purpose nothing: the request has been made; only passing it on has failed.
        }
    }
    NotifierScope(const NotifierScope&) = delete;
    NotifierScope& operator=(const NotifierScope&) = delete;

  private:
    const std::shared_ptr<CancellationObject> m_run;
    std::weak_ptr<AbstractCancelNotifier> m_before;
};

}  // namespace Orvane::Internal
