// How jobs end, one by one and in a group.
//
// Contract: a value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>

namespace Orvane {

// How one job ended.
enum class JobOutcome : std::uint8_t {
    Done,       // it returned, even if it was asked to leave
    Failed,     // an exception left it
    Cancelled,  // it left, or never began, because it was asked
};

// At one moment: for a progress line.
struct JobCounts {
    std::size_t waiting = 0;    // not started
    std::size_t running = 0;    // started and not ended
    std::size_t done = 0;       // returned
    std::size_t failed = 0;     // ended by an exception
    std::size_t cancelled = 0;  // left, or never began, because they were asked
};

// A job of a group that has failed.
struct JobFailure {
    std::wstring name;  // of the job
    std::exception_ptr error;  // never null; shared with each reader of the failure
};

// How a job of a group ended.
struct EndedJob {
    std::wstring name;  // of the job
    std::size_t index = 0;  // its number among the jobs of the group, in the order in which they were added
    JobOutcome outcome = JobOutcome::Done;  // how it ended
    std::exception_ptr error;  // of a failed one
};

// What the exception says: what() of a std::exception. Empty without one.
inline std::string ToText(const std::exception_ptr& error) {
    try {
        if (error) {
            std::rethrow_exception(error);
        }
        return {};
    } catch (const std::exception& exception) {
        return exception.what();
    } catch (...) {
        return "not a std::exception";
    }
}

// What becomes of a schedule whose run has failed.
enum class OnFailure {
    GoOn,  // the next run comes; the failure goes to the failure handler
    Stop,  // no run comes any more; the failure goes to the failure handler
    FailGroup,  // as the failure of any job of the group
};

}  // namespace Orvane
