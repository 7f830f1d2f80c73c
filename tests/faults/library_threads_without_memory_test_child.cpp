// Lets one allocation fail that a thread of the library asks for.
//
// Arguments: what is done (queue, fail, launch, insert), and the number of the allocation among those of all threads but the
// main one. Says "never asked for" if there were not so many, otherwise what has ended the process.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <new>
#include <string>

#include "concurrency/errors/exceptions.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/scheduler/global_scheduler.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/scheduler/moments.h"
#include "tests/support/allocations.h"
#include "tests/support/eventually.h"
#include "tests/support/say_why.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

void Insert(const Task& task) {
    GlobalScheduler::Insert(ScheduledTask(task, k1970, kOnce));
}

void (*HandOver(const std::string& name))(const Task&) {
    if (name == "launch") {
        return &GlobalThreadPool::LaunchInNewThread;
    }
    return name == "insert" ? &Insert : &GlobalThreadPool::Queue;
}

// Waits for the outcome: one that says what the task has done, or that there was no memory to say so.
void Await(FutureImpl<void>& future, bool fails) {
    try {
        future.GetValue();
        if (!fails) {
            return;
        }
    } catch (const Unexpected&) {
        if (fails) {
            return;
        }
    } catch (const std::bad_alloc&) {
        if (fails) {
            return;
        }
    }
    std::puts("the wrong outcome");
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 3) {
        return EXIT_FAILURE;
    }
    std::set_terminate(&SayWhy);
    const auto handOver = HandOver(arguments[1]);
    const bool fails = arguments[1] == std::string("fail");
    const ConcurrencyLifetime lifetime;
    // What was there before must not be asked for: the pool, the scheduler and their threads.
    Task before = MakeTask(L"before", [] {});
    handOver(before);
    before.Wait();
    while (GlobalThreadPool::IsPresent(before)) {
        PauseBriefly();
    }

    std::shared_ptr<FutureImpl<void>> future;
    const Task task = MakeTask(
        L"task",
        [fails] {
            if (fails) {
                throw Unexpected(L"failed");
            }
        },
        future);
    const FailingNew failing(std::stoi(arguments[2]), AskedBy::OtherThreads);
    handOver(task);
    Await(*future, fails);
    std::puts(failing.HasFailed() ? "done without" : "never asked for");
    return EXIT_SUCCESS;
}
