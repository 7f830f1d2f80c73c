// A value with a time limit. Work that takes longer is asked to leave, and a failure is no time-out.
//
//     time_limit WORK_MS LIMIT_MS
//
// Exit code: 0 with the value, 1 if the time was up, 2 if the work failed.
#include <chrono>
#include <iostream>
#include <string>

#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/jobs/job.h"
#include "concurrency/lifetime/concurrency_lifetime.h"

namespace {

// Sleeps for so long; asked to leave, it leaves in the sleep.
int Answer(const std::string& milliseconds) {
    Orvane::CancellableSleep(std::stoul(milliseconds));
    return 42;
}

}  // namespace

int main(int count, char** arguments) {
    const Orvane::ConcurrencyLifetime lifetime;
    auto answer = Orvane::Run(L"Answer", Answer, std::string(count > 1 ? arguments[1] : ""));
    answer.CancelAfter(std::chrono::milliseconds(count > 2 ? std::stol(arguments[2]) : 1000));
    try {
        const int value = answer.Get();
        std::cout << "The answer is " << value << ".\n";
        return 0;
    } catch (const Orvane::TimeLimitException&) {
        std::cout << "The time is up.\n";
        return 1;
    } catch (const std::exception& error) {
        std::cout << "The work has failed: " << error.what() << "\n";
        return 2;
    }
}
