// A scenario: what some threads do with the library, and what must hold in every schedule of them.
//
//     SCENARIO(WaitEndsWithTheRun) {
//         ...
//         Party other([&] { ... });
//         ...
//         other.Join();
//         Check(future->IsNormal(), "the run has ended");
//     }
//
// Its body is thread 0. All that it needs is made in it, and gone at its end. A schedule ends when all threads have ended.
#pragma once

#include <functional>
#include <thread>
#include <utility>
#include <vector>

#include "tests/schedules/controller/controller.h"

namespace Schedules {

struct Scenario {
    const char* name;
    void (*body)();
    Terms terms;
};

std::vector<Scenario>& AllScenarios();

struct Registration {
    Registration(const char* name, void (*body)(), const Terms& terms = {}) {
        AllScenarios().push_back({name, body, terms});
    }
};

// A thread of the scenario. Its destructor joins. On purpose not of tests/support: what that one works around is of another
// library, and its gate would be one more object to switch at.
class Party {
  public:
    explicit Party(std::function<void()> body) : m_thread(std::move(body)) {}
    void Join() { m_thread.join(); }

  private:
    std::jthread m_thread;
};

inline void Check(bool holds, const char* what) {
    if (!holds) {
        Fail("does not hold: %s", what);
    }
}

inline constexpr std::int64_t kMillisecond = 1'000'000;

}  // namespace Schedules

#define SCENARIO(name, ...)                                                                             \
    static void name();                                                                                 \
    static const ::Schedules::Registration name##Registration(#name, &name __VA_OPT__(, ) __VA_ARGS__); \
    static void name()
