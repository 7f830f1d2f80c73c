#include "tests/support/running_child.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/child_process.h"
#include "tests/support/stopwatch.h"

namespace Zarvo::Test {

namespace {

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

std::vector<std::string> Environment(const std::map<std::string, std::string>& additions) {
    std::vector<std::string> entries;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        if (!additions.contains(text.substr(0, text.find('=')))) {
            entries.push_back(text);
        }
    }
    for (const auto& [name, value] : additions) {
        entries.push_back(name + "=" + value);
    }
    return entries;
}

}  // namespace

TemporaryFile::TemporaryFile() {
    m_path = std::filesystem::temp_directory_path() / "child-XXXXXX";
    const int file = mkstemp(m_path.data());
    if (file < 0) {
        throw std::runtime_error("RunChild: no temporary file");
    }
    close(file);
}

TemporaryFile::~TemporaryFile() {
    std::remove(m_path.c_str());
}

std::string TemporaryFile::Text() const {
    std::ifstream file(m_path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

ChildProcess StartChild(const std::string& program, const std::vector<std::string>& arguments,
                        const std::map<std::string, std::string>& environment, const TemporaryFile& output,
                        const TemporaryFile& error) {
    std::vector<std::string> commandLine{program};
    commandLine.insert(commandLine.end(), arguments.begin(), arguments.end());
    std::vector<std::string> variables = Environment(environment);
    const std::string path = std::filesystem::read_symlink("/proc/self/exe").parent_path() / program;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.Path().c_str(), O_WRONLY | O_APPEND, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, error.Path().c_str(), O_WRONLY | O_APPEND, 0);
    pid_t process = 0;
    const int failure = posix_spawn(&process, path.c_str(), &actions, nullptr, Pointers(commandLine).data(),
                                    Pointers(variables).data());
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) {
        FailChild(program, "cannot be started");
    }
    return process;
}

// An abort is told as the platform's C runtime tells it.
std::uint32_t WaitForChild(const std::string& program, ChildProcess child, std::chrono::milliseconds limit) {
    const auto process = static_cast<pid_t>(child);
    const Stopwatch stopwatch;
    int status = 0;
    while (waitpid(process, &status, WNOHANG) == 0) {
        if (stopwatch.Elapsed() > limit) {
            kill(process, SIGKILL);
            waitpid(process, &status, 0);
            FailChild(program, "did not end in time");
        }
        usleep(1000);
    }
    if (WIFSIGNALED(status)) {
        return WTERMSIG(status) == SIGABRT ? kTerminated : 128U + static_cast<std::uint32_t>(WTERMSIG(status));
    }
    return static_cast<std::uint32_t>(WEXITSTATUS(status));
}

}  // namespace Zarvo::Test
