// One scene of caller_at_exit_test, named on the command line: the process ends while a caller is inside a pointer of the library.
#include <cstdio>
#include <cstring>

#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/lifetime/closing_memory.h"
#include "tests/lifetime/library_use.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

constexpr int kEndOfMain = 7;

// The end of the process kills a caller that holds the lock inside a static pointer of the library.
template <typename Make, typename Call>
int NeverUninitialiseWithACallerInside(Make make, Call call) {
    {
        // What the library makes once and destroys at the end of the process shall not lie in the memory.
        const ConcurrencyLifetime lifetime;
        make();
    }
    ConcurrencyInitialize();
    static ClosingMemory memory;
    make();
    memory.Close();
    memory.KeepIn(call);
    std::fputs("end of main", stdout);
    std::fflush(stdout);
    return kEndOfMain;
}

int NeverUninitialiseWithACallerInThePool() {
    const auto ask = [] { GlobalThreadPool::IsPresent(Task()); };
    return NeverUninitialiseWithACallerInside(ask, ask);
}

int NeverUninitialiseWithACallerInTheScheduler() {
    return NeverUninitialiseWithACallerInside(&CreateScheduler, [] { GlobalScheduler::Insert(ScheduledTask()); });
}

}  // namespace

int main(int count, char** arguments) {
    const char* const scene = count > 1 ? arguments[1] : "";
    if (std::strcmp(scene, "pool") == 0) {
        return NeverUninitialiseWithACallerInThePool();
    }
    return std::strcmp(scene, "scheduler") == 0 ? NeverUninitialiseWithACallerInTheScheduler() : 1;
}
