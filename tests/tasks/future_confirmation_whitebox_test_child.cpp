// Waits, in the way that the argument names, for a run that was cancelled and does not respond: by a clock of its own until the
// last millisecond and then beyond.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <thread>

#include "concurrency/tasks/make_task.h"
#include "tests/support/eventually.h"
#include "tests/support/thread.h"
#include "tests/tasks/clocked_wait.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

void WaitFor(const std::string& way, Task& task, FutureImpl<void>& future) {
    if (way == "Task::Wait") {
        task.Wait();
    } else if (way == "FutureState::Wait") {
        future.Wait();
    } else if (way == "GetValue") {
        future.GetValue();
    }
}

}  // namespace

int main(int count, char** values) {
    std::set_terminate([] {
        std::fputs("terminate handler", stdout);
        std::fflush(stdout);
        std::abort();
    });
    std::shared_ptr<FutureImpl<void>> future;
    Task task = MakeTask(L"deaf", [] { std::this_thread::sleep_for(1h); }, future);
    Thread([task]() mutable { task(); }).detach();
    while (!future->IsBusy()) {
        std::this_thread::yield();
    }
    task.Cancel();
    const std::string way = count > 1 ? values[1] : "";
    ClockedWait wait(*future, [&] { WaitFor(way, task, *future); });
    wait.Advance(30s - 1ms);
    std::fputs(wait.HasEnded() ? "waits no more, " : "still waits, ", stdout);
    wait.Advance(1ms);
    (void)Eventually([] { return false; });  // the waiter ends the process
    std::_Exit(2);
}
