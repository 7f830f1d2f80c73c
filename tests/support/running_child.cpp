#include "tests/support/running_child.h"

#include <stdexcept>
#include <utility>

#include "concurrency/base/windows_api.h"

namespace Zarvo::Test {

namespace {

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

HANDLE OpenFile(const std::string& path, DWORD access, SECURITY_ATTRIBUTES* attributes) {
    return CreateFileW(Widen(path).c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, attributes,
                       OPEN_EXISTING, 0, nullptr);
}

// To be closed by the caller.
HANDLE OpenForChild(const TemporaryFile& file) {
    SECURITY_ATTRIBUTES inheritable{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    return OpenFile(file.Path(), FILE_APPEND_DATA, &inheritable);
}

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
        FailChild(program, "cannot be started");
    }
    CloseHandle(process.hThread);
    return process.hProcess;
}

}  // namespace

TemporaryFile::TemporaryFile() {
    wchar_t folder[MAX_PATH + 1];
    wchar_t path[MAX_PATH + 1];
    if (GetTempPathW(MAX_PATH + 1, folder) == 0 || GetTempFileNameW(folder, L"zct", 0, path) == 0) {
        throw std::runtime_error("RunChild: no temporary file");
    }
    m_path = Narrow(path);
}

TemporaryFile::~TemporaryFile() {
    DeleteFileW(Widen(m_path).c_str());
}

std::string TemporaryFile::Text() const {
    const HANDLE file = OpenFile(m_path, GENERIC_READ, nullptr);
    std::string text;
    char piece[4096];
    DWORD count = 0;
    while (ReadFile(file, piece, sizeof(piece), &count, nullptr) != FALSE && count != 0) {
        text.append(piece, count);
    }
    CloseHandle(file);
    return text;
}

ChildProcess StartChild(const std::string& program, const std::vector<std::string>& arguments,
                        const std::map<std::string, std::string>& environment, const TemporaryFile& output,
                        const TemporaryFile& error) {
    std::wstring commandLine = Quoted(Widen(program));
    for (const std::string& argument : arguments) {
        commandLine += L" " + Quoted(Widen(argument));
    }
    return reinterpret_cast<ChildProcess>(Start(program, std::move(commandLine), EnvironmentBlock(environment),
                                                OpenForChild(output), OpenForChild(error)));
}

std::uint32_t WaitForChild(const std::string& program, ChildProcess child, std::chrono::milliseconds limit) {
    const auto process = reinterpret_cast<HANDLE>(child);
    const bool ended = WaitForSingleObject(process, static_cast<DWORD>(limit.count())) == WAIT_OBJECT_0;
    if (!ended) {
        TerminateProcess(process, 1);
    }
    DWORD exitCode = 0;
    GetExitCodeProcess(process, &exitCode);
    CloseHandle(process);
    if (!ended) {
        FailChild(program, "did not end in time");
    }
    return exitCode;
}

}  // namespace Zarvo::Test
