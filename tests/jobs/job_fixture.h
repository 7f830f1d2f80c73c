// What the tests of jobs share.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/jobs/job.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/support/gate.h"

namespace Zarvo::Test {

class JobTest : public testing::Test {
  protected:
    // In a test's body the name is GoogleTest's own otherwise.
    template <typename... Parts>
    static auto Run(const wchar_t* name, Parts&&... parts) {
        return Orvane::Run(name, std::forward<Parts>(parts)...);
    }

  private:
    const Orvane::ConcurrencyLifetime m_lifetime;
};

// Leaves only when the calling thread's run is asked to.
[[noreturn]] inline void SleepUntilAsked() {
    for (;;) {
        Orvane::CancellableSleep(INFINITE);
    }
}

// A job that has begun, and leaves when it is asked to.
inline Orvane::Job<void> RunSleeper(const wchar_t* name = L"sleeper") {
    const auto begun = std::make_shared<Gate>();
    auto job = Orvane::Run(name, [begun] {
        begun->Open();
        SleepUntilAsked();
    });
    begun->Wait();
    return job;
}

// A job that has begun, and ends when the gate opens, whether it is asked or not.
inline Orvane::Job<void> RunHeld(const std::shared_ptr<Gate>& mayEnd, const wchar_t* name = L"held") {
    const auto begun = std::make_shared<Gate>();
    auto job = Orvane::Run(name, [begun, mayEnd] {
        begun->Open();
        mayEnd->Wait();
    });
    begun->Wait();
    return job;
}

// The message of the `Error` that the call throws.
template <typename Error, typename Call>
std::string MessageOf(Call call) {
    try {
        call();
    } catch (const Error& error) {
        return error.what();
    }
    return "nothing thrown";
}

}  // namespace Zarvo::Test
