#include "tests/support/child_process.h"

#include <sstream>
#include <stdexcept>
#include <utility>

#include "concurrency/base/windows_api.h"
#include "tests/support/stopwatch.h"

namespace Zarvo::Test {

namespace {

[[noreturn]] void Fail(const std::string& program, const char* what) {
    throw std::runtime_error("RunChild: " + program + " " + what);
}

std::wstring Widen(const std::string& utf8) {
    const int size = static_cast<int>(utf8.size());
    std::wstring wide(static_cast<std::size_t>(MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, nullptr, 0)), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, wide.data(), static_cast<int>(wide.size()));
    return wide;
}

std::string Narrow(const std::wstring& wide) {
    const int size = static_cast<int>(wide.size());
    std::string utf8(
        static_cast<std::size_t>(WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, nullptr, 0, nullptr, nullptr)),
        '\0');
    WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, utf8.data(), static_cast<int>(utf8.size()), nullptr, nullptr);
    return utf8;
}

// A file in the temporary folder that disappears with the object.
class TemporaryFile {
  public:
    TemporaryFile() {
        wchar_t folder[MAX_PATH + 1];
        wchar_t path[MAX_PATH + 1];
        if (GetTempPathW(MAX_PATH + 1, folder) == 0 || GetTempFileNameW(folder, L"zct", 0, path) == 0) {
            throw std::runtime_error("RunChild: no temporary file");
        }
        m_path = path;
    }
    ~TemporaryFile() { DeleteFileW(m_path.c_str()); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::wstring& Path() const { return m_path; }

    std::string Text() const {
        const HANDLE file = Open(GENERIC_READ, nullptr);
        std::string text;
        char piece[4096];
        DWORD count = 0;
        while (ReadFile(file, piece, sizeof(piece), &count, nullptr) != FALSE && count != 0) {
            text.append(piece, count);
        }
        CloseHandle(file);
        return text;
    }

    // To be closed by the caller.
    HANDLE OpenForChild() const {
        SECURITY_ATTRIBUTES inheritable{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
        return Open(FILE_APPEND_DATA, &inheritable);
    }

  private:
    HANDLE Open(DWORD access, SECURITY_ATTRIBUTES* attributes) const {
        return CreateFileW(m_path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, attributes,
                           OPEN_EXISTING, 0, nullptr);
    }

    std::wstring m_path;
};

std::wstring ProgramPath(const std::string& program) {
    std::wstring path(32768, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    path.resize(path.find_last_of(L"\\/") + 1);
    return path + Widen(program) + L".exe";
}

// As the C runtime of the child takes it apart again: quotes and the backslashes before them are escaped.
std::wstring Quoted(const std::wstring& argument) {
    std::wstring quoted = L"\"";
    std::size_t backslashes = 0;
    for (const wchar_t character : argument) {
        if (character == L'"') {
            quoted.append(backslashes + 1, L'\\');
        }
        backslashes = character == L'\\' ? backslashes + 1 : 0;
        quoted += character;
    }
    quoted.append(backslashes, L'\\');
    return quoted + L'"';
}

bool SameName(const std::wstring& entry, const std::wstring& name) {
    return entry.size() > name.size() && entry[name.size()] == L'=' &&
           CompareStringOrdinal(entry.data(), static_cast<int>(name.size()), name.data(), static_cast<int>(name.size()),
                                TRUE) == CSTR_EQUAL;
}

// This process's environment with the additions, as CreateProcessW takes it.
std::wstring EnvironmentBlock(const std::map<std::string, std::string>& additions) {
    std::vector<std::wstring> entries;
    wchar_t* const own = GetEnvironmentStringsW();
    for (const wchar_t* entry = own; *entry != L'\0'; entry += entries.back().size() + 1) {
        entries.emplace_back(entry);
    }
    FreeEnvironmentStringsW(own);
    for (const auto& [name, value] : additions) {
        const std::wstring wide = Widen(name);
        std::erase_if(entries, [&](const std::wstring& entry) { return SameName(entry, wide); });
        entries.push_back(wide + L"=" + Widen(value));
    }
    std::wstring block;
    for (const std::wstring& entry : entries) {
        block += entry;
        block += L'\0';
    }
    return block + L'\0';
}

HANDLE Start(const std::string& program, std::wstring commandLine, std::wstring environment, HANDLE output,
             HANDLE error) {
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    startup.hStdOutput = output;
    startup.hStdError = error;
    PROCESS_INFORMATION process{};
    const BOOL started = CreateProcessW(ProgramPath(program).c_str(), commandLine.data(), nullptr, nullptr, TRUE,
                                        CREATE_UNICODE_ENVIRONMENT, environment.data(), nullptr, &startup, &process);
    CloseHandle(output);
    CloseHandle(error);
    if (started == FALSE) {
        Fail(program, "cannot be started");
    }
    CloseHandle(process.hThread);
    return process.hProcess;
}

std::uint32_t WaitForEnd(const std::string& program, HANDLE process, std::chrono::milliseconds limit) {
    const bool ended = WaitForSingleObject(process, static_cast<DWORD>(limit.count())) == WAIT_OBJECT_0;
    if (!ended) {
        TerminateProcess(process, 1);
    }
    DWORD exitCode = 0;
    GetExitCodeProcess(process, &exitCode);
    CloseHandle(process);
    if (!ended) {
        Fail(program, "did not end in time");
    }
    return exitCode;
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

    std::wstring commandLine = Quoted(Widen(program));
    for (const std::string& argument : arguments) {
        commandLine += L" " + Quoted(Widen(argument));
    }
    std::map<std::string, std::string> variables{{"ZARVO_LOG", "file:" + Narrow(log.Path())}, {"ZARVO_LOG_LEVEL", ""}};
    for (const auto& [name, value] : environment) {
        variables[name] = value;
    }

    const Stopwatch stopwatch;
    const HANDLE process = Start(program, std::move(commandLine), EnvironmentBlock(variables), output.OpenForChild(),
                                 error.OpenForChild());
    ChildResult result;
    result.exitCode = WaitForEnd(program, process, limit);
    result.elapsed = stopwatch.Elapsed();
    result.standardOutput = output.Text();
    result.standardError = error.Text();
    result.log = Lines(log.Text());
    return result;
}

}  // namespace Zarvo::Test
