#include "zarvo_orvane_logging/environment_settings.h"

#include <cwchar>
#include <new>
#include <string>
#include <string_view>
#include <system_error>

#include <windows.h>

#include "zarvo_orvane_logging/growing_text.h"
#include "zarvo_orvane_logging/report_line.h"

namespace Orvane::Reports {

namespace {

constexpr std::wstring_view kFilePrefix = L"file:";

void ChooseFile(const wchar_t* path, EnvironmentSettings& settings) {
    try {
        settings.file = LineFile(path);
    } catch (const std::system_error& error) {
        Explain(std::wstring(L"ZARVO_LOG: cannot open the log file \"") + path + L"\" (error " +
                std::to_wstring(error.code().value()) + L"). It is ignored.");
    }
}

void ChooseSink(const std::wstring& value, EnvironmentSettings& settings) {
    using Sink = OrvaneLogging::Sink;
    if (value.starts_with(kFilePrefix)) {
        ChooseFile(value.c_str() + kFilePrefix.size(), settings);
    } else if (value == L"stderr") {
        settings.sink = Sink::StandardError;
    } else if (!value.empty() && value != L"none") {
        Explain(L"ZARVO_LOG: \"" + value + L"\" is not one of none, stderr and file:PATH. It is ignored.");
    }
}

void ChooseMinimumLevel(const std::wstring& value, EnvironmentSettings& settings) {
    if (value.empty()) {
        return;
    }
    wchar_t* end = nullptr;
    const long level = std::wcstol(value.c_str(), &end, 10);
    if (*end == L'\0') {
        settings.minimumLevel = static_cast<int>(level);
    } else {
        Explain(L"ZARVO_LOG_LEVEL: \"" + value + L"\" is not a number. It is ignored.");
    }
}

}  // namespace

void Explain(const std::wstring& problem) {
    Utf8Text line;
    EncodeUtf8(problem + L"\n", line);
    WriteToStandardError(line.Text());
}

std::wstring EnvironmentVariable(const wchar_t* name) {
    std::wstring value;
    DWORD length = GetEnvironmentVariableW(name, nullptr, 0);
    while (length > value.size()) {
        value.resize(length);
        length = GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size()));
    }
    value.resize(length);
    return value;
}

EnvironmentSettings ReadEnvironmentSettings() noexcept {
    EnvironmentSettings settings;
    try {
        ChooseMinimumLevel(EnvironmentVariable(L"ZARVO_LOG_LEVEL"), settings);
        ChooseSink(EnvironmentVariable(L"ZARVO_LOG"), settings);
    } catch (const std::bad_alloc&) {
        WriteToStandardError("ZARVO_LOG: out of memory. It is ignored.\n");
    }
    return settings;
}

}  // namespace Orvane::Reports
