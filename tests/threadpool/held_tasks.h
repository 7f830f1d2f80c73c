// Tasks that occupy threads until they are released.
//
//     HeldTasks held;
//     ASSERT_TRUE(held.Start(6, &GlobalThreadPool::Queue));
//
// Threads: the members belong to the test's thread.
// Lifetime: the destructor releases the tasks, so declare it after what must wait for them, such as the library's
//     lifetime.
#pragma once

#include <atomic>
#include <memory>

#include "concurrency/tasks/make_task.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"

namespace Zarvo::Test {

class HeldTasks {
  public:
    HeldTasks() = default;
    ~HeldTasks() { Release(); }
    HeldTasks(const HeldTasks&) = delete;
    HeldTasks& operator=(const HeldTasks&) = delete;

    Orvane::Internal::Task Make(const wchar_t* name = L"held") const {
        return Orvane::MakeTask(name, [state = m_state] {
            ++state->entered;
            state->released.Wait();
        });
    }

    // Hands `count` more tasks to `queue` and waits until all handed out so far are running.
    template <typename Queue>
    [[nodiscard]] bool Start(int count, Queue queue) {
        for (int i = 0; i < count; ++i) {
            queue(Make());
        }
        m_started += count;
        return Eventually([this] { return m_state->entered == m_started; });
    }

    // Tasks that have begun so far.
    int Entered() const { return m_state->entered; }

    void Release() { m_state->released.Open(); }

  private:
    struct State {
        std::atomic<int> entered = 0;
        Gate released;
    };

    const std::shared_ptr<State> m_state = std::make_shared<State>();
    int m_started = 0;
};

}  // namespace Zarvo::Test
