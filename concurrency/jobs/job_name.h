// The name of a job or group, and those of the runs that own it.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "concurrency/cancellation/time_limit_exceptions.h"

namespace Orvane::Internal {

struct JobName {
    // Names are linked up to this depth. Beyond it a name begins a new chain: jobs that start each other for ever would
    // keep all their names otherwise.
    static constexpr int kLongestChain = 16;

    explicit JobName(const wchar_t* name, std::shared_ptr<const JobName> parent = nullptr) : text(name ? name : L"") {
        if (parent && parent->depth < kLongestChain) {
            depth = parent->depth + 1;
            above = std::move(parent);
        }
    }

    // As in "Import > Fetch 17". Calls itself up to kLongestChain times.
    std::wstring Path() const { return above ? above->Path() + L" > " + text : text; }  // NOLINT(misc-no-recursion)

    std::wstring text;
    std::shared_ptr<const JobName> above;
    int depth = 1;
};

// A time limit, under the name of the job, the group or the scope that has it.
struct LimitName final : JobName {
    LimitName(const wchar_t* name, std::chrono::nanoseconds duration) : JobName(name), details(text, duration) {}

    TimeLimitDetails details;
};

}  // namespace Orvane::Internal
