// Empties a task in the destructor of a static object that is older than those of the library, and so is destroyed after them.
#include <cstdio>
#include <memory>

#include "concurrency/tasks/make_task.h"
#include "tests/support/allocations.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

struct Latest {
    ~Latest() {
        {
            const NoMemory none;
            task.Wait();
        }
        const std::weak_ptr<ITaskState> empty = task.GetWrapper();
        const bool isEmptied = empty.lock() == Task().GetWrapper() && task.IsCancelled() && !empty.expired();
        std::fputs(isEmptied ? "emptied" : "not emptied", stdout);
        std::fflush(stdout);
    }
    Task task;
};

Latest g_latest;

}  // namespace

int main() {
    Task other = MakeTask(L"emptied before", [] {});
    other();
    other.Wait();
    g_latest.task = MakeTask(L"emptied at the end", [] {});
    g_latest.task();
    return 0;
}
