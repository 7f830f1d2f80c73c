// Standard error that is a console.
#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <windows.h>

namespace {

// A console without a window, for one process.
class Console {
  public:
    Console() {
        if (CreatePipe(&m_input, &m_inputEnd, nullptr, 0) == FALSE ||
            CreatePipe(&m_outputEnd, &m_output, nullptr, 0) == FALSE ||
            FAILED(CreatePseudoConsole({120, 25}, m_input, m_output, 0, &m_console))) {
            throw std::runtime_error("no console");
        }
    }
    ~Console() {
        ClosePseudoConsole(m_console);
        for (HANDLE const end : {m_input, m_inputEnd, m_outputEnd, m_output}) {
            CloseHandle(end);
        }
    }
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    // Returns the program's exit code.
    DWORD Run(std::wstring commandLine) {
        std::size_t size = 0;
        InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
        std::vector<std::byte> memory(size);
        STARTUPINFOEXW startup{};
        startup.StartupInfo.cb = sizeof(startup);
        startup.lpAttributeList = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(memory.data());
        InitializeProcThreadAttributeList(startup.lpAttributeList, 1, 0, &size);
        UpdateProcThreadAttribute(startup.lpAttributeList, 0, PROC_THREAD_ATTRIBUTE_PSEUDOCONSOLE, m_console,
                                  sizeof(m_console), nullptr, nullptr);
        PROCESS_INFORMATION process{};
        if (CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, EXTENDED_STARTUPINFO_PRESENT, nullptr,
                           nullptr, &startup.StartupInfo, &process) == FALSE) {
            throw std::runtime_error("the child program cannot be started");
        }
        WaitForSingleObject(process.hProcess, INFINITE);
        DWORD exitCode = 0;
        GetExitCodeProcess(process.hProcess, &exitCode);
        CloseHandle(process.hThread);
        CloseHandle(process.hProcess);
        return exitCode;
    }

  private:
    HANDLE m_input = nullptr;
    HANDLE m_inputEnd = nullptr;
    HANDLE m_output = nullptr;
    HANDLE m_outputEnd = nullptr;
    HPCON m_console = nullptr;
};

}  // namespace

// In UTF-8 it would show other characters wherever the console has another code page.
TEST(OrvaneLoggingConsole, GetsWideText) {
    Console console;
    EXPECT_EQ(console.Run(L"orvane_logging_test_child.exe console"), 0u);
}
