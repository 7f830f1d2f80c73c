// Occupies a worker of the pool that does not count as busy: a callable that threw is kept by its task, so it dies with
// the worker's handle, when the task has left the list of the running ones. The destructor blocks there.
//
// Threads: the members belong to the test's thread.
// Lifetime: the destructor releases the worker; declare it after the library's lifetime.
#pragma once

#include <memory>

#include "concurrency/errors/exceptions.h"
#include "concurrency/tasks/make_task.h"
#include "tests/support/gate.h"
#include "tests/threadpool/at_end.h"

namespace Zarvo::Test {

class HeldWorker {
  public:
    // Returns when the worker is held.
    template <typename Queue>
    explicit HeldWorker(Queue queue) {
        queue(Orvane::MakeTask(L"held in a destructor", [state = m_state, end = MakeEnd()] {
            state->handleIsGone.Wait();
            throw Orvane::Unexpected(L"kept");
        }));
        m_state->handleIsGone.Open();
        m_state->held.Wait();
    }
    ~HeldWorker() { Release(); }
    HeldWorker(const HeldWorker&) = delete;
    HeldWorker& operator=(const HeldWorker&) = delete;

    void Release() { m_state->released.Open(); }

  private:
    struct State {
        Gate handleIsGone;  // the worker's is the last
        Gate held;
        Gate released;
    };

    std::shared_ptr<void> MakeEnd() const {
        return AtEnd([state = m_state] {
            state->held.Open();
            state->released.Wait();
        });
    }

    const std::shared_ptr<State> m_state = std::make_shared<State>();
};

}  // namespace Zarvo::Test
