// Ends of the process that cannot be reached through the interface, or not in a short time.
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "concurrency/errors/exceptions.h"
#include "concurrency/jobs/pool_starter.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/thread_pool_teardown.h"
#include "tests/support/gate.h"
#include "tests/support/thread.h"
#include "tests/tasks/clocked_wait.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

void StayForEver() {
    static Gate never;
    never.Wait();
}

// The pool refuses the task, and what is to hear of it fails.
void Growth(const std::function<void(const std::exception_ptr& error)>& failed) {
    DestroyThreadPool();
    QueueInBackground(MakeTask(L"Import", [] {}), failed);
    StayForEver();
}

void Deaf(void (*wait)(Task& task, FutureImpl<void>& future)) {
    std::shared_ptr<FutureImpl<void>> future;
    Task task = MakeTask(L"Import", [] { StayForEver(); }, future);
    Thread([task]() mutable { task(); }).detach();
    while (!future->IsBusy()) {
        std::this_thread::yield();
    }
    task.Cancel();
    ClockedWait waiter(*future, [&] { wait(task, *future); });
    waiter.Advance(30s);
    StayForEver();
}

}  // namespace

int main(int, char** arguments) {
    const std::string scene = arguments[1];
    if (scene == "growth") {
        Growth([](const std::exception_ptr& error) { std::rethrow_exception(error); });
    } else if (scene == "wide-message") {
        Growth([](const std::exception_ptr&) { throw Unexpected(L"\u0416 \u20ac"); });
    } else if (scene == "deaf") {
        Deaf([](Task& task, FutureImpl<void>&) { task.Wait(); });
    } else if (scene == "deaf-future") {
        Deaf([](Task&, FutureImpl<void>& future) { future.Wait(); });
    }
    return EXIT_FAILURE;
}
