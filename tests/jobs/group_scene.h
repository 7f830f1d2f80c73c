// The scene of most tests of groups: a group, jobs of it that are held, and jobs that stay until they are asked to leave.
//
// Threads: the members' own.
// Lifetime: declare it behind what its jobs use. At its end it lets the held jobs go, so that a failed assertion does not leave
//     the group waiting for them.
#pragma once

#include <cstddef>

#include "concurrency/jobs/job_group.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/jobs/blocked.h"
#include "tests/jobs/turnstile.h"
#include "tests/support/eventually.h"

namespace Zarvo::Test {

class GroupScene {
  private:
    const Orvane::ConcurrencyLifetime m_lifetime;

  public:
    explicit GroupScene(std::size_t bound = Orvane::DefaultBound()) : group(L"group", bound) {}
    ~GroupScene() { turnstile.LetAllGo(); }
    GroupScene(const GroupScene&) = delete;
    GroupScene& operator=(const GroupScene&) = delete;

    // What such jobs do.
    auto Held() {
        return [this] { turnstile.Pass(); };
    }
    auto Staying() {
        return [this] { blocked.Stay(); };
    }

    void AddHeld(int count) {
        for (int i = 0; i < count; ++i) {
            group.Run(L"held", Held());
        }
    }

    // Add one, and return whether it has begun.
    [[nodiscard]] bool HoldOne() {
        const int before = turnstile.Entered();
        AddHeld(1);
        return Entered(before + 1);
    }
    [[nodiscard]] bool BlockOne() {
        const int before = blocked.Entered();
        group.Run(L"blocked", Staying());
        return blocked.Enter(before + 1);
    }

    // Whether so many held ones have begun.
    [[nodiscard]] bool Entered(int count) const {
        return Eventually([&] { return turnstile.Entered() >= count; });
    }

    Turnstile turnstile;
    Blocked blocked;
    Orvane::JobGroup group;
};

}  // namespace Zarvo::Test
