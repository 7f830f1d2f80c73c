// What scenarios with tasks share.
#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "tests/schedules/controller/scenario.h"

namespace Schedules {

// A task on a thread of its own.
class TaskParty {
  public:
    explicit TaskParty(std::function<void()> body)
        : m_task(Orvane::MakeTask(L"Party", std::move(body), m_future)),
          m_party([task = m_task]() mutable { task(); }) {}

    void Cancel() { m_task.Cancel(); }
    void Join() { m_party.Join(); }
    Orvane::Internal::FutureImpl<void>& Future() { return *m_future; }
    Orvane::Internal::Task& Task() { return m_task; }

  private:
    std::shared_ptr<Orvane::Internal::FutureImpl<void>> m_future;
    Orvane::Internal::Task m_task;
    Party m_party;
};

}  // namespace Schedules
