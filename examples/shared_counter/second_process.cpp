#include "examples/shared_counter/second_process.h"

namespace SharedCounter {

namespace {

std::wstring OwnPath() {
    std::wstring path(32768, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return path;
}

HANDLE Start(const std::wstring& arguments) {
    const std::wstring program = OwnPath();
    std::wstring commandLine = L"\"" + program + L"\" " + arguments;
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    if (CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                       &process) == FALSE) {
        return nullptr;
    }
    CloseHandle(process.hThread);
    return process.hProcess;
}

}  // namespace

SecondProcess::SecondProcess(const std::wstring& arguments) : m_process(Start(arguments), "second process") {}

SecondProcess::~SecondProcess() {
    Kill();
}

bool SecondProcess::WaitFor(HANDLE event) const {
    const HANDLE handles[] = {event, m_process.Get()};
    return WaitForMultipleObjects(2, handles, FALSE, INFINITE) == WAIT_OBJECT_0;
}

void SecondProcess::Kill() const {
    TerminateProcess(m_process.Get(), 1);
    WaitForSingleObject(m_process.Get(), INFINITE);
}

}  // namespace SharedCounter
