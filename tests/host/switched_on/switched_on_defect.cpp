// Defects such as the library could have, one at a time: switched_on_defect NAME. The sanitizers must report each, and
// nothing without one.
#include <cstdio>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/future_impl.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/support/gate.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

using Future = FutureImpl<void>;

std::shared_ptr<Future> NewFuture() {
    return std::shared_ptr<Future>(new Future());
}

// A task on the pool beside work of the calling thread. Both begin together.
void BesideEachOther(const std::function<void()>& onPool, const std::function<void()>& here) {
    const ConcurrencyLifetime lifetime;
    Countdown both(2);
    Task task = MakeTask(L"beside", [&] {
        both.Meet();
        onPool();
    });
    GlobalThreadPool::Queue(task);
    both.Meet();
    here();
    task.Wait();
}

// A future's run, kept once more beside the future without its protection.
void PlainSharedPtr(bool defective) {
    const auto future = NewFuture();
    std::shared_ptr<CancellationObject> beside;
    BesideEachOther(
        [&] {
            future->Start();
            if (defective) {
                beside = future->GetCancellationObject();
            }
        },
        [&] {
            const auto run = defective ? beside : future->GetCancellationObject();
            if (run) {
                run->IsRequested();
            }
        });
}

// One list, appended to under two different locks.
void WrongLock(bool defective) {
    std::mutex right;
    std::mutex wrong;
    std::list<Task> tasks;
    const auto append = [&tasks](std::mutex& mutex) {
        const std::lock_guard lock(mutex);
        tasks.emplace_back();
    };
    BesideEachOther([&] { append(right); }, [&] { append(defective ? wrong : right); });
}

// A thread that ends with its current future still in place leaves the slot's cell behind.
void LeakedCell(bool defective) {
    const ConcurrencyLifetime lifetime;
    const auto future = NewFuture();
    std::thread([&] {
        ResetFutureObject(future);
        if (!defective) {
            ResetFutureObject({});
        }
    }).join();
}

// A start time advanced without care for the end of time.
void OverflowingStart(bool defective) {
    const Duration interval(1);
    Duration start = defective ? Duration::max() : Duration::zero();
    start += interval;
    std::printf("%lld\n", static_cast<long long>(start.count()));
}

const std::map<std::string, void (*)(bool)> kDefects{{"plain_shared_ptr", &PlainSharedPtr},
                                                     {"wrong_lock", &WrongLock},
                                                     {"leaked_cell", &LeakedCell},
                                                     {"overflowing_start", &OverflowingStart}};

}  // namespace

int main(int count, char** arguments) {
    const std::string name = count == 2 ? arguments[1] : "";
    if (name != "none" && !kDefects.contains(name)) {
        std::fputs("switched_on_defect: none, or the name of a defect\n", stderr);
        return 2;
    }
    for (const auto& [defect, run] : kDefects) {
        if (name == "none" || name == defect) {
            run(name == defect);
        }
    }
    return 0;
}
