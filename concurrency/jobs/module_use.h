// What the library still holds of the modules whose code a group has run, when the group has left. Of the program itself nothing is
// counted: it stays.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "concurrency/base/export.h"

namespace Orvane {

// How much there is of each kind.
//
// Contract: a value.
struct ModuleUse {
    std::size_t callables = 0;  // of jobs that have not ended
    std::size_t results = 0;  // of ended jobs whose handles exist
    std::size_t failures = 0;  // exceptions that jobs and groups keep
    std::size_t schedules = 0;  // of groups, that go on

    // Without a group, with a handle or detached. Each keeps the module loaded until it is gone.
    std::size_t jobs = 0;

    // Of those that can be found.
    std::vector<std::wstring> names;

    // Whether nothing is held.
    bool IsNone() const noexcept {
        return callables == 0 && results == 0 && failures == 0 && schedules == 0 && jobs == 0;
    }
};

// As in "1 result, 2 failures: the result of Import > Fetch 17". Errors: std::bad_alloc.
ORVANE_CONCURRENCY_API std::wstring ToText(const ModuleUse& use);

}  // namespace Orvane
