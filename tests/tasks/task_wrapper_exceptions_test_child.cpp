// Runs a task that throws, on the thread that the first argument names. With "known" as the second, the exception is one
// that a future keeps.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>

#include "concurrency/errors/exceptions.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;

void Say(const char* text) {
    std::fputs(text, stdout);
    std::fflush(stdout);
}

void Throw(bool known) {
    if (known) {
        throw Unexpected(L"known");
    }
    throw std::runtime_error("unknown");
}

}  // namespace

int main(int count, char** values) {
    const std::string thread = count > 1 ? values[1] : "";
    const bool known = count > 2 && std::string(values[2]) == "known";
    std::set_terminate([] {
        Say("terminate handler");
        std::abort();
    });
    const ConcurrencyLifetime lifetime;
    std::shared_ptr<FutureImpl<void>> future;
    Task task = MakeTask(L"fails", [known] { Throw(known); }, future);
    try {
        if (thread == "pool") {
            GlobalThreadPool::Queue(task);
        } else if (thread == "dedicated") {
            GlobalThreadPool::LaunchInNewThread(task);
        } else {
            task();
        }
        future->GetValue();
        return 1;
    } catch (const Unexpected&) {
        Say("in the future");
    } catch (const std::runtime_error&) {
        Say("caught");
    }
    return 0;
}
