// Reads a trace file, and says what is wrong with its structure.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace Zarvo::Test {

struct TraceEvent {
    double time = 0;  // microseconds
    std::string phase;
    std::int64_t process = 0;
    std::int64_t thread = 0;
    std::string category;
    std::string name;
    std::string id;
    std::map<std::string, std::string> arguments;  // numbers as texts
};

using TraceEvents = std::vector<TraceEvent>;

// Errors: std::runtime_error with the line, if the file is not `[`, then one event with a comma on each line, then blanks.
TraceEvents ParseTrace(const std::string& text);
TraceEvents ReadTrace(const std::filesystem::path& file);

// The same, but the process was killed: its last line may be torn, and is left out then.
TraceEvents ReadTraceOfKilled(const std::filesystem::path& file);

// One line for each event that breaks a rule: times never sink; spans of a thread nest, and their ends name them; spans with an
// id begin before they end, and begin again only after that; all have ended.
std::vector<std::string> ProblemsIn(const TraceEvents& events);

// The events of this phase and name.
TraceEvents Find(const TraceEvents& events, const std::string& phase, const std::string& name);

}  // namespace Zarvo::Test
