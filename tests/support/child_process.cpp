#include "tests/support/child_process.h"

#include <sstream>
#include <stdexcept>

#include "tests/support/running_child.h"
#include "tests/support/stopwatch.h"

namespace Zarvo::Test {

namespace {

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

}  // namespace

void FailChild(const std::string& program, const char* what) {
    throw std::runtime_error("RunChild: " + program + " " + what);
}

ChildResult RunChild(const std::string& program, const std::vector<std::string>& arguments,
                     const std::map<std::string, std::string>& environment, std::chrono::milliseconds limit) {
    const TemporaryFile output;
    const TemporaryFile error;
    const TemporaryFile log;
    std::map<std::string, std::string> variables{{"ZARVO_LOG", "file:" + log.Path()}, {"ZARVO_LOG_LEVEL", ""}};
    for (const auto& [name, value] : environment) {
        variables[name] = value;
    }

    const Stopwatch stopwatch;
    const ChildProcess process = StartChild(program, arguments, variables, output, error);
    ChildResult result;
    result.exitCode = WaitForChild(program, process, limit);
    result.elapsed = stopwatch.Elapsed();
    result.standardOutput = output.Text();
    result.standardError = error.Text();
    result.log = Lines(log.Text());
    return result;
}

}  // namespace Zarvo::Test
