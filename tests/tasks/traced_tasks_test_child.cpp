// Tasks that end in each way, to be traced.
#include <memory>
#include <vector>

#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/errors/exceptions.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/future_impl.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/tasks/null_future_state.h"
#include "concurrency/tasks/task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/support/gate.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

// A state of a user's own: its run does nothing.
class OwnState : public ITaskState {
  public:
    explicit OwnState(std::shared_ptr<IFutureState> future) : m_future(std::move(future)) {}
    void operator()() override {}
    std::shared_ptr<ITaskState> Recreate() override { return nullptr; }
    std::shared_ptr<IFutureState> GetFuture() override { return m_future; }

  private:
    const std::shared_ptr<IFutureState> m_future;
};

// Not one of the library's.
struct OwnFuture : NullFutureState {
    bool IsCancelled() const override { return false; }
};

void EndInEachWay() {
    MakeTask(L"Plain", [] {})();
    MakeTask(L"Failing", [] { throw Unexpected(L"on purpose"); })();
    Task(L"Idle", std::make_shared<OwnState>(std::make_shared<FutureImpl<void>>()))();
    Task(L"Strange", std::make_shared<OwnState>(std::make_shared<OwnFuture>()))();
    try {
        MakeTask(L"Left", [] { throw 42; })();
    } catch (int) {
        // As it should.
    }
    Gate entered;
    Task cancelled = MakeTask(L"Cancelled", [&entered] {
        entered.Open();
        CancellableSleep(INFINITE);
    });
    GlobalThreadPool::LaunchInNewThread(cancelled);
    entered.Wait();
    cancelled.Cancel();
    cancelled.Wait();
}

// More tasks than the pool has workers, beside one on a thread of its own.
void GrowThePool() {
    Gate go;
    std::vector<Task> holding;
    holding.push_back(MakeTask(L"Beside", [&go] { go.Wait(); }));
    GlobalThreadPool::LaunchInNewThread(holding.back());
    for (int i = 0; i < 12; ++i) {
        holding.push_back(MakeTask(L"Holding", [&go] { go.Wait(); }));
        GlobalThreadPool::Queue(holding.back());
    }
    go.Open();
    for (Task& task : holding) {
        task.Wait();
    }
}

}  // namespace

int main() {
    const ConcurrencyLifetime lifetime;
    EndInEachWay();
    GrowThePool();
}
