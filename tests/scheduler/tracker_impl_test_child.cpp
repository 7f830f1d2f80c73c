// Renews a recurrent task after its run, with a renewal that throws what is no std::exception.
#include <chrono>
#include <cstdio>
#include <exception>
#include <functional>
#include <memory>

#include "concurrency/scheduler/tracker_impl.h"
#include "concurrency/tasks/future_impl.h"
#include "tests/scheduler/moments.h"
#include "tests/support/say_why.h"

namespace {

using namespace Orvane::Internal;

void Say(const char* text) {
    std::fputs(text, stdout);
    std::fflush(stdout);
}

class NotRenewable : public ITaskState {
  public:
    void operator()() override {}
    std::shared_ptr<ITaskState> Recreate() override {
        Say("renewing");
        throw 1;
    }
    std::shared_ptr<IFutureState> GetFuture() override { return m_future; }

  private:
    std::shared_ptr<FutureImpl<void>> m_future = std::make_shared<FutureImpl<void>>();
};

}  // namespace

int main() {
    using namespace std::chrono_literals;
    std::set_terminate(&Zarvo::Test::SayWhy);
    TrackerImpl tracker;
    tracker.SetTask(ScheduledTask(Task(L"Stubborn", std::make_shared<NotRenewable>()), Zarvo::Test::Now(), 1s));
    try {
        tracker.UpdateWrapper(std::function<void()>([] {}));
    } catch (int) {
        Say(", caught");
    }
    Say(", survived");
}
