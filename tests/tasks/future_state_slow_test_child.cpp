// Waits, in the way that the argument names, for a run that was cancelled and does not respond.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <thread>

#include "concurrency/tasks/make_task.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;

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
    Task task = MakeTask(L"deaf", [] { std::this_thread::sleep_for(std::chrono::hours(1)); }, future);
    std::thread([task]() mutable { task(); }).detach();
    while (!future->IsBusy()) {
        std::this_thread::yield();
    }
    task.Cancel();
    WaitFor(count > 1 ? values[1] : "", task, *future);
    return 1;
}
