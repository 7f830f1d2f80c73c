#include "tests/support/child_process.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/stopwatch.h"

namespace Zarvo::Test {

namespace {

[[noreturn]] void Fail(const std::string& program, const char* what) {
    throw std::runtime_error("RunChild: " + program + " " + what);
}

// A file in the temporary folder that disappears with the object.
class TemporaryFile {
  public:
    TemporaryFile() {
        std::string path = std::filesystem::temp_directory_path() / "child-XXXXXX";
        const int file = mkstemp(path.data());
        if (file < 0) {
            throw std::runtime_error("RunChild: no temporary file");
        }
        close(file);
        m_path = path;
    }
    ~TemporaryFile() { std::remove(m_path.c_str()); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::string& Path() const { return m_path; }

    std::string Text() const {
        std::ifstream file(m_path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

  private:
    std::string m_path;
};

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

pid_t Start(const std::string& program, std::vector<std::string> arguments, std::vector<std::string> environment,
            const std::string& output, const std::string& error) {
    const std::string path = std::filesystem::read_symlink("/proc/self/exe").parent_path() / program;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), O_WRONLY | O_APPEND, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, error.c_str(), O_WRONLY | O_APPEND, 0);
    pid_t process = 0;
    const int failure = posix_spawn(&process, path.c_str(), &actions, nullptr, Pointers(arguments).data(),
                                    Pointers(environment).data());
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) {
        Fail(program, "cannot be started");
    }
    return process;
}

// An abort is told as the platform's C runtime tells it.
std::uint32_t WaitForEnd(const std::string& program, pid_t process, std::chrono::milliseconds limit) {
    const Stopwatch stopwatch;
    int status = 0;
    while (waitpid(process, &status, WNOHANG) == 0) {
        if (stopwatch.Elapsed() > limit) {
            kill(process, SIGKILL);
            waitpid(process, &status, 0);
            Fail(program, "did not end in time");
        }
        usleep(1000);
    }
    if (WIFSIGNALED(status)) {
        return WTERMSIG(status) == SIGABRT ? kTerminated : 128U + static_cast<std::uint32_t>(WTERMSIG(status));
    }
    return static_cast<std::uint32_t>(WEXITSTATUS(status));
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

}  // namespace

ChildResult RunChild(const std::string& program, const std::vector<std::string>& arguments,
                     const std::map<std::string, std::string>& environment, std::chrono::milliseconds limit) {
    const TemporaryFile output;
    const TemporaryFile error;
    const TemporaryFile log;

    std::vector<std::string> commandLine{program};
    commandLine.insert(commandLine.end(), arguments.begin(), arguments.end());
    std::map<std::string, std::string> variables{{"ZARVO_LOG", "file:" + log.Path()}, {"ZARVO_LOG_LEVEL", ""}};
    for (const auto& [name, value] : environment) {
        variables[name] = value;
    }

    const Stopwatch stopwatch;
    const pid_t process = Start(program, commandLine, Environment(variables), output.Path(), error.Path());
    ChildResult result;
    result.exitCode = WaitForEnd(program, process, limit);
    result.elapsed = stopwatch.Elapsed();
    result.standardOutput = output.Text();
    result.standardError = error.Text();
    result.log = Lines(log.Text());
    return result;
}

}  // namespace Zarvo::Test
