// Jobs that stay until they are asked to leave.
//
// Threads: any.
// Lifetime: must outlive the jobs, so declare it before their group.
#pragma once

#include <atomic>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "tests/support/eventually.h"

namespace Zarvo::Test {

class Blocked {
  public:
    Blocked() = default;
    Blocked(const Blocked&) = delete;
    Blocked& operator=(const Blocked&) = delete;

    // What the job calls.
    void Stay() {
        const Stayed stayed(*this);
        for (;;) {
            Orvane::CancellableSleep(INFINITE);
        }
    }

    int Entered() const { return m_entered; }
    int Left() const { return m_left; }

    [[nodiscard]] bool Enter(int count) const {
        return Eventually([&] { return m_entered >= count; });
    }

  private:
    struct Stayed {
        explicit Stayed(Blocked& owner) : blocked(owner) { ++blocked.m_entered; }
        ~Stayed() { ++blocked.m_left; }
        Stayed(const Stayed&) = delete;
        Stayed& operator=(const Stayed&) = delete;

        Blocked& blocked;
    };

    std::atomic<int> m_entered = 0;
    std::atomic<int> m_left = 0;
};

}  // namespace Zarvo::Test
