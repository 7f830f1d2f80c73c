// Why a job was asked to leave.
//
// Contract: a value.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "concurrency/base/export.h"

namespace Orvane {

// Who asked.
enum class CancelCause : std::uint8_t {
    None,          // it was not asked
    Handle,        // Job::Cancel(), also in its own run
    Dropped,       // its handle, or its group, was destroyed
    Parent,        // the run that owns it was asked
    Group,         // JobGroup::Cancel()
    GroupFailure,  // another job of its group has failed
    Limit,         // CancelAfter(), or a Within around its start, of itself or of a run that owns it
    Token,         // the std::stop_token that it was started with
    Signalled,     // what CancelWhen() watches was signalled
    Task,          // through the future of its run, as a request that another task passes on
    Shutdown,      // the last uninitialisation
    Stop,          // StopAll()
};

// The first request that reached a job or a group.
struct CancelReason {
    // What kind of request it was.
    CancelCause cause = CancelCause::None;

    // Of the parent, the group, the job that failed, or what has the limit; what StopAll() was called for; else empty.
    std::wstring by;

    // The length of the limit; else zero.
    std::chrono::nanoseconds limit{};
};

// As in "asked by the failure of Fetch 17".
ORVANE_CONCURRENCY_API std::wstring ToText(const CancelReason& reason);

namespace Internal {

// As in "by the failure of Fetch 17"; empty for None.
std::wstring HowAsked(const CancelReason& reason);

}  // namespace Internal
}  // namespace Orvane
