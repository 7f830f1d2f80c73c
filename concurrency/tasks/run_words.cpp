#include "concurrency/tasks/run_words.h"

#include "concurrency/base/last_words.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/current_task_slot.h"
#include "concurrency/tasks/future_state.h"

namespace Orvane::Internal {

void EndProcessInRun(const char* reason) noexcept {
    LastWords words(reason);
    if (const auto run = FutureState::TaskOf(CurrentFuture())) {
        run->NameRun(words);
    }
    words.AddThread(::GetCurrentThreadId());
    words.AddException();
    words.EndProcess();
}

}  // namespace Orvane::Internal
