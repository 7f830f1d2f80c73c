// Runs a helper program and judges how it ended: for behaviour that ends the process.
//
// The program lies beside this one. Its log goes to a file of its own, which outlives whatever happens to the child.
//
// Errors: std::runtime_error if the program cannot be started, or does not end in time; it is ended then.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace Zarvo::Test {

// The exit code of a process that ended through std::terminate or std::abort.
inline constexpr std::uint32_t kTerminated = 3;

struct ChildResult {
    std::uint32_t exitCode = 0;
    std::string standardOutput;
    std::string standardError;
    std::vector<std::string> log;  // one line for each record, in order
    std::chrono::nanoseconds elapsed{};

    // The last line of the log; empty if nothing was logged.
    std::string LastRecord() const { return log.empty() ? std::string() : log.back(); }
};

// `program` is the name without ".exe". `environment` adds to this process's own.
ChildResult RunChild(const std::string& program, const std::vector<std::string>& arguments = {},
                     const std::map<std::string, std::string>& environment = {},
                     std::chrono::milliseconds limit = std::chrono::seconds(110));

}  // namespace Zarvo::Test
