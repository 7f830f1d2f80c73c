// The command line.
#pragma once

#include <chrono>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace FileDigests {

enum class Threads { kPool, kDedicated };

struct Options {
    std::optional<std::wstring> folder;
    std::optional<std::chrono::milliseconds> cancelAfter;
    Threads threads = Threads::kPool;
    bool help = false;
};

// A command line that makes no sense.
struct UsageError {
    std::string message;  // UTF-8
};

// `arguments` without the program's name. Errors: UsageError.
Options ParseOptions(std::span<const wchar_t* const> arguments);

// UTF-8, several lines.
std::string_view HelpText();

}  // namespace FileDigests
